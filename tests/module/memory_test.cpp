// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Bounded copies and fills that fail: each is logged, and what was begun comes to its end.

#include "bmc_asd_common.h"
#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using MemoryTest = ModuleTest;

constexpr const char *kItem = "ASD_CCDB";

// A world in which every handler gets to its last copy: the requests carry an item's seven bytes or frame 1 of 1.
void build() {
    fake::world().board.four_u = fake::world().board.equip_frame = 1;
    fake::world().board.online = {2};
    fake::add_chip("Chip", {.retry = 1});
    const OBJ_HANDLE item = fake::add_item(
        kItem,
        {.length = 7, .chips = {"Chip", "Chip"}, .num = 1, .ready = 1, .need_sync = 1, .value = Bytes(2052, 0xFF)});
    number_set(kItem, "DevCount", 1)();
    (void)ASD_SyncSourceObjectForeach(item, nullptr);
    AsdSetNodeviewFlag(0);
}

const Bytes kFrameRequest = {0, 0, 0x80, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0};

// What is logged about each of the operation's calls of the function, when that one call fails.
std::set<std::string> failures_of(const std::function<void()> &operation, const char *function) {
    std::set<std::string> logged;
    for (guint32 nth = 1; nth == 1 || fake::world().fired != 0; ++nth) {
        SCOPED_TRACE(std::string(function) + " " + std::to_string(nth));
        fresh_world();
        build();
        fault(function, "", 9, nth)();
        operation();
        for (const std::string &log : fake::logs(1)) {
            if (log.find("Error: ") != std::string::npos || log.find("memcpy") != std::string::npos) {
                logged.insert(log);
            }
        }
        expect_contract_kept();
    }
    return logged;
}

TEST_F(MemoryTest, EveryFailureIsLoggedAndEndsNothing) {
    std::vector<std::function<void()>> operations = {
        [] { (void)dfl_foreach_object("AtomStorageData", ASD_SyncEEpromToSlaveForeach, nullptr, 0); },
        [] { (void)AsdReadCcdbDataFromRam(); },
        [] { AsdSetGCcdbSetData(kPendingBlock.data()); },
    };
    for (const IPMI_CMD_FUNC handler : {ipmi_cmd_get_mac,
                                        ipmi_cmd_set_mac,
                                        ipmi_cmd_set_model,
                                        ipmi_cmd_set_overseas,
                                        ASD_IPMI_SetIocardPCIE4,
                                        Ipmi_cmdSetProductCfgInfo,
                                        ipmi_cmd_get_spec,
                                        ipmi_cmd_get_frameinfo,
                                        ipmi_cmd_get_logo,
                                        ipmi_cmd_get_powerconfig,
                                        ipmi_cmd_get_baycfg,
                                        ipmi_cmd_get_ekey,
                                        ipmi_cmd_get_ekey_ep,
                                        ipmi_cmd_set_ekey,
                                        ipmi_cmd_set_power_ekey,
                                        ASD_IpmiGetBayconfig,
                                        ASD_IpmiGetBayconfigFileLen,
                                        ASD_IpmiSetBayconfig,
                                        ASD_IpmiClearBayconfig,
                                        ipmi_cmd_get_ccdb,
                                        ipmi_cmd_set_ccdb,
                                        IpmiCmdSetNodeView,
                                        ASD_GetEEPromData}) {
        for (const guint32 role : {BOARD_MASTER, BOARD_SLAVE}) {
            operations.emplace_back([=] {
                g_masterMode = role;
                EXPECT_FALSE(fake::call(handler, kItem, kFrameRequest).response.empty());
            });
        }
    }
    std::set<std::string> logged;
    for (const auto &operation : operations) {
        logged.merge(failures_of(operation, "memcpy_s"));
        logged.merge(failures_of(operation, "memset_s"));
    }
    std::set<std::string> expected = {"0 memcpy srcdata to mac fail, ret_s = 9", "0 Error: copy nodeView failed(9).",
                                      "1 Error: copy ccdb data failed."};
    // clang-format off
    for (const char *what : {
             "copy asd ccdb", "copy asd ccdb data", "copy asd check data", "copy asd data", "copy asd final data",
             "copy asd ipmi bayconfig", "copy asd ipmi ekey", "copy asd ipmi ekey frame", "copy asd ipmi frame",
             "copy asd ipmi frame header", "copy asd ipmi model", "copy asd ipmi offset", "copy asd ipmi overseas",
             "copy asd ipmi pcie4.0", "copy asd ipmi print data", "copy asd ipmi resp data", "copy asd ipmi sync data",
             "copy asd sync data", "init and copy asd devname", "init asd data", "init asd ipmi bayconfig",
             "init asd ipmi ccdb", "init asd ipmi ccdb tmp data", "init asd ipmi config", "init asd ipmi ekey one frame",
             "init asd ipmi frame", "init asd ipmi frame number", "init asd ipmi logo", "init asd ipmi rsp data",
             "init asd ipmi spec", "init or copy asd ipmi frame header"}) {
        expected.insert("0 Error: " + std::string(what) + " failed, result = 9.");
    }
    // clang-format on
    EXPECT_EQ(logged, expected);
}

} // namespace
