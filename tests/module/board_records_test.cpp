// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Records kept in EEPROM and mirrored elsewhere: backplane model, I/O card setting. Which copy wins.

#include "bmc_asd_common.h"
#include "module_test.h"

namespace {

using BoardRecordsTest = ModuleTest;

guint8 flash_byte(guint32 parameter) { // 0xEE: never written
    const Bytes &stored = fake::world().board.flash[parameter];
    return stored.empty() ? guint8{0xEE} : stored[0];
}

TEST_F(BoardRecordsTest, ModelReconciliation) {
    const Bytes model33 = {0x33, 0xA5, 0x5A, 0x84};
    const Bytes model44 = {0x44, 0xA5, 0x5A, 0xF5}; // no valid code
    const Bytes model55 = {0x55, 0xA5, 0x5A, 0x3C};
    const Bytes bad33 = {0x33, 0xA5, 0x5A, 0x85};
    const auto build = [] {
        build_item("ASD_PCIEORSAS", {.length = 4, .chips = {"ModelA"}}, {});
        fake::world().board.four_u = 1;
    };
    const auto reconcile = [] {
        spare_backboard_pcieorsas_detect_process();
        return gint32{fake::world().board.pcie_model.has_value()}; // that is the role monitor's
    };
    const auto hold = [](const Bytes &record, const Bytes &flash, const Arrange &more = kAsBuilt) {
        return both(more, [=] {
            fake::put_record("ModelA", record);
            fake::world().board.flash[0x11] = flash;
        });
    };
    const auto left = [] { return joined(fake::chip_bytes("ModelA", 64, 4), {flash_byte(0x11)}); };
    const Arrange nothing_written = both(fault("BMC_FlashWriteCfgPara", "17", -2), kDeadWrites);
    // clang-format off
    run_operation(reconcile, build, {
        {"equal", hold(model33, {0x33}), 0, joined(model33, {0x33})},
        {"EEPROM wins", hold(model33, {0x55}), 0, joined(model33, {0x33})},
        {"flash not written", hold(model33, {0x55}, nothing_written), 0, joined(model33, {0x55})},
        {"bad EEPROM, flash restores", hold(bad33, {0x55}), 0, joined(model55, {0x55})},
        {"no valid code, flash restores", hold(model44, {0x33}), 0, joined(model33, {0x33})},
        {"neither: the default", hold(bad33, {}), 0, joined(model55, {0x55})},
        {"neither, nothing written", hold(bad33, {}, nothing_written), 0, joined(bad33, {0xEE})},
        {"equipment frame", hold(bad33, {0x44}, [] { fake::world().board.equip_frame = 1; }), 0, joined(bad33, {0x44})},
    }, left);
    // clang-format on
}

TEST_F(BoardRecordsTest, CardSettings) {
    const auto build = [] { build_item("ASD_IOCARD_PCIE4", {.length = 8, .chips = {"CardA"}}, {}); };
    const auto record = [](guint8 first) { return Bytes{first, 1, 2, 3, 4, 5, 6, 0xF7}; };
    const Bytes none = {};
    // The record's first byte, flash parameters 0x13 and 0x14, CPLD byte 0xCFC1.
    const auto hold = [=](guint8 first, const Bytes &controller, const Bytes &card, guint8 cpld) {
        return [=] {
            fake::put_record("CardA", record(first));
            fake::world().board.flash = {{0x13, controller}, {0x14, card}};
            fake::world().board.cpld_ram[0xCFC1] = cpld;
        };
    };
    const auto init = [] {
        ASD_InitIocardPcie4();
        return static_cast<gint32>(fake::calls("BMC_FlashWriteCfgPara"));
    };
    // Afterwards: the record's first byte, both flash copies, both CPLD bytes.
    const auto left = [=] {
        const guint8 first = fake::chip_bytes("CardA", 64, 1)[0];
        EXPECT_EQ(fake::chip_bytes("CardA", 64, 10), fake::record(record(first)));
        fake::Board &board = fake::world().board;
        return Bytes{first, flash_byte(0x13), flash_byte(0x14), board.cpld_ram[0xCFC1], board.cpld_ram[0xCFC2]};
    };
    // clang-format off
    run_operation(init, build, {
        {"all on", hold(0xAA, {0xAA}, {0xAA}, 0x55), 0, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA}},
        {"controller: other value", hold(0xAA, {0x12}, {0xAA}, 0xAA), 0, {0xAA, 0x12, 0xAA, 0x55, 0xAA}},
        {"controller: equal, left alone", hold(0xAA, {0x12}, {0xAA}, 0x12), 0, {0xAA, 0x12, 0xAA, 0x12, 0xAA}},
        {"controller: flash unreadable", hold(0xAA, none, {0xAA}, 0xAA), 0, {0xAA, 0xEE, 0xAA, 0x55, 0xAA}},
        {"card: flash follows, raw", hold(0x37, {0xAA}, {0xAA}, 0xAA), 1, {0x37, 0xAA, 0x37, 0xAA, 0x55}},
        {"card: flash never written", hold(0, {0xAA}, none, 0xAA), 1, {0, 0xAA, 0, 0xAA, 0x55}},
        {"card: unset, flash on", hold(0xFE, {0xAA}, {0xAA}, 0xAA), 0, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA}},
        {"card: unset, flash other", hold(0xFE, {0xAA}, {0x37}, 0xAA), 0, {0x55, 0xAA, 0x37, 0xAA, 0x55}},
        {"card: unset, flash unreadable", hold(0xFE, {0xAA}, none, 0xAA), 0, {0xFE, 0xAA, 0xEE, 0xAA, 0x55}},
        {"chip dead: flash follows to 0", both(hold(0xAA, {0xAA}, {0xAA}, 0xAA), kDeadReads), 1, {0xAA, 0xAA, 0, 0xAA, 0x55}},
    }, left);
    // clang-format on
}

} // namespace
