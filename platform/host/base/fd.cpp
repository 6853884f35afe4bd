// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "fd.h"

#include <utility>

#include <unistd.h>

namespace asd_host {

Fd::~Fd() {
    reset();
}

Fd::Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Fd &Fd::operator=(Fd &&other) noexcept {
    if (this != &other) {
        reset();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

int Fd::release() {
    return std::exchange(fd_, -1);
}

void Fd::reset() {
    if (fd_ >= 0) {
        (void)::close(std::exchange(fd_, -1)); // what had to be on the disk was synced and checked before
    }
}

} // namespace asd_host
