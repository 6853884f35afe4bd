// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The node view: read from the chips, written when it differs from the last one written.

#include "bmc_asd_ipmi_getter.h"
#include "task_test.h"

namespace {

using NodeViewTest = ModuleTest;

const Bytes kStored = pattern(64, 10);
const Bytes kView = pattern(64, 90);
const Bytes kHead = {0, 0, 0x80, 0, 0x43};
const std::string kBegin = "M1 bmc_asd_ipmi_setter.cpp: Start to set node view.";
const std::string kDone = "1 Set node view succeed.";
const std::string kSame = "1 The nodeview data is the same, no need update.";
const std::string kLock = "lock SetNodeview 10000";
const std::string kTried = kLock + ", write ViewA 64 66, write ViewB 64 66";
const std::string kWritten = kTried + ", write FlagA 64 3, write FlagB 64 3";

void build() {
    const Texts chips = {"ViewA", "ViewB"};
    build_item("ASD_NODE_VIEW", {.length = 64, .chips = chips, .ready = 1, .value = pattern(64, 1)},
               {kStored, kStored});
    build_item("ASD_NODE_VIEW_VALID", {.length = 1, .chips = {"FlagA", "FlagB"}}, {{1}, {1}});
    AsdSetNodeviewFlag(0);
}

TEST_F(NodeViewTest, Gets) {
    const std::string read = "read FlagA 64 3, read FlagB 64 3, read ViewA 64 66";
    const std::string ok = "1 (ASD_NODE_VIEW)Read 1st EEPROM OK! check_flag: 2.";
    // clang-format off
    run_cases(IpmiCmdGetNodeView, "ASD_NODE_VIEW", build, {
        {"from the chip, though loaded", kAsBuilt, kHead, joined({0}, kStored), {ok}, read},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 Get nodeView, get ipmi src data failed"}},
        {"unknown", kUnknown, kHead, {0xCE}, {"0 Get nodeView, get handle failed(7)"}},
        {"chip dead", fault("dfl_block_read", "ViewA", 5), kHead, {0xCE},
         {"0 (ASD_NODE_VIEW)Read 1st EEPROM failed! check_flag: 2, ret: 5.", "0 Get nodeView from eeprom failed(5)."}, read},
        {"no check object", fault("dfl_get_object_handle", "ASD_NODE_VIEW_VALID"), kHead, {0xCE},
         {"0 Get ASD_NODE_VIEW_VALID obj handle failed! ret: 7.", "0 Get nodeView from eeprom failed(7)."}},
    });
    // clang-format on
}

TEST_F(NodeViewTest, Sets) {
    const auto begun = [](const Texts &rest) { return with({kBegin}, rest); };
    const Bytes request = joined(kHead, kView);
    // clang-format off
    run_cases(IpmiCmdSetNodeView, "ASD_NODE_VIEW", build, {
        {"written", kAsBuilt, request, {0x00}, begun({kDone}), kWritten},
        {"no request data", kAsBuilt, {}, {0xCC}, begun({"0 Set nodeView, get ipmi src data failed"})},
        {"unknown", kUnknown, request, {0xCE}, begun({"0 Set nodeView, get handle failed(7)"})},
        {"locked", locked("SetNodeview"), request, {0xCE}, begun({"0 Set nodeview get lock failed(ret=-3006)"}), kLock},
        {"chips dead", kDeadWrites, request, {0xCE}, begun({"1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.",
         "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 5.", "0 Set nodeView to eeprom failed(-1006)."}), kTried},
    });
    // clang-format on
}

TEST_F(NodeViewTest, OnlyAChangeIsWritten) {
    struct Step {
        const char *name;
        Arrange arrange;
        Bytes view;
        guint8 code;
        std::size_t writes;
        std::string log; // the last one
    };
    const Bytes other = joined(part_of(kView, 0, 63), {0});
    const auto as_slave = [] { // the monitor, whatever it did before; nothing is reloaded
        fault("dfl_foreach_object")();
        play(asd_master_check_task, {{0, role_set(BOARD_MASTER)}, {1000, role_set(BOARD_SLAVE)}}, 2000);
        fake::clear_journal();
    };
    const auto role_lost_in_between = [] { // while the first chip is tried again
        number_set("ViewA", "RetryNumber", 2)();
        fault("dfl_block_write", "ViewA", 5, 1)();
        fake::world().on_delay = [] { AsdSetNodeviewFlag(0); };
    };
    const auto over = [] { fake::world().on_delay = {}; };
    const std::string failed = "0 Set nodeView to eeprom failed(-1006).";
    // clang-format off
    const std::vector<Step> steps = {
        {"the first", kAsBuilt, kView, 0x00, 4, kDone},
        {"again", kAsBuilt, kView, 0x00, 0, kSame},
        {"another fails", kDeadWrites, other, 0xCE, 2, failed},
        {"the one before is still known", fake::lift_faults, kView, 0x00, 0, kSame},
        {"another", kAsBuilt, other, 0x00, 4, kDone},
        {"and back", kAsBuilt, kView, 0x00, 4, kDone},
        {"after a time as slave", as_slave, kView, 0x00, 4, kDone},
        {"another while the role is lost", role_lost_in_between, other, 0x00, 5, kDone},
        {"is not the known one", over, other, 0x00, 4, kDone},
        {"not remembered", both([] { AsdSetNodeviewFlag(0); }, fault("memcpy_s", "", 9, 6)), kView, 0xCE, 4, "0 Error: copy nodeView failed(9)."},
        {"hence written again", fake::lift_faults, kView, 0x00, 4, kDone},
    };
    // clang-format on
    build();
    for (const Step &step : steps) {
        SCOPED_TRACE(step.name);
        fake::clear_journal();
        step.arrange();
        EXPECT_EQ(fake::call(IpmiCmdSetNodeView, "ASD_NODE_VIEW", joined(kHead, step.view)).response, Bytes{step.code});
        EXPECT_EQ(fake::calls("dfl_block_write"), step.writes);
        EXPECT_EQ(fake::logs(1).back(), step.log);
        expect_contract_kept();
    }
    EXPECT_EQ(fake::chip_bytes("ViewB", 64, 66), fake::record(kView));
    EXPECT_EQ(fake::value("ASD_NODE_VIEW"), pattern(64, 1)); // never published
}

} // namespace
