// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A lock that one process holds as long as it lives: on a file, for the kernel to give back however the process ends.

#include "fd.h"

#include <filesystem>
#include <string>

namespace asd_host {

class LockFile {
public:
    LockFile() = default;
    explicit LockFile(std::filesystem::path file) : file_(std::move(file)) {}

    // 0: this process holds it, and the locked file still is the one that others find under its name; should it have
    // been removed, renamed or replaced meanwhile, it is made anew. EAGAIN: another process holds it. Else an errno
    // value: why it can't be asked for. Unless it is 0 nothing is held. Never blocks. One thread at a time.
    [[nodiscard]] int take();
    void release() { fd_.reset(); }

    // How often take() had to make the file anew.
    [[nodiscard]] unsigned remade() const { return remade_; }

    // Writes this process' number into the held file. 0 or an errno value.
    [[nodiscard]] int sign();
    // What the holder has written, up to the end of the line; "?": nothing.
    [[nodiscard]] std::string holder() const;

    [[nodiscard]] const std::filesystem::path &path() const { return file_; }

private:
    [[nodiscard]] bool named(const Fd &fd) const;

    std::filesystem::path file_;
    Fd fd_; // open: held
    unsigned remade_ = 0;
};

} // namespace asd_host
