// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "enclosure.h"
#include "host_test.h"
#include "json_document.h"
#include "options.h"
#include "places.h"

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
    JsonMistakes wrong("rows");
    const auto rows = parse_json(content_of<std::string>(fs::path(ASD_TEST_DIR) / "enclosure_mistakes.json"), wrong);
    ASSERT_TRUE(rows.has_value());
    ASSERT_GT(rows->members.size(), 20U);
    for (const JsonNode &row : rows->members) {
        const auto loaded = load(with(row.find("from")->text, row.find("to")->text));
        EXPECT_FALSE(loaded.enclosure.has_value());
        Texts expected;
        std::ranges::transform(row.find("mistakes")->members, std::back_inserter(expected),
                               [](const JsonNode &mistake) { return json(mistake.text); });
        EXPECT_EQ(loaded.mistakes, expected) << "line " << row.line;
    }
}

// A part there would be overwritten by what the service keeps, or replaced by its temporary file.
TEST(Places, TakenByWhatTheServiceKeepsAndByNothingElse) {
    const std::pair<Folder, Texts> kept[] = {
        {Folder::kState, {"slot0", "slot3", "role.lock", "intents"}},
        {Folder::kSlotState, {"state.lock", "intents", "cpld-ram", "cpld-ram.tmp", "flash-parameters.damaged"}}};
    for (const auto &[folder, names] : kept) {
        for (const std::string &name : names) {
            EXPECT_TRUE(is_taken(folder, name)) << name;
        }
        for (const char *name : {"slot4", "cpld-ram.bin", "master.lock", "part"}) {
            EXPECT_FALSE(is_taken(folder, name)) << name;
        }
    }
    EXPECT_FALSE(is_taken(Folder::kState, "state.lock") || is_taken(Folder::kSlotState, "slot0"));
}

TEST(Places, AreAllInTheDocument) {
    const auto document = content_of<std::string>(fs::path(ASD_CONFIG_DIR) / "../docs/configuration.md");
    for (const auto &place : kPlaces) {
        EXPECT_NE(document.find(place.name), std::string::npos) << place.name;
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
    std::string keys; // more mistakes than anybody reads
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
        {2, {"--slot 4",       "--slot -1",           "--slot",          "--role both",       "--log-level 3",
             "--time-scale 0", "--time-scale 100001", "--config=",       "--slot 1 --slot 2", "--strict",
             "--help=3",       "--unknown",           "extra",           longest + "r",       "--slot x",
             "--slot 1x",      "--time-scale x",      "--time-scale 9x", "--bus x",           "--ipmi-host private",
             "--inventory x",  "--state-dir="}},
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
    const uid_t user = geteuid();
    const struct {
        const char *state, *home; // of the environment; empty: not set
        std::string folder;       // how it begins
    } places[] = {{"/x", "/h", "/x/asd"}, {"x", "/h", "/h/.local/state/asd"}, {"", "", "/"}};
    EXPECT_TRUE(user != 0 || seteuid(65534) == 0);
    for (const auto &place : places) {
        *place.state == '\0' ? unsetenv("XDG_STATE_HOME") : setenv("XDG_STATE_HOME", place.state, 1);
        *place.home == '\0' ? unsetenv("HOME") : setenv("HOME", place.home, 1);
        const std::string folder = parse_options({}).options.state_dir;
        EXPECT_TRUE(folder.starts_with(place.folder) && folder.ends_with("/asd")) << folder;
    }
    EXPECT_EQ(seteuid(user), 0);
    EXPECT_EQ(parse_options({}).options.state_dir == "/var/lib/asd", user == 0);
}

} // namespace
