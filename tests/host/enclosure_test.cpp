// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "enclosure.h"
#include "json_document.h"
#include "options.h"
#include "scratch_folder.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using asd_host::load_enclosure;
using asd_host::LoadedEnclosure;

// One item on two chips and one on one chip; the tests break it in one place each.
const std::string kSound = R"({
  "Name": "test",
  "Parts": [
    { "Name": "left", "File": "left.bin", "Size": 256, "PageSize": 16 },
    { "Name": "right", "File": "right.bin", "Size": 256, "PageSize": 16, "Shared": true }
  ],
  "Chips": [
    { "Name": "Dev1a", "Part": "left", "Offset": 0 },
    { "Name": "Dev1b", "Part": "right", "Offset": "0x10" },
    { "Name": "Dev2", "Part": "left", "Offset": 34 }
  ],
  "Items": [
    { "Name": "One", "Num": 1, "Length": 32, "AtomStorageDataDev0": "Dev1a", "AtomStorageDataDev1": "Dev1b" },
    { "Name": "Two", "Num": 2, "Length": 8, "AtomStorageDataDev0": "Dev2", "NeedSync": 1, "Value": "erased" }
  ]
}
)";

LoadedEnclosure load(const std::string &text) {
    const asd_test::ScratchFolder folder;
    const auto file = folder.path() / "e.json";
    std::ofstream(file, std::ios::binary) << text;
    LoadedEnclosure loaded = load_enclosure(file);
    for (std::string &mistake : loaded.mistakes) {
        mistake.erase(0, folder.path().native().size() + 1);
    }
    return loaded;
}

std::string with(const std::string &from, const std::string &to) {
    std::string text = kSound;
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(Enclosure, ReadsWhatTheFileSays) {
    const auto loaded = load(with(R"("Name": "test",)", R"("Name": "test", "Role": "slave", "$schema": "x",
        "GpioLines": [ { "Line": 55, "Chip": "c", "Offset": "0x11" }, { "Line": 7, "Chip": "c", "Name": "W", "ActiveLow": 1 } ],
        "Board": { "EquipmentFrame": true, "PcieSasModels": ["0x44"] }, "Device": { "FirmwareMinor": 12 },)"));
    ASSERT_EQ(loaded.mistakes, std::vector<std::string>());
    const asd_host::Enclosure &enclosure = *loaded.enclosure;
    EXPECT_EQ(enclosure.role, asd_host::Role::kSlave);
    EXPECT_TRUE(enclosure.board.equipment_frame);
    EXPECT_EQ(enclosure.board.pcie_sas_models, std::vector<std::uint8_t>{0x44});
    EXPECT_EQ(enclosure.device.firmware_minor, 0x12);
    ASSERT_EQ(enclosure.gpio_lines.size(), 2U);
    EXPECT_EQ(enclosure.gpio_lines[0].line, 55U);
    EXPECT_EQ(enclosure.gpio_lines[0].offset, 17U);
    EXPECT_FALSE(enclosure.gpio_lines[0].active_low);
    EXPECT_FALSE(enclosure.gpio_lines[1].offset.has_value());
    EXPECT_EQ(enclosure.gpio_lines[1].chip + enclosure.gpio_lines[1].name, "cW");
    EXPECT_TRUE(enclosure.gpio_lines[1].active_low);
    ASSERT_EQ(enclosure.parts.size(), 2U);
    EXPECT_FALSE(enclosure.parts[0].shared);
    EXPECT_TRUE(enclosure.parts[1].shared);
    EXPECT_EQ(enclosure.parts[1].page_size, 16U);
    EXPECT_FALSE(enclosure.parts[1].write_protect_line.has_value());
    ASSERT_EQ(enclosure.chips.size(), 3U);
    EXPECT_EQ(enclosure.chips[1].offset, 0x10U);
    EXPECT_EQ(enclosure.chips[1].retry_number, 5U);
    ASSERT_EQ(enclosure.items.size(), 2U);
    EXPECT_EQ(enclosure.items[0].chips, (std::vector<std::string>{"Dev1a", "Dev1b"}));
    EXPECT_EQ(enclosure.items[1].length, 8U);
    EXPECT_TRUE(enclosure.items[1].need_sync);
    EXPECT_TRUE(enclosure.items[1].erased_value);
    EXPECT_EQ(enclosure.items[1].online, 1);
}

TEST(Enclosure, EachMistakeIsOneLineThatNamesPlaceAndRemedy) {
    struct Row {
        const char *from;
        const char *to;
        std::vector<std::string> mistakes;
    };
    const std::vector<Row> rows = {
        {R"("Num": 1)", R"("Nun": 1)", {R"(e.json:13: /Items/0/Nun: unknown key; did you mean "Num"?)"}},
        {R"("Num": 1, )", "", {R"(e.json:13: /Items/0: "Num" is missing; add it)"}},
        {R"("Num": 1)", R"("Num": 256)", {"e.json:13: /Items/0/Num: is 256; must be a whole number from 0 to 255"}},
        {R"("Num": 2)",
         R"("Num": 1)",
         {"e.json:14: /Items/1/Num: is 1, as in line 13; each item needs a number of its own"}},
        {R"("Num": 2)",
         R"("Num": 2.5)",
         {"e.json:14: /Items/1/Num: is a number with a fraction or exponent; must be a whole number from 0 to 255"}},
        {R"("Num": 2)",
         R"("Num": 2, "Num": 3)",
         {"e.json:14: /Items/1/Num: the key stands a second time (first in line 14); keep one of them"}},
        {R"("Length": 32)",
         R"("Length": 0)",
         {"e.json:13: /Items/0/Length: is 0; must be a whole number from 1 to 8192"}},
        {R"("Length": 32)",
         R"("Length": 8193)",
         {"e.json:13: /Items/0/Length: is 8193; must be a whole number from 1 to 8192"}},
        {R"("Name": "Two")",
         R"("Name": "Dev2")",
         {R"(e.json:14: /Items/1/Name: is "Dev2", as in line 10; an item or chip needs a name that no other item or )"
          "chip has"}},
        {R"("Name": "Two")",
         R"("Name": "Two/2")",
         {R"(e.json:14: /Items/1/Name: is "Two/2"; must be 1 to 63 letters, digits and underscores)"}},
        {R"("AtomStorageDataDev0": "Dev2")",
         R"("AtomStorageDataDev0": "Dev22")",
         {R"(e.json:14: /Items/1/AtomStorageDataDev0: there is no chip "Dev22"; did you mean "Dev2"?)"}},
        {R"("AtomStorageDataDev0": "Dev2")",
         R"("AtomStorageDataDev0": 2)",
         {"e.json:10: /Chips/2: no item uses the chip \"Dev2\"; remove it or name it in an item",
          "e.json:14: /Items/1/AtomStorageDataDev0: is 2; must be a text"}},
        {R"("AtomStorageDataDev1": "Dev1b")",
         R"("AtomStorageDataDev1": "Dev1a")",
         {R"(e.json:9: /Chips/1: no item uses the chip "Dev1b"; remove it or name it in an item)",
          R"(e.json:13: /Items/0/AtomStorageDataDev1: names the chip "Dev1a" a second time; the second copy needs a )"
          "chip of its own"}},
        {R"("AtomStorageDataDev0": "Dev2",)",
         R"("AtomStorageDataDev0": "Dev2", "AtomStorageDataDev1": "Dev1a",)",
         {R"(e.json:14: /Items/1/AtomStorageDataDev1: the chip "Dev1a" holds the record of "One"; each item needs )"
          "chips of its own"}},
        {R"("Part": "right")",
         R"("Part": "rihgt")",
         {R"(e.json:9: /Chips/1/Part: there is no part "rihgt"; did you mean "right"?)"}},
        {R"("Offset": 34)",
         R"("Offset": 33)",
         {R"(e.json:10: /Chips/2/Offset: the record of "Dev2" (item "Two", bytes 33 to 42) overlaps that of "Dev1a" )"
          R"((item "One", bytes 0 to 33) on part "left"; the first byte behind that is 34)"}},
        {R"("Offset": 34)",
         R"("Offset": 247)",
         {R"(e.json:10: /Chips/2/Offset: the record of "Dev2" (item "Two", bytes 247 to 256) runs past the end of )"
          R"(part "left" (256 bytes); the highest Offset that fits is 246)"}},
        {R"("Offset": 34)",
         R"("Offset": 34, "RetryNumber": 0)",
         {"e.json:10: /Chips/2/RetryNumber: is 0; must be a whole number from 1 to 100: without an attempt a read "
          "gives zeros and never touches the chip"}},
        {R"("Size": 256, "PageSize": 16 })",
         R"("Size": 0, "PageSize": 24 })",
         {"e.json:4: /Parts/0/Size: is 0; must be a whole number from 1 to 16777216",
          "e.json:4: /Parts/0/PageSize: is 24; must be a power of two, such as 16"}},
        {R"("right.bin", "Size")",
         R"("../right.bin", "Size")",
         {R"(e.json:5: /Parts/1/File: is "../right.bin"; must stay in the state folder (no "..") or be an absolute )"
          "path"}},
        {R"("right.bin", "Size")",
         R"("slot0/right.bin", "Size")",
         {R"(e.json:5: /Parts/1/File: is "slot0/right.bin", where the service keeps its own; choose another name)"}},
        {R"("File": "right.bin", "Size": 256, "PageSize": 16, "Shared": true)",
         R"("File": "./left.bin", "Size": 256, "PageSize": 16, "Shared": "yes")",
         {R"(e.json:5: /Parts/1/Shared: is "yes"; must be true or false (or 1 or 0))",
          R"(e.json:5: /Parts/1/File: is "left.bin", as in line 4; each part needs a file of its own)"}},
        {R"("Name": "test")",
         R"("Name": "test", "Role": "both")",
         {R"(e.json:2: /Role: is "both"; must be "auto", "master" or "slave")"}},
        {R"("Name": "test",)",
         R"("Name": "test", "GpioLines": [
           { "Line": 55, "Chip": "gpiochip0", "Offset": 12 }, { "Line": 56, "Chip": "gpiochip0", "Name": "WP" },
           { "Line": 55, "Chip": "/dev/gpiochip0", "Offset": "0xC" },
           { "Line": 57, "Chip": "gpiochip1", "Offset": 12, "ActivLow": 0 },
           { "Line": 58, "Chip": "gpiochip0", "Name": "WP", "Offset": 1 },
           { "Line": 1024, "Chip": "", "Ofset": 1 }, { "Chip": "gpiochip0", "Name": "WP2" } ],)",
         {R"(e.json:4: /GpioLines/2/Line: is 55, as in line 3; each line is at one place)",
          R"(e.json:4: /GpioLines/2/Offset: is 12 of "gpiochip0", as in line 3; each line needs a place of its own)",
          R"(e.json:5: /GpioLines/3/ActivLow: unknown key; did you mean "ActiveLow"?)",
          R"(e.json:6: /GpioLines/4/Name: stands beside "Offset"; keep the one by which the line is to be found)",
          R"(e.json:6: /GpioLines/4/Name: is "WP" of "gpiochip0", as in line 3; each line needs a place of its own)",
          R"(e.json:7: /GpioLines/5/Line: is 1024; must be a whole number from 0 to 1023)",
          R"(e.json:7: /GpioLines/5/Chip: is empty; gpioinfo lists the chips and their lines)",
          R"(e.json:7: /GpioLines/5/Ofset: unknown key; did you mean "Offset"?)",
          R"(e.json:7: /GpioLines/6: "Line" is missing; add it)"}},
        {R"("Name": "test",)",
         R"("Name": "test", "GpioLines": [ { "Line": 55, "Chip": "gpiochip0" } ],)",
         {R"(e.json:2: /GpioLines/0: "Offset" is missing; add it)"}},
        {R"("Parts": [)",
         "\"Parts\": [ // two",
         {"e.json:3: /Parts: not JSON: syntax error while parsing value - invalid literal; last read: '\"Parts\": [ "
          "/'; comments "
          "are not part of JSON, remove it"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.from) + " -> " + row.to);
        const auto loaded = load(with(row.from, row.to));
        EXPECT_FALSE(loaded.enclosure.has_value());
        EXPECT_EQ(loaded.mistakes, row.mistakes);
    }
}

// C overlaps A alone, past the end of B: the record that reaches furthest counts, not the one before.
TEST(Enclosure, AllMistakesAreReportedTogetherInTheOrderOfTheFile) {
    const auto loaded = load(R"({ "Name": 7,
"Parts": [ { "Name": "p", "File": "p.bin", "Size": 64, "PageSize": 8 } ],
"Chips": [ { "Name": "A", "Part": "p", "Offset": 0 },
           { "Name": "B", "Part": "p", "Offset": 4 },
           { "Name": "C", "Part": "p", "Offset": 30 } ],
"Items": [ { "Name": "X", "Num": 1, "Length": 40, "AtomStorageDataDev0": "A", "Online": 2 },
           { "Name": "Y", "Num": 2, "Length": 4, "AtomStorageDataDev0": "B" },
           { "Name": "Z", "Num": 3, "Length": 4, "AtomStorageDataDev0": "C" } ] }
)");
    ASSERT_EQ(loaded.mistakes.size(), 4U);
    EXPECT_EQ(loaded.mistakes[0], "e.json:1: /Name: is 7; must be a text");
    EXPECT_TRUE(loaded.mistakes[1].starts_with(R"(e.json:4: /Chips/1/Offset: the record of "B")"));
    EXPECT_TRUE(loaded.mistakes[2].starts_with(R"(e.json:5: /Chips/2/Offset: the record of "C")"));
    EXPECT_TRUE(loaded.mistakes[3].starts_with("e.json:6: /Items/0/Online: is 2"));
}

TEST(Enclosure, WhatIsNoEnclosureIsRefused) {
    const std::vector<std::string> texts = {"",         "[]",         "null",  "{",    "{}", std::string(100, '['),
                                            "{\"\n\"}", "\xff\xfe{}", "{} {}", "1e999"};
    for (const std::string &text : texts) {
        SCOPED_TRACE(text);
        const auto loaded = load(text);
        EXPECT_FALSE(loaded.enclosure.has_value());
        EXPECT_FALSE(loaded.mistakes.empty());
    }
    const auto absent = load_enclosure("/nonexistent/e.json");
    ASSERT_EQ(absent.mistakes.size(), 1U);
    EXPECT_TRUE(absent.mistakes[0].starts_with("/nonexistent/e.json: cannot be read: No such file"));
}

TEST(Enclosure, EveryEnclosureOfTheProjectLoads) {
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(ASD_CONFIG_DIR)) {
        if (entry.path().extension() != ".json" || entry.path().filename().native().ends_with(".schema.json")) {
            continue;
        }
        SCOPED_TRACE(entry.path());
        EXPECT_EQ(load_enclosure(entry.path()).mistakes, std::vector<std::string>());
        ++count;
    }
    EXPECT_GE(count, 2U);
}

// Editors complete and check by the schema; a key of its that the loader does not know would be a trap.
TEST(Enclosure, TheLoaderKnowsEveryKeyOfTheSchema) {
    std::ifstream file(std::filesystem::path(ASD_CONFIG_DIR) / "enclosure.schema.json");
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    asd_host::JsonMistakes mistakes("schema");
    const auto schema = asd_host::parse_json(text, mistakes);
    ASSERT_TRUE(schema.has_value());
    const auto keys_of = [&](std::initializer_list<const char *> path) {
        const asd_host::JsonNode *node = &*schema;
        for (const char *key : path) {
            node = node == nullptr ? nullptr : node->find(key);
        }
        std::string keys;
        EXPECT_NE(node, nullptr);
        for (const auto &member : node->members) {
            keys += '"' + member.key + R"(": null, )";
        }
        return keys;
    };
    const std::vector<std::pair<std::string, std::string>> rows = {
        {R"("Name": "test")", keys_of({"properties"}) + R"("Name": "")"},
        {R"("Name": "test")",
         R"("Board": { )" + keys_of({"properties", "Board", "properties"}) + R"("TwoUExpansion": 0 })"},
        {R"("Name": "test")",
         R"("Device": { )" + keys_of({"properties", "Device", "properties"}) + R"("DeviceId": 0 })"},
        {R"("Name": "test")",
         R"("GpioLines": [ { )" + keys_of({"definitions", "gpioLine", "properties"}) + R"("Line": 0 } ])"},
        {R"("Name": "left")", keys_of({"definitions", "part", "properties"}) + R"("Name": "left")"},
        {R"("Name": "Dev1a")", keys_of({"definitions", "chip", "properties"}) + R"("Name": "Dev1a")"},
        {R"("Name": "One")", keys_of({"definitions", "item", "properties"}) + R"("Name": "One")"},
    };
    for (const auto &[from, to] : rows) {
        const auto loaded = load(with(from, to));
        EXPECT_FALSE(loaded.mistakes.empty());
        for (const std::string &mistake : loaded.mistakes) {
            EXPECT_EQ(mistake.find("unknown key"), std::string::npos) << mistake;
        }
    }
}

TEST(Options, AreParsedOrRefusedWithStatusTwo) {
    struct Row {
        std::vector<std::string> arguments;
        std::optional<int> status;
    };
    const std::vector<Row> rows = {
        {{}, std::nullopt},
        {{"--slot", "3", "--role", "slave", "--log-level=debug", "--time-scale", "1440"}, std::nullopt},
        {{"--log-level", "2"}, std::nullopt},
        {{"--help"}, 0},
        {{"--version"}, 0},
        {{"--slot", "4"}, 2},
        {{"--slot", "-1"}, 2},
        {{"--slot"}, 2},
        {{"--role", "both"}, 2},
        {{"--role", "1"}, 2},
        {{"--log-level", "3"}, 2},
        {{"--time-scale", "0"}, 2},
        {{"--time-scale", "100001"}, 2},
        {{"--config", ""}, 2},
        {{"--unknown"}, 2},
        {{"extra"}, 2},
        // RUN_DIR/slot0/ipmi.sock: 107 bytes are the most a socket's path has
        {{"--run-dir", "/" + std::string(90, 'r')}, std::nullopt},
        {{"--run-dir", "/" + std::string(91, 'r')}, 2},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.arguments));
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(asd_host::parse_options(row.arguments).exit_status, row.status);
        EXPECT_EQ(!::testing::internal::GetCapturedStdout().empty(), row.status == 0);
        EXPECT_EQ(!::testing::internal::GetCapturedStderr().empty(), row.status == 2);
    }
    const auto options =
        asd_host::parse_options({"--slot", "2", "--role", "master", "--log-level", "error", "--run-dir", "/r"}).options;
    EXPECT_EQ(options.slot_run_dir(), "/r/slot2");
    EXPECT_EQ(options.role, asd_host::Role::kMaster);
    EXPECT_EQ(options.log_level, 0);
    EXPECT_TRUE(options.state_dir.is_absolute());
}

} // namespace
