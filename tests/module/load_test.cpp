// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Start-up: locks and aliases; the reload of an item.

#include "bmc_asd_common.h"
#include "module_test.h"

namespace {

using LoadTest = ModuleTest;

TEST_F(LoadTest, InitMakesLocksAndBindsNumbers) {
    fake::reset();
    fake::add_item("ASD14", {.num = 14});
    fake::add_item("ASD15", {.num = 15});
    fake::remove_property("ASD15", "Num");
    fake::add_item("ASD16", {.num = 16});
    fake::add_item("ASD20", {.num = 20});
    fake::inject({.operation = "dfl_bind_object_alias", .subject = "ASD16", .status = 6});
    EXPECT_EQ(asd_init(), 0);
    EXPECT_EQ(fake::semaphores(false), (Texts{"ekey", "bayconfig", "eeprom", "CcdbSetEn", "SetNodeview"}));
    EXPECT_EQ(
        fake::journal({"dfl_bind_object_alias"}),
        (Texts{"dfl_bind_object_alias ASD14 14", "dfl_bind_object_alias ASD16 16", "dfl_bind_object_alias ASD20 20"}));
    EXPECT_EQ(fake::logs(2), (Texts{"2 dfl get property value failed (-3001)", "2 Asd dfl_bind_object_alias fail(6)",
                                    "1 asd init ok."}));
    EXPECT_EQ(fake::calls("dfl_block_read"), 0U); // nothing is loaded here
}

TEST_F(LoadTest, AFailedLockDeletesThoseBefore) {
    const std::pair<std::string, std::string> locks[] = {{"ekey", "g_ekey_buffer_lock"},
                                                         {"bayconfig", "g_BayconfigBufLock"},
                                                         {"eeprom", "g_eeprom_lock"},
                                                         {"CcdbSetEn", "g_ccdbSetEnLock"},
                                                         {"SetNodeview", "g_setNodeviewLock"}};
    for (const auto &[name, text] : locks) {
        SCOPED_TRACE(name);
        fake::reset();
        fault("vos_thread_mutex_sem4_create", name)();
        EXPECT_EQ(asd_ekey_lock_init(), -1);
        EXPECT_EQ(fake::logs(2), Texts{"0 Create " + text + " failed!"});
        EXPECT_EQ(fake::semaphores(false), Texts{});
    }
}

TEST_F(LoadTest, InitDoesNothingOnAManagementModule) {
    fake::reset();
    fake::add_item("ASD14", {.num = 14});
    fake::world().board.smm = 1;
    EXPECT_EQ(asd_init(), 0);
    EXPECT_EQ(fake::journal(), Texts{"BSP_IsSmmBoard"});
    EXPECT_EQ(fake::logs(2), Texts{});
}

TEST_F(LoadTest, InitFailsWithoutItsLocksButNotWithoutObjects) {
    fault("dfl_foreach_object")();
    EXPECT_EQ(asd_init(), 0);
    EXPECT_EQ(fake::logs(2), Texts{"1 asd init ok."});
    fake::clear_journal();
    fault("vos_thread_mutex_sem4_create")();
    EXPECT_EQ(asd_init(), -1);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Create g_ekey_buffer_lock failed!", "0 asd ekey lock init failed(-1)!"}));
    EXPECT_EQ(fake::calls("dfl_foreach_object"), 0U);
}

TEST_F(LoadTest, Reload) {
    const Bytes stored = pattern(8, 10);
    OBJ_HANDLE item = 0;
    const char *name = "";
    guint8 *flag = nullptr;
    guint8 all = 1;
    const auto of = [&](const char *item_name) {
        return [&item, &name, &stored, item_name] {
            name = item_name;
            item = build_item(name, {.length = 8, .chips = {"ASDDevX"}, .ready = 9, .value = {1, 2, 3}}, {stored});
        };
    };
    const auto reload = [&] { return process_each_asd_object(item, std::exchange(flag, nullptr)); };
    const auto left = [&name] { return mirror(name); };
    const Arrange clear_all = [&] { flag = &all; };
    const Arrange manufacturing = [] { fake::world().board.manufacturing = 1; };
    const Bytes before = {1, 2, 3, 9};
    const Bytes loaded = joined(stored, {1});
    const Texts failures = {"0 ASD14 read eeprom failed(ret=5)", "0 ASD14 read eeprom count 1 failed, ret=5",
                            "2 ASD14: Read eeprom failed! result: 5."};
    const std::string ccdb_ok = "2 ASD_CCDB: Read eeprom OK!";
    // clang-format off
    run_operation(reload, of("ASD14"), {}, {
        {"plain", kAsBuilt, 0, "", {"2 ASD14: Read eeprom OK!"}, loaded},
        {"offline", both(clear_all, byte_set("ASD14", "Online", 0)), 0, "", {}, before},
        {"Length unreadable", unreadable("ASD14.Length"), -1, "", {"0 ASD14: get data length failed[7]!"}, before},
        {"too long", number_set("ASD14", "Length", 8193), -1, "", {"0 ASD14 data length is out of range!"}, before},
        {"empty", number_set("ASD14", "Length", 0), -1, "", {"0 ASD14 malloc memory failed."}, before},
        {"nameless", fault("dfl_get_object_name"), -1, "", {}, before},
        {"dead chip", kDeadReads, 0, "", failures, before},
        {"dead chip, manufacturing build", both(kDeadReads, manufacturing), 0, "", failures, joined(Bytes(8, 0), {1})},
    }, left);
    run_operation(reload, of("ASD7"), {}, {{"never loaded", clear_all, 0, "", {}, before}}, left);
    run_operation(reload, of("ASD_CCDB"), {}, {
        {"in memory", kAsBuilt, 0, "", {}, before},
        {"in memory, all cleared", clear_all, 0, "", {ccdb_ok}, loaded},
        {"not in memory", byte_set("ASD_CCDB", "Ready", 0), 0, "", {ccdb_ok}, loaded},
        {"Ready unreadable", unreadable("ASD_CCDB.Ready"), 0, "", {"0 Get CCDB ready signal failed.", ccdb_ok}, loaded},
    }, left);
    // clang-format on
}

} // namespace
