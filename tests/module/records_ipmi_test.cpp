// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The commands of the fixed-size records: sizes, what a write leaves, what a read takes.

#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using RecordsIpmiTest = ModuleTest;

struct Record {
    const char *item;
    guint32 size;
    bool of_master; // served by the master alone
    IPMI_CMD_FUNC get;
    IPMI_CMD_FUNC set;
};

// clang-format off
const std::vector<Record> kRecords = {
    {"ASD10", 6, false, ipmi_cmd_get_mac, ipmi_cmd_set_mac}, {"ASD11", 20, false, ipmi_cmd_get_sn, ipmi_cmd_set_sn},
    {"ASD13", 16, false, ipmi_cmd_get_model, ipmi_cmd_set_model}, {"ASD14", 32, false, ipmi_cmd_get_brand, ipmi_cmd_set_brand},
    {"ASD15", 32, false, ipmi_cmd_get_vendor, ipmi_cmd_set_vendor}, {"ASD20", 16, false, ipmi_cmd_get_oem_model, ipmi_cmd_set_oem_model},
    {"ASD21", 8, true, ipmi_cmd_get_logo, ipmi_cmd_set_logo}, {"ASD26", 16, true, ipmi_cmd_get_spec, ipmi_cmd_set_spec},
    {"ASD27", 32, true, ipmi_cmd_get_frameinfo, ipmi_cmd_set_frameinfo}, {"ASD_PowerConfig", 128, true, ipmi_cmd_get_powerconfig, ipmi_cmd_set_powerconfig},
    {"ASD_IOCARD_PCIE4", 8, false, ASD_IPMI_GetIocardPCIE4, ASD_IPMI_SetIocardPCIE4}, {"ASD_OVERSEAS", 16, false, ipmi_cmd_get_overseas, ipmi_cmd_set_overseas},
    {"ASD_PRODUCT_FRAMECFG", 16, false, Ipmi_cmdGetProductFrameCfg, Ipmi_cmdSetProductFrameCfg},
};
// clang-format on

const Bytes kHeader = {0, 0, 0x80, 0, 0x10}; // a handler does not look at its selector

TEST_F(RecordsIpmiTest, AWriteIsOnTheChipAndComesBack) {
    for (const Record &record : kRecords) {
        SCOPED_TRACE(record.item);
        fresh_world();
        // A byte longer than the record, so that a record of another size shows.
        const Bytes before = pattern(record.size + 1, 10);
        build_item(record.item, {.length = record.size + 1, .chips = {"ASDDevX"}, .value = before}, {before});
        const Bytes image = joined(pattern(record.size), {0xFF});
        const Bytes answer = joined({0}, pattern(record.size));
        EXPECT_EQ(fake::call(record.get, record.item, kHeader).response.size(), 1 + record.size);
        EXPECT_EQ(fake::call(record.set, record.item, joined(kHeader, pattern(record.size))).response, Bytes{0});
        EXPECT_EQ(fake::chip_bytes("ASDDevX", 64, record.size + 3), fake::record(image));
        EXPECT_EQ(mirror(record.item), joined(image, {1}));
        EXPECT_EQ(fake::call(record.get, record.item, kHeader).response, answer);
        g_masterMode = BOARD_SLAVE;
        const Bytes zeros(1 + record.size, 0);
        EXPECT_EQ(fake::call(record.get, record.item, kHeader).response, record.of_master ? zeros : answer);
        expect_contract_kept();
    }
}

TEST_F(RecordsIpmiTest, MacAndModelGoToTheCpldAsWell) {
    build_item("ASD10", {.length = 6, .chips = {"A"}}, {});
    build_item("ASD13", {.length = 16, .chips = {"B"}}, {});
    EXPECT_EQ(fake::call(ipmi_cmd_set_model, "ASD13", joined(kHeader, pattern(16))).response, Bytes{0});
    EXPECT_EQ(fake::world().board.frame_model, pattern(16));
    EXPECT_EQ(fake::call(ipmi_cmd_set_mac, "ASD10", joined(kHeader, pattern(6))).response, Bytes{0});
    EXPECT_EQ(fake::world().board.wwn, pattern(6));
    fault("BSP_SetWwn2CpldRam")();
    EXPECT_EQ(fake::call(ipmi_cmd_set_mac, "ASD10", joined(kHeader, pattern(6, 9))).response, Bytes{0xFF});
    EXPECT_EQ(fake::value("ASD10"), pattern(6, 9)); // stored all the same
}

// The lock is held across the one transfer and no longer; the request names the chip.
TEST_F(RecordsIpmiTest, WriteProtectTest) {
    build_item("ASD_E2PWP", {.length = 32, .chips = {"A", "B"}}, {pattern(32, 10), pattern(32, 50)});
    const Bytes second = {0, 0, 0x80, 1, 0x62};
    EXPECT_EQ(fake::call(ipmi_cmd_get_e2pwp_test, "ASD_E2PWP", second).response, joined({0}, pattern(32, 50)));
    EXPECT_EQ(fake::journal({"vos_thread_sem4_p", "dfl_block_read", "vos_thread_sem4_v", "ipmi_send_response"}),
              (Texts{"vos_thread_sem4_p eeprom 2000", "dfl_block_read B 64 34", "vos_thread_sem4_v eeprom",
                     "ipmi_send_response 33"}));
    EXPECT_EQ(fake::call(ipmi_cmd_set_e2pwp_test, "ASD_E2PWP", joined(second, pattern(32))).response, Bytes{0});
    EXPECT_EQ(fake::chip_bytes("B", 64, 34), fake::record(pattern(32)));
    EXPECT_EQ(fake::chip_bytes("A", 64, 34), fake::record(pattern(32, 10)));
}

} // namespace
