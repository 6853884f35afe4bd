// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Electronic keys and the bay configuration, which travel in frames.

#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using TransferTest = ModuleTest;

// The head of a request, its frame numbers and its data.
Bytes frame(guint16 total, guint16 current, const Bytes &data = {}, guint8 fru = 0) {
    const auto low = [](guint16 number) { return static_cast<guint8>(number & 0xFFU); };
    const auto high = [](guint16 number) { return static_cast<guint8>(number >> 8U); };
    return joined({fru, 0x10, 0x80, 0, 0x1B, low(total), high(total), low(current), high(current)}, data);
}

// ---- Electronic keys -----------------------------------------------------------------------------------------------

const Bytes kMirror = pattern(1024, 1);
const Bytes kStored = pattern(1024, 99);
const Bytes kBuffer = pattern(1024, 50);

void build_keys() {
    for (const std::string number : {"5", "7", "1001"}) {
        const std::string chip = "ASDDev" + number;
        fake::add_chip(chip, {.retry = 1, .lines = {}, .own_protection = number.size() > 1});
        fake::add_item("ASD" + number, {.length = 1024, .chips = {chip}, .ready = 1, .value = kMirror});
        fake::put_record(chip, kStored);
    }
    g_ekey_buffer.store(0, kBuffer);
}

// The answer to a read of frame 1 to 5.
Bytes read_answer(const Bytes &key, std::size_t number) {
    return joined({0}, number < 5 ? part_of(key, 228 * (number - 1), 228)
                                  : joined(part_of(key, 912, 112), Bytes(116, 0xFF)));
}

// The data of write frame 1 to 5.
Bytes write_frame(const Bytes &key, std::size_t number) {
    return part_of(key, 220 * (number - 1), number < 5 ? 220 : 144);
}

TEST_F(TransferTest, KeyReadsFromMemory) {
    const auto entered = [](const char *numbers, const Texts &rest = {}) {
        return with({"2 user data is ASD5", std::string("2 total number ") + numbers}, rest);
    };
    const std::string leave = "2 Leave user data is ASD5";
    const std::string number = "0 Error frame number! current_number: ";
    // clang-format off
    run_cases(ipmi_cmd_get_ekey, "ASD5", build_keys, {
        {"frame 1", kAsBuilt, frame(5, 1), read_answer(kMirror, 1), entered("5, current number 1", {leave})},
        {"the total does not matter", kAsBuilt, frame(999, 5), read_answer(kMirror, 5), entered("999, current number 5", {leave})},
        {"offline", byte_set("ASD5", "Online", 0), frame(5, 1), Bytes(229, 0), entered("5, current number 1", {"M1 bmc_asd_update_property.cpp: ASD5 not online!", leave})},
        {"frame 0", kAsBuilt, frame(5, 0), {0xC9}, entered("5, current number 0", {number + "0."})},
        {"frame 257", kAsBuilt, frame(5, 257), {0xC9}, entered("5, current number 257", {number + "257."})},
        {"no request data", kAsBuilt, {}, {0xCC}, {"2 user data is ASD5", "0 get ipmi src data failed!"}},
        {"unknown", fault("dfl_get_object_handle", "ASD5"), frame(5, 6), {0xCE}, entered("5, current number 6")},
    });
    // clang-format on
}

TEST_F(TransferTest, KeyReadsFromTheChip) {
    const std::string number = "0 Error frame number! current_number: ";
    const std::string refill = "lock ekey 2000, read ASDDev5 64 1026";
    const auto short_item = [] {
        number_set("ASD5", "Length", 4)();
        fake::put_record("ASDDev5", pattern(4, 200));
    };
    const auto unusable = both(fault("dfl_block_read"), locked("ekey"));
    // clang-format off
    run_cases(ipmi_cmd_get_ekey_ep, "ASD5", build_keys, {
        {"frame 1", kAsBuilt, frame(5, 1), read_answer(kStored, 1), {}, refill},
        {"frame 2 from the buffer", unusable, frame(5, 2), read_answer(kBuffer, 2)},
        {"Length 2000", number_set("ASD5", "Length", 2000), frame(5, 1), read_answer(kStored, 1), {}, refill},
        {"Length 4", short_item, frame(5, 1), joined({0}, joined(pattern(4, 200), part_of(kBuffer, 4, 224))), {}, "lock ekey 2000, read ASDDev5 64 6"},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 get ipmi src data failed!"}},
        {"unknown", fault("dfl_get_object_handle", "ASD5"), frame(5, 2), {0xCE}, {"0 Get object handle fail! result(7)."}},
        {"Length unreadable", unreadable("ASD5.Length"), frame(5, 2), {0xCE},
         {"0 Get PROPERTY_ASD_LENGTH failed! result: 7.", "0 get len value fail[7]!"}},
        {"locked", locked("ekey"), frame(5, 1), {0xCE}, {"0 [Get_Ekey] Lock g_ekey_buffer_lock failed!"}, "lock ekey 2000"},
        {"chip dead", fault("dfl_block_read", "", 5), frame(5, 1), {0xCE},
         {"0 asd_read_equip: ASD5 Read eeprom failed[5]!", "0 Call asd_read failed! result: 5."}, refill},
        {"frame 6", kAsBuilt, frame(5, 6), {0xC9}, {number + "6."}},
    }, 1);
    // clang-format on
    EXPECT_TRUE(fake::logged("2 user data is ASD5")); // by the last row
    kDeadReads();
    fake::clear_journal();
    (void)fake::call(ipmi_cmd_get_ekey_ep, "ASD5", frame(5, 1));
    const Texts lines = fake::timeline({"vos_thread_sem4_v"});
    EXPECT_TRUE(lines.back().ends_with("0 Call asd_read failed! result: 5.")) << "logged without the lock";
}

TEST_F(TransferTest, KeyWrites) {
    const auto begun = [](const char *board, const char *number, const Texts &rest) {
        return with({std::string("1 set ") + board + " ekey, total number 5, current number " + number}, rest);
    };
    const std::string lock = "lock ekey 2000";
    const std::string commit = "lock ekey 2000, write ASDDev5 64 1026";
    const Texts frame_success = {"1 Frameboard set ekey success."};
    // clang-format off
    run_cases(ipmi_cmd_set_ekey, "ASD5", build_keys, {
        {"frame 4 of an unknown item", kUnknown, frame(5, 4, pattern(220)), {0x00}, begun("Frameboard", "4", frame_success), lock},
        {"frame 5 without data", kAsBuilt, frame(5, 5), {0x00}, begun("Frameboard", "5", frame_success), commit},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 get ipmi src data failed!Frameboard set ekey fail."}},
        {"locked", locked("ekey"), frame(5, 6), {0x80}, begun("Frameboard", "6", {"0 [Set_Ekey] Lock g_ekey_buffer_lock failed! Frameboard set ekey fail."}), lock},
        {"frame 6", kAsBuilt, frame(5, 6), {0xC9}, begun("Frameboard", "6", {"0 Error frame number! current_number: 6.Frameboard set ekey fail."}), lock},
        {"frame 5 of an unknown item", kUnknown, frame(5, 5), {0x80},
         begun("Frameboard", "5", {"0 Get object handle failed! result: 7.Frameboard set ekey fail."}), lock},
        {"chip dead", kDeadWrites, frame(5, 5), {0xCE}, begun("Frameboard", "5", {"0 asd_write_equip: ASD5 Write eeprom failed[5]!",
         "0 Call asd_write_equip failed! result: 5.Frameboard set ekey fail."}), commit},
    }, 1);
    const std::string begin = "1 Power 1 begin to set ekey.";
    const std::string success = "1 Power 1 set ekey success.";
    const std::string short_lock = "lock ekey 1000";
    const auto supply = [](guint16 current, const Bytes &data = {}) { return frame(5, current, data, 1); };
    run_cases(ipmi_cmd_set_power_ekey, "ASD1001", build_keys, {
        {"frame 4 of an unknown item", kUnknown, supply(4, pattern(220)), {0x00}, {begin, success}, short_lock},
        {"frame 5 alone", kAsBuilt, supply(5, pattern(144)), {0x00}, {begin, success}, "lock ekey 1000, write ASDDev1001 64 1026"},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 get ipmi src data failed!ASD1001 set ekey fail."}},
        {"locked", locked("ekey"), supply(6), {0xCE}, {begin, "0 Lock g_ekey_buffer_lock failed! Power 1 set ekey fail."}, short_lock},
        {"frame 6", kAsBuilt, supply(6), {0xC9}, {begin, "0 Error frame number! current_number: 6.Power1 set ekey fail."}, short_lock},
        {"frame 5 of an unknown item", kUnknown, supply(5), {0xCE}, {begin, "0 Get object handle failed! result: 7.Power 1 set ekey fail."}, short_lock},
        {"chip dead", kDeadWrites, supply(5), {0xCE}, {begin, "0 write power eeprom failed! result: 5.", "0 ASD1001 write power eeprom failed[5]!",
         "0 Call asd_power_write failed! result: 5.Power 1 set ekey fail."}, "lock ekey 1000, write ASDDev1001 64 1026"},
    }, 1);
    // clang-format on
}

TEST_F(TransferTest, AKeyGoesInByFiveFramesAndComesBackByFive) {
    const struct {
        const char *item;
        const char *chip;
        IPMI_CMD_FUNC write;
        guint8 first; // byte of its key
    } rows[] = {{"ASD7", "ASDDev7", ipmi_cmd_set_ekey, 22}, {"ASD1001", "ASDDev1001", ipmi_cmd_set_power_ekey, 44}};
    build_keys();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.item);
        const Bytes key = pattern(1024, row.first);
        for (const guint16 number : std::initializer_list<guint16>{3, 1, 4, 2}) { // in any order
            EXPECT_EQ(fake::call(row.write, row.item, frame(5, number, write_frame(key, number))).response, Bytes{0});
        }
        EXPECT_EQ(fake::chip_bytes(row.chip, 64, 1026), fake::record(kStored)); // not before the fifth
        EXPECT_EQ(fake::call(row.write, row.item, frame(5, 5, write_frame(key, 5))).response, Bytes{0});
        EXPECT_EQ(fake::chip_bytes(row.chip, 64, 1026), fake::record(key));
        for (guint16 number = 1; number <= 5; ++number) {
            for (const IPMI_CMD_FUNC read : {ipmi_cmd_get_ekey_ep, ipmi_cmd_get_ekey}) {
                EXPECT_EQ(fake::call(read, row.item, frame(5, number)).response, read_answer(key, number));
            }
        }
    }
    EXPECT_TRUE(fake::logged("1 LeftEar set ekey success."));
    // The fifth alone: the rest is what the last transfer left, and what a short request lacks is zeros.
    const Bytes left = part_of(fake::value("ASD1001"), 0, 880);
    EXPECT_EQ(fake::call(ipmi_cmd_set_ekey, "ASD5", frame(5, 5, pattern(100, 7))).response, Bytes{0});
    EXPECT_EQ(fake::value("ASD5"), joined(left, joined(pattern(100, 7), Bytes(44, 0))));
}

// ---- The short bay configuration record ----------------------------------------------------------------------------

void build_bay() {
    build_item("ASD24", {.length = 128, .chips = {"ASDDev24a"}}, {});
    build_item("ASD25", {.length = 2052, .chips = {"ASDDev25a"}}, {});
    fake::call(ASD_IpmiClearBayconfig, "ASD25", frame(0, 0)); // the buffer, too
    value_set("ASD25", pattern(2052))();                      // starts with "MNOP"
    fake::clear_journal();
}

TEST_F(TransferTest, ShortBayRecordIsWrittenOnEveryBoard) {
    const Bytes head = {0, 0, 0x80, 0, 0};
    // clang-format off
    const std::string begin = "1 Begin to set Baycfg.";
    const std::string written = "write ASDDev24a 64 130";
    const Texts done = {begin, "0 Set Baycfg success."};
    run_cases(ipmi_cmd_set_baycfg, "ASD24", build_bay, {
        {"written", kAsBuilt, joined(head, pattern(224, 3)), {0x00}, done, written},
        {"on a slave", on_slave, joined(head, {1}), {0x00}, done, written},
        {"no request data", kAsBuilt, {}, {0xCC}, {begin, "0 get ipmi src data failed! Set Baycfg fail."}},
        {"unknown", kUnknown, head, {0xCE}, {begin, "0 Call dfl_get_object_handle failed! result: 7. Set Baycfg fail."}},
        {"chip dead", kDeadWrites, head, {0xCA}, {begin, "0 asd_write_equip: ASD24 Write eeprom failed[5]!",
         "0 Call asd_write_equip failed! result: 5. Set Baycfg fail."}, written},
    });
    // clang-format on
    // A request without a whole head counts with its own length.
    fresh_world();
    build_bay();
    for (const auto &[length, stored] : {std::pair{4U, 4U}, {7U, 2U}}) {
        EXPECT_EQ(fake::call(ipmi_cmd_set_baycfg, "ASD24", Bytes(length, 0)).response, Bytes{0});
        EXPECT_EQ(fake::value("ASD24"), joined(Bytes(stored, 0), Bytes(128 - stored, 0xFF)));
    }
}

// ---- The bay configuration file ------------------------------------------------------------------------------------

// In this table's texts the trace of the bytes, at the debug level, is left out.
TEST_F(TransferTest, BayFileReads) {
    const Bytes file = pattern(2052);
    const std::string entered = "1 enter get bayconfig.";
    const std::string slave = "1 This smm board is SLAVE.";
    const std::string numbers = "0 Frame num info is error! total ";
    const auto got = [&entered](const char *rest, const Texts &more = {}) {
        return with({entered, std::string("1 Get bayconfig, total frame num ") + rest}, more);
    };
    // clang-format off
    run_cases(ASD_IpmiGetBayconfig, "ASD25", build_bay, {
        {"frame 1 of 1", kAsBuilt, frame(1, 1), joined({0}, part_of(file, 4, 228)), got("1, current number 1.")},
        {"frame 9", kAsBuilt, frame(9, 9), joined({0}, joined(part_of(file, 1828, 224), Bytes(4, 0xFF))), got("9, current number 9.")},
        {"no request data", kAsBuilt, {}, {0xFF}, {entered, "0 ReqData is (nil)."}, "", {}, -1},
        {"request data lost", fault("get_ipmi_src_data", "", 7, 2), frame(1, 1), {0xC1}, {entered, "0 Bay config src data is null."}},
        {"8 bytes", on_slave, Bytes(8, 1), {0xC7}, {entered, "0 Multi frame, head DataLen is 8."}},
        {"slave", on_slave, frame(9, 10), {0xC7}, {entered, slave}},
        {"frame 0", kAsBuilt, frame(9, 0), {0xC7}, {entered, numbers + "9, cur num 0."}},
        {"frame 4 of 3", kAsBuilt, frame(3, 4), {0xC7}, {entered, numbers + "3, cur num 4."}},
        {"ten frames", kAsBuilt, frame(10, 1), {0xC7}, {entered, numbers + "10, cur num 1."}},
        {"257 frames", kAsBuilt, frame(257, 257), {0xC7}, {entered, numbers + "257, cur num 257."}},
        {"unknown", kUnknown, frame(1, 1), {0xCE}, got("1, current number 1.")},
    }, 1);
    const std::string length = "1 enter get bayconfig len.";
    run_cases(ASD_IpmiGetBayconfigFileLen, "ASD25", build_bay, {
        {"read", kAsBuilt, Bytes(5, 0), {0, 0x4D, 0x4E, 0x4F, 0x50}, {length, "1 Bayconfig len is: 0x50 4f 4e 4d."}},
        {"no request data", kAsBuilt, {}, {0xFF}, {length, "0 ReqData is (nil)."}, "", {}, -1},
        {"4 bytes", on_slave, Bytes(4, 0), {0xC7}, {length, "0 Single frame, head DataLen is 4."}},
        {"slave", on_slave, Bytes(5, 0), {0xC7}, {length, slave}},
        {"unknown", kUnknown, Bytes(5, 0), {0xCE}, {length}},
    });
    // clang-format on
}

TEST_F(TransferTest, BayFileWrites) {
    const std::string entered = "1 enter set bayconfig. 0";
    const std::string slave = "1 This smm board is SLAVE.";
    const std::string numbers = "0 Frame num info is error! total ";
    const std::string left = "1 Exit set bayconfig. 0, delta time: 0.";
    const auto frames = [](const char *rest) { return std::string("1 total frame num ") + rest; };
    const std::string single = frames("1, current number 1, last frame len: 1.");
    const std::string dead = "0 asd_write_equip: ASD25 Write eeprom failed[5]!";
    const std::string call = "0 Call asd_write_equip failed! result: 5.";
    const std::string lock = "lock bayconfig 2000";
    const std::string commit = "lock bayconfig 2000, write ASDDev25a 64 2054";
    const auto slow = [] {
        fake::world().ticks = 4000000000;
        fake::inject({.operation = "dfl_block_write", .status = 0, .delay_ms = 30});
    };
    // clang-format off
    run_cases(ASD_IpmiSetBayconfig, "ASD25", build_bay, {
        {"single frame", slow, frame(1, 1, {1}), {0x00}, {"1 enter set bayconfig. 4000000000", single, "1 Exit set bayconfig. 4000000030, delta time: 30."}, commit},
        {"ninth of ten, unknown", kUnknown, frame(10, 9, pattern(220)), {0x00},
         {entered, frames("10, current number 9, last frame len: 0."), left}, lock},
        {"tenth of 72 bytes", kAsBuilt, frame(10, 10, pattern(72)), {0x00}, {entered, frames("10, current number 10, last frame len: 72."), left}, commit},
        {"tenth of 73 bytes", kAsBuilt, frame(10, 10, pattern(73)), {0xC1}, {entered, "0 set bay, last frame len 73 is error."}},
        {"no request data", kAsBuilt, {}, {0xFF}, {entered, "0 ReqData is (nil)."}, "", {}, -1},
        {"9 bytes", on_slave, frame(1, 1), {0xC7}, {entered, "0 multi frame, head DataLen is 9.", "0 Multi frame, head DataLen is 9."}},
        {"230 bytes", kAsBuilt, frame(1, 1, Bytes(221)), {0xC7}, {entered, "0 multi frame, head DataLen is 230.", "0 Multi frame, head DataLen is 230."}},
        {"slave", on_slave, frame(11, 12, {1}), {0xC7}, {entered, slave}},
        {"frame 0", kAsBuilt, frame(1, 0, {1}), {0xC7}, {entered, numbers + "1, cur num 0."}},
        {"frame 2 of 1", kAsBuilt, frame(1, 2, {1}), {0xC7}, {entered, numbers + "1, cur num 2."}},
        {"eleven frames", kAsBuilt, frame(11, 11, {1}), {0xC7}, {entered, numbers + "11, cur num 11."}},
        {"locked", locked("bayconfig"), frame(1, 1, {1}), {0xCE}, {entered, single, "0 Get g_BayconfigBufLock failed!"}, lock},
        {"unknown", kUnknown, frame(1, 1, {1}), {0xCE}, {entered, single, "0 Get object handle failed! result: 7."}, lock},
        {"chip dead", kDeadWrites, frame(1, 1, {1}), {0xCE}, {entered, single, dead, call}, commit},
    }, 1);
    const std::string begin = "1 clear bayconfig.";
    const std::string done = "1 clear bayconfig successfully.";
    run_cases(ASD_IpmiClearBayconfig, "ASD25", build_bay, {
        {"erased", kAsBuilt, Bytes(5, 0), {0x00}, {begin, done}, commit},
        {"no request data", kAsBuilt, {}, {0xFF}, {begin, "0 ReqData is (nil)."}, "", {}, -1},
        {"4 bytes", on_slave, Bytes(4, 0), {0xC7}, {begin, "0 Clear bayconfig error! set cmd, DataLen is 4."}},
        {"slave", on_slave, Bytes(5, 0), {0xC7}, {begin, slave}},
        {"locked", both(locked("bayconfig"), kUnknown), Bytes(5, 0), {0xCE}, {begin, "0 Get g_BayconfigBufLock failed!"}, lock},
        {"unknown", kUnknown, Bytes(5, 0), {0xCE}, {begin, "0 Get object handle failed! result: 7."}, lock},
        {"chip dead", kDeadWrites, Bytes(5, 0), {0xCE}, {begin, dead, call}, commit},
    });
    // clang-format on
}

TEST_F(TransferTest, ABayFileGoesInByTenFramesAndComesBackByNine) {
    build_bay();
    const Bytes file = pattern(2052, 33);
    for (const guint16 number : std::initializer_list<guint16>{2, 1, 3, 4, 5, 6, 7, 8, 9, 10}) {
        EXPECT_EQ(fake::calls("dfl_block_write"), 0U);
        const Bytes data = part_of(file, 220U * (number - 1U), number < 10 ? 220 : 72);
        EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(10, number, data)).response, Bytes{0});
    }
    EXPECT_EQ(fake::chip_bytes("ASDDev25a", 64, 2054), fake::record(file));
    Bytes read = {33, 34, 35, 36};
    EXPECT_EQ(fake::call(ASD_IpmiGetBayconfigFileLen, "ASD25", Bytes(5)).response, joined({0}, read));
    for (guint16 number = 1; number <= 9; ++number) {
        const Bytes answer = fake::call(ASD_IpmiGetBayconfig, "ASD25", frame(9, number)).response;
        read = joined(read, part_of(answer, 1, number < 9 ? 228 : 224));
    }
    EXPECT_EQ(read, file);
    // A shorter file keeps what lay behind it; a short middle frame is padded with zeros; an erase takes it all.
    EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(2, 1, Bytes(50, 1))).response, Bytes{0});
    EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(2, 2, Bytes(5, 2))).response, Bytes{0});
    const Bytes mixed = joined(joined(Bytes(50, 1), Bytes(170, 0)), joined(Bytes(5, 2), part_of(file, 225, 1827)));
    EXPECT_EQ(fake::value("ASD25"), mixed);
    EXPECT_EQ(fake::call(ASD_IpmiClearBayconfig, "ASD25", Bytes(5)).response, Bytes{0});
    EXPECT_EQ(fake::value("ASD25"), Bytes(2052, 0xFF));
    EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(1, 1, Bytes(50, 3))).response, Bytes{0});
    EXPECT_EQ(fake::value("ASD25"), joined(Bytes(50, 3), Bytes(2002, 0xFF)));
}

} // namespace
