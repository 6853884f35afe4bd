// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "lock_file.h"

#include "atomic_file.h"
#include "safe_folder.h"

#include <algorithm>
#include <cerrno>
#include <span>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr mode_t kMode = 0640; // the group may see who holds it

} // namespace

// A lock on a file without its name excludes nobody: others lock the file that took its place.
bool LockFile::named(const Fd &fd) const {
    struct stat held = {};
    struct stat found = {};
    return ::fstat(fd.get(), &held) == 0 && ::lstat(file_.c_str(), &found) == 0 && held.st_dev == found.st_dev &&
           held.st_ino == found.st_ino;
}

int LockFile::take() {
    if (fd_ && named(fd_)) {
        return 0;
    }
    const bool lost = static_cast<bool>(fd_);
    release();
    Fd fd = open_own_file(file_, kMode);
    if (!fd) {
        return errno == EAGAIN ? EIO : errno;
    }
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno;
    }
    if (!named(fd)) {
        return EAGAIN; // replaced while it was being locked: whoever did so may hold the new one
    }
    fd_ = std::move(fd);
    remade_ += lost ? 1 : 0;
    return 0;
}

int LockFile::sign() {
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd_.get(), 0) != 0) {
        return errno;
    }
    return pwrite_all(fd_.get(), std::span(reinterpret_cast<const std::uint8_t *>(pid.data()), pid.size()), 0);
}

std::string LockFile::holder() const {
    const Fd fd(::open(file_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::string pid(16, '\0');
    const ssize_t length = ::pread(fd.get(), pid.data(), pid.size(), 0);
    pid.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    pid.resize(std::min(pid.size(), pid.find('\n')));
    return pid.empty() ? "?" : pid;
}

} // namespace asd_host
