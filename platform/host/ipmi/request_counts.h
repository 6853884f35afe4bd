// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// How many requests came through which door, what they were answered and how long they took, since the process started.

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace asd_host {

class RequestCounts {
public:
    // Upper bounds of the classes of durations; what took longer is in one more. Answers from memory take less than the
    // first, writes of a record the next ones, and a client has given up before the last.
    static constexpr std::array<std::chrono::milliseconds, 5> kBounds = {
        std::chrono::milliseconds(1), std::chrono::milliseconds(10), std::chrono::milliseconds(100),
        std::chrono::milliseconds(1000), std::chrono::milliseconds(10'000)};
    struct Door {
        std::map<std::uint8_t, std::uint64_t> answers; // by completion code
        std::array<std::uint64_t, kBounds.size() + 1> durations{};
        std::chrono::nanoseconds time{};
    };

    // Any thread.
    void note(std::string_view door, std::uint8_t code, std::chrono::nanoseconds took);
    [[nodiscard]] std::map<std::string, Door, std::less<>> all() const;

private:
    mutable std::mutex mutex_; // guards doors_
    std::map<std::string, Door, std::less<>> doors_;
};

// Those of the registry behind every door; never destroyed.
[[nodiscard]] RequestCounts &request_counts();

} // namespace asd_host
