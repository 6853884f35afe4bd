// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A .tar.gz in memory. Two structures of fixed length a file and GIO's compressor are all that it takes; an archive
// library would bring a dozen others along.

#include "bytes.h"

#include <ctime>
#include <string>

namespace asdctl {

class Archive {
public:
    // Everything in it lies in this folder.
    Archive(std::string folder, std::time_t when) : folder_(std::move(folder)), when_(when) {}

    // The name has at most 99 bytes with the folder's; throws Failure.
    void add(const std::string &name, BytesView bytes);
    void add(const std::string &name, const std::string &text);

    [[nodiscard]] Bytes packed() const; // throws Failure

private:
    std::string folder_;
    std::time_t when_;
    Bytes tar_;
};

} // namespace asdctl
