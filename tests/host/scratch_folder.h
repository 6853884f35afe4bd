// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A folder of a test's own, gone with it.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace asd_test {

class ScratchFolder {
public:
    ScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "asd-test-XXXXXX").string();
        path_ = ::mkdtemp(name.data()) == nullptr ? std::filesystem::path() : std::filesystem::path(name);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;
    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace asd_test
