// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Lookups of items, the property mirror, and the write-protect lines.

#include "bmc_asd_common.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_update_property.h"
#include "module_test.h"

#include <array>

namespace {

using ObjectModelTest = ModuleTest;

// ---- Lookups -------------------------------------------------------------------------------------------------------

TEST_F(ObjectModelTest, AnUnreadableOnlineCountsAsAbsent) {
    const OBJ_HANDLE item = fake::add_item("ASD14", {});
    unreadable("ASD14.Online")();
    EXPECT_EQ(asd_obj_is_online(item), 0);
    EXPECT_EQ(asd_get_eeprom_count(item, nullptr), -1);
    EXPECT_EQ(asd_get_length(item, nullptr), -1);
    EXPECT_EQ(fake::logs(2),
              (Texts{"0 Get PROPERTY_ASD_ONLINE property failed! result: 7.", "0 Input parameter error."}));
}

// That of an equipment frame is used by the tests of reads and writes.
TEST_F(ObjectModelTest, OtherBoardsUseTheFirstChipReference) {
    for (const auto &[four_u, frame] : {std::pair{0, 1}, {1, 0}}) {
        fake::world().board.four_u = four_u;
        fake::world().board.equip_frame = frame;
        std::array<char, 20> name = {"AtomStorageDataDev0"};
        EXPECT_EQ(asd_choose_asd_dev(name.data(), name.size()), 0);
        EXPECT_STREQ(name.data(), "AtomStorageDataDev0");
    }
    EXPECT_EQ(asd_choose_asd_dev(nullptr, 20), -1);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input arguments is NULL."}));
}

// ---- Property mirror -----------------------------------------------------------------------------------------------

TEST_F(ObjectModelTest, PublicationReportsTheReadyWriteAndNotTheValueWrite) {
    OBJ_HANDLE item = 0;
    const auto build = [&item] { item = fake::add_item("ASD14", {.ready = 5, .value = {1, 2}}); };
    const auto publish = [&item] { return asd_update_property(item, pattern(4).data(), 4); };
    const auto left = [] { return mirror("ASD14"); };
    const Arrange no_value = fault("dfl_set_property_value", "ASD14.Value");
    const Arrange no_ready = fault("dfl_set_property_value", "ASD14.Ready", 9);
    const Texts value_texts = {"0 asd_set_value2: ASD14 set dev value failed!ret(7)",
                               "0 ASD14 Call asd_set_value2 failed! result: -1012."};
    const Texts ready_text = {"0 Set PROPERTY_ASD_READY failed! result: 9."};
    // clang-format off
    run_operation(publish, build, {}, {
        {"both written", kAsBuilt, 0, "", {}, joined(pattern(4), {1})},
        {"Value refused", no_value, 0, "", value_texts, {1, 2, 0}},
        {"Ready refused", no_ready, 9, "", ready_text, joined(pattern(4), {5})},
        {"both refused", both(no_value, no_ready), 9, "", with(value_texts, ready_text), {1, 2, 5}},
    }, left);
    // clang-format on
}

TEST_F(ObjectModelTest, PublicationOfNothing) {
    const OBJ_HANDLE item = fake::add_item("ASD14", {.value = {1, 2}});
    EXPECT_EQ(asd_update_property(item, nullptr, 4), -1001);
    EXPECT_EQ(asd_set_value2(item, nullptr, 4, 0), -1);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input parameter NULL!", "0 Input parameter NULL!"}));
    EXPECT_EQ(fake::journal({"dfl_set_property_value"}), Texts{});
    EXPECT_EQ(asd_update_property(item, pattern(1).data(), 0), 0);
    EXPECT_EQ(steps({"dfl_set_property_value"}), "ASD14.Value ay[0] 0, ASD14.Ready 0x01 0");
}

// What else a read of Value can meet is in the tests of the commands that answer from it.
TEST_F(ObjectModelTest, AValueOfAnotherTypeIsNoData) {
    Bytes data(8, 0xEE);
    gsize length = 99;
    fake::add_item("ASD14", {});
    EXPECT_EQ(asd_get_value("ASD14", 8, nullptr, &length), -1);
    fake::set_property("ASD14", "Value", g_variant_new_uint32(1));
    EXPECT_EQ(asd_get_value("ASD14", 8, data.data(), &length), -1005);
    EXPECT_EQ(data, Bytes(8, 0xEE));
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input parameter error.", "0 Get ASD14 array failed!"}));
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
        {"ASDDev7", 5, 0, 1, 0}, {"ASDDev10a", 5, 2, 1, kBefore}, {"ASDDev10a", 5, 2, 0, 2}, {"ASDDev7", 5, 2, 0, kBefore},
        {"ASDDev5a", 0x1FFFF, 2, 0, kBefore}, {"ASDDev5b", 0x20000, 2, 0, 1}, {"ASDDev11b", -1, 2, 0, 1}, {"ASDDev5a", 0x20000, 2, 1, kBefore},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.chip) + " health " + std::to_string(row.health));
        fresh_world();
        const OBJ_HANDLE chip = fake::add_chip(row.chip);
        fake::world().board.cpld_bits[{0x1F8, 1}] = row.cpld_bit;
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
    // Opened, then closed.
    const auto switched = [](const char *chip) {
        return [chip] {
            asd_write_enable(chip);
            asd_write_disable(chip);
            return 0;
        };
    };
    const Arrange other_board = [] { fake::world().board.tarn = 1; };
    const Arrange stuck = both(fault("gpio_write", "55", 1, 1), fault("gpio_write", "56", 4, 1));
    const auto driven = [](const std::string &line, const std::string &level) {
        return "gpio_init " + line + " 1, gpio_write " + line + " " + level + ", gpio_init 56 1, gpio_write 56 " +
               level;
    };
    const std::string both_55 = driven("55", "1") + ", " + driven("55", "0");
    const Texts nameless = {"0 asd_write_enable: Get device object name failed!",
                            "0 asd_write_disable: Get device object name failed!"};
    // clang-format off
    run_operation(switched("ASDDev14a"), kAsBuilt, {"gpio_init", "gpio_write"}, {
        {"other board", other_board, 0, driven("39", "1") + ", " + driven("39", "0")},
        {"every line is driven, whatever failed", stuck, 0, both_55, {"0 Gpio init or write failed! ret: 5."}},
    });
    run_operation(switched("ASDDev7"), kAsBuilt, {"gpio_init", "gpio_write"}, {{"never switched", kAsBuilt, 0, ""}});
    run_operation(switched(nullptr), kAsBuilt, {"gpio_init", "gpio_write"}, {{"no name", kAsBuilt, 0, both_55, nameless}});
    // clang-format on
}

} // namespace
