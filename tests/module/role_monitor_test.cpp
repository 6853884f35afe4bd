// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The role monitor with its routine reload.

#include "task_test.h"

namespace {

using RoleMonitorTest = ModuleTest;

// ---- Role monitor ----

// Items enough for a master that is content: nothing but its own steps is logged.
void build() {
    build_ccdb();
    build_item("ASD_IOCARD_PCIE4", {.length = 8, .chips = {"Card"}}, {{0xAA, 1, 2, 3, 4, 5, 6, 7}});
    fake::world().board.flash = {{0x13, {0xAA}}, {0x14, {0xAA}}};
    g_masterMode = BOARD_MOS_ERROR;
}

const Texts kWatched = {"dfl_foreach_object", "BSP_SetCpldRam 53186", "vos_thread_sem4_p CcdbSetEn",
                        "vos_thread_sem4_v CcdbSetEn", "dfl_get_object_handle ASD25"};
const std::string kWalk = "dfl_foreach_object AtomStorageData 0";
const Texts kPrepare = {"1 Get iocard pcie4 data(0xaa 0x1 0x2 0x3 0x4 0x5 0x6 0x7) from e2prom succeed.",
                        "BSP_SetCpldRam 53186 170", "vos_thread_sem4_p CcdbSetEn 0", "vos_thread_sem4_v CcdbSetEn"};

Texts slave(guint64 tick) {
    return at(tick, {"1 asd enter slave mode!"});
}
Texts master(guint64 tick) {
    return at(tick, with({kWalk, "1 asd enter master mode!"}, kPrepare));
}
Texts reload_failed(guint64 tick) {
    return at(tick, with({kWalk}, kPrepare));
}

TEST_F(RoleMonitorTest, Roles) {
    const auto lift = [](guint64 tick) { return Change{tick, fake::lift_faults}; };
    // clang-format off
    run_scenes(asd_master_check_task, build, kWatched, {
        {"starts as master", {}, 5000, master(500)},
        {"starts in the error role", {{0, role_set(BOARD_MOS_ERROR)}, {1000, role_set(BOARD_SLAVE)}}, 5000, slave(1000)},
        {"master, slave, master", {{1000, role_set(BOARD_SLAVE)}, {2000, role_set(BOARD_MASTER)}}, 5000, with(with(master(500), slave(1000)), master(2000))},
        {"master, error, master", {{1000, role_set(BOARD_MOS_ERROR)}, {2000, role_set(BOARD_MASTER)}}, 5000, master(500)},
        {"reload fails twice", {{0, fault("dfl_foreach_object", "AtomStorageData")}, lift(1500)}, 5000,
         with(with(reload_failed(500), reload_failed(1000)), master(1500))},
        {"slave while the reload fails", {{0, fault("dfl_foreach_object", "AtomStorageData")}, {1000, role_set(BOARD_SLAVE)}}, 5000, with(reload_failed(500), slave(1000))},
        {"idle from the start", {{0, idle_bit_set(1)}, {2000, idle_bit_set(0)}}, 5000, master(2000)},
        {"equipment mode", {{0, equip_mode_set(1)}, {2000, equip_mode_set(0)}}, 5000, master(2000)},
        {"slave, equipment mode", {{0, role_set(BOARD_SLAVE)}, {0, equip_mode_set(1)}, {2000, equip_mode_set(0)}}, 5000, slave(2000)},
    });
    // clang-format on
}

// ---- Routine reload ----

TEST_F(RoleMonitorTest, RoutineReload) {
    const auto build_routine = [] {
        build_item("ASD25", {.length = 16, .chips = {"Routine"}}, {pattern(16)});
        fake::inject({.operation = "dfl_foreach_object", .count = 0}); // reloads by the routine alone
    };
    const auto reloads = [](const std::vector<guint64> &ticks) {
        Texts lines;
        for (const guint64 tick : ticks) {
            lines = with(lines, at(tick, {"dfl_get_object_handle ASD25", "dfl_block_read Routine 64 18"}));
        }
        return lines;
    };
    static constexpr guint64 kWrap = guint64{1} << 32U;
    const Change before_the_wrap = {0, [] { fake::world().ticks = kWrap - 1000; }};
    const Texts looked_up = at(180000, {"dfl_get_object_handle ASD25"});
    // clang-format off
    run_scenes(asd_master_check_task, build_routine, {"dfl_get_object_handle ASD25", "dfl_block_read Routine"}, {
        {"every 180 s", {}, 600000, reloads({180000, 360000, 540000})},
        {"as slave first", {{0, role_set(BOARD_SLAVE)}, {200000, role_set(BOARD_MASTER)}}, 600000, reloads({200000, 380000, 560000})},
        {"a dead chip waits a period", {{0, fault("dfl_block_read", "Routine", 5)}}, 400000, reloads({180000, 360100})},
        {"an unknown item waits a period", {{0, fault("dfl_get_object_handle", "ASD25", 5, 1)}}, 400000, with(looked_up, reloads({360000}))},
        {"across the wrap", {before_the_wrap}, kWrap + 200000, reloads({kWrap - 500, kWrap + 179500})},
    }, -1);
    // clang-format on
}

} // namespace
