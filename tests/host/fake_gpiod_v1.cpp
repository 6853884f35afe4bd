// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// libgpiod 1 before the chip in memory. The library's own look-up takes a chip's path, name or label.

#include "fake_gpiod.h"

#include <gpiod.h>

struct gpiod_chip {};
struct gpiod_line {
    unsigned offset;
};

static gpiod_chip g_chip;
static std::array<gpiod_line, 4> g_lines = {{{0}, {1}, {2}, {3}}};

// clang-format off
gpiod_chip *gpiod_chip_open(const char *path) {
    return g_gpio.open(path == std::string_view(kFakePath)) ? &g_chip : nullptr;
}
gpiod_chip *gpiod_chip_open_lookup(const char *descr) {
    const std::string_view chip(descr);
    return g_gpio.open(chip == kFakePath || chip == kFakeName || chip == kFakeLabel) ? &g_chip : nullptr;
}
void gpiod_chip_close(gpiod_chip * /*chip*/) { --g_gpio.chips_open; }
gpiod_line *gpiod_chip_get_line(gpiod_chip * /*chip*/, unsigned offset) {
    return g_gpio.check(offset) == 0 ? &g_lines[offset] : nullptr;
}
gpiod_line *gpiod_chip_find_line(gpiod_chip * /*chip*/, const char *name) {
    const int offset = g_gpio.find(name);
    return offset < 0 ? nullptr : &g_lines[static_cast<unsigned>(offset)];
}
const char *gpiod_line_consumer(gpiod_line *line) { return g_gpio.consumer(line->offset); }
int gpiod_line_request_output_flags(gpiod_line *line, const char *consumer, int flags, int default_val) {
    return g_gpio.take(line->offset, consumer, (flags & GPIOD_LINE_REQUEST_FLAG_ACTIVE_LOW) != 0, default_val);
}
int gpiod_line_set_value(gpiod_line *line, int value) { return g_gpio.set(line->offset, value); }
void gpiod_line_release(gpiod_line *line) { g_gpio.release(line->offset); }
// clang-format on
