// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Registration and start, step by step, and the command table that is registered.

#include "bmc_asd_init.h"
#include "bmc_asd_ipmi_getter.h"
#include "bmc_asd_ipmi_setter.h"
#include "fake_platform.h"

#include <algorithm>

#include <gtest/gtest.h>

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

using fake::Texts;

struct Step {
    const char *operation;
    const char *subject;
    const char *arguments;
    const char *failure; // logged when it returns 55
};

// clang-format off
const std::vector<Step> kSteps = {
    {"static_register_module", "asd", "", "register module asd failed.errcode:55\r\n"},
    {"init_md_so", "", "", "init_md_so failed.errcode:55\r\n"},
    {"static_declaration_class", "AtomStorageData", "", "declaration class AtomStorageData failed.errcode:55\r\n"},
    {"static_declaration_class", "AtomStorageDataDev", "",
     "declaration class AtomStorageDataDev failed.errcode:55\r\n"},
    {"static_declaration_class", "Config9555", "", "declaration class Config9555 failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageData.WriteAtomStorageData", "",
     "declaration method AtomStorageData.WriteAtomStorageData failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageData.UpdateMemProperty", "",
     "declaration method AtomStorageData.UpdateMemProperty failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageData.ReadAtomStorageData", "",
     "declaration method AtomStorageData.ReadAtomStorageData failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageData.ClearMemData", "",
     "declaration method AtomStorageData.ClearMemData failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageDataDev.SetAsdDevErrCode", "",
     "declaration method AtomStorageDataDev.SetAsdDevErrCode failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageData.ReadAsdMemData", "",
     "declaration method AtomStorageData.ReadAsdMemData failed.errcode:55\r\n"},
    {"static_declaration_class_method", "AtomStorageData.EqWriteAtomStorageData", "",
     "declaration method AtomStorageData.EqWriteAtomStorageData failed.errcode:55\r\n"},
    {"static_declaration_class", "CommPrevChip", "", "declaration class CommPrevChip failed.errcode:55\r\n"},
    {"static_register_reboot_handler", "", "", "register reboot handler failed.errcode:55\r\n"},
    {"dfl_add_object_handler", "", "", "register add object handler failed.errcode:55\r\n"},
    {"dfl_del_object_handler", "", "", "register del object handler failed.errcode:55\r\n"},
    {"static_implementation_ipmicmd", "", " 54", "register ipmi command failed.errcode:55\r\n"},
    {"static_complete_module_register", "", "", "get object/class/route info failed.errcode:55\r\n"},
    {"static_module_init", "", " -1", "module asd init failed.errcode:55\r\n"},
    {"static_module_start", "", " 0", "module asd start failed.errcode:55\r\n"},
    {"static_start_rpc_service", "", "", ""},
};
// clang-format on

std::string journal_line(const Step &step) {
    return std::string(step.operation) + (*step.subject != '\0' ? " " : "") + step.subject + step.arguments;
}

// The registration calls made; a debug command table is never registered.
Texts registration() {
    return fake::journal({"static_register_module", "init_md_so", "static_declaration_class",
                          "static_declaration_class_method", "static_register_reboot_handler", "dfl_add_object_handler",
                          "dfl_del_object_handler", "static_implementation_ipmicmd", "static_register_debug_cmd",
                          "static_complete_module_register", "static_module_init", "static_module_start",
                          "static_start_rpc_service"});
}

TEST(Main, TheFirstFailureEndsTheStart) {
    for (std::size_t failing = 0; failing <= kSteps.size(); ++failing) {
        const bool none = failing == kSteps.size();
        SCOPED_TRACE(none ? "no failure" : journal_line(kSteps[failing]));
        fake::reset();
        Texts expected;
        for (std::size_t i = 0; i < std::min(failing + 1, kSteps.size()); ++i) {
            expected.push_back(journal_line(kSteps[i]));
        }
        if (!none) {
            fake::inject({.operation = kSteps[failing].operation, .subject = kSteps[failing].subject, .status = 55});
        }
        const bool ends = !none && *kSteps[failing].failure != '\0'; // the service's own result is ignored
        EXPECT_EQ(asd_module_main(0, nullptr), ends ? 55 : 0);
        EXPECT_EQ(registration(), expected);
        EXPECT_EQ(fake::log_texts(0), ends ? Texts{kSteps[failing].failure} : Texts{});
        EXPECT_EQ(fake::violations(), Texts{});
    }
}

TEST(Main, AFailingCallbackKeepsTheServiceDown) {
    fake::reset();
    fake::inject({.operation = "vos_thread_mutex_sem4_create"});
    EXPECT_EQ(asd_module_main(0, nullptr), -1);
    EXPECT_EQ(registration().back(), "static_module_init -1");
    EXPECT_EQ(fake::log_texts(0).back(), "module asd init failed.errcode:-1\r\n");
    EXPECT_TRUE(fake::tasks().empty());
    fake::reset();
    fake::inject({.operation = "vos_task_create", .status = 8});
    EXPECT_EQ(asd_module_main(0, nullptr), 8);
    EXPECT_EQ(registration().back(), "static_module_start 0");
}

TEST(Main, WhatIsRegisteredWorks) {
    fake::reset();
    EXPECT_EQ(asd_module_main(0, nullptr), 0);
    const fake::Registered known = fake::registered();
    EXPECT_EQ(known.methods.size(), 7U);
    EXPECT_EQ(known.reboot, BSP_RebootRequestProcess);
    EXPECT_EQ(known.rows.size(), 54U);
    EXPECT_EQ(known.object_handlers.size(), 2U);
    for (const auto &handler : known.object_handlers) {
        EXPECT_EQ(handler("AtomStorageData", 4711), 0);
    }
    fake::add_chip("ASDDev14a");
    const OBJ_HANDLE chip = fake::add_chip("ASDDev14b");
    const auto set_error = known.methods.at("AtomStorageDataDev.SetAsdDevErrCode");
    EXPECT_EQ(fake::call_method(set_error, chip, {g_variant_new_int32(5)}).status, 0);
    EXPECT_EQ(fake::number("ASDDev14b", "ErrorCode"), 5);
    Texts names;
    for (const fake::Task &task : fake::tasks()) {
        names.push_back(task.name);
    }
    EXPECT_EQ(names, (Texts{"asd_master_check", "asd_eeprom_check", "ccdb_set_eeprom", "asd_eeprom_sync"}));
}

// ---- Command table -------------------------------------------------------------------------------------------------

struct Row {
    guint8 cmd;
    const char *filter;
    guint8 privilege;
    guint8 min;
    guint8 max;
    IPMI_CMD_FUNC handler;
    const char *item;
};

// clang-format off
const std::vector<Row> kRows = {
    {0x12, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1bh", 0, 9, 9, ipmi_cmd_get_ekey, "ASD5"},
    {0x12, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1ch", 0, 9, 9, ipmi_cmd_get_ekey_ep, "ASD5"},
    {0x13, "data[0]=00h,data[1]=00h,data[2]=80h", 0, 1, 229, ipmi_cmd_set_ekey, "ASD5"},
    {0x12, "data[0]=00h,data[1]=80h,data[2]=00h,data[4]=1bh", 0, 9, 9, ipmi_cmd_get_ekey, "ASD7"},
    {0x12, "data[0]=00h,data[1]=80h,data[2]=00h,data[4]=1ch", 0, 9, 9, ipmi_cmd_get_ekey_ep, "ASD7"},
    {0x13, "data[0]=00h,data[1]=80h,data[2]=00h", 0, 1, 229, ipmi_cmd_set_ekey, "ASD7"},
    {0x12, "data[0]=00h,data[1]=10h,data[2]=00h,data[4]=1ch", 0, 9, 9, ipmi_cmd_get_ekey_ep, "ASD1000"},
    {0x13, "data[0]=00h,data[1]=10h,data[2]=00h", 0, 1, 229, ipmi_cmd_set_power_ekey, "ASD1000"},
    {0x12, "data[0]=01h,data[1]=10h,data[2]=00h,data[4]=1ch", 0, 9, 9, ipmi_cmd_get_ekey_ep, "ASD1001"},
    {0x13, "data[0]=01h,data[1]=10h,data[2]=00h", 0, 1, 229, ipmi_cmd_set_power_ekey, "ASD1001"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=10h", 0, 5, 5, ipmi_cmd_get_mac, "ASD10"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=10h", 0, 11, 11, ipmi_cmd_set_mac, "ASD10"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=11h", 0, 5, 5, ipmi_cmd_get_sn, "ASD11"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=11h", 0, 25, 25, ipmi_cmd_set_sn, "ASD11"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=15h", 0, 5, 5, ipmi_cmd_get_logo, "ASD21"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=15h", 0, 13, 13, ipmi_cmd_set_logo, "ASD21"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=14h", 0, 5, 5, ipmi_cmd_get_brand, "ASD14"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=14h", 0, 5, 37, ipmi_cmd_set_brand, "ASD14"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=13h", 0, 5, 5, ipmi_cmd_get_vendor, "ASD15"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=13h", 0, 5, 37, ipmi_cmd_set_vendor, "ASD15"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=19h", 0, 5, 5, ipmi_cmd_get_model, "ASD13"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=19h", 0, 5, 21, ipmi_cmd_set_model, "ASD13"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=1ah", 0, 5, 5, ipmi_cmd_get_oem_model, "ASD20"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=1ah", 0, 5, 21, ipmi_cmd_set_oem_model, "ASD20"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=1eh", 0, 5, 5, ipmi_cmd_get_spec, "ASD26"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=1eh", 0, 5, 21, ipmi_cmd_set_spec, "ASD26"},
    {0x16, "data[1]=00h,data[2]=80h,data[4]=1fh", 0, 5, 5, ipmi_cmd_get_frameinfo, "ASD27"},
    {0x17, "data[1]=00h,data[2]=80h,data[4]=1fh", 0, 5, 37, ipmi_cmd_set_frameinfo, "ASD27"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=21h", 0, 5, 5, ipmi_cmd_get_ccdb, "ASD_CCDB"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=2ch", 0, 133, 133, ipmi_cmd_set_ccdb, "ASD_CCDB"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=32h", 0, 133, 133, ipmi_cmd_set_ccdb, "ASD_CCDB"},
    {0xb4, "data[1]=00h,data[2]=80h,data[4]=56h", 0, 5, 5, ipmi_cmd_get_powerconfig, "ASD_PowerConfig"},
    {0xb5, "data[1]=00h,data[2]=80h,data[4]=56h", 0, 5, 255, ipmi_cmd_set_powerconfig, "ASD_PowerConfig"},
    {0x92, "data[0]=00h,data[1]=00h,data[2]=80h", 0, 5, 5, ipmi_cmd_get_baycfg, "ASD24"},
    {0x93, "data[0]=00h,data[1]=00h,data[2]=80h", 0, 5, 229, ipmi_cmd_set_baycfg, "ASD24"},
    {0x91, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=70h", 0, 1, 32, ASD_IpmiGetBayconfig, "ASD25"},
    {0x94, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=70h", 0, 5, 255, ASD_IpmiSetBayconfig, "ASD25"},
    {0x91, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=71h", 0, 1, 32, ASD_IpmiGetBayconfigFileLen, "ASD25"},
    {0x94, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=72h", 0, 5, 255, ASD_IpmiClearBayconfig, "ASD25"},
    {0xb4, "data[1]=00h,data[2]=80h,data[4]=62h", 0, 5, 5, ipmi_cmd_get_e2pwp_test, "ASD_E2PWP"},
    {0xb5, "data[1]=00h,data[2]=80h,data[4]=62h", 0, 5, 255, ipmi_cmd_set_e2pwp_test, "ASD_E2PWP"},
    {0xf9, "data[1]=02h,data[2]=00h,data[4]=2ah", 4, 0, 255, ASD_GetEEPromData, nullptr},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=19h", 4, 6, 6, ipmi_cmd_set_backboard_pcieorsas, "ASD_PCIEORSAS"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=1ah", 4, 5, 5, ipmi_cmd_get_backboard_pcieorsas, "ASD_PCIEORSAS"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=1eh", 4, 13, 13, ASD_IPMI_SetIocardPCIE4, "ASD_IOCARD_PCIE4"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=25h", 4, 5, 5, ASD_IPMI_GetIocardPCIE4, "ASD_IOCARD_PCIE4"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=36h", 0, 21, 21, ipmi_cmd_set_overseas, "ASD_OVERSEAS"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=36h", 0, 5, 5, ipmi_cmd_get_overseas, "ASD_OVERSEAS"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=44h", 0, 5, 5, IpmiCmdGetNodeView, "ASD_NODE_VIEW"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=43h", 0, 69, 69, IpmiCmdSetNodeView, "ASD_NODE_VIEW"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=5ah", 0, 5, 5, Ipmi_cmdGetProductFrameCfg, "ASD_PRODUCT_FRAMECFG"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=4ch", 0, 21, 21, Ipmi_cmdSetProductFrameCfg, "ASD_PRODUCT_FRAMECFG"},
    {0xbb, "data[1]=00h,data[2]=80h,data[4]=5ch", 0, 5, 5, Ipmi_cmdGetProductCfgInfo, "ASD_PRODUCT_CFGINFO"},
    {0xbc, "data[1]=00h,data[2]=80h,data[4]=4fh", 0, 69, 69, Ipmi_cmdSetProductCfgInfo, "ASD_PRODUCT_CFGINFO"},
};
// clang-format on

TEST(Main, CommandTable) {
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    const std::vector<IPMI_CMD_S> rows = fake::registered().rows;
    ASSERT_EQ(rows.size(), kRows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i + 1));
        EXPECT_EQ(rows[i].netfn, 0x32);
        EXPECT_EQ(rows[i].cmd, kRows[i].cmd);
        EXPECT_STREQ(rows[i].filter, kRows[i].filter);
        EXPECT_EQ(rows[i].privilege, kRows[i].privilege);
        EXPECT_STREQ(rows[i].role_func, "");
        EXPECT_EQ(rows[i].min_length, kRows[i].min);
        EXPECT_EQ(rows[i].max_length, kRows[i].max);
        EXPECT_EQ(rows[i].ipmi_handler, kRows[i].handler);
        EXPECT_STREQ(static_cast<const char *>(rows[i].user_data), kRows[i].item);
    }
}

// Rows that differ in one filter byte, and what never reaches a handler.
TEST(Main, RequestsFindTheirRow) {
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1B, 5, 0, 9, 0}, 0).response, fake::Bytes{0xCE});
    EXPECT_TRUE(fake::logged(2, "user data is ASD5"));
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1C, 5, 0, 9, 0}, 0).response, fake::Bytes{0xCE});
    EXPECT_TRUE(fake::logged(0, "Get object handle fail! result(-3001)."));
    fake::clear_journal();
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1D, 5, 0, 9, 0}).response, fake::Bytes{0xC1});
    EXPECT_EQ(fake::request(0x32, 0x16, {0, 0, 0x80, 0, 0x14, 0}).response, fake::Bytes{0xC7});
    EXPECT_EQ(fake::request(0x32, 0xBB, {0, 0, 0x80, 0, 0x1A}, 3).response, fake::Bytes{0xD4});
    EXPECT_EQ(fake::logs(2), Texts{});
    EXPECT_EQ(fake::violations(), Texts{});
}

} // namespace
