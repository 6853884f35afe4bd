// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keeps a line that comes again and again from filling a disk. Pure bookkeeping on values; the caller locks.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace asd_host {

class LogRation {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds kWindow{10};
    static constexpr unsigned kOfText = 100;  // the same line from the same place, in one window
    static constexpr unsigned kOfPlace = 500; // whatever it says
    static constexpr unsigned kStricter = 10; // the limits' divisor after a window in which lines were left out

    struct Place {
        std::string_view name; // of file and line; where there is none, the text's own pattern
        int level = 0;
    };
    // Lines of a place that were left out in a window that is over.
    struct LeftOut {
        std::array<char, 64> name{}; // cut, and ends with zeros
        int level = 0;               // of one of them
        std::uint64_t lines = 0;
    };

    // Whether the line is to be printed.
    [[nodiscard]] bool admit(const Place &place, std::string_view text, Time now);

    // One place whose window is over and had lines left out, which are forgotten then; nothing: there is none. With
    // everything, windows that are not over too.
    [[nodiscard]] std::optional<LeftOut> settle(Time now, bool everything);

private:
    struct Entry {
        std::uint64_t key = 0; // 0: free
        Time start;
        unsigned admitted = 0;
        bool strict = false;
        LeftOut left_out;
        [[nodiscard]] bool over(Time now) const { return now - start >= kWindow; }
    };

    Entry &entry_of(std::uint64_t key, Time now);
    static bool count(Entry &entry, unsigned limit, Time now);

    std::array<Entry, 256> entries_; // the last one is everybody's who finds no other
};

} // namespace asd_host
