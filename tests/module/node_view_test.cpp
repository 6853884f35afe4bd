// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The node view is written when it differs from the last one written.

#include "task_test.h"

namespace {

using NodeViewTest = ModuleTest;

const Bytes kStored = pattern(64, 10);
const Bytes kView = pattern(64, 90);
const Bytes kHead = {0, 0, 0x80, 0, 0x43};
const std::string kDone = "1 Set node view succeed.";
const std::string kSame = "1 The nodeview data is the same, no need update.";

void build() {
    const Texts chips = {"ViewA", "ViewB"};
    build_item("ASD_NODE_VIEW", {.length = 64, .chips = chips, .ready = 1, .value = pattern(64, 1)},
               {kStored, kStored});
    build_item("ASD_NODE_VIEW_VALID", {.length = 1, .chips = {"FlagA", "FlagB"}}, {{1}, {1}});
    AsdSetNodeviewFlag(0);
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
