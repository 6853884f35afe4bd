// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What writes of items and the methods leave on chips and in Value.

#include "bmc_asd_common.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "module_test.h"

namespace {

using ItemsTest = ModuleTest;

GVariant *argument(const Bytes &bytes) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

// The bytes of a method's one output.
Bytes output_of(const fake::MethodReply &reply) {
    EXPECT_EQ(reply.outputs.size(), 1U);
    const auto *data = static_cast<const guint8 *>(g_variant_get_data(reply.outputs.at(0).get()));
    return {data, data + g_variant_get_size(reply.outputs.at(0).get())};
}

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
            EXPECT_EQ(mirror("ASD16"), joined(given, {1}));
            expect_contract_kept();
        }
    }
}

TEST_F(ItemsTest, MethodsReadAndWrite) {
    const OBJ_HANDLE item = build_item("ASD14", {.length = 4, .chips = {"ASDDev14a"}}, {pattern(4, 10)});
    const fake::MethodReply read = fake::call_method(asd_read_data, item, {});
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(output_of(read), pattern(4, 10));
    EXPECT_EQ(mirror("ASD14"), joined(pattern(4, 10), {1}));
    for (const auto &method : {asd_write_data, asd_eqwrite_data, Asd_UpdateMemProperty}) {
        const fake::MethodReply written = fake::call_method(method, item, {argument({1, 2})});
        EXPECT_EQ(written.status, 0);
        EXPECT_EQ(output_of(written), Bytes(4, 0)); // the status
        EXPECT_EQ(output_of(fake::call_method(Asd_GetAsdMemData, item, {})), (Bytes{1, 2, 0xFF, 0xFF}));
    }
    EXPECT_EQ(fake::calls("dfl_block_write"), 2U); // the last one touches no chip
    EXPECT_EQ(fake::call_method(asd_clear_memdata, item, {}).status, 0);
    EXPECT_EQ(fake::value("ASD14"), Bytes(4, 0));
    EXPECT_EQ(fake::chip_bytes("ASDDev14a", 64, 6), fake::record({1, 2, 0xFF, 0xFF}));
}

// The exact statuses of what a caller can do wrong.
TEST_F(ItemsTest, Refusals) {
    const OBJ_HANDLE item = fake::add_item("ASD14", {.length = 4, .chips = {}});
    OBJ_HANDLE check = 0;
    guint32 count = 0;
    EXPECT_EQ(asd_choose_object(item, &check), -1018);
    EXPECT_EQ(asd_choose_object(4711, &check), -1);
    EXPECT_EQ(asd_get_eeprom_count(4711, &count), -1);
    EXPECT_EQ(asd_update_property(item, nullptr, 4), -1001);
    EXPECT_EQ(fake::call_method(asd_write_data, item, {}).status, -1014);
    EXPECT_EQ(fake::call_method(asd_read_data, item, {}).status, -1008); // no chip
    byte_set("ASD14", "Online", 0)();
    EXPECT_EQ(fake::call_method(asd_read_data, item, {}).status, -1007);
    EXPECT_EQ(fake::call_method(asd_write_data, item, {argument({1})}).status, -1007);
}

// The card type goes by a path of its own, and only there; a supply's chip is protected through StgWp as well.
TEST_F(ItemsTest, SpecialChips) {
    struct Card {
        const char *item;
        DFL_METHOD_FUNC method;
        Bytes given;
        gint32 status;
        Bytes record; // as stored, after its checksum
    };
    // clang-format off
    const std::vector<Card> rows = {
        {"ASD_Bucklecard0Eeprom", asd_write_data, {1, 2, 3, 4}, 0, fake::record({1, 2, 3, 4})},
        {"ASD_Bucklecard1Eeprom", asd_write_data, {1, 2, 3, 4, 5}, 0, fake::record({1, 2, 3, 4})},
        {"ASD_Bucklecard0EepromSub", asd_write_data, {1, 2}, 0, fake::record({1, 2, 0, 0})},
        {"ASD_Bucklecard0EepromSub", asd_write_data, {1}, -1, Bytes(6, 0xFF)},
        {"ASD_Bucklecard0EepromSub", asd_eqwrite_data, {1, 2, 3, 4}, fake::kRefused, Bytes(6, 0xFF)}, // still protected
        {"ASD_Bucklecard1EepromSub", asd_write_data, {1, 2, 3, 4}, fake::kRefused, Bytes(6, 0xFF)},   // no card
    };
    // clang-format on
    for (const Card &row : rows) {
        SCOPED_TRACE(std::string(row.item) + " " + std::to_string(row.given.size()));
        fresh_world();
        fake::add_chip("Card", {.retry = 1, .lines = {}, .own_protection = true, .stg_is_wp = 1});
        const OBJ_HANDLE item = fake::add_item(row.item, {.length = 4, .chips = {"Card"}});
        EXPECT_EQ(fake::call_method(row.method, item, {argument(row.given)}).status, row.status);
        EXPECT_EQ(fake::chip_bytes("Card", 64, 6), row.record);
        EXPECT_EQ(fake::number("Card", "StgWp"), 1);
    }
    fake::add_chip("ASDDev1001", {.offset = 100, .retry = {}, .lines = {}, .own_protection = true});
    const OBJ_HANDLE supply = fake::add_item("ASD1001", {.length = 1024, .chips = {"ASDDev1001"}, .online = 0});
    fake::inject({.operation = "dfl_block_write", .count = 4}); // of five attempts
    EXPECT_EQ(asd_power_write(supply, pattern(9).data(), 9), 0);
    EXPECT_EQ(fake::chip_bytes("ASDDev1001", 100, 1026), fake::record(joined(pattern(9), Bytes(1015, 0xFF))));
    EXPECT_EQ(fake::number("ASDDev1001", "StgWp"), 1);
}

} // namespace
