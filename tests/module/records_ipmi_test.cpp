// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The commands of the fixed-size records.

#include "bmc_asd_ipmi.h"
#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using RecordsIpmiTest = ModuleTest;

// ---- The records ---------------------------------------------------------------------------------------------------

struct Record {
    const char *item;
    guint32 size;
    bool identity; // else configuration: served by the master alone
    IPMI_CMD_FUNC get;
    std::string get_success; // debug text before a successful answer of the master; empty: none
    IPMI_CMD_FUNC set;       // null: tested elsewhere
    Texts begin;             // of a write of pattern bytes
    Texts success;
    std::string suffix; // of the failures' texts
    std::string get_missing = "get ipmi src data failed!";
    bool names_user_data = true; // "user data is" on entry
    std::string set_missing = "get ipmi src data failed!" + suffix;
    std::string set_lookup = "Call dfl_get_object_handle failed! result: -3001." + suffix;
    std::string set_failed = "Call asd_write_equip failed! result: 5." + suffix;
    guint8 failed_code = 0xCE;
    bool begins_late = false; // logs nothing before it has the data
};

// Most texts follow from the record's name.
Record named(const char *name, const char *item, guint32 size, bool identity, IPMI_CMD_FUNC get, bool leaves,
             IPMI_CMD_FUNC set, bool suffixed = true) {
    const std::string text = name;
    return {.item = item,
            .size = size,
            .identity = identity,
            .get = get,
            .get_success = leaves ? "Leave user data is " + std::string(item) : "",
            .set = set,
            .begin = {"1 Begin to set " + text + "."},
            .success = {"1 Set " + text + " success."},
            .suffix = suffixed ? " Set " + text + " fail." : ""};
}

std::vector<Record> all_records() {
    // clang-format off
    std::vector<Record> records = {
        named("MAC",       "ASD10", 6,  true, ipmi_cmd_get_mac,       false, ipmi_cmd_set_mac),
        named("SN",        "ASD11", 20, true, ipmi_cmd_get_sn,        false, ipmi_cmd_set_sn),
        named("Brand",     "ASD14", 32, true, ipmi_cmd_get_brand,     true,  ipmi_cmd_set_brand),
        named("Vendor",    "ASD15", 32, true, ipmi_cmd_get_vendor,    true,  ipmi_cmd_set_vendor),
        named("Model",     "ASD13", 16, true, ipmi_cmd_get_model,     true,  ipmi_cmd_set_model),
        named("OEM Model", "ASD20", 16, true, ipmi_cmd_get_oem_model, true,  ipmi_cmd_set_oem_model),
        {"ASD_OVERSEAS", 16, true, ipmi_cmd_get_overseas, "Get overseas flag is ASD_OVERSEAS",
         ipmi_cmd_set_overseas, {}, {"1 Set overseas flag=MNOPQRSTUVWXYZ[\\ succeed"}, "",
         "Get overseas flag, get ipmi src data failed!", false, "Set overseas flag, get ipmi src data failed",
         "Set overseas flag get handle failed(ret=-3001)", "Set overseas flag write eeprom failed(ret=5).", 0xFF},
        {"ASD_PRODUCT_FRAMECFG", 16, true, Ipmi_cmdGetProductFrameCfg, "", Ipmi_cmdSetProductFrameCfg, {},
         {"1 Set product frame cfg succeed(0x4d4e4f505152535455565758595a5b5c)."}, "",
         "Get product frame cfg failed(get ipmi src data failed)", false, "Set product frame cfg failed(get ipmi src data failed)",
         "Set product frame cfg failed(get handle failed ret=-3001)", "Set product frame cfg failed(write failed ret=5)"},
        {"ASD_IOCARD_PCIE4", 8, true, ASD_IPMI_GetIocardPCIE4, "", nullptr, {}, {}, "",
         "Get backboard iocard pcie4.0 data failed(get ipmi src data failed)", false},
        named("spec",      "ASD26", 16, false, ipmi_cmd_get_spec,      true,  ipmi_cmd_set_spec,      false),
        named("FrameInfo", "ASD27", 32, false, ipmi_cmd_get_frameinfo, true,  ipmi_cmd_set_frameinfo, false),
        named("Logo",      "ASD21", 8,  false, ipmi_cmd_get_logo,      false, ipmi_cmd_set_logo),
        named("", "ASD24", 128, false, ipmi_cmd_get_baycfg, false, nullptr),
        named("", "ASD_PowerConfig", 128, false, ipmi_cmd_get_powerconfig, true, ipmi_cmd_set_powerconfig, false),
    };
    // clang-format on
    records.front().success = {"M1 bmc_asd_ipmi_setter.cpp: Set MAC(4d:4e:4f:50:51:52) success."};
    Record &power_config = records.back(); // logs its data as text
    const Bytes data = pattern(128);
    power_config.begin = {"1 Begin to set powerconfig, config is " + std::string(data.begin(), data.end()) + "."};
    power_config.begins_late = true;
    power_config.success = {};
    power_config.get_missing = power_config.set_missing = "data pointer is null!";
    return records;
}

const std::vector<Record> kRecords = all_records();

const Bytes kHeader = {0, 0, 0x80, 0, 0x10}; // a handler does not look at its selector

// The item of a record on one chip, which holds `stored`.
void build_record(const Record &record, guint8 ready, const Bytes &value, const Bytes &stored) {
    build_item(record.item, {.length = record.size, .chips = {"ASDDevX"}, .ready = ready, .value = value}, {stored});
}

TEST_F(RecordsIpmiTest, Reads) {
    for (const Record &record : kRecords) {
        SCOPED_TRACE(record.item);
        const std::string item = record.item;
        const Bytes loaded = pattern(record.size, 100);
        const Bytes stored = pattern(record.size, 10);
        const Bytes erased(record.size, 0xFF);
        const Bytes zeros = joined({0}, Bytes(record.size, 0));
        const bool tests_erased = item.find('_') == std::string::npos;
        const auto logs = [&](const Texts &rest) {
            return with(record.names_user_data ? Texts{"2 user data is " + item} : Texts{}, rest);
        };
        const Texts success = logs(record.get_success.empty() ? Texts{} : Texts{"2 " + record.get_success});
        const Texts slave = logs({"1 This smm board is SLAVE."});
        const std::string read = "read ASDDevX 64 " + std::to_string(record.size + 2);
        const std::string failed = "0 Call asd_get_value failed! result: ";
        const Arrange not_loaded = byte_set(item, "Ready", 0);
        const auto build = [&] { build_record(record, 1, loaded, stored); };
        // clang-format off
        const std::vector<HandlerCase> identity = {
            {"loaded", kAsBuilt, kHeader, joined({0}, loaded), success},
            {"loaded, on a slave", both(on_slave, byte_set(item, "Ready", 200)), kHeader, joined({0}, loaded), success},
            {"not loaded", not_loaded, kHeader, joined({0}, stored), success, read},
            {"loaded and erased", value_set(item, erased), kHeader, tests_erased ? Bytes{0xCE} : joined({0}, erased), tests_erased ? logs({}) : success},
            {"not loaded, chip erased", both(not_loaded, [&] { fake::put_record("ASDDevX", erased); }), kHeader, joined({0}, erased), success, read},
            {"unknown", kUnknown, kHeader, {0xCC}, logs({"0 [" + item + "] get obj hanld failed!"})},
            {"Ready unreadable", unreadable(item + ".Ready"), kHeader, {0xCC}, logs({"0 [" + item + "] get property failed![7]"})},
            {"Value unreadable", unreadable(item + ".Value"), kHeader, {0xCE}, logs({"0 Get " + item + " value failed! ret: 7.", failed + "7."})},
            {"chip dead", both(not_loaded, kDeadReads), kHeader, {0xCE},
             logs({"0 " + item + " read eeprom failed(ret=5)", "0 " + item + " read eeprom count 1 failed, ret=5", failed + "5."}), read},
            {"no request data", kAsBuilt, {}, {0xCC}, logs({"0 " + record.get_missing})},
            {"answer refused", fault("ipmi_send_response", "", 33), kHeader, joined({0}, loaded), success, "", {}, 33},
        };
        const std::vector<HandlerCase> configuration = {
            {"master", kAsBuilt, kHeader, joined({0}, loaded), success},
            {"master, never loaded", not_loaded, kHeader, joined({0}, loaded), success},
            {"master, erased", value_set(item, erased), kHeader, joined({0}, erased), success},
            {"slave", on_slave, kHeader, zeros, slave},
            {"role unknown", [] { g_masterMode = BOARD_MOS_ERROR; }, kHeader, zeros, slave},
            {"unknown", kUnknown, kHeader, {0xCE}, logs({failed + "-1017."})},
            {"no request data", kAsBuilt, {}, {0xCC}, logs({"0 " + record.get_missing})},
        };
        // clang-format on
        run_cases(record.get, record.item, build, record.identity ? identity : configuration);
    }
}

TEST_F(RecordsIpmiTest, Writes) {
    for (const Record &record : kRecords) {
        if (record.set == nullptr) {
            continue;
        }
        SCOPED_TRACE(record.item);
        const std::string item = record.item;
        const Bytes before = pattern(record.size, 10);
        const Bytes whole = joined(kHeader, pattern(record.size));
        const auto build = [&] { build_record(record, 0, {}, before); };
        const auto left = [&] { // the chip's record, then Value and Ready
            return joined(fake::chip_bytes("ASDDevX", 64, record.size + 2), mirror(item));
        };
        const Bytes stored = joined(fake::record(pattern(record.size)), joined(pattern(record.size), {1}));
        const Bytes as_before = joined(fake::record(before), {0});
        const auto failed = [&record](const std::string &text) { return with(record.begin, {"0 " + text}); };
        const Texts done = with(record.begin, record.success);
        const Texts missing = record.begins_late ? Texts{"0 " + record.set_missing} : failed(record.set_missing);
        const std::string write = "write ASDDevX 64 " + std::to_string(record.size + 2);
        // clang-format off
        run_cases(record.set, record.item, build, {
            {"whole", kAsBuilt, whole, {0x00}, done, write, stored},
            {"on a slave", on_slave, whole, {0x00}, done, write, stored},
            {"answer refused", fault("ipmi_send_simple_response", "", 44), whole, {0x00}, done, write, stored, 44},
            {"longer than the record", kAsBuilt, joined(whole, {0, 2, 3}), {0x00}, done, write, stored},
            {"no request data", kAsBuilt, {}, {0xCC}, missing, "", as_before},
            {"unknown", fault("dfl_get_object_handle", item, -3001), whole, {0xCE}, failed(record.set_lookup), "", as_before},
            {"chip dead", kDeadWrites, whole, {record.failed_code},
             with(record.begin, {"0 asd_write_equip: " + item + " Write eeprom failed[5]!", "0 " + record.set_failed}), write, as_before},
        }, 1, left);
        // clang-format on
        fresh_world(); // a header alone stores the zeros behind it
        build();
        EXPECT_EQ(fake::call(record.set, record.item, kHeader).response, Bytes{0x00});
        EXPECT_EQ(fake::value(record.item), Bytes(record.size, 0));
    }
}

// ---- What single records do besides --------------------------------------------------------------------------------

TEST_F(RecordsIpmiTest, MacAndModelGoToTheCpldAsWell) {
    const Bytes model = pattern(16);
    const Bytes mac = pattern(6);
    const std::string write = "0 asd_write_equip: ASD";
    const std::string refused = "0 Set mac failed(set mac to cpldram failed,ret=7)";
    const auto mac_left = [] { return joined(fake::value("ASD10"), fake::world().board.wwn); };
    const auto model_left = [] { return joined(fake::value("ASD13"), fake::world().board.frame_model); };
    // clang-format off
    run_cases(ipmi_cmd_set_mac, "ASD10", [] { build_record(kRecords[0], 0, {}, pattern(6, 10)); }, {
        {"handed on", kAsBuilt, joined(kHeader, mac), {0x00}, {}, "write ASDDevX 64 8", joined(mac, mac)},
        {"refused: stored all the same", fault("BSP_SetWwn2CpldRam"), joined(kHeader, mac), {0xFF}, {refused}, "write ASDDevX 64 8", mac},
        {"chip dead: not handed on", kDeadWrites, joined(kHeader, mac), {0xCE}, {write + "10 Write eeprom failed[5]!", "0 " + kRecords[0].set_failed}, "write ASDDevX 64 8"},
    }, 0, mac_left);
    run_cases(ipmi_cmd_set_model, "ASD13", [] { build_record(kRecords[4], 0, {}, pattern(16, 10)); }, {
        {"handed on", kAsBuilt, joined(kHeader, model), {0x00}, {}, "write ASDDevX 64 18", joined(model, model)},
        {"refused: success all the same", fault("BSP_SetFrameModelToCpldRam"), joined(kHeader, model), {0x00}, {}, "write ASDDevX 64 18", model},
    }, 0, model_left);
    // clang-format on
}

// ---- Write-protect test --------------------------------------------------------------------------------------------

constexpr const char *kWpItem = "ASD_E2PWP";

void build_wp() {
    const Texts chips = {"ASD_E2PWPa", "ASD_E2PWPb"};
    build_item(kWpItem, {.length = 32, .chips = chips}, {pattern(32, 10), pattern(32, 50)});
}

Bytes wp_request(guint8 device, const Bytes &payload = {}) {
    return joined({0, 0, 0x80, device, 0x62}, payload);
}

TEST_F(RecordsIpmiTest, WriteProtectTest) {
    const Texts dead = {"0 Read 2nd EEPROM failed! ret: 5.", "0 asd_read_equip_one: Read eeprom failed[5]!",
                        "0 Call asd_read_equip failed, result: 5."};
    const auto short_item = [] {
        number_set(kWpItem, "Length", 8)();
        fake::put_record("ASD_E2PWPb", pattern(8, 50));
    };
    const std::string read_b = "read ASD_E2PWPb 64 34";
    // clang-format off
    run_cases(ipmi_cmd_get_e2pwp_test, kWpItem, build_wp, {
        {"chip 0", kAsBuilt, wp_request(0), joined({0}, pattern(32, 10)), {}, "read ASD_E2PWPa 64 34"},
        {"chip 1", kAsBuilt, wp_request(1), joined({0}, pattern(32, 50)), {}, read_b},
        {"short item", short_item, wp_request(1), joined({0}, joined(pattern(8, 50), Bytes(24, 0))), {}, "read ASD_E2PWPb 64 10"},
        {"too long", number_set(kWpItem, "Length", 33), wp_request(0), {0xCE}, {"0 len(33) exceed eep max size(32)"}},
        {"chip dead", kDeadReads, wp_request(1), {0xCE}, dead, read_b},
        {"unknown", kUnknown, wp_request(0), {0xCE}, {"0 get objet handle fail, result(7)."}},
        {"Length unreadable", unreadable("ASD_E2PWP.Length"), wp_request(0), {0xCE}, {"0 Get PROPERTY_ASD_LENGTH failed! result: 7.", "0 get len value fail."}},
        {"locked", locked("eeprom"), wp_request(0), {0xCE}, {"0 [Get_e2pwp] Lock g_eeprom_lock failed."}},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 data pointer is null."}},
        {"slave", on_slave, wp_request(0), Bytes(33, 0), {"1 This smm board is SLAVE."}},
    }, 1);
    const Bytes text = joined({'T', 'E', 'S', 'T'}, Bytes(28, 0));
    const Texts begun = {"1 Begin to set E2pwp, E2pwp is TEST."};
    const auto left = [] { return joined(part_of(fake::chip_bytes("ASD_E2PWPa", 64, 34), 0, 4), part_of(fake::chip_bytes("ASD_E2PWPb", 64, 34), 0, 4)); };
    const Bytes as_before = joined(pattern(4, 10), pattern(4, 50));
    run_cases(ipmi_cmd_set_e2pwp_test, kWpItem, build_wp, {
        {"chip 1", kAsBuilt, wp_request(1, text), {0x00}, begun, "write ASD_E2PWPb 64 34", joined(pattern(4, 10), {'T', 'E', 'S', 'T'})},
        {"no chip 2", kAsBuilt, wp_request(2, text), {0xCE}, with(begun, {"0 device id(2) is wrong!", "0 Write eeprom failed[-1]!", "0 Call asd_write_equip_one failed! result: -1."}), "", as_before},
        {"unknown", kUnknown, wp_request(0, text), {0xCE}, with(begun, {"0 Call dfl_get_object_handle failed! result: 7."}), "", as_before},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 data pointer is null!"}, "", as_before},
    }, 1, left);
    // clang-format on
    fresh_world(); // the lock is held across the one transfer and no longer
    build_wp();
    EXPECT_EQ(fake::call(ipmi_cmd_get_e2pwp_test, kWpItem, wp_request(0)).response.size(), 33U);
    EXPECT_EQ(fake::journal({"vos_thread_sem4_p", "dfl_block_read", "vos_thread_sem4_v", "ipmi_send_response"}),
              (Texts{"vos_thread_sem4_p eeprom 2000", "dfl_block_read ASD_E2PWPa 64 34", "vos_thread_sem4_v eeprom",
                     "ipmi_send_response 33"}));
}

} // namespace
