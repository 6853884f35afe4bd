// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The sweep's start and tasks.

#include "sweep_world.h"
#include "task_test.h"

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

// The items that a task looks after, the customer block always.
void build(const Texts &items) {
    for (const std::string &name : items) {
        (void)build_sweep_item(name);
    }
    (void)build_sweep_item("ASD_CCDB");
    byte_set("ASD_CCDB", "NeedSync", 0)();
    fake::world().board.flash = {{0x11, {0x33}}, {0x13, {0xAA}}, {0x14, {0xAA}}};
    fake::world().board.online = {2};
    fake::world().peers[2] = [](const fake::SentRequest &) { return Bytes{0}; };
    ASD_SetCtrlIocardPcie2Cpldram(); // a good read: none has failed since
    AsdSetGCcdbSetData(kPendingBlock.data());
    AsdSetGCcdbSetEn(0);
    ASD_EEprom_MasterWriteCcdb(); // no standby: remembered
}

SweepCase scene(const std::string &name, const Texts &items, VOS_TASK_ENTRY task, const Arrange &more,
                const std::vector<Change> &script, guint64 duration, bool disturbed) {
    const auto run = [=] {
        const guint64 start = fake::world().ticks;
        std::vector<Change> moved = script;
        for (Change &change : moved) {
            change.at = change.at == 0 ? 0 : change.at + start;
        }
        return SweepAnswer{run_script(task, moved, start + duration) ? "ended" : "goes on"};
    };
    return {.name = name, .build = both([=] { build(items); }, more), .run = run, .disturbed = disturbed};
}

// clang-format off
SweepEntry role_entry() {
    const auto add = [](const char *name, BOARD_MOS_E before, const std::vector<Change> &script, guint64 duration, bool disturbed = false) {
        return scene(name, {"ASD25", "ASD_IOCARD_PCIE4", "ASD_PCIEORSAS"}, asd_master_check_task, was(before), script, duration, disturbed);
    };
    const Arrange master = role_set(BOARD_MASTER);
    return {.name = "task-role", .cases = {
        add("becomes master", BOARD_SLAVE, {{0, master}}, 501, true),
        add("becomes slave", BOARD_MASTER, {{0, role_set(BOARD_SLAVE)}}, 501, true),
        add("is master", BOARD_MASTER, {}, 1001, true),
        add("is slave", BOARD_SLAVE, {}, 1001),
        add("to and fro", BOARD_MASTER, {{0, role_set(BOARD_MOS_ERROR)}, {900, master}, {1900, role_set(BOARD_SLAVE)}, {2900, master}}, 4000),
        add("idle", BOARD_SLAVE, {{0, both(master, idle_bit_set(1))}, {1200, idle_bit_set(2)}}, 2000),
        add("equipment mode", BOARD_SLAVE, {{0, both(master, equip_mode_set(1))}, {1200, equip_mode_set(2)}}, 2000),
        add("routine", BOARD_MASTER, {}, 400000)}};
}

SweepEntry check_entry() {
    const Arrange two_u = [] { fake::world().board.two_u_expansion = 1; };
    const auto add = [](const char *name, const Arrange &more, bool disturbed = false) {
        return scene(name, {"ASD10", "ASD11", "ASD13"}, asd_eeprom_check_task, more, {}, 3625000, disturbed);
    };
    return {.name = "task-check", .cases = {
        add("an hour", kAsBuilt, true), add("2U expansion board", two_u), add("slave", on_slave),
        add("an item too long", number_set("ASD11", "Length", 9000)), add("idle", idle_bit_set(1)), add("equipment mode", equip_mode_set(1))}};
}

SweepEntry daily_entry() {
    const auto add = [](const char *name, const std::vector<Change> &script, bool disturbed = false) {
        return scene(name, {}, ASD_ROUTINE_SYS_CCDB_Task, kAsBuilt, script, 24 * 3600000 + 15000, disturbed);
    };
    return {.name = "task-daily", .cases = {
        add("a day", {}, true), add("upgraded", {{0, upgrading_set(1)}, {1000, upgrading_set(0)}}), add("upgrading", {{0, upgrading_set(1)}}), add("slave", {{0, on_slave}})}};
}

SweepEntry sync_entry() {
    const auto add = [](const char *name, const Arrange &more, guint64 duration = 2500, bool disturbed = false) {
        return scene(name, {"ASD10", "ASD13"}, ASD_EEprom_Sync_Task, more, {}, duration, disturbed);
    };
    return {.name = "task-sync", .cases = {
        add("a pass", [] { AsdSetGCcdbSetEn(1); }, 1500, true), add("two passes", kAsBuilt), add("slave", role_set(BOARD_SLAVE)),
        add("error role", role_set(BOARD_MOS_ERROR)), add("upgrading", upgrading_set(1)), add("equipment mode", equip_mode_set(1)),
        add("into standby", [] { fake::world().board.standby = 1; }), add("management module", [] { fake::world().board.smm = 1; })}};
}
// clang-format on

SweepEntry start_entry() {
    const auto items = [] {
        (void)build_sweep_item("ASD14");
        (void)build_sweep_item("ASD10");
    };
    const Arrange management = [] { fake::world().board.smm = 1; };
    const auto start = [] { return answer_of(asd_module_main(0, nullptr)); };
    return {.name = "start",
            .cases = {{"start", items, start, true}, {"management module", both(items, management), start, true}}};
}

} // namespace

Arrange was(BOARD_MOS_E role) {
    return [=] {
        fake::world().board.role = role;
        fault("BSP_Is4U4CBoard")();
        play(asd_master_check_task, {}, fake::world().ticks + 501);
        fake::lift_faults();
    };
}

SweepEntries task_entries() {
    return {start_entry(), role_entry(), check_entry(), daily_entry(), sync_entry()};
}
