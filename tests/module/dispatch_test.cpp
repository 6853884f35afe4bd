// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Which chips an item's reads and writes go to, and what they leave in Value.

#include "bmc_asd_read.h"
#include "bmc_asd_write.h"
#include "module_test.h"

namespace {

using DispatchTest = ModuleTest;

const Bytes kFirst = pattern(8, 10);  // on chip A
const Bytes kSecond = pattern(8, 50); // on chip B
const Bytes kUntouched(8, 0xEE);
const Bytes kMirror = {1, 2, 3, 9}; // Value and Ready before
const std::string kReadA = "read A 64 10";
const std::string kReadB = "read B 64 10";
const std::string kWriteA = "write A 64 10";
const std::string kWriteB = "write B 64 10";

OBJ_HANDLE item = 0; // "ASD16"

// With its check object, so that the flag path can be followed; both flags say that both chips are good.
void build() {
    build_item("ASD17", {.length = 1, .chips = {"FlagA", "FlagB"}}, {{1}, {1}});
    item = build_item("ASD16", {.length = 8, .chips = {"A", "B"}, .ready = 9, .value = {1, 2, 3}}, {kFirst, kSecond});
}

Arrange chips(guint32 count, const Arrange &more = kAsBuilt) {
    return both(number_set("ASD16", "DevCount", count), more);
}

const Arrange kOffline = byte_set("ASD16", "Online", 0);
const Arrange kFrame = [] { fake::world().board.four_u = fake::world().board.equip_frame = 1; };
const Arrange kOneBackplaneChip = [] { fake::world().board.backplane_eeproms = 1; };
const Arrange kNoDev0 = fault("dfl_get_referenced_object", "ASD16.AtomStorageDataDev0", 8);
const Arrange kNoDev1 = fault("dfl_get_referenced_object", "ASD16.AtomStorageDataDev1", 8);
const Arrange kNoCount = fault("dfl_get_property_value", "ASD16.DevCount");
const Arrange kNoLength = fault("dfl_get_property_value", "ASD16.Length");
const Arrange kNameless = fault("dfl_get_object_name", "ASD16");
const Arrange kTooLong = number_set("ASD16", "Length", 8193);
const std::string kCountText = "0 Get PROPERTY_ASD_DEVCOUNT property failed! result: 7.";

// ---- Reads ---------------------------------------------------------------------------------------------------------

TEST_F(DispatchTest, ReadDispatch) {
    Bytes data;
    const auto reader = [&data](gint32 (*read)(OBJ_HANDLE, guint8 *, guint32)) {
        return [&data, read] {
            data = kUntouched;
            return read(item, data.data(), 8);
        };
    };
    const auto read_a = reader([](auto i, auto *d, auto len) { return asd_read_equip_one(i, d, len, 0); });
    const auto read_b = reader([](auto i, auto *d, auto len) { return asd_read_equip_one(i, d, len, 1); });
    const auto left = [&data] { return joined(data == kUntouched ? Bytes{} : data, mirror("ASD16")); };
    const Bytes first = joined(joined(kFirst, kFirst), {1}); // delivered and published
    const Bytes second = joined(joined(kSecond, kSecond), {1});
    const Bytes unpublished = joined(kFirst, kMirror);
    const Arrange a_dead = fault("dfl_block_read", "A", 5);
    const Arrange b_dead = fault("dfl_block_read", "B", 6);
    const std::string ab = kReadA + ", " + kReadB;
    const std::string flags = "read FlagA 64 3, read FlagB 64 3, ";
    const auto equip_failed = [](const std::string &why, const char *status) {
        return Texts{"0 asd_read_chip: ASD16 " + why,
                     std::string("0 asd_read_equip: ASD16 Read eeprom failed[") + status + "]!"};
    };
    const auto one_failed = [](const Texts &why, const char *status) {
        return with(why, {std::string("0 asd_read_equip_one: Read eeprom failed[") + status + "]!"});
    };
    const auto load_failed = [](const Texts &why, const char *count, const char *status) {
        return with(why, {std::string("0 ASD16 read eeprom count ") + count + " failed, ret=" + status});
    };
    // clang-format off
    run_operation(reader(asd_read_equip), build, {"dfl_block_read"}, {
        {"one chip", chips(1), 0, kReadA, {}, first},
        {"one chip, frame board", chips(1, kFrame), 0, kReadB, {}, second},
        {"two equal chips", [] { fake::put_record("B", kFirst); }, 0, ab, {}, first},
        {"chips differ", kAsBuilt, -1016, ab, equip_failed("Data is not same in two EEPROM!", "-1016"), unpublished},
        {"one backplane EEPROM", kOneBackplaneChip, 0, kReadA, {}, first},
        {"offline", kOffline, -1007, "", {}, kMirror},
        {"nameless", kNameless, -1, "", {"0 asd_read_equip: (null) Read eeprom failed[-1]!"}, kMirror},
        {"count unreadable", kNoCount, 0, kReadA, {kCountText, "0 asd_read_chip: ASD16 Get eeprom count failed! ret: -1."}, first},
        {"three chips", chips(3), -1008, "", equip_failed("chip count(3) is wrong!", "-1008"), kMirror},
        {"one chip, unknown", chips(1, kNoDev0), 8, "", equip_failed("Get dev failed! ret: 8.", "8"), kMirror},
        {"A unknown", kNoDev0, 8, "", equip_failed("Get PROPERTY_ASD_DEV0 failed! ret: 8.", "8"), kMirror},
        {"B unknown", kNoDev1, 8, kReadA, equip_failed("Get PROPERTY_ASD_DEV1 failed! ret: 8.", "8"), unpublished},
        {"A dead: B not tried", a_dead, 5, kReadA, equip_failed("Read 1st EEPROM failed! ret: 5.", "5"), kMirror},
        {"B dead", b_dead, 6, ab, equip_failed("Read 2nd EEPROM failed! ret: 6.", "6"), unpublished},
    }, left, 0);
    run_operation(read_a, build, {"dfl_block_read"}, {
        {"A", kAsBuilt, 0, kReadA, {}, first},
        {"frame board", kFrame, 0, kReadB, {}, second},
        {"one-chip item", chips(1), -1, "", one_failed({"0 eeprom count is not 2! result: 0."}, "-1"), kMirror},
        {"count unreadable", kNoCount, -1, "", one_failed({kCountText, "0 Get eeprom count failed! ret: -1.", "0 eeprom count is not 2! result: -1."}, "-1"), kMirror},
        {"offline", kOffline, -1007, "", {}, kMirror},
    }, left, 0);
    run_operation(read_b, build, {"dfl_block_read"}, {
        {"B", kAsBuilt, 0, kReadB, {}, second},
        {"B unknown", kNoDev1, 8, "", one_failed({"0 Get PROPERTY_ASD_DEV1 failed! ret: 8."}, "8"), kMirror},
    }, left, 0);
    run_operation(reader(asd_read_method), build, {"dfl_block_read"}, {
        {"one chip, frame board", chips(1, kFrame), 0, kReadB, {}, second},
        {"the flag decides", [] { fake::put_record("FlagB", {2}); }, 0, flags + kReadB, {}, second},
        {"backplane count not asked", kOneBackplaneChip, 0, flags + kReadA, {}, first},
        {"offline", kOffline, -1007, "", {}, kMirror},
        {"nameless", kNameless, -1, "", {}, kMirror},
        {"one chip, unknown", chips(1, kNoDev0), 8, "", {"0 asd_read_check: (ASD16)Get dev failed! ret(8)."}, kMirror},
        {"three chips", chips(3), -1008, "", {"0 asd_read_check: (ASD16)chip count(3) is wrong!"}, kMirror},
        {"count unreadable", kNoCount, 0, kReadA, {kCountText, "0 asd_read_check: (ASD16)Get eeprom count failed! ret: -1."}, first},
        {"dead: silent", chips(1, a_dead), 5, kReadA, {}, kMirror},
    }, left, 0);
    run_operation(reader(asd_read_one_chip), build, {"dfl_block_read"}, {
        {"one chip, frame board", chips(1, kFrame), 0, kReadA, {}, unpublished},
        {"offline", kOffline, 0, kReadA, {}, unpublished},
        {"A dead", a_dead, 0, ab, {"0 ASD16 read eeprom failed(ret=5)"}, joined(kSecond, kMirror)},
        {"both dead", both(a_dead, b_dead), 6, ab, load_failed({"0 ASD16 read eeprom failed(ret=5)", "0 ASD16 read eeprom failed(ret=6)"}, "2", "6"), kMirror},
        {"one chip, dead", chips(1, a_dead), 5, kReadA, load_failed({"0 ASD16 read eeprom failed(ret=5)"}, "1", "5"), kMirror},
        {"one chip, unknown", chips(1, kNoDev0), 8, "", load_failed({"0 ASD16 Get dev failed(ret=8)"}, "1", "8"), kMirror},
        {"three chips", chips(3), -1008, "", {"0 ASD16 chip count(3) is wrong!"}, kMirror},
        {"count unreadable", kNoCount, 0, kReadA, {kCountText, "0 ASD16 Get eeprom count failed! ret: -1."}, unpublished},
    }, left, 0);
    // clang-format on
}

// ---- Writes --------------------------------------------------------------------------------------------------------

TEST_F(DispatchTest, WriteDispatch) {
    Bytes given = pattern(3);
    const auto writer = [&given](gint32 (*write)(OBJ_HANDLE, const guint8 *, guint32)) {
        return [&given, write] { return write(item, given.data(), static_cast<guint32>(given.size())); };
    };
    const auto write_a = writer([](auto i, auto *d, auto len) { return asd_write_equip_one(i, d, len, 0); });
    const auto write_b = writer([](auto i, auto *d, auto len) { return asd_write_equip_one(i, d, len, 1); });
    // Which chips hold the image that three bytes make, as a set of bits, then the mirror.
    const Bytes image = joined(pattern(3), Bytes(5, 0xFF));
    const auto left = [&image] {
        const auto holds = [&image](const char *chip) { return fake::chip_bytes(chip, 64, 10) == fake::record(image); };
        return joined({static_cast<guint8>((holds("A") ? 1 : 0) + (holds("B") ? 2 : 0))}, mirror("ASD16"));
    };
    const auto published = [&image](guint8 holding) { return joined(joined({holding}, image), {1}); };
    const auto not_published = [](guint8 holding) { return joined({holding}, kMirror); };
    const Bytes nothing = not_published(0);
    const Arrange a_dead = fault("dfl_block_write", "A", 5);
    const Arrange b_dead = fault("dfl_block_write", "B", 6);
    const std::string ab = kWriteA + ", " + kWriteB;
    const std::string flags = ", write FlagA 64 3, write FlagB 64 3";
    const std::string length_text = "0 Get PROPERTY_ASD_LENGTH failed! result: 7.";
    const Texts too_long_text = {"0 ASD16 length(8193) exceed asd eep max size(8192)."};
    const auto equip_failed = [](const Texts &why, const std::string &status) {
        return with(why, {"0 asd_write_equip: ASD16 Write eeprom failed[" + status + "]!"});
    };
    const auto one_failed = [](const Texts &why, const std::string &status) {
        return with(why, {"0 Write eeprom failed[" + status + "]!"});
    };
    const auto method_failed = [](const Texts &why, const char *status) {
        return with(why, {std::string("1 asd_write_method: Write eeprom failed! result: ") + status + "."});
    };
    const std::string a_text = "0 asd_write_chip: ASD16 Write 1st EEPROM failed! ret(5).";
    const std::string b_text = "0 asd_write_chip: ASD16 Write 2nd EEPROM failed! ret(6).";
    const std::string check_a_text = "1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.";
    // clang-format off
    run_operation(writer(asd_write_equip), build, {"dfl_block_write"}, {
        {"one chip, frame board", chips(1, kFrame), 0, kWriteB, {}, published(2)},
        {"two chips, backplane count not asked", kOneBackplaneChip, 0, ab, {}, published(3)},
        {"offline", kOffline, -1007, "", {"0 asd_write_equip: ASD16 asd not online!"}, nothing},
        {"nameless", kNameless, -1, "", {"0 Get objname failed."}, nothing},
        {"Length unreadable", kNoLength, 7, "", {length_text, "0 asd_write_equip: ASD16 asd get value len failed!"}, nothing},
        {"too long", kTooLong, -1, "", too_long_text, nothing},
        {"A dead", a_dead, 5, ab, equip_failed({a_text}, "5"), not_published(2)},
        {"B dead", b_dead, 6, ab, equip_failed({b_text}, "6"), not_published(1)},
        {"both dead", both(a_dead, b_dead), 6, ab, equip_failed({a_text, b_text}, "6"), nothing},
        {"one chip, unknown", chips(1, kNoDev0), 8, "", equip_failed({"0 asd_write_chip: ASD16 Get dev failed! ret(8)."}, "8"), nothing},
        {"B unknown", kNoDev1, 8, kWriteA, equip_failed({"0 asd_write_chip: ASD16 Get PROPERTY_ASD_DEV1 failed! ret(8)."}, "8"), not_published(1)},
        {"three chips", chips(3), -1008, "", equip_failed({"0 asd_write_chip: ASD16 chip count(3) is wrong!"}, "-1008"), nothing},
        {"count unreadable", kNoCount, 0, kWriteA, {kCountText, "0 asd_write_chip: ASD16 Get eeprom count failed! result: -1."}, published(1)},
    }, left, 1);
    run_operation(write_a, build, {"dfl_block_write"}, {
        {"A", kAsBuilt, 0, kWriteA, {}, published(1)},
        {"frame board", kFrame, 0, kWriteB, {}, published(2)},
        {"one-chip item", chips(1), -1, "", one_failed({"0 eeprom count is not 2! result: 0."}, "-1"), nothing},
        {"count unreadable", kNoCount, -1, "", one_failed({kCountText, "0 Get eeprom count failed! result: -1.", "0 eeprom count is not 2! result: -1."}, "-1"), nothing},
        {"A unknown", kNoDev0, 8, "", one_failed({"0 Get dev failed! ret(8)."}, "8"), nothing},
        {"A dead", a_dead, 5, kWriteA, one_failed({"0 Write 1st EEPROM failed! ret(5)."}, "5"), nothing},
        {"offline", kOffline, -1007, "", {"0 asd not online!"}, nothing},
        {"Length unreadable", kNoLength, 7, "", {length_text, "0 asd get value len failed!"}, nothing},
        {"too long", kTooLong, -1, "", too_long_text, nothing},
    }, left, 1);
    run_operation(write_b, build, {"dfl_block_write"}, {
        {"B unknown", kNoDev1, 8, "", one_failed({"0 Get PROPERTY_ASD_DEV1 failed! ret(8)."}, "8"), nothing},
        {"B dead", b_dead, 6, kWriteB, one_failed({"0 Write 2nd EEPROM failed! ret(6)."}, "6"), nothing},
    }, left, 1);
    run_operation(writer(asd_write_method), build, {"dfl_block_write"}, {
        {"one chip, frame board", chips(1, kFrame), 0, kWriteB, {}, published(2)},
        {"two chips", kAsBuilt, 0, ab + flags, {}, published(3)},
        {"A dead: the flag names B", a_dead, 0, ab + ", write FlagB 64 3", {check_a_text}, published(2)},
        {"both dead", both(a_dead, b_dead), -1006, ab, method_failed({check_a_text, "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 6."}, "-1006"), nothing},
        {"flag not written", fault("dfl_block_write", "FlagA", 4), 4, ab + ", write FlagA 64 3", method_failed({"0 ASD17 Write 1st EEPROM check_flag failed! check_flag: 2, ret: 4."}, "4"), not_published(3)},
        {"one chip, unknown", chips(1, kNoDev0), 8, "", method_failed({"0 asd_write_check: ASD16 Get dev failed! ret: 8."}, "8"), nothing},
        {"three chips", chips(3), -1008, "", method_failed({"0 asd_write_check: ASD16 chip count(3) is wrong!"}, "-1008"), nothing},
        {"count unreadable", kNoCount, 0, kWriteA, {kCountText, "0 asd_write_check: ASD16 Get eeprom count failed! ret: -1."}, published(1)},
        {"offline", kOffline, -1007, "", {"0 asd_write_method: ASD16 asd not online!"}, nothing},
        {"Length unreadable", kNoLength, 7, "", {length_text, "0 asd_write_method: ASD16 asd get value len failed[7]!"}, nothing},
        {"too long", kTooLong, -1, "", too_long_text, nothing},
    }, left, 1);
    run_operation(writer(Asd_WriteMemProperty), build, {"dfl_block_write"}, {
        {"memory", chips(3), 0, "", {}, published(0)},
        {"offline", kOffline, -1007, "", {"0 Asd_WriteMemProperty: asd is not online!"}, nothing},
        {"Length unreadable", kNoLength, 7, "", {length_text, "0 Asd_WriteMemProperty: asd(ASD16) get value len failed(7)!"}, nothing},
        {"too long", kTooLong, -1, "", too_long_text, nothing},
        {"Length 0", number_set("ASD16", "Length", 0), -1, "", {"0 Asd_WriteMemProperty: asd(ASD16) malloc failed!"}, nothing},
    }, left, 1);
    // clang-format on
    fresh_world();
    build();
    EXPECT_EQ(Asd_WriteMemProperty(item, nullptr, 3), -1);
    EXPECT_EQ(fake::logs(2), Texts{"0 Input Parameter is NULL."});

    // A write is cut to Length or padded with 0xFF.
    for (const auto &[length, bytes] : {std::pair{8U, 20U}, {8U, 0U}, {8192U, 8192U}}) {
        for (const auto &write : {asd_write_equip, asd_write_method}) {
            SCOPED_TRACE(std::to_string(length) + " from " + std::to_string(bytes));
            fresh_world();
            build();
            number_set("ASD16", "Length", length)();
            given = pattern(bytes);
            given.reserve(1); // a pointer also when empty
            EXPECT_EQ(write(item, given.data(), bytes), 0);
            given.resize(length, 0xFF);
            EXPECT_EQ(fake::chip_bytes("B", 64, length + 2), fake::record(given));
            EXPECT_EQ(fake::value("ASD16"), given);
        }
    }
}

} // namespace
