// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the module's tests share.

#include "bmc_asd.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi_setter.h"
#include "bmc_asd_state.h"
#include "fake_platform.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using fake::Bytes;
using fake::Texts;

// Bytes that no zeroed or erased buffer passes for.
inline Bytes pattern(std::size_t length, guint8 first = 77) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

inline Bytes joined(Bytes head, const Bytes &tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

template <typename Sequence>
Sequence part_of(const Sequence &bytes, std::size_t from, std::size_t count) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

// A row starts with an empty world in which the module's locks exist.
inline void fresh_world() {
    fake::reset();
    ASSERT_EQ(asd_ekey_lock_init(), 0);
    fake::clear_journal();
    g_masterMode = BOARD_MASTER;
}

// What holds after every operation, whatever failed in it.
inline void expect_contract_kept() {
    EXPECT_EQ(fake::world().violations, Texts{});
    EXPECT_EQ(fake::semaphores(true), Texts{});
    for (const auto &[line, level] : fake::world().board.lines) {
        EXPECT_EQ(level, 0U) << "line " << line << " left open";
    }
}

// ---- What a row arranges ----

using Arrange = std::function<void()>;

inline const Arrange kAsBuilt = [] {};

// The operation fails at its nth call with this subject; 0: at each.
inline Arrange fault(const std::string &operation, const std::string &subject = {}, gint32 status = 7,
                     guint32 nth = 0) {
    return [=] {
        fake::inject({.operation = operation,
                      .subject = subject,
                      .status = status,
                      .nth = nth == 0 ? 1 : nth,
                      .count = nth == 0 ? 0U : 1U});
    };
}

inline const Arrange kDeadReads = fault("dfl_block_read", "", 5);
inline const Arrange kDeadWrites = fault("dfl_block_write", "", 5);

inline Arrange byte_set(const std::string &object, const std::string &property, guint8 value) {
    return [=] { fake::set_property(object, property, value); };
}

inline Arrange number_set(const std::string &object, const std::string &property, guint32 value) {
    return [=] { fake::set_property(object, property, value); };
}

inline void on_slave() {
    g_masterMode = BOARD_SLAVE;
}

inline Arrange both(const Arrange &first, const Arrange &second) {
    return [=] {
        first();
        second();
    };
}

inline Arrange value_set(const std::string &item, const Bytes &bytes) {
    return [=] { fake::set_property(item, "Value", bytes); };
}

// An item on chips of its own, which hold these records and are tried once per transfer.
inline OBJ_HANDLE build_item(const std::string &name, const fake::ItemConfig &config,
                             const std::vector<Bytes> &records) {
    for (std::size_t i = 0; i < config.chips.size(); ++i) {
        fake::add_chip(config.chips[i], {.retry = 1});
        if (i < records.size()) {
            fake::put_record(config.chips[i], records[i]);
        }
    }
    return fake::add_item(name, config);
}

// The customer block on a pair of chips, with its check flag.
inline const Bytes kPendingBlock = pattern(128, 30);

inline void build_ccdb() {
    const fake::ItemConfig config = {
        .length = 128, .chips = {"ASD_CCDBa", "ASD_CCDBb"}, .ready = 1, .value = pattern(128, 5)};
    build_item("ASD_CCDB", config, {});
    build_item("ASD_CCDB_VALID", {.length = 1, .chips = {"ASD_CCDB_VALIDa", "ASD_CCDB_VALIDb"}}, {{1}, {1}});
    AsdSetGCcdbSetData(kPendingBlock.data());
    AsdSetGCcdbSetEn(0);
    fake::clear_journal();
}

inline const std::string kCcdbWritten = "M1 bmc_asd_init.cpp: Set ccdb success.";

// ---- What came of it ----

inline Texts with(Texts first, const Texts &more) {
    first.insert(first.end(), more.begin(), more.end());
    return first;
}

// An operation and what must come of it: its status, and what it leaves behind as the test describes it.
struct OperationCase {
    const char *name;
    Arrange arrange;
    gint32 status;
    Bytes left;
};

inline void run_operation(const std::function<gint32()> &operation, const Arrange &build,
                          const std::vector<OperationCase> &cases, const std::function<Bytes()> &left) {
    for (const OperationCase &row : cases) {
        SCOPED_TRACE(row.name);
        fresh_world();
        build();
        row.arrange();
        EXPECT_EQ(operation(), row.status);
        EXPECT_EQ(left(), row.left);
        expect_contract_kept();
    }
}

class ModuleTest : public testing::Test {
protected:
    void SetUp() override { fresh_world(); }
    void TearDown() override { expect_contract_kept(); }
};

// Runs the body in a process of its own, where the module's statics have their first values: those of a test's start,
// so that each test needs a process, too, as it has under ctest.
inline void in_fresh_process(const Arrange &body) {
    (void)std::fflush(nullptr); // else both would write it
    const pid_t child = fork();
    if (child == 0) {
        body();
        expect_contract_kept();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
