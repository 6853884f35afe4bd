// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What writes of items and the methods leave on chips and in Value.

#include "bmc_asd_common.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_records.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "known_items.h"
#include "module_test.h"

#include <set>

namespace {

using ItemsTest = ModuleTest;

TEST_F(ItemsTest, WritesAreCutToLengthOrPadded) {
    for (const auto &[length, bytes] : {std::pair{8U, 20U}, {8U, 3U}, {8U, 0U}, {8192U, 8192U}}) {
        for (const auto &write : {asd_write_equip, asd_write_method}) {
            SCOPED_TRACE(std::to_string(length) + " from " + std::to_string(bytes));
            fresh_world();
            build_item("ASD17", {.length = 1, .chips = {"FlagA", "FlagB"}}, {{1}, {1}});
            const OBJ_HANDLE item = build_item("ASD16", {.length = length, .chips = {"A", "B"}}, {});
            Bytes given = pattern(bytes);
            given.reserve(1); // a pointer also when empty
            EXPECT_EQ(write(item, given.data(), bytes), 0);
            given.resize(length, 0xFF);
            EXPECT_EQ(fake::chip_bytes("A", 64, length + 2), fake::record(given));
            EXPECT_EQ(fake::chip_bytes("B", 64, length + 2), fake::record(given));
            EXPECT_EQ(fake::value("ASD16"), given);
            EXPECT_EQ(fake::number("ASD16", "Ready"), 1);
            expect_contract_kept();
        }
    }
}

// The card type goes by a path of its own, and only there.
TEST_F(ItemsTest, CardTypes) {
    const struct {
        const char *item;
        DFL_METHOD_FUNC method;
        Bytes given;
        gint32 status;
        Bytes record; // as stored, after its checksum
    } rows[] = {
        // clang-format off
        {"ASD_Bucklecard0Eeprom", asd_write_data, {1, 2, 3, 4}, 0, fake::record({1, 2, 3, 4})},
        {"ASD_Bucklecard1Eeprom", asd_write_data, {1, 2, 3, 4, 5}, 0, fake::record({1, 2, 3, 4})},
        {"ASD_Bucklecard0EepromSub", asd_write_data, {1, 2}, 0, fake::record({1, 2, 0, 0})},
        {"ASD_Bucklecard0EepromSub", asd_write_data, {1}, -1, Bytes(6, 0xFF)},
        {"ASD_Bucklecard0EepromSub", asd_eqwrite_data, {1, 2, 3, 4}, fake::kRefused, Bytes(6, 0xFF)}, // still protected
        {"ASD_Bucklecard1EepromSub", asd_write_data, {1, 2, 3, 4}, fake::kRefused, Bytes(6, 0xFF)},   // no card
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.item) + " " + std::to_string(row.given.size()));
        fresh_world();
        fake::add_chip("Card", {.retry = 1, .lines = {}, .own_protection = true, .stg_is_wp = 1});
        const OBJ_HANDLE item = fake::add_item(row.item, {.length = 4, .chips = {"Card"}});
        GVariant *argument = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, row.given.data(), row.given.size(), 1);
        EXPECT_EQ(fake::call_method(row.method, item, {argument}).status, row.status);
        EXPECT_EQ(fake::chip_bytes("Card", 64, 6), row.record);
        EXPECT_EQ(fake::number("Card", "StgWp"), 1);
    }
}

// The module keeps a pair's flag where operators and tools are told that it is, and its records have the lengths.
TEST_F(ItemsTest, CheckFlags) {
    std::set<std::string> names;
    for (const asd_shared::KnownItem &known : asd_shared::kKnownItems) {
        names.insert({std::string(known.item), std::string(known.of)});
    }
    for (const Record &record : kRecords) {
        const asd_shared::KnownItem *const known = asd_shared::known_item(record.item);
        ASSERT_NE(known, nullptr) << record.item;
        EXPECT_EQ(known->length, record.size) << record.item;
    }
    names.erase("");
    names.erase("ASD10"); // its flag would be itself
    for (const std::string &name : names) {
        fake::add_item(name.c_str(), {.length = 1});
    }
    for (const std::string &name : names) {
        OBJ_HANDLE flag = 0;
        const bool has = asd_choose_object(fake::handle_of(name), &flag) == 0;
        const asd_shared::KnownItem *const told = asd_shared::flag_item(name);
        ASSERT_EQ(has, told != nullptr) << name;
        EXPECT_EQ(flag, told == nullptr ? 0 : fake::handle_of(told->item)) << name;
    }
}

} // namespace
