// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Records kept in EEPROM and mirrored elsewhere: backplane model, I/O card setting.

#include "bmc_asd_common.h"
#include "module_test.h"

namespace {

using BoardRecordsTest = ModuleTest;

Arrange stored(const std::string &chip, const Bytes &data) {
    return [=] { fake::put_record(chip, data); };
}

// ---- Backplane model -----------------------------------------------------------------------------------------------

const Bytes kModel33 = {0x33, 0xA5, 0x5A, 0x84};
const Bytes kModel44 = {0x44, 0xA5, 0x5A, 0xF5}; // no valid code
const Bytes kModel55 = {0x55, 0xA5, 0x5A, 0x3C};
const Bytes kBad33 = {0x33, 0xA5, 0x5A, 0x85};
const std::string kBadCrc = "0  backboard_mode CalCrc8 from e2prom not fit(realcrc8=0x85,calccrc8=0x84)";

void build_model() {
    build_item("ASD_PCIEORSAS", {.length = 4, .chips = {"ModelA"}}, {kModel33});
    fake::world().board.four_u = 1;
}

const Bytes kCard = {0xAA, 1, 2, 3, 4, 5, 6, 0xF7};

void build_card() {
    build_item("ASD_IOCARD_PCIE4", {.length = 8, .chips = {"CardA"}}, {kCard});
}

Texts failed_write(const std::string &item) {
    return {"0 asd_write_equip: " + item + " Write eeprom failed[5]!"};
}

Texts thrice(const Texts &one) {
    return with(with(one, one), one);
}

TEST_F(BoardRecordsTest, ModelReconciliation) {
    const auto reconcile = [] {
        spare_backboard_pcieorsas_detect_process();
        EXPECT_FALSE(fake::world().board.pcie_model.has_value());
        return 0;
    };
    // The record on the chip, and the copy in flash; none: never written.
    const auto hold = [](const Bytes &record, const Bytes &flash, const Arrange &more = kAsBuilt) {
        return both(both(stored("ModelA", record), more), [=] { fake::world().board.flash[0x11] = flash; });
    };
    const auto eeprom = [] { return fake::chip_bytes("ModelA", 64, 4); };
    const auto flash_fails = fault("BMC_FlashWriteCfgPara", "17", -2);
    const std::string got = "1 Get backboard from e2prom 0x33 succeed.";
    const std::string no_flash = "0 Read pciesas model from local flash faild,local default=0x0";
    const std::string set55 = "1 Set backboard mode to e2prom 0x55 succeed.";
    const std::string default55 = "1 Refresh local pciesas model to default 0x55 ret=";
    // clang-format off
    run_operation(reconcile, build_model, {"BMC_FlashWriteCfgPara"}, {
        {"equal", hold(kModel33, {0x33}), 0, "", {got}, kModel33},
        {"EEPROM wins", hold(kModel33, {0x55}), 0, "flash 17 1 51", {got, "1 Refresh local pciesas model succeed(local=0x55 eep=0x33)"}, kModel33},
        {"flash not written", hold(kModel33, {0x55}, flash_fails), 0, "flash 17 1 51", {got, "0 Refresh local pciesas model failed(local=0x55 eep=0x33 ret=fffffffed)"}, kModel33},
        {"bad EEPROM, flash restores", hold(kBad33, {0x55}), 0, "", {kBadCrc, set55}, kModel55},
        {"no valid code, flash restores", hold(kModel44, {0x33}), 0, "", {"1 Get backboard from e2prom 0x44 succeed.", "1 Set backboard mode to e2prom 0x33 succeed."}, kModel33},
        {"validity other than 1", hold(kModel33, {0x33}, fault("BSP_bPcieorsasModelValid", "", 2)), 0, "flash 17 1 85", {got, set55, default55 + "0"}, kModel55},
        {"neither, nothing written", hold(kBad33, {}, both(flash_fails, kDeadWrites)), 0, "flash 17 1 85",
         with(with({no_flash, kBadCrc}, thrice(failed_write("ASD_PCIEORSAS"))), {"0 set backboard_mode to e2prom failed(Call asd_write to equip failed,ret =5).", default55 + "-2"}), kBad33},
        {"equipment frame", hold(kBad33, {0x44}, [] { fake::world().board.equip_frame = 1; }), 0, "", {"1 Equip frameboard is not supported"}, kBad33},
    }, eeprom);
    // clang-format on
}

// ---- I/O card setting ----------------------------------------------------------------------------------------------

TEST_F(BoardRecordsTest, CardSettings) {
    const int none = -1;
    // The record's first byte (none: the chip does not answer), flash parameters 0x13 and 0x14, CPLD byte 0xCFC1.
    const auto hold = [](int first, int flash13, int flash14, guint8 cpld) {
        return [=] {
            first < 0 ? kDeadReads()
                      : fake::put_record("CardA", joined({static_cast<guint8>(first)}, part_of(kCard, 1, 7)));
            for (const auto &[parameter, value] : {std::pair{0x13U, flash13}, {0x14U, flash14}}) {
                if (value >= 0) {
                    fake::world().board.flash[parameter] = {static_cast<guint8>(value)};
                }
            }
            fake::world().board.cpld_ram[0xCFC1] = cpld;
        };
    };
    std::size_t writes = 0;
    const auto init = [&writes] {
        ASD_InitIocardPcie4();
        writes = fake::calls("BMC_FlashWriteCfgPara");
        fake::clear_journal(); // of the record's own lines
        return 0;
    };
    // Afterwards: the record's first byte, both flash copies, both CPLD bytes, the writes to flash; 0xEE: never
    // written.
    const auto left = [&writes] {
        fake::Board &board = fake::world().board;
        const auto flash = [&board](guint32 at) {
            return board.flash.contains(at) ? board.flash[at][0] : guint8{0xEE};
        };
        EXPECT_EQ(fake::chip_bytes("CardA", 64, 10), fake::record(fake::chip_bytes("CardA", 64, 8)));
        return Bytes{fake::chip_bytes("CardA", 64, 1)[0],
                     flash(0x13),
                     flash(0x14),
                     board.cpld_ram[0xCFC1],
                     board.cpld_ram[0xCFC2],
                     static_cast<guint8>(writes)};
    };
    // clang-format off
    run_operation(init, build_card, {}, {
        {"all on", hold(0xAA, 0xAA, 0xAA, 0x55), 0, "", {}, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0}},
        {"controller: other value", hold(0xAA, 0x12, 0xAA, 0xAA), 0, "", {}, {0xAA, 0x12, 0xAA, 0x55, 0xAA, 0}},
        {"controller: equal, left alone", hold(0xAA, 0x12, 0xAA, 0x12), 0, "", {}, {0xAA, 0x12, 0xAA, 0x12, 0xAA, 0}},
        {"controller: flash unreadable", hold(0xAA, none, 0xAA, 0xAA), 0, "", {}, {0xAA, 0xEE, 0xAA, 0x55, 0xAA, 0}},
        {"card: flash follows, raw", hold(0x37, 0xAA, 0xAA, 0xAA), 0, "", {}, {0x37, 0xAA, 0x37, 0xAA, 0x55, 1}},
        {"card: flash never written", hold(0, 0xAA, none, 0xAA), 0, "", {}, {0, 0xAA, 0, 0xAA, 0x55, 1}},
        {"card: unset, flash on", hold(0xFE, 0xAA, 0xAA, 0xAA), 0, "", {}, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0}},
        {"card: unset, flash other", hold(0xFE, 0xAA, 0x37, 0xAA), 0, "", {}, {0x55, 0xAA, 0x37, 0xAA, 0x55, 0}},
        {"card: unset, flash unreadable", hold(0xFE, 0xAA, none, 0xAA), 0, "", {}, {0xFE, 0xAA, 0xEE, 0xAA, 0x55, 0}},
        {"chip dead: flash follows to 0", hold(none, 0xAA, 0xAA, 0xAA), 0, "", {}, {0xAA, 0xAA, 0, 0xAA, 0x55, 1}},
    }, left);
    // clang-format on
    fresh_world(); // without the right to write the record is left as it is
    hold(none, none, 0xAA, 0)();
    Bytes record = joined({0xFE}, Bytes(7));
    ASD_SetEepIocardPcie2Cpldram(record.data(), 8, 0);
    EXPECT_EQ(record, joined({0xFE}, Bytes(7)));
    EXPECT_EQ(steps({"BMC_FlashWriteCfgPara", "BSP_SetCpldRam"}), "CpldRam 53186 170");
}

// In a process of its own: failed reads are counted from the start.
void controller_reads_fail() {
    const auto writes_after = [](int failures) {
        for (int i = 0; i < failures; ++i) {
            ASD_SetCtrlIocardPcie2Cpldram();
        }
        return fake::calls("BMC_FlashWriteCfgPara");
    };
    fault("BMC_FlashReadCfgPara")();
    EXPECT_EQ(writes_after(9), 0U);
    EXPECT_EQ(writes_after(1), 1U);
    EXPECT_EQ(fake::world().board.flash[0x13], Bytes{0xFF});
    fake::lift_faults();
    fake::world().board.flash[0x13] = {0x55};
    ASD_SetCtrlIocardPcie2Cpldram();
    fault("BMC_FlashReadCfgPara")();
    EXPECT_EQ(writes_after(9), 1U); // from 0 after a good read
    EXPECT_EQ(writes_after(1), 2U);
}

TEST_F(BoardRecordsTest, TenFailedReadsResetTheControllersSetting) {
    IN_FRESH_PROCESS(controller_reads_fail);
}

} // namespace
