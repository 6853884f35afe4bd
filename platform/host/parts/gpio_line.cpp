// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// A GPIO line through libgpiod 1.

#include "gpio_lines.h"

#include <cerrno>
#include <utility>

#include <gpiod.h>

namespace asd_host {

namespace {

struct ChipCloser {
    void operator()(gpiod_chip *chip) const { gpiod_chip_close(chip); }
};
struct LineReleaser {
    void operator()(gpiod_line *line) const { gpiod_line_release(line); }
};
using Chip = std::unique_ptr<gpiod_chip, ChipCloser>;
using TakenLine = std::unique_ptr<gpiod_line, LineReleaser>;

// The library's own look-up takes a path outside /dev for a name, and opens every chip to compare its label.
Chip open_chip(const std::string &chip) {
    return Chip(chip.starts_with('/') ? gpiod_chip_open(chip.c_str()) : gpiod_chip_open_lookup(chip.c_str()));
}

} // namespace

// The chip owns its lines: it goes last.
struct GpioLine::Held {
    Chip chip;
    TakenLine line;
};

GpioLine::GpioLine(std::unique_ptr<Held> held) : held_(std::move(held)) {}
GpioLine::~GpioLine() = default;

std::unique_ptr<GpioLine> GpioLine::request(const GpioLineConfig &config, std::string *mistake) {
    Chip chip = open_chip(config.chip);
    if (!chip) {
        *mistake = gpio_mistake(config, GpioStep::kOpenChip, errno, nullptr);
        return nullptr;
    }
    gpiod_line *line = config.offset ? gpiod_chip_get_line(chip.get(), *config.offset)
                                     : gpiod_chip_find_line(chip.get(), config.name.c_str());
    if (line == nullptr) {
        *mistake = gpio_mistake(config, GpioStep::kFindLine, errno, nullptr);
        return nullptr;
    }
    const int flags = config.active_low ? GPIOD_LINE_REQUEST_FLAG_ACTIVE_LOW : 0;
    if (gpiod_line_request_output_flags(line, kGpioConsumer, flags, 0) != 0) {
        *mistake = gpio_mistake(config, GpioStep::kTakeLine, errno, gpiod_line_consumer(line));
        return nullptr;
    }
    auto held = std::make_unique<Held>(Held{.chip = std::move(chip), .line = TakenLine(line)});
    return std::unique_ptr<GpioLine>(new GpioLine(std::move(held)));
}

int GpioLine::set(std::uint32_t level) {
    return gpiod_line_set_value(held_->line.get(), static_cast<int>(level)) == 0 ? 0 : errno;
}

} // namespace asd_host
