// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "fake_platform.h"
#include "world.h"

namespace contract {

void world_start() {
    fake::reset();
    fake::add_chip("ASDDev14a", {.offset = 32, .part = "a", .size = 256, .lines = {55}});
    fake::add_chip("ASDDev14b", {.offset = 32, .part = "b", .size = 256, .lines = {55}});
    fake::add_chip("ASDDev7", {.offset = 0, .part = "ear", .size = 256, .lines = {}});
    fake::add_chip("ASDDev1000", {.offset = 0, .part = "psu", .size = 256, .lines = {}, .own_protection = true});
    fake::add_item("ASD14", {.length = 4, .chips = {"ASDDev14a", "ASDDev14b"}, .num = 14});
    fake::add_item("ASD7", {.length = 4, .chips = {"ASDDev7"}, .num = 7});
    fake::add_item("ASD1000", {.length = 4, .chips = {"ASDDev1000"}, .num = 100});
}

std::vector<std::uint8_t> world_request(IPMI_CMD_FUNC handler, const std::vector<std::uint8_t> &data) {
    return fake::call(handler, nullptr, data).response;
}

} // namespace contract
