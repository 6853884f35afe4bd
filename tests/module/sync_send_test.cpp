// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The master's push: the task, which items go, the message and its answers.

#include "bmc_asd_ipmi_getter.h"
#include "task_test.h"

namespace {

using SyncSendTest = ModuleTest;

// ---- Task ----

TEST_F(SyncSendTest, Task) {
    const auto pass = [](const std::vector<guint64> &ticks) {
        Texts lines;
        for (const guint64 tick : ticks) {
            lines = with(lines, at(tick, {"dfl_foreach_object AtomStorageData 0", "vos_thread_sem4_p CcdbSetEn 2000"}));
        }
        return lines;
    };
    const auto unknown = [](guint64 tick) { return at(tick, {"0 Get Master Slave failed(7)"}); };
    const auto deaf = [](guint64 tick, const char *operation) { return Change{tick, fault(operation)}; };
    const auto request = [] { // within the task's thread, as good as between its passes
        EXPECT_EQ(fake::call(ipmi_cmd_set_ccdb, "ASD_CCDB", joined({0, 0, 0x80, 0, 0x2C}, pattern(128))).response,
                  Bytes{0});
    };
    const Texts requested =
        with(at(1000, {"vos_thread_sem4_p CcdbSetEn 4000", "1 set ccdb data immediately"}), pass({1000}));
    // clang-format off
    run_scenes(ASD_EEprom_Sync_Task, build_ccdb, {"dfl_foreach_object", "vos_thread_sem4_p CcdbSetEn"}, {
        {"each second", {}, 4000, pass({1000, 2000, 3000})},
        {"upgrade later", {{1001, upgrading_set(1)}, {2500, upgrading_set(0)}}, 15000, pass({1000, 13000, 14000})},
        {"upgrade while settling", {{0, upgrading_set(1)}, {2000, upgrading_set(0)}, {2001, upgrading_set(1)}, {13500, upgrading_set(0)}}, 25500, pass({12000, 24000, 25000})},
        {"upgrade state unreadable", {deaf(0, "BSP_IsCpldUpgrading")}, 13000, pass({11000, 12000})},
        {"upgrade state unreadable later: as it was", {{1500, upgrading_set(1)}, deaf(2500, "BSP_IsCpldUpgrading"), {2500, upgrading_set(0)}}, 15000, pass({1000})},
        {"equipment mode", {{1500, equip_mode_set(1)}, {3500, equip_mode_set(0)}}, 5500, pass({1000, 4000, 5000})},
        {"equipment mode unreadable from the start", {{0, equip_mode_set(1)}, deaf(0, "BSP_GetEquipMode")}, 2500, pass({1000, 2000})},
        {"equipment mode unreadable later: as it was", {{0, equip_mode_set(1)}, deaf(1500, "BSP_GetEquipMode"), {1500, equip_mode_set(0)}}, 5500, {}},
        {"role unreadable", {deaf(1500, "BSP_GetBoardMasterOrSlaveState")}, 3500, with(pass({1000}), with(unknown(2000), unknown(3000)))},
        {"the monitor's role does not count", {{0, published_role(BOARD_SLAVE)}, {1500, published_role(BOARD_MASTER)}, {1500, role_set(BOARD_SLAVE)}}, 3500, pass({1000})},
        {"error role", {{0, role_set(BOARD_MOS_ERROR)}}, 2500, {}},
        {"requested block", {{1000, request}}, 2500, with(with(requested, at(1000, {kCcdbWritten})), pass({2000}))},
        {"requested block waits for the master", {{0, role_set(BOARD_SLAVE)}, {1000, request}, {2500, role_set(BOARD_MASTER)}}, 3500,
         with(with(part_of(requested, 0, 2), pass({3000})), at(3000, {kCcdbWritten}))},
        {"into standby", {{1500, [] { fake::world().board.standby = 1; }}}, 3500,
         with(with(pass({1000, 2000}), at(2000, {"1 Set CCDB data to e2prom when os enter standby!", "vos_thread_sem4_p CcdbSetEn 0", kCcdbWritten})), pass({3000}))},
    });
    // clang-format on
}

// ---- Items and message ----

// "ASD10", marked and ready, on a board in slot 1; the peers in the other slots accept everything.
TEST_F(SyncSendTest, ItemsAndMessage) {
    OBJ_HANDLE item = 0;
    const auto build = [&item] {
        fake::world().board.slot = 1;
        fake::world().board.online = {0, 1, 3};
        fake::world().peers[0] = fake::world().peers[3] = [](const fake::SentRequest &) { return Bytes{0}; };
        item = fake::add_item("ASD10", {.length = 6, .num = 42, .ready = 1, .need_sync = 1, .value = pattern(6)});
    };
    const auto push = [&item] { return ASD_SyncEEpromToSlaveForeach(item, nullptr); };
    const auto sent = [] {
        Bytes all;
        for (const fake::SentRequest &one : fake::world().sent) {
            all = joined(all, joined({one.target_type, one.slot, one.lun, one.netfn, one.cmd}, one.data));
        }
        return all;
    };
    const auto to = [](guint8 slot, const Bytes &value) {
        return joined({2, slot, 0, 0x32, 0xF9, 0xFF, 2, 0, 0, 0x2A, 42}, value);
    };
    const auto of_length = [](guint32 bytes) {
        return both(number_set("ASD10", "Length", bytes), value_set("ASD10", pattern(bytes)));
    };
    const auto both_slots = [=](const Bytes &value) { return joined(to(0, value), to(3, value)); };
    run_operation(push, build,
                  {{"to every other slot", kAsBuilt, 0, both_slots(pattern(6))},
                   {"128 bytes", of_length(128), 0, both_slots(pattern(128))},
                   {"129 bytes", of_length(129), 0, {}},
                   {"a value shorter than its Length", value_set("ASD10", {1, 2}), 0, both_slots({1, 2, 0, 0, 0, 0})},
                   {"item not online: zeros", byte_set("ASD10", "Online", 0), 0, both_slots(Bytes(6, 0))}},
                  sent);
}

} // namespace
