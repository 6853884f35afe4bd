// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Which chips an item's reads and writes go to, and what they leave in Value.

#include "bmc_asd_read.h"
#include "bmc_asd_write.h"
#include "module_test.h"

namespace {

using DispatchTest = ModuleTest;

const Bytes kFirst = pattern(8, 10);  // on chip 0
const Bytes kSecond = pattern(8, 50); // on chip 1
const Bytes kMirror = {1, 2, 3};      // Value before
const Bytes kUntouched(8, 0xEE);

// "ASD16" with its check object, so that the flag path can be followed; both flags say that both chips are good.
OBJ_HANDLE build_item(std::size_t chips = 2) {
    for (const char *chip : {"ASDDev16a", "ASDDev16b", "ASDDev17a", "ASDDev17b"}) {
        fake::add_chip(chip, {.retry = 1});
    }
    fake::add_item("ASD17", {.length = 1, .chips = {"ASDDev17a", "ASDDev17b"}});
    const OBJ_HANDLE item =
        fake::add_item("ASD16", {.length = 8, .chips = {"ASDDev16a", "ASDDev16b"}, .ready = 9, .value = kMirror});
    fake::set_property("ASD16", "DevCount", g_variant_new_uint32(static_cast<guint32>(chips)));
    fake::put_record("ASDDev16a", kFirst);
    fake::put_record("ASDDev16b", kSecond);
    fake::put_record("ASDDev17a", {1});
    fake::put_record("ASDDev17b", {1});
    return item;
}

std::function<void()> fault(const char *operation, const char *subject, gint32 status) {
    return [=] { fake::inject({.operation = operation, .subject = subject, .status = status, .count = 0}); };
}

std::function<void()> property(const char *name, guint32 value) {
    return [=] { fake::set_property("ASD16", name, g_variant_new_uint32(value)); };
}

const auto kNothing = [] {};
const auto kOffline = [] { fake::set_property("ASD16", "Online", g_variant_new_byte(0)); };
const auto kFrameBoard = [] { fake::change_board([](fake::Board &board) { board.four_u = board.equip_frame = 1; }); };
const auto kOneBackplaneChip = [] { fake::change_board([](fake::Board &board) { board.backplane_eeproms = 1; }); };
const auto kSameContent = [] { fake::put_record("ASDDev16b", kFirst); };

using Entry = gint32 (*)(OBJ_HANDLE, guint8 *, guint32);
template <guint8 device>
gint32 read_equip_one(OBJ_HANDLE item, guint8 *data, guint32 len) {
    return asd_read_equip_one(item, data, len, device);
}
template <guint8 device>
gint32 write_equip_one(OBJ_HANDLE item, guint8 *data, guint32 len) {
    return asd_write_equip_one(item, data, len, device);
}
gint32 write_equip(OBJ_HANDLE item, guint8 *data, guint32 len) {
    return asd_write_equip(item, data, len);
}
gint32 write_method(OBJ_HANDLE item, guint8 *data, guint32 len) {
    return asd_write_method(item, data, len);
}
gint32 write_memory(OBJ_HANDLE item, guint8 *data, guint32 len) {
    return Asd_WriteMemProperty(item, data, len);
}

// The chips of the item that were transferred, in order, as "ab".
std::string chips_touched(std::string_view operation) {
    std::string touched;
    for (const std::string &line : fake::journal({operation})) {
        if (line.find("ASDDev16") != std::string::npos) {
            touched += line[line.find("ASDDev16") + 8];
        }
    }
    return touched;
}

// ---- Reads ---------------------------------------------------------------------------------------------------------

TEST_F(DispatchTest, ReadDispatch) {
    struct Row {
        const char *name;
        Entry read;
        std::size_t chips;
        std::function<void()> arrange;
        gint32 status;
        const char *touched;
        const Bytes *data; // null: not to be used
        bool mirrored;
        Texts errors;
    };
    const char *dev0 = "ASD16.AtomStorageDataDev0";
    const char *dev1 = "ASD16.AtomStorageDataDev1";
    const std::string count_text = "Get PROPERTY_ASD_DEVCOUNT property failed! result: 7.";
    const auto no_count = fault("dfl_get_property_value", "ASD16.DevCount", 7);
    const auto chip0_dead = fault("dfl_block_read", "ASDDev16a", 5);
    const auto chip1_dead = fault("dfl_block_read", "ASDDev16b", 6);
    const auto equip = asd_read_equip;
    const auto method = asd_read_method;
    const auto load = asd_read_one_chip;
    const auto one0 = read_equip_one<0>;
    const auto one1 = read_equip_one<1>;
    // clang-format off
    const std::vector<Row> rows = {
        {"equip, one chip", equip, 1, kNothing, 0, "a", &kFirst, true, {}},
        {"equip, one chip, frame board", equip, 1, kFrameBoard, 0, "b", &kSecond, true, {}},
        {"equip, two equal chips", equip, 2, kSameContent, 0, "ab", &kFirst, true, {}},
        {"equip, two equal chips, frame board", equip, 2, [] { kSameContent(); kFrameBoard(); }, 0, "ab", &kFirst, true,
         {}},
        {"equip, chips differ", equip, 2, kNothing, -1016, "ab", nullptr, false,
         {"asd_read_chip: ASD16 Data is not same in two EEPROM!", "asd_read_equip: ASD16 Read eeprom failed[-1016]!"}},
        {"equip, one backplane EEPROM", equip, 2, kOneBackplaneChip, 0, "a", &kFirst, true, {}},
        {"equip, one backplane EEPROM, frame board", equip, 2, [] { kOneBackplaneChip(); kFrameBoard(); }, 0, "b",
         &kSecond, true, {}},
        {"equip, offline", equip, 1, kOffline, -1007, "", &kUntouched, false, {}},
        {"equip, count unreadable", equip, 2, no_count, 0, "a", &kFirst, true, {count_text,
         "asd_read_chip: ASD16 Get eeprom count failed! ret: -1."}},
        {"equip, three chips", equip, 3, kNothing, -1008, "", &kUntouched, false,
         {"asd_read_chip: ASD16 chip count(3) is wrong!", "asd_read_equip: ASD16 Read eeprom failed[-1008]!"}},
        {"equip, one chip, unknown", equip, 1, fault("dfl_get_referenced_object", dev0, 8), 8, "", &kUntouched, false,
         {"asd_read_chip: ASD16 Get dev failed! ret: 8.", "asd_read_equip: ASD16 Read eeprom failed[8]!"}},
        {"equip, chip 0 unknown", equip, 2, fault("dfl_get_referenced_object", dev0, 8), 8, "", &kUntouched, false,
         {"asd_read_chip: ASD16 Get PROPERTY_ASD_DEV0 failed! ret: 8.",
         "asd_read_equip: ASD16 Read eeprom failed[8]!"}},
        {"equip, chip 1 unknown", equip, 2, fault("dfl_get_referenced_object", dev1, 8), 8, "a", nullptr, false,
         {"asd_read_chip: ASD16 Get PROPERTY_ASD_DEV1 failed! ret: 8.",
         "asd_read_equip: ASD16 Read eeprom failed[8]!"}},
        {"equip, chip 0 dead: chip 1 not tried", equip, 2, chip0_dead, 5, "a", &kUntouched, false,
         {"asd_read_chip: ASD16 Read 1st EEPROM failed! ret: 5.", "asd_read_equip: ASD16 Read eeprom failed[5]!"}},
        {"equip, chip 1 dead", equip, 2, chip1_dead, 6, "ab", nullptr, false,
         {"asd_read_chip: ASD16 Read 2nd EEPROM failed! ret: 6.", "asd_read_equip: ASD16 Read eeprom failed[6]!"}},
        {"one, chip 0", one0, 2, kNothing, 0, "a", &kFirst, true, {}},
        {"one, chip 1", one1, 2, kNothing, 0, "b", &kSecond, true, {}},
        {"one, chip 0, frame board", one0, 2, kFrameBoard, 0, "b", &kSecond, true, {}},
        {"one, chip 2", read_equip_one<2>, 2, kNothing, -1, "", &kUntouched, false, {"device id(2) is wrong!",
         "asd_read_equip_one: Read eeprom failed[-1]!"}},
        {"one, one-chip item", one0, 1, kNothing, -1, "", &kUntouched, false, {"eeprom count is not 2! result: 0.",
         "asd_read_equip_one: Read eeprom failed[-1]!"}},
        {"one, three chips", one1, 3, kNothing, -1, "", &kUntouched, false, {"eeprom count is not 2! result: 0.",
         "asd_read_equip_one: Read eeprom failed[-1]!"}},
        {"one, count unreadable", one0, 2, no_count, -1, "", &kUntouched, false, {count_text,
         "Get eeprom count failed! ret: -1.", "eeprom count is not 2! result: -1.",
         "asd_read_equip_one: Read eeprom failed[-1]!"}},
        {"one, chip 0 unknown", one0, 2, fault("dfl_get_referenced_object", dev0, 8), 8, "", &kUntouched, false,
         {"Get dev failed! ret: 8.", "asd_read_equip_one: Read eeprom failed[8]!"}},
        {"one, chip 1 unknown", one1, 2, fault("dfl_get_referenced_object", dev1, 8), 8, "", &kUntouched, false,
         {"Get PROPERTY_ASD_DEV1 failed! ret: 8.", "asd_read_equip_one: Read eeprom failed[8]!"}},
        {"one, chip 0 dead", one0, 2, chip0_dead, 5, "a", &kUntouched, false, {"Read 1st EEPROM failed! ret: 5.",
         "asd_read_equip_one: Read eeprom failed[5]!"}},
        {"one, chip 1 dead", one1, 2, chip1_dead, 6, "b", &kUntouched, false, {"Read 2nd EEPROM failed! ret: 6.",
         "asd_read_equip_one: Read eeprom failed[6]!"}},
        {"one, offline", one0, 2, kOffline, -1007, "", &kUntouched, false, {}},
        {"method, one chip", method, 1, kNothing, 0, "a", &kFirst, true, {}},
        {"method, one chip, frame board", method, 1, kFrameBoard, 0, "b", &kSecond, true, {}},
        {"method, the flag decides", method, 2, [] { fake::put_record("ASDDev17b", {2}); }, 0, "b", &kSecond, true, {}},
        {"method, backplane count not asked", method, 2, kOneBackplaneChip, 0, "a", &kFirst, true, {}},
        {"method, offline", method, 1, kOffline, -1007, "", &kUntouched, false, {}},
        {"method, one chip, unknown", method, 1, fault("dfl_get_referenced_object", dev0, 8), 8, "", &kUntouched, false,
         {"asd_read_check: (ASD16)Get dev failed! ret(8)."}},
        {"method, three chips", method, 3, kNothing, -1008, "", &kUntouched, false,
         {"asd_read_check: (ASD16)chip count(3) is wrong!"}},
        {"method, count unreadable", method, 2, no_count, 0, "a", &kFirst, true, {count_text,
         "asd_read_check: (ASD16)Get eeprom count failed! ret: -1."}},
        {"method, dead: silent", method, 1, chip0_dead, 5, "a", &kUntouched, false, {}},
        {"load, one chip", load, 1, kNothing, 0, "a", &kFirst, false, {}},
        {"load, one chip, frame board", load, 1, kFrameBoard, 0, "a", &kFirst, false, {}},
        {"load, chips differ", load, 2, kNothing, 0, "a", &kFirst, false, {}},
        {"load, offline", load, 2, kOffline, 0, "a", &kFirst, false, {}},
        {"load, chip 0 dead", load, 2, chip0_dead, 0, "ab", &kSecond, false, {"ASD16 read eeprom failed(ret=5)"}},
        {"load, both dead", load, 2, [&] { chip0_dead(); chip1_dead(); }, 6, "ab", &kUntouched, false,
         {"ASD16 read eeprom failed(ret=5)", "ASD16 read eeprom failed(ret=6)",
         "ASD16 read eeprom count 2 failed, ret=6"}},
        {"load, one chip, dead", load, 1, chip0_dead, 5, "a", &kUntouched, false, {"ASD16 read eeprom failed(ret=5)",
         "ASD16 read eeprom count 1 failed, ret=5"}},
        {"load, one chip, unknown", load, 1, fault("dfl_get_referenced_object", dev0, 8), 8, "", &kUntouched, false,
         {"ASD16 Get dev failed(ret=8)", "ASD16 read eeprom count 1 failed, ret=8"}},
        {"load, three chips", load, 3, kNothing, -1008, "", &kUntouched, false, {"ASD16 chip count(3) is wrong!"}},
        {"load, count unreadable", load, 2, no_count, 0, "a", &kFirst, false, {count_text,
         "ASD16 Get eeprom count failed! ret: -1."}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        const OBJ_HANDLE item = build_item(row.chips);
        row.arrange();
        Bytes data = kUntouched;
        EXPECT_EQ(row.read(item, data.data(), 8), row.status);
        EXPECT_EQ(chips_touched("dfl_block_read"), row.touched);
        if (row.data != nullptr) {
            EXPECT_EQ(data, *row.data);
        }
        EXPECT_EQ(fake::value("ASD16"), row.mirrored ? data : kMirror);
        EXPECT_EQ(fake::number("ASD16", "Ready"), row.mirrored ? 1 : 9);
        EXPECT_EQ(fake::log_texts(0), row.errors);
        expect_contract_kept();
    }
}

TEST_F(DispatchTest, NamelessItemsAreNotRead) {
    for (const Entry read : {asd_read_equip, asd_read_method}) {
        fresh_world();
        const OBJ_HANDLE item = build_item(1);
        fault("dfl_get_object_name", "ASD16", 1)();
        Bytes data = kUntouched;
        EXPECT_EQ(read(item, data.data(), 8), -1);
        EXPECT_EQ(fake::calls("dfl_block_read"), 0U);
    }
}

TEST_F(DispatchTest, PowerThresholdMethodReadFailsAloudOnce) {
    fake::add_chip("ASDDevX", {.retry = 1});
    fake::put_record("ASDDevX", kFirst);
    const OBJ_HANDLE item = fake::add_item("ASD_PowerThreshold", {.length = 8, .chips = {"ASDDevX"}});
    Bytes data(8);
    for (int pass = 0; pass < 2; ++pass) {
        fake::clear_journal();
        fault("dfl_block_read", "ASDDevX", 5)();
        EXPECT_EQ(asd_read_method(item, data.data(), 8), 5);
        EXPECT_EQ(asd_read_method(item, data.data(), 8), 5);
        EXPECT_EQ(fake::logs(2), Texts{"0 asd_read_method: (ASD_PowerThreshold)Read eeprom failed! result: 5."});
        fake::lift_faults();
        EXPECT_EQ(asd_read_method(item, data.data(), 8), 0);
    }
}

// ---- Writes --------------------------------------------------------------------------------------------------------

TEST_F(DispatchTest, WriteDispatch) {
    const Bytes image = {77, 78, 79, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}; // three bytes given, Length 8
    struct Row {
        const char *name;
        Entry write;
        std::size_t chips;
        std::function<void()> arrange;
        gint32 status;
        const char *touched;
        std::array<bool, 2> written; // the chip holds the image afterwards
        bool mirrored;
        Texts logs;
    };
    const char *dev0 = "ASD16.AtomStorageDataDev0";
    const char *dev1 = "ASD16.AtomStorageDataDev1";
    const auto no_chip0 = fault("dfl_get_referenced_object", dev0, 8);
    const auto no_chip1 = fault("dfl_get_referenced_object", dev1, 8);
    const auto no_count = fault("dfl_get_property_value", "ASD16.DevCount", 7);
    const auto no_length = fault("dfl_get_property_value", "ASD16.Length", 7);
    const auto chip0_dead = fault("dfl_block_write", "ASDDev16a", 5);
    const auto chip1_dead = fault("dfl_block_write", "ASDDev16b", 6);
    const auto no_name = fault("dfl_get_object_name", "ASD16", 1);
    const auto too_long = property("Length", 8193);
    const std::string length_text = "0 Get PROPERTY_ASD_LENGTH failed! result: 7.";
    const std::string count_text = "0 Get PROPERTY_ASD_DEVCOUNT property failed! result: 7.";
    const std::string too_long_text = "0 ASD16 length(8193) exceed asd eep max size(8192).";
    const std::string equip_failed = "0 asd_write_equip: ASD16 Write eeprom failed";
    const std::string method_failed = "1 asd_write_method: Write eeprom failed! result: ";
    const auto equip = write_equip;
    const auto method = write_method;
    const auto one0 = write_equip_one<0>;
    const auto one1 = write_equip_one<1>;
    // clang-format off
    const std::vector<Row> rows = {
        {"equip, one chip", equip, 1, kNothing, 0, "a", {true, false}, true, {}},
        {"equip, one chip, frame board", equip, 1, kFrameBoard, 0, "b", {false, true}, true, {}},
        {"equip, two chips", equip, 2, kNothing, 0, "ab", {true, true}, true, {}},
        {"equip, backplane count not asked", equip, 2, kOneBackplaneChip, 0, "ab", {true, true}, true, {}},
        {"equip, offline", equip, 2, kOffline, -1007, "", {}, false, {"0 asd_write_equip: ASD16 asd not online!"}},
        {"equip, nameless", equip, 2, no_name, -1, "", {}, false, {"0 Get objname failed."}},
        {"equip, Length unreadable", equip, 2, no_length, 7, "", {}, false, {length_text,
         "0 asd_write_equip: ASD16 asd get value len failed!"}},
        {"equip, too long", equip, 2, too_long, -1, "", {}, false, {too_long_text}},
        {"equip, chip 0 dead", equip, 2, chip0_dead, 5, "ab", {false, true}, false,
         {"0 asd_write_chip: ASD16 Write 1st EEPROM failed! ret(5).", equip_failed + "[5]!"}},
        {"equip, chip 1 dead", equip, 2, chip1_dead, 6, "ab", {true, false}, false,
         {"0 asd_write_chip: ASD16 Write 2nd EEPROM failed! ret(6).", equip_failed + "[6]!"}},
        {"equip, both dead", equip, 2, [&] { chip0_dead(); chip1_dead(); }, 6, "ab", {}, false,
         {"0 asd_write_chip: ASD16 Write 1st EEPROM failed! ret(5).",
         "0 asd_write_chip: ASD16 Write 2nd EEPROM failed! ret(6).", equip_failed + "[6]!"}},
        {"equip, one chip, unknown", equip, 1, no_chip0, 8, "", {}, false,
         {"0 asd_write_chip: ASD16 Get dev failed! ret(8).", equip_failed + "[8]!"}},
        {"equip, chip 1 unknown", equip, 2, no_chip1, 8, "a", {true, false}, false,
         {"0 asd_write_chip: ASD16 Get PROPERTY_ASD_DEV1 failed! ret(8).", equip_failed + "[8]!"}},
        {"equip, three chips", equip, 3, kNothing, -1008, "", {}, false,
         {"0 asd_write_chip: ASD16 chip count(3) is wrong!", equip_failed + "[-1008]!"}},
        {"equip, count unreadable", equip, 2, no_count, 0, "a", {true, false}, true, {count_text,
         "0 asd_write_chip: ASD16 Get eeprom count failed! result: -1."}},
        {"one, chip 0", one0, 2, kNothing, 0, "a", {true, false}, true, {}},
        {"one, chip 1", one1, 2, kNothing, 0, "b", {false, true}, true, {}},
        {"one, chip 0, frame board", one0, 2, kFrameBoard, 0, "b", {false, true}, true, {}},
        {"one, chip 2", write_equip_one<2>, 2, kNothing, -1, "", {}, false, {"0 device id(2) is wrong!",
         "0 Write eeprom failed[-1]!"}},
        {"one, one-chip item", one0, 1, kNothing, -1, "", {}, false, {"0 eeprom count is not 2! result: 0.",
         "0 Write eeprom failed[-1]!"}},
        {"one, count unreadable", one0, 2, no_count, -1, "", {}, false, {count_text,
         "0 Get eeprom count failed! result: -1.", "0 eeprom count is not 2! result: -1.",
         "0 Write eeprom failed[-1]!"}},
        {"one, chip 0 unknown", one0, 2, no_chip0, 8, "", {}, false, {"0 Get dev failed! ret(8).",
         "0 Write eeprom failed[8]!"}},
        {"one, chip 1 unknown", one1, 2, no_chip1, 8, "", {}, false, {"0 Get PROPERTY_ASD_DEV1 failed! ret(8).",
         "0 Write eeprom failed[8]!"}},
        {"one, chip 0 dead", one0, 2, chip0_dead, 5, "a", {}, false, {"0 Write 1st EEPROM failed! ret(5).",
         "0 Write eeprom failed[5]!"}},
        {"one, chip 1 dead", one1, 2, chip1_dead, 6, "b", {}, false, {"0 Write 2nd EEPROM failed! ret(6).",
         "0 Write eeprom failed[6]!"}},
        {"one, offline", one0, 2, kOffline, -1007, "", {}, false, {"0 asd not online!"}},
        {"one, Length unreadable", one0, 2, no_length, 7, "", {}, false, {length_text, "0 asd get value len failed!"}},
        {"one, too long", one0, 2, too_long, -1, "", {}, false, {too_long_text}},
        {"method, one chip", method, 1, kNothing, 0, "a", {true, false}, true, {}},
        {"method, one chip, frame board", method, 1, kFrameBoard, 0, "b", {false, true}, true, {}},
        {"method, two chips", method, 2, kNothing, 0, "ab", {true, true}, true, {}},
        {"method, chip 0 dead: the flag names chip 1", method, 2, chip0_dead, 0, "ab", {false, true}, true,
         {"1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5."}},
        {"method, both dead", method, 2, [&] { chip0_dead(); chip1_dead(); }, -1006, "ab", {}, false,
         {"1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.",
         "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 6.", method_failed + "-1006."}},
        {"method, flag not written", method, 2, fault("dfl_block_write", "ASDDev17a", 4), 4, "ab", {true, true}, false,
         {"0 ASD17 Write 1st EEPROM check_flag failed! check_flag: 2, ret: 4.", method_failed + "4."}},
        {"method, one chip, unknown", method, 1, no_chip0, 8, "", {}, false,
         {"0 asd_write_check: ASD16 Get dev failed! ret: 8.", method_failed + "8."}},
        {"method, three chips", method, 3, kNothing, -1008, "", {}, false,
         {"0 asd_write_check: ASD16 chip count(3) is wrong!", method_failed + "-1008."}},
        {"method, count unreadable", method, 2, no_count, 0, "a", {true, false}, true, {count_text,
         "0 asd_write_check: ASD16 Get eeprom count failed! ret: -1."}},
        {"method, offline", method, 2, kOffline, -1007, "", {}, false, {"0 asd_write_method: ASD16 asd not online!"}},
        {"method, Length unreadable", method, 2, no_length, 7, "", {}, false, {length_text,
         "0 asd_write_method: ASD16 asd get value len failed[7]!"}},
        {"method, too long", method, 2, too_long, -1, "", {}, false, {too_long_text}},
        {"memory", write_memory, 3, kNothing, 0, "", {}, true, {}},
        {"memory, offline", write_memory, 2, kOffline, -1007, "", {}, false,
         {"0 Asd_WriteMemProperty: asd is not online!"}},
        {"memory, Length unreadable", write_memory, 2, no_length, 7, "", {}, false, {length_text,
         "0 Asd_WriteMemProperty: asd(ASD16) get value len failed(7)!"}},
        {"memory, too long", write_memory, 2, too_long, -1, "", {}, false, {too_long_text}},
        {"memory, Length 0", write_memory, 2, property("Length", 0), -1, "", {}, false,
         {"0 Asd_WriteMemProperty: asd(ASD16) malloc failed!"}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        const OBJ_HANDLE item = build_item(row.chips);
        row.arrange();
        Bytes given = {77, 78, 79};
        EXPECT_EQ(row.write(item, given.data(), 3), row.status);
        EXPECT_EQ(chips_touched("dfl_block_write"), row.touched);
        EXPECT_EQ(fake::chip_bytes("ASDDev16a", 64, 10), fake::record(row.written[0] ? image : kFirst));
        EXPECT_EQ(fake::chip_bytes("ASDDev16b", 64, 10), fake::record(row.written[1] ? image : kSecond));
        EXPECT_EQ(fake::value("ASD16"), row.mirrored ? image : kMirror);
        EXPECT_EQ(fake::number("ASD16", "Ready"), row.mirrored ? 1 : 9);
        EXPECT_EQ(fake::logs(1), row.logs);
        expect_contract_kept();
    }
    fresh_world();
    EXPECT_EQ(Asd_WriteMemProperty(build_item(), nullptr, 3), -1);
    EXPECT_EQ(fake::logs(2), Texts{"0 Input Parameter is NULL."});
}

TEST_F(DispatchTest, ImagesAreAsLongAsTheItem) {
    struct Row {
        guint32 length;
        guint32 given;
    };
    const std::array<Entry, 3> writes = {write_equip, write_method, write_equip_one<1>};
    for (const Entry write : writes) {
        for (const auto &[length, given] :
             {Row{8, 20}, Row{8, 8}, Row{8, 0}, Row{1, 2}, Row{8192, 8192}, Row{8192, 1}}) {
            SCOPED_TRACE(std::to_string(length) + " from " + std::to_string(given));
            fresh_world();
            const OBJ_HANDLE item = build_item();
            fake::set_property("ASD16", "Length", g_variant_new_uint32(length));
            Bytes bytes = pattern(given);
            bytes.reserve(1); // a pointer also when empty
            EXPECT_EQ(write(item, bytes.data(), given), 0);
            Bytes image = bytes;
            image.resize(length, 0xFF);
            EXPECT_EQ(fake::chip_bytes("ASDDev16b", 64, length + 2), fake::record(image));
            EXPECT_EQ(fake::value("ASD16"), image);
        }
    }
}

TEST_F(DispatchTest, AFailedFillOrCopyIsLoggedAndTheWriteGoesOn) {
    struct Row {
        Entry write;
        const char *text;
    };
    for (const auto &[write, text] : {Row{write_equip, "Error: copy asd data failed, result = 9."},
                                      Row{write_equip_one<0>, "Error: copy asd final data failed, result = 9."},
                                      Row{write_method, "Error: copy asd final data failed, result = 9."},
                                      Row{write_memory, "Error: copy asd final data failed, result = 9."}}) {
        fresh_world();
        const OBJ_HANDLE item = build_item();
        fake::inject({.operation = "memcpy_s", .status = 9});
        Bytes bytes = pattern(8);
        EXPECT_EQ(write(item, bytes.data(), 8), 0);
        EXPECT_EQ(fake::log_texts(0), Texts{text});
        EXPECT_EQ(fake::value("ASD16"), Bytes(8, 0));
    }
}

} // namespace
