// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Output lines of the kernel's GPIO chips. gpio_line.cpp alone calls libgpiod, so that a test can put lines of its own
// in its place.

#include "enclosure.h"

#include <cstdint>
#include <memory>
#include <string>

namespace asd_host {

inline constexpr const char *kGpioConsumer = "asd"; // what gpioinfo shows as the user of our lines

// One line, held as an output until it is destroyed. Who releases a line leaves its level to the chip.
class GpioLine {
public:
    // Takes the line and drives it to level 0 in one step. Null: *mistake says which line, why, and what to do.
    [[nodiscard]] static std::unique_ptr<GpioLine> request(const GpioLineConfig &config, std::string *mistake);
    ~GpioLine();
    GpioLine(const GpioLine &) = delete;
    GpioLine &operator=(const GpioLine &) = delete;

    // Level 0 or 1; with active_low 1 is the lower voltage. 0 or an errno value: then the line may have either level.
    // One caller at a time.
    [[nodiscard]] int set(std::uint32_t level);

private:
    struct Held;
    explicit GpioLine(std::unique_ptr<Held> held);

    std::unique_ptr<Held> held_;
};

// How far a request came; the sentence for a mistake at that point. consumer is who libgpiod says holds the line (null:
// not known) and counts when error is EBUSY.
enum class GpioStep { kOpenChip, kFindLine, kTakeLine };
[[nodiscard]] std::string gpio_mistake(const GpioLineConfig &config, GpioStep step, int error, const char *consumer);

} // namespace asd_host
