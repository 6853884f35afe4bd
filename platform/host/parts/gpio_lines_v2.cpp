// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// GPIO lines through libgpiod 2.

#include "gpio_lines.h"

#include <cerrno>
#include <utility>

#include <gpiod.h>

namespace asd_host {

namespace {

template <auto kFree>
struct Free {
    template <typename T>
    void operator()(T *held) const {
        kFree(held);
    }
};
using Chip = std::unique_ptr<gpiod_chip, Free<gpiod_chip_close>>;
using ChipInfo = std::unique_ptr<gpiod_chip_info, Free<gpiod_chip_info_free>>;
using LineInfo = std::unique_ptr<gpiod_line_info, Free<gpiod_line_info_free>>;
using LineSettings = std::unique_ptr<gpiod_line_settings, Free<gpiod_line_settings_free>>;
using LineConfig = std::unique_ptr<gpiod_line_config, Free<gpiod_line_config_free>>;
using RequestConfig = std::unique_ptr<gpiod_request_config, Free<gpiod_request_config_free>>;
using TakenLine = std::unique_ptr<gpiod_line_request, Free<gpiod_line_request_release>>;

constexpr int kMostChips = 256; // more than a controller's kernel ever numbers

// A path, or a chip's name in /dev, or its label: this version of the library opens paths only. Null: errno says why.
Chip open_chip(const std::string &chip) {
    if (chip.starts_with('/')) {
        return Chip(gpiod_chip_open(chip.c_str()));
    }
    Chip named(gpiod_chip_open(("/dev/" + chip).c_str()));
    const int error = errno;
    for (int number = 0; !named && number < kMostChips; ++number) {
        Chip candidate(gpiod_chip_open(("/dev/gpiochip" + std::to_string(number)).c_str()));
        const ChipInfo info(candidate ? gpiod_chip_get_info(candidate.get()) : nullptr);
        if (info && chip == gpiod_chip_info_get_label(info.get())) {
            named = std::move(candidate);
        }
    }
    errno = error;
    return named;
}

// The line's offset and who uses it at present; null: there is no such line, errno says why.
LineInfo find_line(const GpioLineConfig &config, gpiod_chip *chip, unsigned *offset) {
    const int found = config.offset ? static_cast<int>(*config.offset)
                                    : gpiod_chip_get_line_offset_from_name(chip, config.name.c_str());
    *offset = static_cast<unsigned>(found);
    return LineInfo(found < 0 ? nullptr : gpiod_chip_get_line_info(chip, *offset));
}

// Takes the line as an output at level 0. Null: errno says why.
TakenLine take_line(const GpioLineConfig &config, gpiod_chip *chip, unsigned offset) {
    const LineSettings settings(gpiod_line_settings_new());
    const LineConfig lines(gpiod_line_config_new());
    const RequestConfig request(gpiod_request_config_new());
    if (!settings || !lines || !request) {
        return nullptr;
    }
    gpiod_line_settings_set_active_low(settings.get(), config.active_low);
    gpiod_request_config_set_consumer(request.get(), kGpioConsumer);
    if (gpiod_line_settings_set_direction(settings.get(), GPIOD_LINE_DIRECTION_OUTPUT) != 0 ||
        gpiod_line_settings_set_output_value(settings.get(), GPIOD_LINE_VALUE_INACTIVE) != 0 ||
        gpiod_line_config_add_line_settings(lines.get(), &offset, 1, settings.get()) != 0) {
        return nullptr;
    }
    return TakenLine(gpiod_chip_request_lines(chip, request.get(), lines.get()));
}

} // namespace

struct GpioLine::Held {
    TakenLine line; // stays taken without its chip
    unsigned offset = 0;
};

GpioLine::GpioLine(std::unique_ptr<Held> held) : held_(std::move(held)) {}
GpioLine::~GpioLine() = default;

std::unique_ptr<GpioLine> GpioLine::request(const GpioLineConfig &config, std::string *mistake) {
    const Chip chip = open_chip(config.chip);
    if (!chip) {
        *mistake = gpio_mistake(config, GpioStep::kOpenChip, errno, nullptr);
        return nullptr;
    }
    unsigned offset = 0;
    const LineInfo info = find_line(config, chip.get(), &offset);
    if (!info) {
        *mistake = gpio_mistake(config, GpioStep::kFindLine, errno, nullptr);
        return nullptr;
    }
    TakenLine line = take_line(config, chip.get(), offset);
    if (!line) {
        *mistake = gpio_mistake(config, GpioStep::kTakeLine, errno, gpiod_line_info_get_consumer(info.get()));
        return nullptr;
    }
    auto held = std::make_unique<Held>(Held{.line = std::move(line), .offset = offset});
    return std::unique_ptr<GpioLine>(new GpioLine(std::move(held)));
}

int GpioLine::set(std::uint32_t level) {
    const gpiod_line_value value = level == 0 ? GPIOD_LINE_VALUE_INACTIVE : GPIOD_LINE_VALUE_ACTIVE;
    return gpiod_line_request_set_value(held_->line.get(), held_->offset, value) == 0 ? 0 : errno;
}

} // namespace asd_host
