// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "enclosure.h"
#include "host_test.h"
#include "json_document.h"
#include "options.h"
#include "printable.h"

namespace {

using namespace asd_host;
using namespace asd_test;

// JSON as the tables below write it, with single quotes.
std::string json(std::string text) {
    std::ranges::replace(text, '\'', '"');
    return text;
}

// One item on two chips and one on one chip; the tests break it in one place each.
const std::string kSound = json(R"({
  'Name': 'test',
  'Parts': [
    { 'Name': 'left', 'File': 'left.bin', 'Size': 256, 'PageSize': 16 },
    { 'Name': 'right', 'File': 'right.bin', 'Size': 256, 'PageSize': 16, 'Shared': true }
  ],
  'Chips': [
    { 'Name': 'Dev1a', 'Part': 'left', 'Offset': 0 },
    { 'Name': 'Dev1b', 'Part': 'right', 'Offset': '0x10' },
    { 'Name': 'Dev2', 'Part': 'left', 'Offset': 34 }
  ],
  'Items': [
    { 'Name': 'One', 'Num': 1, 'Length': 32, 'AtomStorageDataDev0': 'Dev1a', 'AtomStorageDataDev1': 'Dev1b' },
    { 'Name': 'Two', 'Num': 2, 'Length': 8, 'AtomStorageDataDev0': 'Dev2', 'NeedSync': 1, 'Value': 'erased' }
  ]
}
)");

// Mistakes without the file's name.
LoadedEnclosure load(const std::string &text) {
    const ScratchFolder folder;
    const auto file = folder.path() / "e.json";
    std::ofstream(file, std::ios::binary) << text;
    LoadedEnclosure loaded = load_enclosure(file);
    for (std::string &mistake : loaded.mistakes) {
        EXPECT_TRUE(mistake.starts_with(file.native() + ":")) << mistake;
        mistake.erase(0, file.native().size() + 1);
    }
    return loaded;
}

std::string with(const std::string &from, const std::string &to) {
    std::string text = kSound;
    const std::size_t at = text.find(json(from));
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), json(to));
}

TEST(Enclosure, ReadsWhatTheFileSays) {
    const auto loaded = load(with("'Name': 'test',", R"('Name': 'test', 'Role': 'slave', '$schema': 'x',
        'GpioLines': [ { 'Line': 55, 'Chip': 'c', 'Offset': '0x11' }, { 'Line': 7, 'Chip': 'c', 'Name': 'W', 'ActiveLow': 1 } ],
        'Board': { 'EquipmentFrame': true, 'PcieSasModels': ['0x44'] }, 'Device': { 'FirmwareMinor': 12 },)"));
    ASSERT_EQ(loaded.mistakes, Texts());
    const Enclosure &enclosure = *loaded.enclosure;
    EXPECT_EQ(enclosure.role, Role::kSlave);
    EXPECT_TRUE(enclosure.board.equipment_frame);
    EXPECT_EQ(enclosure.board.pcie_sas_models, Bytes{0x44});
    EXPECT_EQ(enclosure.device.firmware_minor, 0x12);
    const GpioLineConfig &by_offset = enclosure.gpio_lines.at(0), &by_name = enclosure.gpio_lines.at(1);
    EXPECT_TRUE(by_offset.line == 55 && by_offset.offset == 17 && !by_offset.active_low);
    EXPECT_TRUE(!by_name.offset && by_name.chip + by_name.name == "cW" && by_name.active_low);
    EXPECT_FALSE(enclosure.parts.at(0).shared);
    const PartConfig &part = enclosure.parts.at(1);
    EXPECT_TRUE(part.shared && part.page_size == 16 && !part.write_protect_line);
    EXPECT_TRUE(enclosure.chips.at(1).offset == 0x10 && enclosure.chips.at(1).retry_number == 5);
    EXPECT_EQ(enclosure.items.at(0).chips, (Texts{"Dev1a", "Dev1b"}));
    const ItemConfig &item = enclosure.items.at(1);
    EXPECT_TRUE(item.length == 8 && item.need_sync && item.erased_value && item.online == 1);
}

TEST(Enclosure, EachMistakeIsOneLineThatNamesPlaceAndRemedy) {
    const struct {
        const char *from, *to;
        Texts mistakes;
    } rows[] = {
        // clang-format off
        {"'Num': 1", "'Nun': 1", {"13: /Items/0/Nun: unknown key; did you mean 'Num'?"}},
        {"'Num': 1, ", "", {"13: /Items/0: 'Num' is missing; add it"}},
        {"'Num': 1", "'Num': 256", {"13: /Items/0/Num: is 256; must be a whole number from 0 to 255"}},
        {"'Num': 2", "'Num': 1", {"14: /Items/1/Num: is 1, as in line 13; each item needs a number of its own"}},
        {"'Num': 2", "'Num': 2.5", {"14: /Items/1/Num: is a number with a fraction or exponent; must be a whole number from 0 to 255"}},
        {"'Num': 2", "'Num': 2, 'Num': 3", {"14: /Items/1/Num: the key stands a second time (first in line 14); keep one of them"}},
        {"'Length': 32", "'Length': 8193", {"13: /Items/0/Length: is 8193; must be a whole number from 1 to 8192"}},
        {"'Name': 'Two'", "'Name': 'Dev2'", {"14: /Items/1/Name: is 'Dev2', as in line 10; an item or chip needs a name that no other item or chip has"}},
        {"'Name': 'Two'", "'Name': 'Two/2'", {"14: /Items/1/Name: is 'Two/2'; must be 1 to 63 letters, digits and underscores"}},
        {"'AtomStorageDataDev0': 'Dev2'", "'AtomStorageDataDev0': 'Dev22'", {"14: /Items/1/AtomStorageDataDev0: there is no chip 'Dev22'; did you mean 'Dev2'?"}},
        {"'AtomStorageDataDev1': 'Dev1b'", "'AtomStorageDataDev1': 'Dev1a'",
         {"9: /Chips/1: no item uses the chip 'Dev1b'; remove it or name it in an item",
          "13: /Items/0/AtomStorageDataDev1: names the chip 'Dev1a' a second time; the second copy needs a chip of its own"}},
        {"'AtomStorageDataDev0': 'Dev2',", "'AtomStorageDataDev0': 'Dev2', 'AtomStorageDataDev1': 'Dev1a',",
         {"14: /Items/1/AtomStorageDataDev1: the chip 'Dev1a' holds the record of 'One'; each item needs chips of its own"}},
        {"'Part': 'right'", "'Part': 7", {"9: /Chips/1/Part: is 7; must be a text"}},
        {"'Part': 'right'", "'Part': 'rihgt'", {"9: /Chips/1/Part: there is no part 'rihgt'; did you mean 'right'?"}},
        {"'Offset': 34", "'Offset': 33",
         {"10: /Chips/2/Offset: the record of 'Dev2' (item 'Two', bytes 33 to 42) overlaps that of 'Dev1a' (item 'One', bytes 0 to 33) on part 'left'; the first byte behind that is 34"}},
        {"'Offset': 34", "'Offset': 247",
         {"10: /Chips/2/Offset: the record of 'Dev2' (item 'Two', bytes 247 to 256) runs past the end of part 'left' (256 bytes); the highest Offset that fits is 246"}},
        {"'Offset': 34", "'Offset': 34, 'RetryNumber': 0",
         {"10: /Chips/2/RetryNumber: is 0; must be a whole number from 1 to 100: without an attempt a read gives zeros and never touches the chip"}},
        {"'Size': 256, 'PageSize': 16 }", "'Size': 0, 'PageSize': 24 }",
         {"4: /Parts/0/Size: is 0; must be a whole number from 1 to 16777216",
          "4: /Parts/0/PageSize: is 24; must be a power of two, such as 16"}},
        {"'right.bin', 'Size'", "'../right.bin', 'Size'", {"5: /Parts/1/File: is '../right.bin'; must stay in the state folder (no '..') or be an absolute path"}},
        {"'right.bin', 'Size'", "'slot0/right.bin', 'Size'", {"5: /Parts/1/File: is 'slot0/right.bin', where the service keeps its own; choose another name"}},
        {"'File': 'right.bin', 'Size': 256, 'PageSize': 16, 'Shared': true", "'File': './left.bin', 'Size': 256, 'PageSize': 16, 'Shared': 'yes'",
         {"5: /Parts/1/Shared: is 'yes'; must be true or false (or 1 or 0)",
          "5: /Parts/1/File: is 'left.bin', as in line 4; each part needs a file of its own"}},
        // The record that reaches furthest counts, not the one before: Dev2's bytes end before Dev1b's begin.
        {"'Part': 'right', 'Offset': '0x10' },\n    { 'Name': 'Dev2', 'Part': 'left', 'Offset': 34",
         "'Part': 'left', 'Offset': 30 },\n    { 'Name': 'Dev2', 'Part': 'left', 'Offset': 4",
         {"9: /Chips/1/Offset: the record of 'Dev1b' (item 'One', bytes 30 to 63) overlaps that of 'Dev1a' (item 'One', bytes 0 to 33) on part 'left'; the first byte behind that is 34",
          "10: /Chips/2/Offset: the record of 'Dev2' (item 'Two', bytes 4 to 13) overlaps that of 'Dev1a' (item 'One', bytes 0 to 33) on part 'left'; the first byte behind that is 34"}},
        {"'Name': 'test'", "'Name': 'test', 'Role': 'both'", {"2: /Role: is 'both'; must be 'auto', 'master' or 'slave'"}},
        {"'Name': 'test',", R"('Name': 'test', 'GpioLines': [
           { 'Line': 55, 'Chip': 'gpiochip0', 'Offset': 12 }, { 'Line': 56, 'Chip': 'gpiochip0', 'Name': 'WP' },
           { 'Line': 55, 'Chip': '/dev/gpiochip0', 'Offset': '0xC' },
           { 'Line': 58, 'Chip': 'gpiochip0', 'Name': 'WP', 'Offset': 1 },
           { 'Line': 1024, 'Chip': '', 'Ofset': 1 }, { 'Chip': 'gpiochip0', 'Name': 'WP2' } ],)",
         {"4: /GpioLines/2/Line: is 55, as in line 3; each line is at one place",
          "4: /GpioLines/2/Offset: is 12 of 'gpiochip0', as in line 3; each line needs a place of its own",
          "5: /GpioLines/3/Name: stands beside 'Offset'; keep the one by which the line is to be found",
          "5: /GpioLines/3/Name: is 'WP' of 'gpiochip0', as in line 3; each line needs a place of its own",
          "6: /GpioLines/4/Line: is 1024; must be a whole number from 0 to 1023",
          "6: /GpioLines/4/Chip: is empty; gpioinfo lists the chips and their lines",
          "6: /GpioLines/4/Ofset: unknown key; did you mean 'Offset'?",
          "6: /GpioLines/5: 'Line' is missing; add it"}},
        {"'Name': 'test',", "'Name': 'test', 'GpioLines': [ { 'Line': 55, 'Chip': 'gpiochip0' } ],", {"2: /GpioLines/0: 'Offset' is missing; add it"}},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.from) + " -> " + row.to);
        const auto loaded = load(with(row.from, row.to));
        EXPECT_FALSE(loaded.enclosure.has_value());
        Texts expected;
        std::ranges::transform(row.mistakes, std::back_inserter(expected), json);
        EXPECT_EQ(loaded.mistakes, expected);
    }
}

TEST(Enclosure, WhatIsNoEnclosureIsRefused) {
    for (const std::string &text :
         Texts{"", "[]", "{", "{}", std::string(100, '['), "{\"\n\"}", "\xff\xfe{}", "{} {}", "1e999"}) {
        const auto loaded = load(text);
        EXPECT_TRUE(!loaded.enclosure && !loaded.mistakes.empty()) << text;
    }
    EXPECT_EQ(
        load(with("'Parts': [", "'Parts': [ // two")).mistakes,
        Texts{R"(3: /Parts: not JSON: syntax error while parsing value - invalid literal; last read: '"Parts": [ /';)"
              " comments are not part of JSON, remove it"});
    // Bytes that a terminal would obey, and more mistakes than anybody reads.
    for (const char *text : {"{ 'a\\u001b\\u009bx': 1, 'b\xC2\x9By': 1 }", "{ 'a': '\xFF\033[2J' }"}) {
        for (const std::string &mistake : load(json(text)).mistakes) {
            EXPECT_EQ(mistake, printable(mistake));
        }
    }
    std::string keys;
    for (int n = 0; n < 70; ++n) {
        keys += ", 'k" + std::to_string(n) + "': 1";
    }
    const auto many = load(json("{ 'x': 1" + keys + " }")).mistakes;
    EXPECT_EQ(many.size(), JsonMistakes::kShown + 1);
    EXPECT_TRUE(many.back().ends_with("and 25 more mistakes; mend these first")) << many.back();
    EXPECT_NE(load(std::string(std::size_t{1} << 20, ' ')).mistakes.at(0).find("at most 131072"), std::string::npos);
    const auto absent = load_enclosure("/nonexistent/e.json");
    ASSERT_EQ(absent.mistakes.size(), 1U);
    EXPECT_TRUE(absent.mistakes[0].starts_with("/nonexistent/e.json: cannot be read: No such file"));
}

TEST(Enclosure, EveryEnclosureOfTheProjectLoads) {
    for (const char *name : {"bmc.json", "enclosure.json", "repair.json"}) {
        EXPECT_EQ(load_enclosure(fs::path(ASD_CONFIG_DIR) / name).mistakes, Texts());
    }
}

// Editors complete and check by the schema; a key of its that the loader does not know would be a trap.
TEST(Enclosure, TheLoaderKnowsEveryKeyOfTheSchema) {
    JsonMistakes mistakes("schema");
    const auto schema =
        parse_json(content_of<std::string>(fs::path(ASD_CONFIG_DIR) / "enclosure.schema.json"), mistakes);
    ASSERT_TRUE(schema.has_value());
    const auto keys = [&schema](const std::vector<const char *> &path) {
        const JsonNode *node = &*schema;
        for (const char *key : path) {
            node = node->find(key);
        }
        std::string nulls;
        for (const auto &member : node->members) {
            nulls += (nulls.empty() ? "'" : ", '") + member.key + "': null";
        }
        return nulls;
    };
    const auto loaded =
        load(json("{ 'Board': { " + keys({"properties", "Board", "properties"}) + " }, 'Device': { " +
                  keys({"properties", "Device", "properties"}) + " }, 'GpioLines': [ { " +
                  keys({"definitions", "gpioLine", "properties"}) + " } ], 'Parts': [ { " +
                  keys({"definitions", "part", "properties"}) + " } ], 'Chips': [ { " +
                  keys({"definitions", "chip", "properties"}) + " } ], 'Items': [ { " +
                  keys({"definitions", "item", "properties"}) + " } ], " + keys({"properties"}) + " }"));
    EXPECT_GT(loaded.mistakes.size(), 20U);
    for (const std::string &mistake : loaded.mistakes) {
        EXPECT_EQ(mistake.find("unknown key"), std::string::npos) << mistake;
    }
}

TEST(Options, AreParsedOrRefusedWithStatusTwo) {
    // RUN_DIR/slot0/ipmi.sock: 107 bytes are the most a socket's path has
    const std::string longest = "--run-dir /" + std::string(90, 'r');
    const std::pair<std::optional<int>, Texts> rows[] = {
        {std::nullopt, {"", "--slot 3 --role slave --log-level=debug --time-scale 1440", "--log-level 2", longest}},
        {0, {"--help", "--version"}},
        {2,
         {"--slot 4", "--slot -1", "--slot", "--role both", "--log-level 3", "--time-scale 0", "--time-scale 100001",
          "--config=", "--unknown", "extra", longest + "r"}},
    };
    for (const auto &[status, lines] : rows) {
        for (const std::string &line : lines) {
            std::istringstream words(line);
            EXPECT_EQ(parse_options({std::istream_iterator<std::string>(words), {}}).exit_status, status) << line;
        }
    }
    const auto options =
        parse_options({"--slot", "2", "--role", "master", "--log-level", "error", "--run-dir", "/r"}).options;
    EXPECT_EQ(options.slot_run_dir(), "/r/slot2");
    EXPECT_EQ(options.role, Role::kMaster);
    EXPECT_EQ(options.log_level, 0);
    EXPECT_TRUE(options.state_dir.is_absolute());
}

} // namespace
