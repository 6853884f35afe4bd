// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The customer block: its two commands, the pending copy, and the writes that the master's check makes.

#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using CcdbTest = ModuleTest;

const Bytes kNew = pattern(128, 60);
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

TEST_F(CcdbTest, Sets) {
    const std::string begin = "2 setting ccdb data starts.";
    const std::string now = "1 set ccdb data immediately";
    const std::string later = "1 set ccdb data to eeprom in next 24 hour";
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
    }, 2, left);
    // clang-format on
}

const Texts kBothDead = {"1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.",
                         "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 5.", kFailure};

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
