// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Lookups of items, the property mirror, and the write-protect lines.

#include "bmc_asd_common.h"
#include "bmc_asd_update_property.h"
#include "module_test.h"

#include <array>

namespace {

using ObjectModelTest = ModuleTest;

constexpr gint32 kFault = 7;

// ---- Lookups -------------------------------------------------------------------------------------------------------

TEST_F(ObjectModelTest, UnreadableProperties) {
    const OBJ_HANDLE item = fake::add_item("ASD14", {.online = 5});
    const OBJ_HANDLE chip = fake::add_chip("ASDDev14a");
    guint32 number = 99;
    EXPECT_EQ(asd_get_eeprom_count(item, nullptr), -1);
    EXPECT_EQ(fake::journal(), Texts{});
    EXPECT_EQ(asd_get_length(item, nullptr), -1);
    EXPECT_EQ(asd_obj_is_online(item), 5);
    fault("dfl_get_property_value")();
    fault("dfl_set_property_value")();
    EXPECT_EQ(asd_obj_is_online(item), 0); // counts as absent
    EXPECT_EQ(asd_get_eeprom_count(item, &number), -1);
    EXPECT_EQ(asd_get_length(item, &number), kFault);
    EXPECT_EQ(number, 99U);
    EXPECT_EQ(asd_update_dev_health(chip, 3), kFault);
    EXPECT_EQ(asd_update_dev_errcode(chip, -5), kFault);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input parameter error.", "0 Get PROPERTY_ASD_ONLINE property failed! result: 7.",
                                    "0 Get PROPERTY_ASD_DEVCOUNT property failed! result: 7.",
                                    "0 Get PROPERTY_ASD_LENGTH failed! result: 7.",
                                    "0 ASDDev14a Set PROPERTY_ASD_DEV_HEALTH failed! result: 7.",
                                    "0 ASDDev14a Set PROPERTY_ASD_DEV_ERRORCODE failed! result: 7."}));
}

TEST_F(ObjectModelTest, EachPairedItemHasItsCheckObject) {
    const std::array<std::pair<const char *, const char *>, 10> pairs = {
        {{"ASD16", "ASD17"},
         {"ASD10", "ASD10"},
         {"ASD22", "ASD23"},
         {"ASD_FrameLedRule", "ASD_FrameLedRuleValid"},
         {"ASD52", "ASD53"},
         {"ASD_BBUSWITCH", "ASD_BBUSWITCH1"},
         {"ASD_BBUSWITCHTIME", "ASD_BBUSWITCHTIME1"},
         {"ASD_NODE_VIEW", "ASD_NODE_VIEW_VALID"},
         {"ASD_CCDB", "ASD_CCDB_VALID"},
         {"ASD_PRODUCT_CFGINFO", "ASD_PRODUCT_CFGINFO_VALID"}}};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto &[name, check] = pairs[i];
        SCOPED_TRACE(name);
        fresh_world();
        EXPECT_STREQ(g_astasd_handle_bakname[i].handle_name, name);
        const OBJ_HANDLE item = fake::add_item(name, {});
        OBJ_HANDLE found = 0;
        if (std::string(name) != check) {
            EXPECT_EQ(asd_choose_object(item, &found), fake::kNoObject);
            EXPECT_EQ(fake::logs(2), (Texts{"0 Get " + std::string(check) + " obj handle failed! ret: -3001."}));
        }
        const OBJ_HANDLE wanted = std::string(name) == check ? item : fake::add_item(check, {});
        EXPECT_EQ(asd_choose_object(item, &found), 0);
        EXPECT_EQ(found, wanted);
    }
    OBJ_HANDLE found = 0;
    fresh_world();
    EXPECT_EQ(asd_choose_object(fake::add_item("ASD11", {}), &found), -1018);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Get object name failed!"}));
    EXPECT_EQ(asd_choose_object(4711, &found), -1); // no such object, hence no name
    EXPECT_EQ(found, 0);
}

TEST_F(ObjectModelTest, EquipmentFrameBoardsUseTheSecondChipReference) {
    struct Row {
        const char *name;
        gint32 four_u;
        gint32 frame;
        bool memory_fails;
        const char *reference;
        Texts asked;
        Texts logs;
    };
    const Texts both = {"BSP_Is4U4CBoard", "BSP_isEquipFrameBoard"};
    // clang-format off
    const std::vector<Row> rows = {
        {"plain board", 0, 1, false, "AtomStorageDataDev0", {"BSP_Is4U4CBoard"}, {}},
        {"4U board", 1, 0, false, "AtomStorageDataDev0", both, {}},
        {"4U equipment frame", 1, 1, false, "AtomStorageDataDev1", both, {}},
        {"fill fails", 1, 1, true, "AtomStorageDataDev1", both,
         {"0 Error: init and copy asd devname failed, result = 6."}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        fake::change_board([&row](fake::Board &board) {
            board.four_u = row.four_u;
            board.equip_frame = row.frame;
        });
        if (row.memory_fails) {
            fake::inject({.operation = "memset_s", .status = 6});
        }
        std::array<char, 20> name{"AtomStorageDataDev0"};
        EXPECT_EQ(asd_choose_asd_dev(name.data(), name.size()), 0);
        EXPECT_STREQ(name.data(), row.reference);
        EXPECT_EQ(fake::journal({"BSP_Is4U4CBoard", "BSP_isEquipFrameBoard"}), row.asked);
        EXPECT_EQ(fake::logs(2), row.logs);
    }
    fresh_world();
    EXPECT_EQ(asd_choose_asd_dev(nullptr, 20), -1);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input arguments is NULL."}));
}

// ---- Property mirror -----------------------------------------------------------------------------------------------

TEST_F(ObjectModelTest, PublicationReportsTheReadyWriteAndNotTheValueWrite) {
    struct Row {
        const char *name;
        bool value_fails;
        bool ready_fails;
        gint32 status;
        guint8 ready;
        Texts logs;
    };
    const std::string value_text = "0 asd_set_value2: ASD14 set dev value failed!ret(7)";
    const std::string outer_text = "0 ASD14 Call asd_set_value2 failed! result: -1012.";
    const std::string ready_text = "0 Set PROPERTY_ASD_READY failed! result: 9.";
    // clang-format off
    const std::vector<Row> rows = {
        {"both written", false, false, 0, 1, {}},
        {"Value refused", true, false, 0, 0, {value_text, outer_text}},
        {"Ready refused", false, true, 9, 5, {ready_text}},
        {"both refused", true, true, 9, 5, {value_text, outer_text, ready_text}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        const OBJ_HANDLE item = fake::add_item("ASD14", {.ready = 5, .value = {1, 2}});
        if (row.value_fails) {
            fake::inject({.operation = "dfl_set_property_value", .subject = "ASD14.Value", .status = kFault});
        }
        if (row.ready_fails) {
            fake::inject({.operation = "dfl_set_property_value", .subject = "ASD14.Ready", .status = 9});
        }
        EXPECT_EQ(asd_update_property(item, pattern(4).data(), 4), row.status);
        EXPECT_EQ(fake::value("ASD14"), row.value_fails ? (Bytes{1, 2}) : pattern(4));
        EXPECT_EQ(fake::number("ASD14", "Ready"), row.ready);
        EXPECT_EQ(fake::logs(2), row.logs);
    }
}

TEST_F(ObjectModelTest, PublicationOfNothing) {
    const OBJ_HANDLE item = fake::add_item("ASD14", {.value = {1, 2}});
    EXPECT_EQ(asd_update_property(item, nullptr, 4), -1001);
    EXPECT_EQ(asd_set_value2(item, nullptr, 4, 0), -1);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input parameter NULL!", "0 Input parameter NULL!"}));
    EXPECT_EQ(fake::journal({"dfl_set_property_value"}), Texts{});
    EXPECT_EQ(asd_update_property(item, pattern(1).data(), 0), 0);
    EXPECT_EQ(fake::value("ASD14"), Bytes{});
    EXPECT_EQ(fake::number("ASD14", "Ready"), 1);
    EXPECT_EQ(asd_set_value2(item, pattern(3).data(), 3, 21), 0);
    EXPECT_EQ(asd_set_ready(item, 4, 22), 0);
    EXPECT_EQ(fake::journal({"dfl_set_property_value"}),
              (Texts{"dfl_set_property_value ASD14.Value ay[0] 0", "dfl_set_property_value ASD14.Ready 0x01 0",
                     "dfl_set_property_value ASD14.Value ay[3] 21", "dfl_set_property_value ASD14.Ready 0x04 22"}));
}

TEST_F(ObjectModelTest, MirrorRead) {
    constexpr gsize kUntouched = 4711;
    struct Row {
        const char *name;
        std::function<void()> arrange;
        guint32 room;
        gint32 status;
        gsize length;
        Bytes data;
        Texts logs;
    };
    const Bytes untouched(8, 0xEE);
    // clang-format off
    const std::vector<Row> rows = {
        {"whole", [] {}, 8, 0, 8, pattern(8), {}},
        {"short buffer", [] {}, 3, 0, 8, {77, 78, 79, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}, {}},
        {"short Value", value_set("ASD14", {0}), 8, 0, 1, {0, 0xEE,
         0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}, {}},
        {"unknown item", fault("dfl_get_object_handle", "ASD14"), 8, -1017, kUntouched, untouched, {}},
        {"offline", byte_set("ASD14", "Online", 0), 8, 0, kUntouched, Bytes(8, 0),
         {"M1 bmc_asd_update_property.cpp: ASD14 not online!"}},
        {"Value unreadable", fault("dfl_get_property_value", "ASD14.Value"), 8, kFault, kUntouched, untouched,
         {"0 Get ASD14 value failed! ret: 7."}},
        {"copy fails", fault("memcpy_s", ""), 8, kFault, 8, Bytes(8, 0),
         {"0 Error: copy asd data failed, result = 7."}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        fake::add_item("ASD14", {.value = pattern(8)});
        row.arrange();
        Bytes data = untouched;
        gsize length = kUntouched;
        EXPECT_EQ(asd_get_value("ASD14", row.room, data.data(), &length), row.status);
        EXPECT_EQ(length, row.length);
        EXPECT_EQ(data, row.data);
        EXPECT_EQ(fake::logs(2), row.logs);
    }
    fresh_world();
    fake::add_item("ASD14", {});
    fake::set_property("ASD14", "Value", g_variant_new_uint32(1));
    Bytes data = untouched;
    gsize length = kUntouched;
    EXPECT_EQ(asd_get_value("ASD14", 8, data.data(), &length), -1005);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Get ASD14 array failed!"}));
    fake::clear_journal();
    EXPECT_EQ(asd_get_value(nullptr, 8, data.data(), &length), -1);
    EXPECT_EQ(asd_get_value("ASD14", 8, nullptr, &length), -1);
    EXPECT_EQ(asd_get_value("ASD14", 8, data.data(), nullptr), -1);
    EXPECT_EQ(fake::logs(2), Texts(3, "0 Input parameter error."));
    EXPECT_EQ(fake::journal(), Texts{});
}

TEST_F(ObjectModelTest, FiveChipsAreSparedUnlessTheStatusSaysOtherwise) {
    constexpr guint8 kBefore = 77;
    struct Row {
        const char *chip;
        gint32 status;
        guint8 health;
        guint8 cpld_bit;
        guint8 after;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"ASDDev7", 5, 0, 1, 0}, {"ASDDev10a", 5, 2, 1, kBefore}, {"ASDDev10a", 5, 2, 0, 2}, {"ASDDev10a", 5, 2, 255,
         2}, {"ASDDev7", 5, 2, 0, kBefore}, {"ASDDev5a", 0x1FFFF, 2, 0, kBefore}, {"ASDDev5b", 0x20000, 2, 0, 1},
         {"ASDDev11a", 0x2006E, 9, 0, 1}, {"ASDDev11b", -1, 2, 0, 1}, {"ASDDev11c", 5, 3, 0, 3}, {"ASDDev5a", 0x20000,
         2, 1, kBefore},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.chip) + " health " + std::to_string(row.health));
        fresh_world();
        const OBJ_HANDLE chip = fake::add_chip(row.chip);
        fake::change_board([&row](fake::Board &board) { board.cpld_bits[{0x1F8, 1}] = row.cpld_bit; });
        asd_check_errlevel(chip, row.status, row.chip, row.health);
        EXPECT_EQ(fake::number(row.chip, "Health"), row.after);
    }
    fresh_world();
    fake::inject({.operation = "BSP_ReadCpldBit"}); // unreadable: counts as not set
    asd_check_errlevel(fake::add_chip("ASDDev10a"), 5, "ASDDev10a", 2);
    EXPECT_EQ(fake::number("ASDDev10a", "Health"), 2);
}

// ---- Write protection ----------------------------------------------------------------------------------------------

TEST_F(ObjectModelTest, WriteProtectLines) {
    struct Row {
        const char *name;
        gint32 tarn;
        const char *chip;
        bool enable;
        Texts driven;
        Texts logs;
    };
    const Texts open55 = {"gpio_init 55 1", "gpio_write 55 1", "gpio_init 56 1", "gpio_write 56 1"};
    const Texts close55 = {"gpio_init 55 1", "gpio_write 55 0", "gpio_init 56 1", "gpio_write 56 0"};
    const Texts open39 = {"gpio_init 39 1", "gpio_write 39 1", "gpio_init 56 1", "gpio_write 56 1"};
    const Texts close39 = {"gpio_init 39 1", "gpio_write 39 0", "gpio_init 56 1", "gpio_write 56 0"};
    const std::string banner = "2 ==========open wp by gpio=========";
    // clang-format off
    const std::vector<Row> rows = {
        {"open", 0, "ASDDev14a", true, open55, {banner}},
        {"close", 0, "ASDDev14a", false, close55, {}},
        {"open, other board", 1, "ASDDev14a", true, open39, {banner}},
        {"close, other board", 1, "ASDDev14a", false, close39, {}},
        {"never switched, open", 0, "ASDDev7", true, {}, {}},
        {"never switched, close", 0, "ASDDev7", false, {}, {}},
        {"no name, open", 0, nullptr, true, open55, {"0 asd_write_enable: Get device object name failed!", banner}},
        {"no name, close", 0, nullptr, false, close55, {"0 asd_write_disable: Get device object name failed!"}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        fake::change_board([&row](fake::Board &board) { board.tarn = row.tarn; });
        row.enable ? asd_write_enable(row.chip) : asd_write_disable(row.chip);
        EXPECT_EQ(fake::journal({"gpio_init", "gpio_write"}), row.driven);
        EXPECT_EQ(fake::logs(2), row.logs);
        asd_WriteEnableOrDisable(0);
    }
}

TEST_F(ObjectModelTest, EveryLineIsDrivenWhateverFailed) {
    fake::inject({.operation = "gpio_init", .subject = "55", .status = 1});
    fake::inject({.operation = "gpio_write", .subject = "56", .status = 4});
    fake::change_board([](fake::Board &board) { board.lines[55] = 0; });
    asd_WriteEnableOrDisable(200);
    EXPECT_EQ(fake::journal({"gpio_init", "gpio_write"}),
              (Texts{"gpio_init 55 1", "gpio_write 55 1", "gpio_init 56 1", "gpio_write 56 1"}));
    EXPECT_EQ(fake::logs(2), (Texts{"0 Gpio init or write failed! ret: 5."}));
    asd_WriteEnableOrDisable(0);
}

} // namespace
