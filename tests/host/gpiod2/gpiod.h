// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// For the tests only: of libgpiod 2 what gpio_lines_v2.cpp uses, on the chip in memory, so that it is compiled and run
// where libgpiod 1 is installed. Like the library it opens paths only; what the caller must free is allocated, for the
// leak check.

#include "../fake_gpiod.h"

#include <cstddef>

enum gpiod_line_value { GPIOD_LINE_VALUE_ERROR = -1, GPIOD_LINE_VALUE_INACTIVE = 0, GPIOD_LINE_VALUE_ACTIVE = 1 };
enum gpiod_line_direction { GPIOD_LINE_DIRECTION_AS_IS = 1, GPIOD_LINE_DIRECTION_INPUT, GPIOD_LINE_DIRECTION_OUTPUT };

struct gpiod_chip {};
struct gpiod_chip_info {};
struct gpiod_line_info {
    unsigned offset;
};
struct gpiod_line_settings {
    gpiod_line_direction direction = GPIOD_LINE_DIRECTION_AS_IS;
    gpiod_line_value value = GPIOD_LINE_VALUE_INACTIVE;
    bool active_low = false;
};
struct gpiod_line_config {
    unsigned offset = 0;
    gpiod_line_settings settings;
};
struct gpiod_request_config {
    std::string consumer;
};
struct gpiod_line_request {
    unsigned offset;
};

// clang-format off
inline void gpiod_chip_info_free(gpiod_chip_info *info) { delete info; }
inline void gpiod_line_info_free(gpiod_line_info *info) { delete info; }
inline gpiod_line_settings *gpiod_line_settings_new() { return new gpiod_line_settings; }
inline void gpiod_line_settings_free(gpiod_line_settings *settings) { delete settings; }
inline gpiod_line_config *gpiod_line_config_new() { return new gpiod_line_config; }
inline void gpiod_line_config_free(gpiod_line_config *config) { delete config; }
inline gpiod_request_config *gpiod_request_config_new() { return new gpiod_request_config; }
inline void gpiod_request_config_free(gpiod_request_config *config) { delete config; }
inline gpiod_chip *gpiod_chip_open(const char *path) {
    return g_gpio.open(path == std::string_view(kFakePath)) ? new gpiod_chip : nullptr;
}
inline void gpiod_chip_close(gpiod_chip *chip) {
    --g_gpio.chips_open;
    delete chip;
}
inline gpiod_chip_info *gpiod_chip_get_info(gpiod_chip * /*chip*/) { return new gpiod_chip_info; }
inline const char *gpiod_chip_info_get_label(gpiod_chip_info * /*info*/) { return kFakeLabel; }
inline int gpiod_chip_get_line_offset_from_name(gpiod_chip * /*chip*/, const char *name) { return g_gpio.find(name); }
inline gpiod_line_info *gpiod_chip_get_line_info(gpiod_chip * /*chip*/, unsigned offset) {
    return g_gpio.check(offset) == 0 ? new gpiod_line_info{offset} : nullptr;
}
inline const char *gpiod_line_info_get_consumer(gpiod_line_info *info) { return g_gpio.consumer(info->offset); }
inline int gpiod_line_settings_set_direction(gpiod_line_settings *settings, gpiod_line_direction direction) {
    settings->direction = direction;
    return 0;
}
inline int gpiod_line_settings_set_output_value(gpiod_line_settings *settings, gpiod_line_value value) {
    settings->value = value;
    return 0;
}
inline void gpiod_line_settings_set_active_low(gpiod_line_settings *settings, bool active_low) {
    settings->active_low = active_low;
}
inline int gpiod_line_config_add_line_settings(gpiod_line_config *config, const unsigned *offsets, size_t num_offsets,
                                               gpiod_line_settings *settings) {
    *config = {.offset = offsets[0], .settings = *settings};
    return num_offsets == 1 ? 0 : FakeGpio::fail(EINVAL);
}
inline void gpiod_request_config_set_consumer(gpiod_request_config *config, const char *consumer) {
    config->consumer = consumer;
}
inline gpiod_line_request *gpiod_chip_request_lines(gpiod_chip * /*chip*/, gpiod_request_config *req_cfg,
                                                    gpiod_line_config *line_cfg) {
    const gpiod_line_settings &settings = line_cfg->settings;
    const bool output = settings.direction == GPIOD_LINE_DIRECTION_OUTPUT;
    const int taken = output ? g_gpio.take(line_cfg->offset, req_cfg->consumer.c_str(), settings.active_low, settings.value)
                             : FakeGpio::fail(EINVAL);
    return taken == 0 ? new gpiod_line_request{line_cfg->offset} : nullptr;
}
inline int gpiod_line_request_set_value(gpiod_line_request *request, unsigned offset, gpiod_line_value value) {
    return request->offset == offset ? g_gpio.set(offset, value) : FakeGpio::fail(EINVAL);
}
inline void gpiod_line_request_release(gpiod_line_request *request) {
    g_gpio.release(request->offset);
    delete request;
}
// clang-format on
