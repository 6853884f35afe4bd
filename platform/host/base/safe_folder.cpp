// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "safe_folder.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
constexpr mode_t kOthersAtAll = S_IRWXG | S_IRWXO;

// A link of one's own, such as one to a larger disk, is as good as what it leads to; another user's leads wherever he
// likes.
std::string mistake_of_link(const std::filesystem::path &folder) {
    struct stat facts = {};
    if (::lstat(folder.c_str(), &facts) != 0 || !S_ISLNK(facts.st_mode) || facts.st_uid == ::geteuid() ||
        facts.st_uid == 0) {
        return {};
    }
    return "the folder " + folder.native() + " is a link that user " + std::to_string(facts.st_uid) +
           " has made; remove it, or name another folder";
}

std::string octal(mode_t mode) {
    std::string digits;
    for (int shift = 9; shift >= 0; shift -= 3) {
        digits += static_cast<char>('0' + ((mode >> static_cast<unsigned>(shift)) & 7U));
    }
    return digits;
}

} // namespace

std::string make_own_folder(const std::filesystem::path &folder, mode_t mode, bool nobody_enters) {
    std::error_code no_parent; // the folder itself tells why
    std::filesystem::create_directories(folder.parent_path(), no_parent);
    if (::mkdir(folder.c_str(), mode) != 0 && errno != EEXIST) {
        return "cannot create the folder " + folder.native() + ": " + std::strerror(errno);
    }
    if (std::string mistake = mistake_of_link(folder); !mistake.empty()) {
        return mistake;
    }
    struct stat facts = {};
    if (::stat(folder.c_str(), &facts) != 0) {
        return "cannot use the folder " + folder.native() + ": " + std::strerror(errno);
    }
    if (!S_ISDIR(facts.st_mode)) {
        return "cannot use " + folder.native() + ": it is no folder";
    }
    if (facts.st_uid != ::geteuid()) {
        return "the folder " + folder.native() + " belongs to user " + std::to_string(facts.st_uid) +
               ", who could plant files in it, and not to user " + std::to_string(::geteuid()) +
               ", who runs asd; name another folder, or run asd as that user";
    }
    const mode_t too_much = facts.st_mode & (nobody_enters ? kOthersAtAll : kOthersWrite);
    if (too_much != 0) {
        return "the folder " + folder.native() + " has mode " + octal(facts.st_mode) + ", so that others could " +
               (nobody_enters ? "get at" : "plant files in") + " it; chmod " + (nobody_enters ? "0700" : "go-w") +
               " it once nothing strange lies in it, or name another folder";
    }
    return {};
}

Fd open_own_file(const std::filesystem::path &file, mode_t mode) {
    Fd fd(::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode));
    struct stat facts = {};
    if (fd && (::fstat(fd.get(), &facts) != 0 || !S_ISREG(facts.st_mode))) {
        fd.reset();
        errno = EINVAL;
    }
    return fd;
}

} // namespace asd_host
