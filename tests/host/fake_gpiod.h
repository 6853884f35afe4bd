// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// One GPIO chip in memory. fake_gpiod_v1.cpp and gpiod2/gpiod.h put libgpiod's functions before it.

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

struct FakeGpio {
    struct Line {
        std::string name = {};
        std::string consumer = {}; // whoever holds it; "?": somebody unknown; empty: nobody
        bool active_low = false;
    };
    std::array<Line, 4> lines = {{{}, {.name = "WP_BP0"}, {.name = "LED", .consumer = "leds"}, {.consumer = "?"}}};
    std::vector<std::string> journal; // each take, set and release, with the voltage (low, high) after it
    int chips_open = 0;
    int take_error = 0;
    int set_error = 0;

    [[nodiscard]] static int fail(int error) {
        errno = error;
        return -1;
    }
    [[nodiscard]] bool open(bool known) {
        chips_open += known ? 1 : 0;
        return known || fail(ENOENT) == 0;
    }
    // The line's offset, or -1 with errno.
    [[nodiscard]] int find(std::string_view name) const {
        const auto found = std::ranges::find(lines, name, &Line::name);
        return found == lines.end() ? fail(ENOENT) : static_cast<int>(found - lines.begin());
    }
    [[nodiscard]] int check(unsigned offset) const { return offset < lines.size() ? 0 : fail(EINVAL); }
    [[nodiscard]] const char *consumer(unsigned offset) const {
        const std::string &held = lines[offset].consumer;
        return held.empty() || held == "?" ? nullptr : held.c_str();
    }
    [[nodiscard]] int take(unsigned offset, const char *consumer, bool active_low, int level) {
        if (take_error != 0 || !lines[offset].consumer.empty()) {
            return fail(take_error != 0 ? take_error : EBUSY);
        }
        lines[offset].consumer = consumer;
        lines[offset].active_low = active_low;
        note("take", offset, level);
        return 0;
    }
    [[nodiscard]] int set(unsigned offset, int level) {
        if (set_error != 0) {
            return fail(set_error);
        }
        note("set", offset, level);
        return 0;
    }
    void release(unsigned offset) {
        journal.push_back("release " + std::to_string(offset) + " of " + lines[offset].consumer);
        lines[offset].consumer.clear();
    }

private:
    void note(const char *verb, unsigned offset, int level) {
        const bool high = (level == 1) != lines[offset].active_low;
        journal.push_back(std::string(verb) + " " + std::to_string(offset) + (high ? " high" : " low"));
    }
};

inline FakeGpio g_gpio; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
inline constexpr const char *kFakePath = "/dev/gpiochip3";
inline constexpr const char *kFakeName = "gpiochip3";
inline constexpr const char *kFakeLabel = "1e780000.gpio";
