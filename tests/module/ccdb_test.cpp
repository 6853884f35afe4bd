// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The customer block: its two commands, the pending copy, and the writes that the master's check makes.

#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using CcdbTest = ModuleTest;

const Bytes kNew = pattern(128, 60);
const Bytes kGet = {0, 0, 0x80, 0, 0x21};
const std::string kBlocks = "write ASD_CCDBa 64 130, write ASD_CCDBb 64 130";
const std::string kWritten = kBlocks + ", write ASD_CCDB_VALIDa 64 3, write ASD_CCDB_VALIDb 64 3";
const std::string kFailure = "M0 bmc_asd_init.cpp: Set ccdb unsucessful.";

Bytes set_request(guint8 type, const Bytes &block = kNew) {
    return joined({0, 0, 0x80, 0, type}, block);
}

Bytes pending() {
    return {AsdGetGCcdbSetData(), AsdGetGCcdbSetData() + 128};
}

// As from the start: nobody has read or set it.
const Arrange kForgotten = [] {
    fault("memcpy_s")();
    AsdSetGCcdbSetData(kPendingBlock.data());
    fake::lift_faults();
    fake::clear_journal();
};
const std::string kOffline = "M1 bmc_asd_update_property.cpp: ASD_CCDB not online!";

TEST_F(CcdbTest, Gets) {
    const std::string begin = "2 getting ccdb data starts";
    // clang-format off
    run_cases(ipmi_cmd_get_ccdb, "ASD_CCDB", build_ccdb, {
        {"read", kAsBuilt, kGet, joined({0}, pattern(128, 5)), {begin}},
        {"blank", value_set("ASD_CCDB", Bytes(128, 0xFF)), kGet, Bytes(129, 0), {begin}},
        {"blank but for the last byte", value_set("ASD_CCDB", joined(Bytes(127, 0xFF), {0xFE})), kGet, joined({0}, joined(Bytes(127, 0xFF), {0xFE})), {begin}},
        {"no request data", kAsBuilt, {}, {0xCC}, {begin, "0 get ipmi src data failed!"}},
        {"unknown", kUnknown, kGet, {0xCE}, {begin, "0 Call asd_get_value failed! result: -1017."}},
        {"Value unreadable", unreadable("ASD_CCDB.Value"), kGet, {0xCE},
         {begin, "0 Get ASD_CCDB value failed! ret: 7.", "0 Call asd_get_value failed! result: 7."}},
    });
    // clang-format on
}

TEST_F(CcdbTest, Sets) {
    const std::string begin = "2 setting ccdb data starts.";
    const std::string now = "1 set ccdb data immediately";
    const std::string later = "1 set ccdb data to eeprom in next 24 hour";
    const std::string nothing = "1 update ccdb value unsucessful.";
    const std::string lock = "lock CcdbSetEn 4000";
    const auto left = [] { return Bytes{pending()[0], fake::value("ASD_CCDB")[0], AsdGetGCcdbSetEn()}; };
    const Bytes unchanged = {30, 5, 0};
    // clang-format off
    run_cases(ipmi_cmd_set_ccdb, "ASD_CCDB", build_ccdb, {
        {"at once", kAsBuilt, set_request(0x2C), {0x00}, {begin, now}, lock, {60, 60, 1}},
        {"within a day, on a slave", on_slave, set_request(0x32), {0x00}, {begin, later}, lock, {60, 60, 0}},
        {"the same, at once", kAsBuilt, set_request(0x2C, kPendingBlock), {0x00}, {begin}, lock, unchanged},
        {"the last byte differs", kAsBuilt, set_request(0x32, joined(part_of(kPendingBlock, 0, 127), {0})), {0x00}, {begin, later}, lock, {30, 30, 0}},
        {"zeros when none is known", kForgotten, set_request(0x2C, Bytes(128, 0)), {0x00}, {begin, now}, lock, {0, 0, 1}},
        {"not copied, but published", fault("memcpy_s", "", 9, 1), set_request(0x2C), {0x00}, {begin, "1 Error: copy ccdb data failed.", now}, lock, {0, 60, 1}},
        {"no request data", kAsBuilt, {}, {0xCC}, {begin, "0 get ipmi src data failed!"}, "", unchanged},
        {"locked", locked("CcdbSetEn"), set_request(0x2C), {0xCE}, {begin, "0 Set ccdb get lock failed(ret=-3006)"}, lock, unchanged},
        {"unknown", kUnknown, set_request(0x2C), {0x00},
         {begin, "1 get asd_ccdb handle for update ccdb data of ram unsucessful", "0 asd_set_value2: (null) set dev value failed!ret(-3001)",
          "0 (null) Call asd_set_value2 failed! result: -1012.", "0 Set PROPERTY_ASD_READY failed! result: -3001.", nothing, now}, lock, {60, 5, 1}},
        {"Ready refused", fault("dfl_set_property_value", "ASD_CCDB.Ready"), set_request(0x32), {0x00},
         {begin, "0 Set PROPERTY_ASD_READY failed! result: 7.", nothing, later}, lock, {60, 60, 0}},
    }, 2, left);
    // clang-format on
}

TEST_F(CcdbTest, PendingBlock) {
    // clang-format off
    run_operation(AsdReadCcdbDataFromRam, build_ccdb, {"dfl_block_read", "dfl_block_write"}, {
        {"from Value", kAsBuilt, 0, "", {}, pattern(128, 5)},
        {"short Value", value_set("ASD_CCDB", pattern(3)), 0, "", {}, joined(pattern(3), Bytes(125, 0))},
        {"unknown", kUnknown, -1, "", {"0 Get ASD_CCDB handle for set failed"}, kPendingBlock},
        {"Ready unreadable", unreadable("ASD_CCDB.Ready"), -1, "", {"0 Get CCDB data ready signal failed"}, kPendingBlock},
        {"not ready", byte_set("ASD_CCDB", "Ready", 0), -1, "", {"1 CCDB data is not ready"}, kPendingBlock},
        {"Value unreadable", unreadable("ASD_CCDB.Value"), -1, "", {"0 Get ASD_CCDB value failed! ret: 7.", "0 Get CCDB data failed"}, kPendingBlock},
        {"not online", byte_set("ASD_CCDB", "Online", 0), -1, "", {kOffline, "0 Get CCDB data failed"}, kPendingBlock},
    }, pending);
    // clang-format on
}

const Texts kBothDead = {"1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.",
                         "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 5.", kFailure};

TEST_F(CcdbTest, WritesOfThePendingBlock) {
    const auto write = [] {
        AsdWriteCcdbDataToEeprom();
        return 0;
    };
    const auto left = [] { return joined(fake::chip_bytes("ASD_CCDBb", 64, 130), fake::value("ASD_CCDB")); };
    const Bytes value = pattern(128, 5); // as published by the set
    const Bytes before = joined(Bytes(130, 0xFF), value);
    const auto none_known = [](const char *property) { return both(kForgotten, byte_set("ASD_CCDB", property, 0)); };
    // clang-format off
    run_operation(write, build_ccdb, {"dfl_block_write", "vos_thread_sem4_p"}, {
        {"written", kAsBuilt, 0, kWritten, {kCcdbWritten}, joined(fake::record(kPendingBlock), value)},
        {"chips dead", kDeadWrites, 0, kBlocks, kBothDead, before},
        {"none known, not loaded", none_known("Ready"), 0, "", {"1 CCDB data is not ready", kFailure}, before},
        {"none known, not online", none_known("Online"), 0, "", {kOffline, "0 Get CCDB data failed", kFailure}, before},
        {"none known, loaded by now", kForgotten, 0, kWritten, {kCcdbWritten}, joined(fake::record(value), value)},
        {"none known, not copied again", both(kForgotten, fault("memcpy_s", "", 9, 2)), 0, "", {"0 Error: copy asd ccdb data failed, result = 9.", kFailure}, before},
        {"unknown, tried all the same", kUnknown, 0, "", {"0 Get ASD_CCDB handle failed(7).",
         "0 Get PROPERTY_ASD_DEVCOUNT property failed! result: -3001.", "0 asd_write_check: (null) Get eeprom count failed! ret: -1.",
         "0 asd_write_check: (null) Get dev failed! ret: -3001.", kFailure}, before},
    }, left);
    // clang-format on
}

// In a process of its own: the check remembers the last standby state, which starts as 1.
void master_checks() {
    const std::string lock = "lock CcdbSetEn 2000";
    const std::string now = lock + ", " + kWritten;
    const std::string edge = ", lock CcdbSetEn 0, " + kWritten;
    const std::string standby = "1 Set CCDB data to e2prom when os enter standby!";
    const auto at = [](guint8 requested, BOOL state, const Arrange &more = kAsBuilt) {
        return both(more, [=] {
            AsdSetGCcdbSetEn(requested);
            fake::world().board.standby = state;
        });
    };
    const auto check = [] {
        ASD_EEprom_MasterWriteCcdb();
        return gint32{AsdGetGCcdbSetEn()};
    };
    // clang-format off
    run_operation(check, build_ccdb, {"dfl_block_write", "vos_thread_sem4_p"}, {
        {"in standby from the start", at(0, 1), 0, lock},
        {"requested", at(1, 1), 0, now, {kCcdbWritten}},
        {"requested, chips dead: not tried again", at(1, 1, kDeadWrites), 0, lock + ", " + kBlocks, kBothDead},
        {"running", at(0, 0), 0, lock},
        {"standby not read", at(0, 1, fault("BSP_GetPowerStandByStatus")), 0, lock},
        {"into standby", at(0, 1), 0, lock + edge, {standby, kCcdbWritten}},
        {"still in standby", at(0, 1), 0, lock},
        {"requested while running", at(1, 0), 0, now, {kCcdbWritten}},
        {"locked: standby is not looked at", at(1, 1, locked("CcdbSetEn")), 1, lock},
        {"requested and into standby", at(1, 1), 0, now + edge, {kCcdbWritten, standby, kCcdbWritten}},
    });
    // clang-format on
}

TEST_F(CcdbTest, MasterChecks) {
    IN_FRESH_PROCESS(master_checks);
}

} // namespace
