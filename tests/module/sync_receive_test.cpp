// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The peer's side of the master's push: the message, the receivers, and the trace of bytes.

#include "bmc_asd_ipmi.h"
#include "module_test.h"

namespace {

using SyncReceiveTest = ModuleTest;

constexpr guint8 kNumber = 42;

Bytes message(const Bytes &value, guint8 number = kNumber) {
    return joined({9, 2, 0, 9, 0x2A, number}, value);
}

OBJ_HANDLE add_sync_item(const char *name, guint32 length) {
    const OBJ_HANDLE item = fake::add_item(name, {.length = length, .num = kNumber});
    EXPECT_EQ(ASD_SyncSourceObjectForeach(item, nullptr), 0);
    return item;
}

TEST_F(SyncReceiveTest, Messages) {
    const Bytes mac = {1, 2, 3, 4, 5, 0xAB};
    const auto traced = [](const char *bytes, const char *ret = "0") {
        return std::string("2 Proc master sync framemac=") + bytes + " ret=" + ret;
    };
    const std::string stored = traced("0x010x020x030x040x050xab");
    const std::string zeros = traced("0x000x000x000x000x000x00");
    const auto refused = [](const char *property) { return fault("dfl_set_property_value", property); };
    const Texts not_set = {"0 asd_set_value2: ASD10 set dev value failed!ret(7)",
                           "0 ASD10 Call asd_set_value2 failed! result: -1012."};
    const auto build = [] { add_sync_item("ASD10", 6); };
    const auto left = [] {
        return joined(fake::value("ASD10"), fake::world().board.wwn);
    }; // published, then in the CPLD
    // clang-format off
    run_cases(ASD_GetEEPromData, nullptr, build, {
        {"stored", kAsBuilt, message(mac), {0x00}, {stored}, "", joined(mac, mac)},
        {"no request data", kAsBuilt, {}, {0xFF}},
        {"unknown number", kAsBuilt, message(mac, 41), {0xCC}, {"2 ASD get property AtomStorageData failed, ret(-3001)."}},
        {"Length unreadable", unreadable("ASD10.Length"), message(mac), {0x80}, {"2 ASD get property Length failed, ret(7)."}},
        {"one byte more", kAsBuilt, message(pattern(7)), {0xC9}},
        {"no value", kAsBuilt, message({}), {0xC9}},
        {"no value for an empty item", number_set("ASD10", "Length", 0), message({}), {0x00}, {zeros}},
        {"Value refused", refused("ASD10.Value"), message(mac), {0x00}, with(not_set, {stored}), "", mac},
        {"Ready refused", refused("ASD10.Ready"), message(mac), {0xCC}, {"0 Set PROPERTY_ASD_READY failed! result: 7.", stored}, "", joined(mac, mac)},
        {"CPLD fails", fault("BSP_SetWwn2CpldRam"), message(mac), {0x00}, {traced("0x010x020x030x040x050xab", "7")}, "", mac},
    }, 2, left);
    // clang-format on
    fresh_world(); // number 0: a five-byte request reads as this, and its length never fits
    EXPECT_EQ(ASD_SyncSourceObjectForeach(fake::add_item("ASD14", {.length = 0xFFFFFFFF}), nullptr), 0);
    EXPECT_EQ(fake::call(ASD_GetEEPromData, nullptr, Bytes{9, 2, 0, 9, 0x2A}).response, Bytes{0xC9});
    add_sync_item("ASD15", 249); // more than a sender packs; no receiver
    EXPECT_EQ(fake::call(ASD_GetEEPromData, nullptr, message(pattern(249))).response, Bytes{0x00});
    EXPECT_EQ(fake::value("ASD15"), pattern(249));
}

// In a process of its own: the receivers remember what they printed and wrote.
void receivers() {
    OBJ_HANDLE item = 0;
    Bytes data;
    const auto push = [&](const char *name, const Bytes &bytes, const Arrange &more = kAsBuilt) {
        return [&item, &data, name, bytes, more] {
            data = bytes;
            item = add_sync_item(name, static_cast<guint32>(bytes.size()));
            more();
        };
    };
    const auto receive = [&] {
        asd_update_local_data(item, data.data(), static_cast<guint32>(data.size()));
        return 0;
    };
    const Bytes model = joined(pattern(14), {0, 0xFF});
    const std::string printed = "2 Proc master sync product model=0x4d,0x4e,0x4f,0x50,0x51,0x52,0x53,0x54,0x55,0x56,"
                                "0x57,0x58,0x59,0x5a,0x00,0xff, ret=-1";
    const std::string cpld33 = "PcieSasModelToCpldRam 51";
    const std::string flash33 = "flash 17 1 51, " + cpld33;
    const std::string traced33 = "2 master sync pciesas model=0x33";
    const Arrange flash = [] { fake::world().board.flash = {{0x13, {0xAA}}, {0x14, {0xAA}}}; };
    const std::string settings = "CpldRam 53185 170, CpldRam 53186 170";
    const std::string info = "2 Slave recv sync product cfg info proc ret=";
    // clang-format off
    run_operation(receive, kAsBuilt, {"BSP_SetWwn2CpldRam", "BSP_SetFrameModelToCpldRam", "BMC_FlashWriteCfgPara",
                                      "BSP_SetPcieSasModelToCpldRam", "BSP_SetCpldRam", "BSP_SetProductCfgInfoToCpldRam", "dfl_block_write"}, {
        {"MAC", push("ASD10", {1, 2, 3, 4, 5, 6}), 0, "Wwn2CpldRam 6", {"2 Proc master sync framemac=0x010x020x030x040x050x06 ret=0"}},
        {"model", push("ASD13", model), 0, "FrameModelToCpldRam 16", {printed}},
        {"no valid code", push("ASD_PCIEORSAS", {0x99, 1}), 0, "PcieSasModelToCpldRam 153", {"2 master sync pciesas model=0x99"}},
        {"flash not written", push("ASD_PCIEORSAS", {0x33, 1}, fault("BMC_FlashWriteCfgPara")), 0, flash33, {"0 Write pciesas model to local flash faild,local default=0x33", traced33}},
        {"flash written", push("ASD_PCIEORSAS", {0x33, 1}), 0, flash33, {"1 Refresh local pciesas model 0x33 ret=0", traced33}},
        {"in flash already", push("ASD_PCIEORSAS", {0x33, 1}), 0, cpld33, {traced33}},
        {"card", push("ASD_IOCARD_PCIE4", {0xAA, 1, 2, 3, 4, 5, 6, 7}, flash), 0, settings},
        {"card, unset: not completed here", push("ASD_IOCARD_PCIE4", {0xFE, 1, 2, 3, 4, 5, 6, 7}, flash), 0, settings},
        {"product info", push("ASD_PRODUCT_CFGINFO", pattern(64)), 0, "ProductCfgInfoToCpldRam 64", {info + "0"}},
        {"product info, CPLD fails", push("ASD_PRODUCT_CFGINFO", pattern(64), fault("BSP_SetProductCfgInfoToCpldRam")), 0, "ProductCfgInfoToCpldRam 64", {info + "7"}},
    });
    // clang-format on
}

TEST_F(SyncReceiveTest, Receivers) {
    IN_FRESH_PROCESS(receivers);
}

TEST_F(SyncReceiveTest, TraceOfBytes) {
    const auto six = [](const std::string &first, const Texts &bytes) {
        Texts logs = {"2 " + first};
        for (const std::string &byte : bytes) {
            logs.push_back("2 [0x" + byte + "]. ");
        }
        return logs;
    };
    Asd_PrintData(Bytes{'a', 'b', 'c'}.data(), 3);
    EXPECT_EQ(fake::logs(2), six("len is 3.Asd_print : [abc]. begin...", {"61", "62", "63", "00", "00", "00"}));
    fake::clear_journal();
    Asd_PrintData(Bytes(255, 'x').data(), 230); // longer than a frame: refused
    EXPECT_EQ(fake::logs(2), with({"0 Error: copy asd ipmi print data failed, result = 34."},
                                  six("len is 230.Asd_print : []. begin...", Texts(6, "00"))));
}

} // namespace
