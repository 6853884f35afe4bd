// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// libgpiod 2 before the chip in memory. The library itself opens paths only. What the caller must free is allocated,
// for the leak check.

#include "fake_gpiod.h"

#include <gpiod.h>

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
void gpiod_chip_info_free(gpiod_chip_info *info) { delete info; }
void gpiod_line_info_free(gpiod_line_info *info) { delete info; }
gpiod_line_settings *gpiod_line_settings_new() { return new gpiod_line_settings; }
void gpiod_line_settings_free(gpiod_line_settings *settings) { delete settings; }
gpiod_line_config *gpiod_line_config_new() { return new gpiod_line_config; }
void gpiod_line_config_free(gpiod_line_config *config) { delete config; }
gpiod_request_config *gpiod_request_config_new() { return new gpiod_request_config; }
void gpiod_request_config_free(gpiod_request_config *config) { delete config; }
gpiod_chip *gpiod_chip_open(const char *path) {
    return g_gpio.open(path == std::string_view(kFakePath)) ? new gpiod_chip : nullptr;
}
void gpiod_chip_close(gpiod_chip *chip) {
    --g_gpio.chips_open;
    delete chip;
}
gpiod_chip_info *gpiod_chip_get_info(gpiod_chip * /*chip*/) { return new gpiod_chip_info; }
const char *gpiod_chip_info_get_label(gpiod_chip_info * /*info*/) { return kFakeLabel; }
int gpiod_chip_get_line_offset_from_name(gpiod_chip * /*chip*/, const char *name) { return g_gpio.find(name); }
gpiod_line_info *gpiod_chip_get_line_info(gpiod_chip * /*chip*/, unsigned offset) {
    return g_gpio.check(offset) == 0 ? new gpiod_line_info{offset} : nullptr;
}
const char *gpiod_line_info_get_consumer(gpiod_line_info *info) { return g_gpio.consumer(info->offset); }
int gpiod_line_settings_set_direction(gpiod_line_settings *settings, gpiod_line_direction direction) {
    settings->direction = direction;
    return 0;
}
int gpiod_line_settings_set_output_value(gpiod_line_settings *settings, gpiod_line_value value) {
    settings->value = value;
    return 0;
}
void gpiod_line_settings_set_active_low(gpiod_line_settings *settings, bool active_low) {
    settings->active_low = active_low;
}
int gpiod_line_config_add_line_settings(gpiod_line_config *config, const unsigned *offsets, size_t num_offsets,
                                        gpiod_line_settings *settings) {
    *config = {.offset = offsets[0], .settings = *settings};
    return num_offsets == 1 ? 0 : FakeGpio::fail(EINVAL);
}
void gpiod_request_config_set_consumer(gpiod_request_config *config, const char *consumer) { config->consumer = consumer; }
gpiod_line_request *gpiod_chip_request_lines(gpiod_chip * /*chip*/, gpiod_request_config *req_cfg,
                                             gpiod_line_config *line_cfg) {
    const gpiod_line_settings &settings = line_cfg->settings;
    if (settings.direction != GPIOD_LINE_DIRECTION_OUTPUT) {
        return FakeGpio::fail(EINVAL) == 0 ? new gpiod_line_request{} : nullptr;
    }
    const int taken = g_gpio.take(line_cfg->offset, req_cfg->consumer.c_str(), settings.active_low, settings.value);
    return taken == 0 ? new gpiod_line_request{line_cfg->offset} : nullptr;
}
int gpiod_line_request_set_value(gpiod_line_request *request, unsigned offset, gpiod_line_value value) {
    return request->offset == offset ? g_gpio.set(offset, value) : FakeGpio::fail(EINVAL);
}
void gpiod_line_request_release(gpiod_line_request *request) {
    g_gpio.release(request->offset);
    delete request;
}
// clang-format on
