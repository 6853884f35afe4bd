// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The methods that other modules call: argument lists, results, failures.

#include "bmc_asd_common.h"
#include "module_test.h"

#include <cstring>

namespace {

using MethodsTest = ModuleTest;

using Inputs = std::function<std::vector<GVariant *>()>;

const Inputs kNone = [] { return std::vector<GVariant *>{}; };
const Inputs kMissing = [] { return std::vector<GVariant *>{nullptr}; };
const Inputs kText = [] { return std::vector{g_variant_new_string("no bytes")}; };

Inputs bytes_in(const Bytes &bytes) {
    return [=] { return std::vector{g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1)}; };
}

// Outputs as their type followed by their bytes.
Bytes status_out(gint32 status) {
    Bytes out(1 + sizeof status, 'i');
    std::memcpy(&out[1], &status, sizeof status);
    return out;
}

Bytes bytes_out(const Bytes &bytes) {
    return joined({'a', 'y'}, bytes);
}

Bytes output_of(const fake::MethodReply &reply) {
    Bytes out;
    for (const auto &output : reply.outputs) {
        const std::string type = g_variant_get_type_string(output.get());
        out.insert(out.end(), type.begin(), type.end());
        const auto *data = static_cast<const guint8 *>(g_variant_get_data(output.get()));
        out.insert(out.end(), data, data + g_variant_get_size(output.get()));
    }
    return out;
}

const Bytes kValue = pattern(8, 100);
const Bytes kStored = pattern(8, 10);

struct Row {
    const char *name;
    Arrange arrange;
    Inputs in;
    gint32 status;
    Bytes out;
    Texts logs = {};
    std::string steps = {};
    Bytes value = kValue;
};

void run_methods(DFL_METHOD_FUNC method, const std::vector<Row> &rows) {
    OBJ_HANDLE item = 0;
    const auto build = [&item] {
        item = build_item("ASD14", {.length = 8, .chips = {"ASDDev14a"}, .ready = 5, .value = kValue}, {kStored});
    };
    for (const Row &row : rows) {
        const auto call = [&] {
            const fake::MethodReply reply = fake::call_method(method, item, row.in());
            EXPECT_EQ(output_of(reply), row.out);
            return reply.status;
        };
        run_operation(call, build, {"dfl_block_read", "dfl_block_write"},
                      {{row.name, row.arrange, row.status, row.steps, row.logs, row.value}},
                      [] { return fake::value("ASD14"); });
    }
}

const Arrange kOffline = byte_set("ASD14", "Online", 0);
const Inputs kTwoBytes = bytes_in({1, 2});
const Bytes kWritten = {1, 2, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

TEST_F(MethodsTest, Writes) {
    const std::string moved = "write ASDDev14a 64 10";
    // clang-format off
    run_methods(asd_write_data, {
        {"no input list", kAsBuilt, kNone, -1014, {}},
        {"no argument", kAsBuilt, kMissing, -1014, {}, {"0 asd_write_data: parse input list failed!"}},
        {"a text", kAsBuilt, kText, -1014, {}, {"0 asd_write_data: get byte array failed!"}},
        {"no bytes", kAsBuilt, bytes_in({}), -1014, {}, {"0 asd_write_data: get byte array failed!"}},
        {"offline", kOffline, kTwoBytes, -1007, status_out(-1007), {"0 asd_write_method: ASD14 asd not online!"}},
        {"chip dead", kDeadWrites, kTwoBytes, 5, status_out(5), {"1 asd_write_method: Write eeprom failed! result: 5."}, moved},
        {"written", kAsBuilt, kTwoBytes, 0, status_out(0), {}, moved, kWritten},
    });
    run_methods(asd_eqwrite_data, {
        {"no bytes", kAsBuilt, bytes_in({}), -1014, {}, {"0 asd_eqwrite_data: get byte array failed!"}},
        {"chip dead", kDeadWrites, kTwoBytes, 5, status_out(5), {"0 asd_write_equip: ASD14 Write eeprom failed[5]!"}, moved},
        {"written", kAsBuilt, kTwoBytes, 0, status_out(0), {}, moved, kWritten},
    });
    run_methods(Asd_UpdateMemProperty, {
        {"no input list", kAsBuilt, kNone, -1014, {}},
        {"no argument", kAsBuilt, kMissing, -1014, {}, {"0 Asd_UpdateMemProperty: parse input list is null!"}},
        {"no bytes", kAsBuilt, bytes_in({}), -1014, {}, {"0 Asd_UpdateMemProperty: asd(ASD14) get byte array failed!"}},
        {"offline", kOffline, kTwoBytes, -1007, status_out(-1007), {"0 Asd_WriteMemProperty: asd is not online!"}},
        {"updated, no chip touched", kAsBuilt, kTwoBytes, 0, status_out(0), {}, {}, kWritten},
    });
    // clang-format on
}

TEST_F(MethodsTest, ListsAreCheckedBeforeTheNameIsAskedFor) {
    EXPECT_EQ(fake::call_method(asd_write_data, fake::add_item("ASD14", {}), {}).status, -1014);
    EXPECT_EQ(fake::calls("dfl_get_object_name"), 0U);
}

TEST_F(MethodsTest, ReadsFromTheChips) {
    const Bytes whole = pattern(8192);
    const auto long_item = [&whole] {
        number_set("ASD14", "Length", 10000)();
        fake::put_record("ASDDev14a", whole);
    };
    const std::string moved = "read ASDDev14a 64 10";
    // clang-format off
    run_methods(asd_read_data, {
        {"Length unreadable", unreadable("ASD14.Length"), kNone, -1, {}, {"0 Get PROPERTY_ASD_LENGTH failed! result: 7."}},
        {"Length 0", number_set("ASD14", "Length", 0), kNone, -1, {}, {"0 asd_read_data: ASD14 malloc for save ekey fail!"}},
        {"offline", kOffline, kNone, -1007, {}},
        {"chip dead", kDeadReads, kNone, 5, {}, {}, moved},
        {"read", kAsBuilt, kNone, 0, bytes_out(kStored), {}, moved, kStored},
        {"longer than 8192", long_item, kNone, 0, bytes_out(whole), {}, "read ASDDev14a 64 8194", whole},
    });
    // clang-format on
}

TEST_F(MethodsTest, ReadsFromMemory) {
    const auto value = [](const Bytes &bytes, guint32 length) {
        return both(number_set("ASD14", "Length", length), value_set("ASD14", bytes));
    };
    const Bytes longest = pattern(9000);
    const Arrange not_ready = byte_set("ASD14", "Ready", 0);
    // clang-format off
    run_methods(Asd_GetAsdMemData, {
        {"no name", fault("dfl_get_object_name", "ASD14"), kNone, -1, {}, {"0 Get ObjName failed!"}},
        {"offline and not ready", both(kOffline, not_ready), kNone, -1, {}, {"1 ASD14 not online!"}},
        {"Ready unreadable", unreadable("ASD14.Ready"), kNone, -1, {}, {"0 [ASD14] get property ready failed![7]"}},
        {"not ready", both(not_ready, unreadable("ASD14.Length")), kNone, -1, {}, {"2 [ASD14] ready property not ok."}},
        {"Length unreadable", unreadable("ASD14.Length"), kNone, -1, {}, {"0 [ASD14] get property length failed![7]"}},
        {"Value unreadable", unreadable("ASD14.Value"), kNone, -1, {}, {"0 [ASD14] get value failed, ret[7]"}},
        {"Value empty", value({}, 8), kNone, -1, {}, {"0 [ASD14] get array failed!"}, {}, {}},
        {"Value longer than Length", value(pattern(32), 16), kNone, 0, bytes_out(pattern(16)), {}, {}, pattern(32)},
        {"longer than 8192", value(longest, 9000), kNone, 0, bytes_out(part_of(longest, 0, 8192)), {}, {}, longest},
    });
    // clang-format on
}

TEST_F(MethodsTest, ClearsMemoryAndTheFirstChipsStates) {
    const auto refused = [](const char *property) { return fault("dfl_set_property_value", property); };
    const Bytes zeros(8, 0);
    const Arrange mirrored = both(number_set("ASD14", "Length", 2048), number_set("ASD14", "DevCount", 2));
    // clang-format off
    run_methods(asd_clear_memdata, {
        {"Length unreadable", unreadable("ASD14.Length"), kNone, -1, {}, {"0 get length fail: 7"}},
        {"Length 0", number_set("ASD14", "Length", 0), kNone, -1, {}, {"0 ASD14 malloc memory failed."}},
        {"Value refused", refused("ASD14.Value"), kNone, -1, {},
         {"0 asd_set_value2: ASD14 set dev value failed!ret(7)", "0 ASD14 Call asd_clear_memdata failed[-1012]!"}},
        {"no chip", fault("dfl_get_referenced_object"), kNone, -1, {}, {"0 asd_clear_memdata: ASD14 Get dev handle failed! ret: 7."}, {}, zeros},
        {"Health refused", refused("ASDDev14a.Health"), kNone, -1, {},
         {"0 ASDDev14a Set PROPERTY_ASD_DEV_HEALTH failed! result: 7.",
          "0 asd_clear_memdata: ASD14 update dev health failed! ret: 7."}, {}, zeros},
        {"ErrorCode refused", refused("ASDDev14a.ErrorCode"), kNone, -1, {},
         {"0 ASDDev14a Set PROPERTY_ASD_DEV_ERRORCODE failed! result: 7.",
          "0 asd_clear_memdata: ASD14 update errcode failed! ret: 7."}, {}, zeros},
        {"cleared, longer than 1024", mirrored, kNone, 0, {}, {}, {}, Bytes(1024, 0)},
    });
    // clang-format on
    EXPECT_EQ(steps({"dfl_set_property_value"}), // of the last row: Ready and the second chip are left alone
              "ASD14.Value ay[1024] 0, ASDDev14a.Health 0x00 0, ASDDev14a.ErrorCode 0 0");
}

TEST_F(MethodsTest, SetsAChipsErrorCode) {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev14a");
    EXPECT_EQ(fake::call_method(Asd_SetErrCode, chip, {}).status, -1);
    EXPECT_EQ(fake::call_method(Asd_SetErrCode, chip, {nullptr}).status, -1);
    EXPECT_EQ(fake::call_method(Asd_SetErrCode, chip, {g_variant_new_byte(5)}).status, -1);
    EXPECT_EQ(fake::calls("dfl_set_property_value"), 0U);
    const fake::MethodReply reply = fake::call_method(Asd_SetErrCode, chip, {g_variant_new_int32(5)});
    EXPECT_EQ(reply.status, 0);
    EXPECT_TRUE(reply.outputs.empty());
    EXPECT_EQ(steps({"dfl_set_property_value"}), "ASDDev14a.ErrorCode 5 0");
    fault("dfl_set_property_value")();
    EXPECT_EQ(fake::call_method(Asd_SetErrCode, chip, {g_variant_new_int32(-6)}).status, 7);
}

// The card type goes by a path of its own, and only there.
TEST_F(MethodsTest, BuckleCards) {
    struct Card {
        const char *item;
        DFL_METHOD_FUNC method;
        Bytes argument;
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
        SCOPED_TRACE(std::string(row.item) + " " + std::to_string(row.argument.size()));
        fresh_world();
        fake::add_chip("ASDDevCard", {.retry = 1, .lines = {}, .own_protection = true, .stg_is_wp = 1});
        const OBJ_HANDLE item = fake::add_item(row.item, {.length = 4, .chips = {"ASDDevCard"}});
        const fake::MethodReply reply = fake::call_method(row.method, item, bytes_in(row.argument)());
        EXPECT_EQ(reply.status, row.status);
        EXPECT_EQ(output_of(reply), status_out(row.status));
        EXPECT_EQ(fake::chip_bytes("ASDDevCard", 64, 6), row.record);
        expect_contract_kept();
    }
}

} // namespace
