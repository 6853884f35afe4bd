// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Descriptors that close themselves.

#include "names.h"

#include <utility>

#include <unistd.h>

namespace asd_shared {

// An open file descriptor, or none.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd &operator=(Fd &&other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); } // to another owner
    // False: what was written before did not all arrive, see errno. Closed it is in any case.
    [[nodiscard]] bool close() { return fd_ < 0 || ::close(release()) == 0; }
    void reset() { (void)close(); } // what had to be on the disk was synced and checked before

private:
    int fd_ = -1;
};

} // namespace asd_shared
