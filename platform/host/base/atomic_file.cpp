// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "atomic_file.h"

#include "fd.h"
#include "places.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

// With 32-bit offsets fstat fails on file systems whose inode numbers are longer.
static_assert(sizeof(off_t) >= 8, "build with _FILE_OFFSET_BITS=64");
static_assert(sizeof(time_t) >= 8, "build with _TIME_BITS=64");

namespace asd_host {

namespace {

std::filesystem::path temporary_of(const std::filesystem::path &file) {
    std::filesystem::path temporary = file;
    temporary += kTemporary;
    return temporary;
}

[[nodiscard]] int write_new_file(const std::filesystem::path &file, std::span<const std::uint8_t> bytes,
                                 unsigned mode) {
    (void)::unlink(file.c_str()); // a leftover; when it can't go, the open says so
    const Fd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!fd) {
        return errno;
    }
    if (const int error = pwrite_all(fd.get(), bytes, 0); error != 0) {
        return error;
    }
    return ::fsync(fd.get()) == 0 ? 0 : errno;
}

} // namespace

bool is_short_of_resources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

int sync_folder_of(const std::filesystem::path &file) {
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
    const Fd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && ::fsync(fd.get()) == 0 ? 0 : errno;
}

int pread_all(int fd, std::span<std::uint8_t> out, std::uint64_t offset) {
    while (!out.empty()) {
        const ssize_t moved = ::pread(fd, out.data(), out.size(), static_cast<off_t>(offset));
        if (moved < 0 && errno == EINTR) {
            continue;
        }
        if (moved <= 0) {
            return moved < 0 ? errno : EIO;
        }
        out = out.subspan(static_cast<std::size_t>(moved));
        offset += static_cast<std::uint64_t>(moved);
    }
    return 0;
}

int pwrite_all(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset) {
    while (!bytes.empty()) {
        const ssize_t moved = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (moved < 0 && errno == EINTR) {
            continue;
        }
        if (moved <= 0) {
            return moved < 0 ? errno : EIO;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(moved));
        offset += static_cast<std::uint64_t>(moved);
    }
    return 0;
}

int replace_file(const std::filesystem::path &file, std::span<const std::uint8_t> bytes, unsigned mode) {
    const std::filesystem::path temporary = temporary_of(file);
    int error = write_new_file(temporary, bytes, mode);
    if (error == 0 && ::rename(temporary.c_str(), file.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        (void)::unlink(temporary.c_str()); // it may never have come to be
        return error;
    }
    return sync_folder_of(file);
}

bool has_leftover_temporary(const std::filesystem::path &file) {
    std::error_code unknown; // then it is left where it is
    return std::filesystem::is_regular_file(temporary_of(file), unknown);
}

void remove_leftover_temporary(const std::filesystem::path &file) {
    (void)::unlink(temporary_of(file).c_str()); // usually there is none
}

std::optional<std::vector<std::uint8_t>> read_file(const std::filesystem::path &file, int *error, std::size_t limit) {
    const Fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat facts = {};
    if (!fd || ::fstat(fd.get(), &facts) != 0) {
        *error = errno;
        return std::nullopt;
    }
    if (!S_ISREG(facts.st_mode)) {
        *error = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
        return std::nullopt;
    }
    if (static_cast<std::uint64_t>(facts.st_size) > limit) {
        *error = EFBIG;
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(facts.st_size));
    *error = pread_all(fd.get(), bytes, 0);
    if (*error != 0) {
        return std::nullopt;
    }
    return bytes;
}

const char *read_failure(int error) {
    switch (error) {
    case EISDIR:
        return "it is a folder";
    case EINVAL:
        return "it is no plain file";
    case EFBIG:
        return "it is too large";
    default:
        return g_strerror(error);
    }
}

int remove_file(const std::filesystem::path &file) {
    if (::unlink(file.c_str()) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    return sync_folder_of(file);
}

} // namespace asd_host
