// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the fuzz targets share.

#include "scratch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

// A target: what is done with one input. The fuzzer's name for it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace fuzz {

using Input = std::span<const std::uint8_t>;

// Ends the process with a finding unless the condition holds.
inline void require(bool holds, const std::string &otherwise) {
    if (!holds) {
        (void)std::fprintf(stderr, "fuzz: %s\n", otherwise.c_str());
        std::abort();
    }
}

} // namespace fuzz
