// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the fuzz targets share.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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

// A folder that goes with its holder.
class Folder {
public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "asd-fuzz-XXXXXX").string();
        require(::mkdtemp(name.data()) != nullptr, "no folder can be made");
        path_ = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace fuzz
