// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Write-protect lines on a GPIO chip, which is in memory here: what gpio_line.cpp would ask of libgpiod stands in a
// journal. The emulated controller has that file itself, above the kernel's driver.

#include "gpio.h"
#include "gpio_lines.h"
#include "host.h"
#include "host_test.h"

namespace {

struct {
    asd_test::Texts journal; // what was done to the chip's lines
    int set_error = 0;
} g_chip; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

} // namespace

namespace asd_host {

struct GpioLine::Held {
    std::string name;
};

GpioLine::GpioLine(std::unique_ptr<Held> held) : held_(std::move(held)) {}
GpioLine::~GpioLine() {
    g_chip.journal.push_back("release " + held_->name);
}

std::unique_ptr<GpioLine> GpioLine::request(const GpioLineConfig &config, std::string *mistake) {
    if (config.chip != "gpiochip3") {
        *mistake = gpio_mistake(config, GpioStep::kOpenChip, ENOENT, nullptr);
        return nullptr;
    }
    auto held = std::make_unique<Held>(Held{std::to_string(config.line)});
    g_chip.journal.push_back("take " + held->name);
    return std::unique_ptr<GpioLine>(new GpioLine(std::move(held)));
}

int GpioLine::set(std::uint32_t level) {
    if (g_chip.set_error == 0) {
        g_chip.journal.push_back("set " + held_->name + " " + std::to_string(level));
    }
    return g_chip.set_error;
}

namespace {

using namespace asd_test;

GpioLineConfig line_of(std::uint32_t line, const char *chip = "gpiochip3") {
    return {.line = line, .chip = chip, .offset = line};
}

TEST(GpioLine, ThatCannotBeHadIsSaidWithWhatToDo) {
    const struct {
        GpioStep step;
        int error;
        const char *consumer, *mistake;
    } rows[] = {
        // clang-format off
        {GpioStep::kOpenChip, ENOENT, nullptr, "the GPIO chip \"gpiochip3\" cannot be opened: No such file or directory; gpiodetect lists the chips"},
        {GpioStep::kOpenChip, EACCES, nullptr, "the GPIO chip \"gpiochip3\" cannot be opened: Permission denied; let the service's user read and write it"},
        {GpioStep::kFindLine, ENOENT, nullptr, "the GPIO chip \"gpiochip3\" has no line \"WP\": No such file or directory; gpioinfo lists the lines"},
        {GpioStep::kTakeLine, EBUSY, "leds", "line \"WP\" of the GPIO chip \"gpiochip3\" is held by \"leds\"; stop that, or name another line in GpioLines"},
        {GpioStep::kTakeLine, EBUSY, nullptr, "line \"WP\" of the GPIO chip \"gpiochip3\" is held by another program or driver; stop that, or name another line in GpioLines"},
        {GpioStep::kTakeLine, EPERM, "leds", "line \"WP\" of the GPIO chip \"gpiochip3\" cannot be driven: Operation not permitted; let the service's user read and write it"},
        {GpioStep::kTakeLine, EIO, nullptr, "line \"WP\" of the GPIO chip \"gpiochip3\" cannot be driven: Input/output error; it must be a line that can be an output"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const GpioLineConfig config{.line = 55, .chip = "gpiochip3", .name = "WP"};
        EXPECT_EQ(gpio_mistake(config, row.step, row.error, row.consumer),
                  std::string("write-protect line 55: ") + row.mistake);
    }
    EXPECT_NE(gpio_mistake(line_of(7), GpioStep::kFindLine, EINVAL, nullptr).find("has no line 7:"), std::string::npos);
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

    enclosure.gpio_lines = {line_of(55), line_of(56, "nowhere"), line_of(57, "gone")};
    EXPECT_EQ(host_start(options, enclosure).size(), 2U) << "every line that cannot be had is said";
    EXPECT_EQ(host(), nullptr);
    EXPECT_EQ(g_chip.journal, (Texts{"take 55", "release 55"}));

    enclosure.gpio_lines = {line_of(55), line_of(56)};
    ASSERT_EQ(host_start(options, enclosure), Texts{});
    EXPECT_EQ(shown("55") + shown("56") + shown("39"), "0\n0\n0\n");
    Part &part = *host()->parts.at("p");
    const Bytes data(4, 7);
    EXPECT_EQ(part.write(0, data, false), kTransferFailed | EIO);

    g_chip.set_error = EIO;
    expect_line("Write-protect line 55 cannot be set to 1: Input/output error.", [] { // said once
        EXPECT_EQ(gpio_write(55, 1), kLineFailed);
        EXPECT_EQ(gpio_write(55, 1), kLineFailed);
    });
    EXPECT_EQ(gpio_write(39, 1), 0) << "emulated";
    EXPECT_EQ(shown("55") + shown("39"), "0\n1\n");
    EXPECT_EQ(part.write(0, data, false), kTransferFailed | EIO);

    g_chip.set_error = 0;
    g_chip.journal.clear();
    EXPECT_EQ(gpio_init(55, 1), 0);
    EXPECT_EQ(gpio_write(55, 1), 0);
    EXPECT_EQ(shown("55"), "1\n");
    EXPECT_EQ(part.write(0, data, false), 0);
    EXPECT_EQ(gpio_write(55, 0), 0);
    EXPECT_EQ(gpio_write(56, 2), kBadArgument);
    EXPECT_EQ(g_chip.journal, (Texts{"set 55 1", "set 55 0"})) << "taken once, never again";
}

} // namespace
} // namespace asd_host
