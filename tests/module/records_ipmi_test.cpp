// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The checks that handlers share, and the commands of the fixed-size records.

#include "bmc_asd_ipmi.h"
#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using RecordsIpmiTest = ModuleTest;

using fake::Reply;

// ---- Shared checks -------------------------------------------------------------------------------------------------

TEST_F(RecordsIpmiTest, SharedChecks) {
    EXPECT_FALSE(ASD_CheckIpmiMsgData(nullptr));
    EXPECT_EQ(fake::journal({"ipmi_send_simple_response"}), Texts{});
    ASSERT_EQ(fake::logs(2).size(), 1U);
    EXPECT_TRUE(fake::logs(2)[0].starts_with("0 MsgData is "));

    const auto check = [](const IPMI_MSG_S *message, gconstpointer) {
        const bool usable = ASD_CheckIpmiMsgData(message);
        return usable ? ipmi_send_simple_response(message, 0x42) : 4;
    };
    EXPECT_EQ(fake::call(check, nullptr, Bytes{}).response, Bytes{0x42});
    const Reply reply = fake::call(check, nullptr, {});
    EXPECT_EQ(reply.status, 4);
    EXPECT_EQ(reply.response, Bytes{0xFF});
    EXPECT_TRUE(fake::logs(2).back().starts_with("0 ReqData is "));

    fake::clear_journal();
    const Bytes request(255, 1);
    const std::vector<std::pair<guint32, gint32>> lengths = {{0, -1}, {9, -1}, {10, 0}, {229, 0}, {230, -1}};
    for (const auto &[length, accepted] : lengths) {
        EXPECT_EQ(ASD_RequestDataCheck(request.data(), length), accepted) << length;
        EXPECT_EQ(ASD_RequestDataCheck(nullptr, length), -1) << length;
    }
    EXPECT_EQ(fake::logs(2), (Texts{"0 multi frame, head DataLen is 0.", "0 multi frame, head DataLen is 9.",
                                    "0 multi frame, head DataLen is 230."}));

    for (std::size_t other = 0; other <= 32; ++other) {
        Bytes bytes(33, 0xFF);
        bytes[other] = 0xFE; // at 32: past the record
        EXPECT_EQ(ASD_CheckAsdDataIsFullF(bytes.data(), 32) != 0, other == 32) << other;
    }
    EXPECT_FALSE(ASD_CheckAsdDataIsFullF(request.data(), 0));
    EXPECT_FALSE(ASD_CheckAsdDataIsFullF(nullptr, 32));
}

// ---- The records ---------------------------------------------------------------------------------------------------

struct Record {
    const char *item;
    guint32 size;
    bool identity; // else configuration: served by the master alone
    IPMI_CMD_FUNC get;
    std::string get_success; // debug text before a successful answer of the master; empty: none
    const char *buffer;      // as the text of a slave's buffer that cannot be cleared names it
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
};

// Most texts follow from the record's name.
Record named(const char *name, const char *item, guint32 size, IPMI_CMD_FUNC get, bool leaves, IPMI_CMD_FUNC set,
             const char *buffer = nullptr, bool suffixed = true) {
    const std::string text = name;
    return {.item = item,
            .size = size,
            .identity = buffer == nullptr,
            .get = get,
            .get_success = leaves ? "Leave user data is " + std::string(item) : "",
            .buffer = buffer,
            .set = set,
            .begin = {"1 Begin to set " + text + "."},
            .success = {"1 Set " + text + " success."},
            .suffix = suffixed ? " Set " + text + " fail." : ""};
}

std::vector<Record> all_records() {
    // clang-format off
    std::vector<Record> records = {
        named("MAC",       "ASD10", 6,  ipmi_cmd_get_mac,       false, ipmi_cmd_set_mac),
        named("SN",        "ASD11", 20, ipmi_cmd_get_sn,        false, ipmi_cmd_set_sn),
        named("Brand",     "ASD14", 32, ipmi_cmd_get_brand,     true,  ipmi_cmd_set_brand),
        named("Vendor",    "ASD15", 32, ipmi_cmd_get_vendor,    true,  ipmi_cmd_set_vendor),
        named("Model",     "ASD13", 16, ipmi_cmd_get_model,     true,  ipmi_cmd_set_model),
        named("OEM Model", "ASD20", 16, ipmi_cmd_get_oem_model, true,  ipmi_cmd_set_oem_model),
        {"ASD_OVERSEAS", 16, true, ipmi_cmd_get_overseas, "Get overseas flag is ASD_OVERSEAS", nullptr,
         ipmi_cmd_set_overseas, {}, {"1 Set overseas flag=MNOPQRSTUVWXYZ[\\ succeed"}, "",
         "Get overseas flag, get ipmi src data failed!", false, "Set overseas flag, get ipmi src data failed",
         "Set overseas flag get handle failed(ret=-3001)", "Set overseas flag write eeprom failed(ret=5).", 0xFF},
        {"ASD_PRODUCT_FRAMECFG", 16, true, Ipmi_cmdGetProductFrameCfg, "", nullptr, Ipmi_cmdSetProductFrameCfg, {},
         {"1 Set product frame cfg succeed(0x4d4e4f505152535455565758595a5b5c)."}, "",
         "Get product frame cfg failed(get ipmi src data failed)", false, "Set product frame cfg failed(get ipmi src data failed)",
         "Set product frame cfg failed(get handle failed ret=-3001)", "Set product frame cfg failed(write failed ret=5)"},
        {"ASD_IOCARD_PCIE4", 8, true, ASD_IPMI_GetIocardPCIE4, "", nullptr, nullptr, {}, {}, "",
         "Get backboard iocard pcie4.0 data failed(get ipmi src data failed)", false},
        named("spec",      "ASD26", 16, ipmi_cmd_get_spec,      true,  ipmi_cmd_set_spec,      "spec",  false),
        named("FrameInfo", "ASD27", 32, ipmi_cmd_get_frameinfo, true,  ipmi_cmd_set_frameinfo, "frame", false),
        named("Logo",      "ASD21", 8,  ipmi_cmd_get_logo,      false, ipmi_cmd_set_logo,      "logo"),
        named("", "ASD24", 128, ipmi_cmd_get_baycfg, false, nullptr, "bayconfig"),
        named("", "ASD_PowerConfig", 128, ipmi_cmd_get_powerconfig, true, ipmi_cmd_set_powerconfig, "config", false),
    };
    // clang-format on
    records.front().success = {"M1 bmc_asd_ipmi_setter.cpp: Set MAC(4d:4e:4f:50:51:52) success."};
    Record &power_config = records.back(); // logs its payload: a test of its own
    power_config.begin = {};
    power_config.success = {};
    power_config.get_missing = power_config.set_missing = "data pointer is null!";
    return records;
}

const std::vector<Record> kRecords = all_records();

const Bytes kHeader = {0, 0, 0x80, 0, 0x10}; // a handler does not look at its selector

// The item of a record on one chip, which holds `stored`.
void build_record(const Record &record, guint8 ready, const Bytes &mirror, const Bytes &stored) {
    fake::add_chip("ASDDevX", {.retry = 1});
    fake::put_record("ASDDevX", stored);
    fake::add_item(record.item, {.length = record.size, .chips = {"ASDDevX"}, .ready = ready, .value = mirror});
}

// The log of a read: what every read starts with, then the rest.
Texts read_logs(const Record &record, const Texts &rest) {
    Texts logs;
    if (record.names_user_data) {
        logs.push_back("2 user data is " + std::string(record.item));
    }
    logs.insert(logs.end(), rest.begin(), rest.end());
    return logs;
}

Texts success_log(const Record &record) {
    return record.get_success.empty() ? Texts{} : Texts{"2 " + record.get_success};
}

struct ReadCase {
    const char *name;
    std::function<void()> arrange;
    bool has_data;
    guint8 ready;
    const Bytes *mirror;
    const Bytes *stored;
    Bytes response;
    Texts logs;
};

void run_reads(const Record &record, const std::vector<ReadCase> &cases) {
    for (const ReadCase &row : cases) {
        SCOPED_TRACE(std::string(record.item) + ": " + row.name);
        fresh_world();
        build_record(record, row.ready, *row.mirror, *row.stored);
        row.arrange();
        const Reply reply = fake::call(record.get, record.item, row.has_data ? std::optional(kHeader) : std::nullopt);
        EXPECT_EQ(reply.status, 0);
        EXPECT_EQ(reply.response, row.response);
        EXPECT_EQ(fake::logs(2), row.logs);
        expect_contract_kept();
    }
}

TEST_F(RecordsIpmiTest, IdentityReads) {
    for (const Record &record : kRecords) {
        if (!record.identity) {
            continue;
        }
        const std::string item = record.item;
        const Bytes mirror = pattern(record.size, 100);
        const Bytes stored = pattern(record.size, 10);
        const Bytes erased(record.size, 0xFF);
        const bool tests_erased = item.find('_') == std::string::npos;
        const auto slave = [] { g_masterMode = BOARD_SLAVE; };
        const std::string failed = "0 Call asd_get_value failed! result: ";
        const auto no_ready = [&item] {
            for (const char *operation : {"dfl_get_property_value", "dfl_get_property_ubyte"}) {
                fault(operation, item + ".Ready", 7)();
            }
        };
        const Texts success = read_logs(record, success_log(record));
        // clang-format off
        run_reads(record, {
            {"loaded", [] {}, true, 1, &mirror, &stored, joined({0}, mirror), success},
            {"loaded, on a slave", slave, true, 200, &mirror, &stored, joined({0}, mirror), success},
            {"not loaded", [] {}, true, 0, &mirror, &stored, joined({0}, stored), success},
            {"loaded and erased", [] {}, true, 1, &erased, &stored, tests_erased ? Bytes{0xCE} : joined({0}, erased),
             tests_erased ? read_logs(record, {}) : success},
            {"not loaded, chip erased", [] {}, true, 0, &mirror, &erased, joined({0}, erased), success},
            {"no request data", [] {}, false, 1, &mirror, &stored, {0xCC}, read_logs(record, {"0 " +
             record.get_missing})},
            {"unknown", fault("dfl_get_object_handle", item, 7), true, 1, &mirror, &stored, {0xCC}, read_logs(record,
             {"0 [" + item + "] get obj hanld failed!"})},
            {"Ready unreadable", no_ready, true, 1, &mirror, &stored, {0xCC}, read_logs(record, {"0 [" + item +
             "] get property failed![7]"})},
            {"Value unreadable", fault("dfl_get_property_value", item + ".Value", 7), true, 1, &mirror, &stored, {0xCE},
             read_logs(record, {"0 Get " + item + " value failed! ret: 7.", failed + "7."})},
            {"chip dead", fault("dfl_block_read", "ASDDevX", 5), true, 0, &mirror, &stored, {0xCE}, read_logs(record,
             {"0 " + item + " read eeprom failed(ret=5)", "0 " + item + " read eeprom count 1 failed, ret=5", failed +
             "5."})},
        });
        // clang-format on
    }
}

TEST_F(RecordsIpmiTest, ConfigurationReads) {
    for (const Record &record : kRecords) {
        if (record.identity) {
            continue;
        }
        const std::string item = record.item;
        const Bytes mirror = pattern(record.size, 100);
        const Bytes stored = pattern(record.size, 10);
        const Bytes erased(record.size, 0xFF);
        const Bytes zeros(record.size, 0);
        const auto role = [](guint32 value) { return [=] { g_masterMode = value; }; };
        const auto slave_without_memory = [] {
            g_masterMode = BOARD_SLAVE;
            fake::inject({.operation = "memset_s", .status = 9});
        };
        const Texts success = read_logs(record, success_log(record));
        const Texts slave = read_logs(record, {"1 This smm board is SLAVE."});
        // clang-format off
        run_reads(record, {
            {"master", [] {}, true, 1, &mirror, &stored, joined({0}, mirror), success},
            {"master, never loaded", [] {}, true, 0, &mirror, &stored, joined({0}, mirror), success},
            {"master, erased", [] {}, true, 1, &erased, &stored, joined({0}, erased), success},
            {"slave", role(BOARD_SLAVE), true, 1, &mirror, &stored, joined({0}, zeros), slave},
            {"role unknown", role(BOARD_MOS_ERROR), true, 1, &mirror, &stored, joined({0}, zeros), slave},
            {"no such role", role(255), true, 1, &mirror, &stored, joined({0}, zeros), slave},
            {"slave, buffer not cleared", slave_without_memory, true, 1, &mirror, &stored, joined({0}, zeros),
             read_logs(record, {"0 Error: init asd ipmi " + std::string(record.buffer) + " failed, result = 9.", "1 This smm board is SLAVE."})},
            {"no request data", [] {}, false, 1, &mirror, &stored, {0xCC}, read_logs(record, {"0 " +
             record.get_missing})},
            {"unknown", fault("dfl_get_object_handle", item, 7), true, 1, &mirror, &stored, {0xCE}, read_logs(record,
             {"0 Call asd_get_value failed! result: -1017."})},
        });
        // clang-format on
    }
}

TEST_F(RecordsIpmiTest, Writes) {
    struct Case {
        const char *name;
        std::function<void()> arrange;
        std::optional<Bytes> request;
        guint8 code;
        Bytes stored; // empty: as before
        Texts logs;   // after the begin text
        bool begins = true;
    };
    for (const Record &record : kRecords) {
        if (record.set == nullptr) {
            continue;
        }
        const Bytes data = pattern(record.size);
        const Bytes before = pattern(record.size, 10);
        const Bytes whole = joined(kHeader, data);
        const std::string item = record.item;
        const auto error = [](const std::string &text) { return Texts{"0 " + text}; };
        const Texts failed = {"0 asd_write_equip: " + item + " Write eeprom failed[5]!", "0 " + record.set_failed};
        // clang-format off
        const std::vector<Case> cases = {
            {"whole", [] {}, whole, 0x00, data, record.success},
            {"on a slave", [] { g_masterMode = BOARD_SLAVE; }, whole, 0x00, data, record.success},
            {"longer than the record", [] {}, joined(whole, {1, 2, 3}), 0x00, data, record.success},
            {"no request data", [] {}, std::nullopt, 0xCC, {}, error(record.set_missing)},
            {"unknown", fault("dfl_get_object_handle", item, -3001), whole, 0xCE, {}, error(record.set_lookup)},
            {"chip dead", fault("dfl_block_write", "ASDDevX", 5), whole, record.failed_code, {}, failed},
        };
        // clang-format on
        for (const Case &row : cases) {
            SCOPED_TRACE(item + ": " + row.name);
            fresh_world();
            build_record(record, 0, {}, before);
            row.arrange();
            const Reply reply = fake::call(record.set, record.item, row.request);
            EXPECT_EQ(reply.status, 0);
            EXPECT_EQ(reply.response, Bytes{row.code});
            const bool stored = !row.stored.empty();
            EXPECT_EQ(fake::chip_bytes("ASDDevX", 64, record.size + 2), fake::record(stored ? row.stored : before));
            EXPECT_EQ(fake::value(record.item), row.stored);
            EXPECT_EQ(fake::number(record.item, "Ready"), stored ? 1 : 0);
            Texts logs = fake::logs(1);
            std::erase_if(logs, [](const std::string &text) { return text.starts_with("1 Begin to set powerconfig"); });
            Texts expected = record.begin;
            expected.insert(expected.end(), row.logs.begin(), row.logs.end());
            EXPECT_EQ(logs, expected);
            expect_contract_kept();
        }
        SCOPED_TRACE(item + ": header alone stores the zeros behind it");
        fresh_world();
        build_record(record, 0, {}, before);
        EXPECT_EQ(fake::call(record.set, record.item, kHeader).response, Bytes{0x00});
        EXPECT_EQ(fake::value(record.item), Bytes(record.size, 0));
    }
}

TEST_F(RecordsIpmiTest, HandlersReturnTheStatusOfTheResponseCall) {
    for (const Record &record : kRecords) {
        SCOPED_TRACE(record.item);
        fresh_world();
        build_record(record, 1, pattern(record.size), pattern(record.size));
        fake::inject({.operation = "ipmi_send_response", .status = 33, .count = 0});
        fake::inject({.operation = "ipmi_send_simple_response", .status = 44, .count = 0});
        EXPECT_EQ(fake::call(record.get, record.item, kHeader).status, 33);
        EXPECT_EQ(fake::call(record.get, record.item, {}).status, 44);
        if (record.set != nullptr) {
            EXPECT_EQ(fake::call(record.set, record.item, kHeader).status, 44);
        }
    }
}

// ---- What single records do besides --------------------------------------------------------------------------------

TEST_F(RecordsIpmiTest, MacAndModelGoToTheCpldAsWell) {
    for (const bool mac : {true, false}) {
        const Record &record = kRecords[mac ? 0 : 4];
        const char *operation = mac ? "BSP_SetWwn2CpldRam" : "BSP_SetFrameModelToCpldRam";
        for (const gint32 status : {0, 7}) {
            SCOPED_TRACE(std::string(operation) + " " + std::to_string(status));
            fresh_world();
            build_record(record, 0, {}, pattern(record.size, 10));
            if (status != 0) {
                fault(operation, "", status)();
            }
            const Reply reply = fake::call(record.set, record.item, joined(kHeader, pattern(record.size)));
            EXPECT_EQ(reply.response, Bytes{static_cast<guint8>(mac && status != 0 ? 0xFF : 0x00)});
            EXPECT_EQ(fake::value(record.item), pattern(record.size)); // stored whatever the CPLD says
            const Bytes handed = mac ? fake::board().wwn : fake::board().frame_model;
            EXPECT_EQ(handed, status != 0 ? Bytes{} : pattern(record.size));
            if (mac && status != 0) {
                EXPECT_EQ(fake::logs(1).back(), "0 Set mac failed(set mac to cpldram failed,ret=7)");
            }
        }
        fresh_world(); // nothing reaches the CPLD when the chip failed
        build_record(record, 0, {}, pattern(record.size, 10));
        fault("dfl_block_write", "ASDDevX", 5)();
        fake::call(record.set, record.item, joined(kHeader, pattern(record.size)));
        EXPECT_EQ(fake::calls(operation), 0U);
    }
}

// A copy inside the handler fails: the write is made and answered all the same.
TEST_F(RecordsIpmiTest, FailedLocalCopiesDoNotStopAWrite) {
    // clang-format off
    const std::vector<std::pair<std::size_t, const char *>> rows = {
        {0, "memcpy srcdata to mac fail, ret_s = 9"},
        {4, "Error: copy asd ipmi model failed, result = 9."},
        {6, "Error: copy asd ipmi overseas failed, result = 9."},
    };
    // clang-format on
    for (const auto &[index, text] : rows) {
        const Record &record = kRecords[index];
        SCOPED_TRACE(record.item);
        bool seen = false;
        for (guint32 nth = 1; nth <= 8; ++nth) {
            fresh_world();
            build_record(record, 0, {}, pattern(record.size, 10));
            fake::inject({.operation = "memcpy_s", .status = 9, .nth = nth});
            const Reply reply = fake::call(record.set, record.item, joined(kHeader, pattern(record.size)));
            EXPECT_EQ(reply.response, Bytes{0x00});
            seen = seen || fake::logged(0, text);
        }
        EXPECT_TRUE(seen);
    }
}

TEST_F(RecordsIpmiTest, PowerConfigurationIsLoggedAsText) {
    const Record &record = kRecords.back();
    build_record(record, 0, {}, pattern(128));
    const Bytes request = joined(kHeader, {'o', 'n', ' ', '2'});
    EXPECT_EQ(fake::call(ipmi_cmd_set_powerconfig, record.item, request).response, Bytes{0x00});
    EXPECT_EQ(fake::logs(1), Texts{"1 Begin to set powerconfig, config is on 2."});
    EXPECT_EQ(fake::value(record.item), joined({'o', 'n', ' ', '2'}, Bytes(124, 0)));
}

// ---- Write-protect test --------------------------------------------------------------------------------------------

constexpr const char *kWpItem = "ASD_E2PWP";

void build_wp_item(guint32 length = 32) {
    for (const char *chip : {"ASD_E2PWPa", "ASD_E2PWPb"}) {
        fake::add_chip(chip, {.retry = 1});
    }
    fake::add_item(kWpItem, {.length = length, .chips = {"ASD_E2PWPa", "ASD_E2PWPb"}});
    fake::put_record("ASD_E2PWPa", pattern(length, 10));
    fake::put_record("ASD_E2PWPb", pattern(length, 50));
}

Bytes wp_request(guint8 device, const Bytes &payload = {}) {
    return joined({0, 0, 0x80, device, 0x62}, payload);
}

TEST_F(RecordsIpmiTest, WriteProtectTestRead) {
    struct Row {
        const char *name;
        guint32 length;
        guint8 device;
        std::function<void()> arrange;
        Bytes response;
        Texts errors;
    };
    const auto read_failure = [](const Texts &first, const char *status) {
        Texts texts = first;
        texts.push_back(std::string("asd_read_equip_one: Read eeprom failed[") + status + "]!");
        texts.push_back(std::string("Call asd_read_equip failed, result: ") + status + ".");
        return texts;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"chip 0", 32, 0, [] {}, joined({0}, pattern(32, 10)), {}},
        {"chip 1", 32, 1, [] {}, joined({0}, pattern(32, 50)), {}},
        {"short item", 8, 1, [] {}, joined({0}, joined(pattern(8, 50), Bytes(24, 0))), {}},
        {"too long", 33, 0, [] {}, {0xCE}, {"len(33) exceed eep max size(32)"}},
        {"no chip 2", 32, 2, [] {}, {0xCE}, read_failure({"device id(2) is wrong!"}, "-1")},
        {"chip dead", 32, 1, fault("dfl_block_read", "ASD_E2PWPb", 5), {0xCE},
         read_failure({"Read 2nd EEPROM failed! ret: 5."}, "5")},
        {"unknown", 32, 0, fault("dfl_get_object_handle", kWpItem, 7), {0xCE}, {"get objet handle fail, result(7)."}},
        {"Length unreadable", 32, 0, fault("dfl_get_property_value", "ASD_E2PWP.Length", 7), {0xCE},
         {"Get PROPERTY_ASD_LENGTH failed! result: 7.", "get len value fail."}},
        {"locked", 32, 0, [] { fake::hold_semaphore("eeprom"); }, {0xCE}, {"[Get_e2pwp] Lock g_eeprom_lock failed."}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        build_wp_item(row.length);
        row.arrange();
        EXPECT_EQ(fake::call(ipmi_cmd_get_e2pwp_test, kWpItem, wp_request(row.device)).response, row.response);
        EXPECT_EQ(fake::log_texts(0), row.errors);
        for (const std::string &taken : fake::journal({"vos_thread_sem4_p"})) {
            EXPECT_EQ(taken, "vos_thread_sem4_p eeprom 2000");
        }
        fake::free_semaphore("eeprom");
        expect_contract_kept();
    }
    fresh_world();
    build_wp_item();
    EXPECT_EQ(fake::call(ipmi_cmd_get_e2pwp_test, kWpItem, wp_request(0)).response.size(), 33U);
    // The lock is held across the one transfer and no longer.
    EXPECT_EQ(fake::journal({"vos_thread_sem4_p", "dfl_block_read", "vos_thread_sem4_v", "ipmi_send_response"}),
              (Texts{"vos_thread_sem4_p eeprom 2000", "dfl_block_read ASD_E2PWPa 64 34", "vos_thread_sem4_v eeprom",
                     "ipmi_send_response 33"}));
    fake::clear_journal();
    EXPECT_EQ(fake::call(ipmi_cmd_get_e2pwp_test, kWpItem, {}).response, Bytes{0xCC});
    EXPECT_EQ(fake::log_texts(0), Texts{"data pointer is null."});
    g_masterMode = BOARD_SLAVE;
    EXPECT_EQ(fake::call(ipmi_cmd_get_e2pwp_test, kWpItem, wp_request(0)).response, Bytes(33, 0));
    EXPECT_EQ(fake::log_texts(1), Texts{"This smm board is SLAVE."});
    EXPECT_EQ(fake::calls("dfl_block_read"), 0U);
}

TEST_F(RecordsIpmiTest, WriteProtectTestWrite) {
    const Bytes text = joined({'T', 'E', 'S', 'T'}, Bytes(28, 0));
    for (const guint8 device : {guint8{0}, guint8{1}}) {
        fresh_world();
        build_wp_item();
        EXPECT_EQ(fake::call(ipmi_cmd_set_e2pwp_test, kWpItem, wp_request(device, text)).response, Bytes{0x00});
        EXPECT_EQ(fake::logs(1), Texts{"1 Begin to set E2pwp, E2pwp is TEST."});
        EXPECT_EQ(fake::chip_bytes("ASD_E2PWPa", 64, 34), fake::record(device == 0 ? text : pattern(32, 10)));
        EXPECT_EQ(fake::chip_bytes("ASD_E2PWPb", 64, 34), fake::record(device == 1 ? text : pattern(32, 50)));
        EXPECT_EQ(fake::value(kWpItem), text);
        EXPECT_EQ(fake::calls("vos_thread_sem4_p"), 1U); // the record write's own, none around it
    }
    fake::clear_journal();
    EXPECT_EQ(fake::call(ipmi_cmd_set_e2pwp_test, kWpItem, {}).response, Bytes{0xCC});
    EXPECT_EQ(fake::log_texts(0), Texts{"data pointer is null!"});
    fake::clear_journal();
    EXPECT_EQ(fake::call(ipmi_cmd_set_e2pwp_test, kWpItem, wp_request(2, text)).response, Bytes{0xCE});
    EXPECT_EQ(fake::log_texts(0), (Texts{"device id(2) is wrong!", "Write eeprom failed[-1]!",
                                         "Call asd_write_equip_one failed! result: -1."}));
    fault("dfl_get_object_handle", kWpItem, 7)();
    EXPECT_EQ(fake::call(ipmi_cmd_set_e2pwp_test, kWpItem, wp_request(0, text)).response, Bytes{0xCE});
}

} // namespace
