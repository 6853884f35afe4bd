// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The hourly check of the identity records and the daily write of the customer block.

#include "task_test.h"

namespace {

using TimedTasksTest = ModuleTest;

constexpr guint64 kHour = 3600000;
constexpr guint64 kDay = 24 * kHour;

Texts hour(guint64 tick) {
    return at(tick, {"vos_task_delay 120000 x30"});
}

Texts checked(guint64 tick, const std::string &name, const Texts &logs = {}) {
    const Texts lines = at(tick, with({"dfl_get_object_handle " + name}, logs));
    return with(lines, at(tick, {"vos_task_delay 10000"}));
}

void build_records() {
    for (const std::string name : {"ASD10", "ASD11", "ASD13", "ASD_CCDB"}) {
        build_item(name, {.length = 16, .chips = {name + "a", name + "b"}}, {pattern(16), pattern(16)});
    }
}

Texts three(guint64 tick) {
    return with(with(checked(tick, "ASD10"), checked(tick + 10000, "ASD11")), checked(tick + 20000, "ASD13"));
}

TEST_F(TimedTasksTest, HourlyCheck) {
    const Arrange two_u = [] { fake::world().board.two_u_expansion = 1; };
    const Texts failed = {"0 ASD11 call dfl_get_object_handle failed! result: 5.",
                          "0 ASD11 asd eeprom check failed! ret(5)."};
    const Texts once = with(hour(0), three(kHour));
    const Texts two_hours = {"0 vos_task_delay 120000 x60"};
    const Texts two_on_2u = with(checked(kHour, "ASD10"), checked(kHour + 10000, "ASD11"));
    // clang-format off
    run_scenes(asd_eeprom_check_task, build_records, {"vos_task_delay", "dfl_get_object_handle ASD"}, {
        {"twice", {}, 2 * kHour + 40000, with(with(once, hour(kHour + 30000)), checked(2 * kHour + 30000, "ASD10"))},
        {"2U expansion board", {{0, two_u}}, 2 * kHour + 20000, with(with(hour(0), two_on_2u), hour(kHour + 20000))},
        {"slave", {{0, published_role(BOARD_SLAVE)}}, 2 * kHour, two_hours},
        {"error role", {{0, published_role(BOARD_MOS_ERROR)}}, kHour + 30000, once},
        {"slave after the first item", {{kHour + 10000, published_role(BOARD_SLAVE)}}, kHour + 120000,
         with(with(hour(0), checked(kHour, "ASD10")), at(kHour + 10000, {"vos_task_delay 120000"}))},
        {"equipment mode: a full hour again", {{0, equip_mode_set(1)}, {kHour + 1, equip_mode_set(0)}}, 2 * kHour + 30000, with(two_hours, three(2 * kHour))},
        {"idle bit: a full hour again", {{0, idle_bit_set(1)}, {kHour + 1, idle_bit_set(0)}}, 2 * kHour + 30000, with(two_hours, three(2 * kHour))},
        {"a failure does not stop the rest", {{0, fault("dfl_get_object_handle", "ASD11", 5)}}, kHour + 30000,
         with(with(with(hour(0), checked(kHour, "ASD10")), checked(kHour + 10000, "ASD11", failed)), checked(kHour + 20000, "ASD13"))},
    });
    // clang-format on
}

TEST_F(TimedTasksTest, DailyWrite) {
    const std::string lock = "vos_thread_sem4_p CcdbSetEn 0";
    const std::string block = "dfl_block_write ASD_CCDBa 64 130";
    const std::string unlock = "vos_thread_sem4_v CcdbSetEn";
    const auto day = [](guint64 tick, int days = 1) {
        return at(tick, {"vos_task_delay 120000 x" + std::to_string(days * 720)});
    };
    const auto settle = [](guint64 tick) { return at(tick, {"vos_task_delay 10000"}); };
    const auto written = [&](guint64 tick) { return at(tick, {lock, block, kCcdbWritten, unlock}); };
    const Arrange deaf = fault("BSP_IsCpldUpgrading");
    // clang-format off
    run_scenes(ASD_ROUTINE_SYS_CCDB_Task, build_ccdb, {"vos_task_delay", "vos_thread_sem4_p CcdbSetEn", "vos_thread_sem4_v CcdbSetEn", "dfl_block_write ASD_CCDBa"}, {
        {"every day", {}, 3 * kDay, with(with(with(day(0), written(kDay)), with(day(kDay), written(2 * kDay))), day(2 * kDay))},
        {"upgrade at the start", {{0, upgrading_set(1)}, {1, upgrading_set(0)}}, 2 * kDay + 10000,
         with(with(day(0), settle(kDay)), with(written(kDay + 10000), day(kDay + 10000)))},
        {"upgrade: put off by whole days", {{kDay - 1, upgrading_set(1)}, {2 * kDay + 1, upgrading_set(0)}}, 3 * kDay + 10000,
         with(with(day(0, 3), settle(3 * kDay)), {})},
        {"state unreadable: settles once", {{0, deaf}}, 2 * kDay + 10001, with(with(with(day(0), settle(kDay)), with(written(kDay + 10000), day(kDay + 10000))), with(written(2 * kDay + 10000), at(2 * kDay + 10000, {"vos_task_delay 120000"})))},
        {"slave", {{0, published_role(BOARD_SLAVE)}}, 2 * kDay, day(0, 2)},
        {"error role", {{0, published_role(BOARD_MOS_ERROR)}}, 2 * kDay, day(0, 2)},
    });
    // clang-format on
}

} // namespace
