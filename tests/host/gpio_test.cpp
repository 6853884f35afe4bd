// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Write-protect lines on a GPIO chip. Built twice: gpio_lines_v1.cpp and gpio_lines_v2.cpp, each on a fake of its
// libgpiod.

#include "fake_gpiod.h"
#include "gpio.h"
#include "gpio_lines.h"
#include "host.h"
#include "host_test.h"

namespace {

using namespace asd_host;
using namespace asd_test;

constexpr int kAnyError = EIO;

GpioLineConfig by_offset(std::uint32_t line, const char *chip, std::uint32_t offset, bool active_low = false) {
    return {.line = line, .chip = chip, .offset = offset, .active_low = active_low};
}
GpioLineConfig by_name(std::uint32_t line, const char *chip, const char *name) {
    return {.line = line, .chip = chip, .name = name};
}

TEST(GpioLine, IsTakenProtectedThenSetThenReleased) {
    const std::vector<std::pair<GpioLineConfig, Texts>> rows = {
        {by_offset(55, kFakePath, 0), {"take 0 low", "set 0 high", "set 0 low", "release 0 of asd"}},
        {by_offset(55, kFakeName, 1, true), {"take 1 high", "set 1 low", "set 1 high", "release 1 of asd"}},
        {by_name(56, kFakeLabel, "WP_BP0"), {"take 1 low", "set 1 high", "set 1 low", "release 1 of asd"}},
    };
    for (const auto &[config, journal] : rows) {
        SCOPED_TRACE(config.chip);
        g_gpio = {};
        std::string mistake;
        auto line = GpioLine::request(config, &mistake);
        ASSERT_NE(line, nullptr) << mistake;
        EXPECT_EQ(line->set(1), 0);
        EXPECT_EQ(line->set(0), 0);
        line.reset();
        EXPECT_EQ(g_gpio.journal, journal);
        EXPECT_EQ(g_gpio.chips_open, 0);
    }
}

TEST(GpioLine, ThatCannotBeHadIsSaidWithWhatToDo) {
    const struct {
        GpioLineConfig config;
        int take_error;
        std::string mistake;
    } rows[] = {
        // clang-format off
        {by_offset(55, "/dev/gpiochip7", 0), 0, "the GPIO chip \"/dev/gpiochip7\" cannot be opened: No such file or directory; gpiodetect lists the chips"},
        {by_offset(55, "nowhere", 0), 0, "the GPIO chip \"nowhere\" cannot be opened: No such file or directory; gpiodetect lists the chips"},
        {by_offset(55, kFakeName, 4), 0, "the GPIO chip \"gpiochip3\" has no line 4: Invalid argument; gpioinfo lists the lines"},
        {by_name(55, kFakePath, "WP"), 0, "the GPIO chip \"/dev/gpiochip3\" has no line \"WP\": No such file or directory; gpioinfo lists the lines"},
        {by_name(55, kFakeName, "LED"), 0, "line \"LED\" of the GPIO chip \"gpiochip3\" is held by \"leds\"; stop that, or name another line in GpioLines"},
        {by_offset(55, kFakeName, 3), 0, "line 3 of the GPIO chip \"gpiochip3\" is held by another program or driver; stop that, or name another line in GpioLines"},
        {by_offset(55, kFakeName, 0), EPERM, "line 0 of the GPIO chip \"gpiochip3\" cannot be driven: Operation not permitted; let the service's user read and write it"},
        {by_offset(55, kFakeName, 0), kAnyError, "line 0 of the GPIO chip \"gpiochip3\" cannot be driven: Input/output error; it must be a line that can be an output"},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.mistake);
        g_gpio = {};
        g_gpio.take_error = row.take_error;
        std::string mistake;
        EXPECT_EQ(GpioLine::request(row.config, &mistake), nullptr);
        EXPECT_EQ(mistake, "write-protect line 55: " + row.mistake);
        EXPECT_EQ(g_gpio.journal, Texts{});
        EXPECT_EQ(g_gpio.chips_open, 0);
    }
}

// From the enclosure to the pin: the platform starts once a process, so all of it is one test.
TEST(GpioLines, GuardThePartsOfTheRunningPlatform) {
    const ScratchFolder folder;
    const auto shown = [&](const char *line) {
        return content_of<std::string>(folder.path() / "run" / "slot0" / "gpio" / line);
    };
    Enclosure enclosure;
    enclosure.parts = {
        {.name = "p", .file = "p", .size = 64, .page_size = 16, .write_cycle_us = 0, .write_protect_line = 55}};
    Options options;
    options.run_dir = folder.path() / "run";
    options.state_dir = folder.path() / "state";

    g_gpio = {};
    enclosure.gpio_lines = {by_offset(55, kFakeName, 0), by_offset(56, kFakeName, 2), by_offset(57, "nowhere", 0)};
    EXPECT_EQ(host_start(options, enclosure).size(), 2U) << "every line that cannot be had is said";
    EXPECT_EQ(g_gpio.journal, (Texts{"take 0 low", "release 0 of asd"}));

    g_gpio = {};
    enclosure.gpio_lines = {by_offset(55, kFakeName, 0), by_offset(56, kFakeName, 1)};
    ASSERT_EQ(host_start(options, enclosure), Texts{});
    EXPECT_EQ(shown("55") + shown("56") + shown("39"), "0\n0\n0\n");
    Part &part = *host()->parts.at("p");
    const Bytes data(4, 7);
    EXPECT_EQ(part.write(0, data, false), kTransferFailed | EIO);

    g_gpio.set_error = kAnyError;
    const Texts lines = logged([] {
        EXPECT_EQ(gpio_write(55, 1), kLineFailed);
        EXPECT_EQ(gpio_write(55, 1), kLineFailed);
    });
    ASSERT_EQ(lines.size(), 1U) << "said once";
    EXPECT_NE(lines[0].find("Write-protect line 55 cannot be set to 1: Input/output error."), std::string::npos);
    EXPECT_EQ(gpio_write(39, 1), 0) << "emulated";
    EXPECT_EQ(shown("55") + shown("39"), "0\n1\n");
    EXPECT_EQ(part.write(0, data, false), kTransferFailed | EIO);

    g_gpio.set_error = 0;
    g_gpio.journal.clear();
    EXPECT_EQ(gpio_init(55, 1), 0);
    EXPECT_EQ(gpio_write(55, 1), 0);
    EXPECT_EQ(shown("55"), "1\n");
    EXPECT_EQ(part.write(0, data, false), 0);
    EXPECT_EQ(gpio_write(55, 0), 0);
    EXPECT_EQ(gpio_write(56, 2), kBadArgument);
    EXPECT_EQ(g_gpio.journal, (Texts{"set 0 high", "set 0 low"})) << "taken once, never again";
}

} // namespace
