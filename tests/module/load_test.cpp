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
    EXPECT_EQ(fake::semaphores().size(), 5U);
    EXPECT_EQ(
        fake::journal({"dfl_bind_object_alias"}),
        (Texts{"dfl_bind_object_alias ASD14 14", "dfl_bind_object_alias ASD16 16", "dfl_bind_object_alias ASD20 20"}));
    EXPECT_EQ(fake::logs(2), (Texts{"2 dfl get property value failed (-3002)", "2 Asd dfl_bind_object_alias fail(6)",
                                    "1 asd init ok."}));
    EXPECT_EQ(fake::calls("dfl_block_read"), 0U); // nothing is loaded here
}

TEST_F(LoadTest, InitDoesNothingOnAManagementModule) {
    fake::reset();
    fake::add_item("ASD14", {.num = 14});
    fake::change_board([](fake::Board &board) { board.smm = 1; });
    EXPECT_EQ(asd_init(), 0);
    EXPECT_EQ(fake::journal(), Texts{"BSP_IsSmmBoard"});
    EXPECT_EQ(fake::logs(2), Texts{});
}

TEST_F(LoadTest, InitFailsWithoutItsLocksButNotWithoutObjects) {
    fake::reset();
    fake::inject({.operation = "vos_thread_mutex_sem4_create", .status = 5});
    EXPECT_EQ(asd_init(), -1);
    EXPECT_EQ(fake::log_texts(0), (Texts{"Create g_ekey_buffer_lock failed!", "asd ekey lock init failed(-1)!"}));
    EXPECT_EQ(fake::calls("dfl_foreach_object"), 0U);
    fake::reset();
    fake::inject({.operation = "dfl_foreach_object", .status = 5});
    EXPECT_EQ(asd_init(), 0);
    EXPECT_TRUE(fake::logged(1, "asd init ok."));
}

TEST_F(LoadTest, Reload) {
    const Bytes stored = pattern(8, 10);
    const Bytes before = {1, 2, 3};
    struct Row {
        const char *name;
        const char *item;
        std::function<void()> arrange;
        bool clear_all; // the caller's flag
        gint32 status;
        const Bytes *value;
        guint8 ready; // 9 before
        Texts logs;
    };
    const auto set = [](const char *item, const char *property, guint32 number) {
        return [=] { fake::set_property(item, property, g_variant_new_uint32(number)); };
    };
    const auto dead = [] { fake::inject({.operation = "dfl_block_read", .status = 5, .count = 0}); };
    const auto manufacturing = [dead] {
        dead();
        fake::change_board([](fake::Board &board) { board.manufacturing = 1; });
    };
    const auto ready = [](const char *item, guint8 value) {
        return [=] { fake::set_property(item, "Ready", g_variant_new_byte(value)); };
    };
    const Bytes zeros(8, 0);
    const Texts failures = {"0 ASD14 read eeprom failed(ret=5)", "0 ASD14 read eeprom count 1 failed, ret=5",
                            "2 ASD14: Read eeprom failed! result: 5."};
    // clang-format off
    const std::vector<Row> rows = {
        {"plain", "ASD14", [] {}, false, 0, &stored, 1, {"2 ASD14: Read eeprom OK!"}},
        {"never loaded", "ASD7", [] {}, true, 0, &before, 9, {}},
        {"offline", "ASD14", [] { fake::set_property("ASD14", "Online", g_variant_new_byte(0)); }, true, 0, &before, 9,
         {}},
        {"CCDB in memory", "ASD_CCDB", [] {}, false, 0, &before, 9, {}},
        {"CCDB in memory, all cleared", "ASD_CCDB", [] {}, true, 0, &stored, 1, {"2 ASD_CCDB: Read eeprom OK!"}},
        {"CCDB not in memory", "ASD_CCDB", ready("ASD_CCDB", 0), false, 0, &stored, 1, {"2 ASD_CCDB: Read eeprom OK!"}},
        {"CCDB, Ready unreadable", "ASD_CCDB", [] { for (const char *operation : {"dfl_get_property_value",
         "dfl_get_property_ubyte"}) { fake::inject({.operation = operation, .subject = "ASD_CCDB.Ready", .status = 5});
         }}, false, 0, &stored, 1, {"0 Get CCDB ready signal failed.", "2 ASD_CCDB: Read eeprom OK!"}},
        {"Length unreadable", "ASD14", [] { fake::inject({.operation = "dfl_get_property_value", .subject =
         "ASD14.Length", .status = 7}); }, false, -1, &before, 9, {"0 ASD14: get data length failed[7]!"}},
        {"too long", "ASD14", set("ASD14", "Length", 8193), false, -1, &before, 9,
         {"0 ASD14 data length is out of range!"}},
        {"empty", "ASD14", set("ASD14", "Length", 0), false, -1, &before, 9, {"0 ASD14 malloc memory failed."}},
        {"nameless", "ASD14", [] { fake::inject({.operation = "dfl_get_object_name"}); }, false, -1, &before, 9, {}},
        {"dead chip", "ASD14", dead, false, 0, &before, 9, failures},
        {"dead chip, manufacturing build", "ASD14", manufacturing, false, 0, &zeros, 1, failures},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        fake::add_chip("ASDDevX", {.retry = 1});
        fake::put_record("ASDDevX", stored);
        const OBJ_HANDLE item =
            fake::add_item(row.item, {.length = 8, .chips = {"ASDDevX"}, .ready = 9, .value = before});
        row.arrange();
        guint8 flag = 1;
        EXPECT_EQ(process_each_asd_object(item, row.clear_all ? &flag : nullptr), row.status);
        EXPECT_EQ(fake::value(row.item), *row.value);
        EXPECT_EQ(fake::number(row.item, "Ready"), std::string(row.name) == "CCDB not in memory" ? 1 : row.ready);
        Texts logs = fake::logs(2);
        std::erase(logs,
                   "0 Get PROPERTY_ASD_LENGTH failed! result: 7."); // of the property read itself, where it is used
        EXPECT_EQ(logs, row.logs);
        expect_contract_kept();
    }
}

TEST_F(LoadTest, TheLongestItemIsLoaded) {
    fake::add_chip("ASDDevX", {.retry = 1});
    fake::put_record("ASDDevX", pattern(8192));
    const OBJ_HANDLE item = fake::add_item("ASD14", {.length = 8192, .chips = {"ASDDevX"}});
    guint8 flag = 0;
    EXPECT_EQ(process_each_asd_object(item, &flag), 0);
    EXPECT_EQ(fake::value("ASD14"), pattern(8192));
}

} // namespace
