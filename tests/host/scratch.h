// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What tests and fuzz targets of the host platform share.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

namespace asd_test {

inline constexpr int kLimitMs = 30000; // of whatever is waited for

// A folder of its holder's own, gone with it.
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

// Polls until the condition holds; false when it does not within the limit.
inline bool eventually(const std::function<bool()> &condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLimitMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

} // namespace asd_test
