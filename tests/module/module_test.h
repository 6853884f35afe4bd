// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the module's tests share.

#include "bmc_asd.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi_setter.h"
#include "bmc_asd_state.h"
#include "fake_platform.h"

#include <cstdlib>
#include <functional>
#include <iostream>
#include <numeric>
#include <optional>
#include <string>

#include <gtest/gtest.h>

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

inline const Arrange kUnknown = fault("dfl_get_object_handle");
inline const Arrange kDeadReads = fault("dfl_block_read", "", 5);
inline const Arrange kDeadWrites = fault("dfl_block_write", "", 5);

inline Arrange unreadable(const std::string &property) {
    return fault("dfl_get_property_value", property);
}

inline Arrange locked(const std::string &semaphore) {
    return [=] { fake::hold_semaphore(semaphore); };
}

inline Arrange byte_set(const std::string &object, const std::string &property, guint8 value) {
    return [=] { fake::set_property(object, property, g_variant_new_byte(value)); };
}

inline Arrange number_set(const std::string &object, const std::string &property, guint32 value) {
    return [=] { fake::set_property(object, property, g_variant_new_uint32(value)); };
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
    return [=] {
        fake::set_property(item, "Value",
                           g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
    };
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

// Value, then Ready.
inline Bytes mirror(const std::string &item) {
    return joined(fake::value(item), {static_cast<guint8>(fake::number(item, "Ready"))});
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

// The log but for the line that goes with every opening of the protection, source lines as N.
inline Texts logs_of_interest(gint32 max_level = 2) {
    Texts logs = fake::logs(max_level);
    std::erase(logs, "2 ==========open wp by gpio=========");
    for (std::string &log : logs) {
        if (const std::size_t place = log.find("(line:"); place != std::string::npos) {
            log.replace(place + 6, log.find(')', place) - place - 6, "N");
        }
    }
    return logs;
}

// What was done in order, without the EEPROM lock: "lock ekey 2000, write ASDDev5 64 1026, delay 100, ...".
inline std::string steps(std::initializer_list<std::string_view> operations) {
    static const std::vector<std::pair<std::string, std::string>> shorter = {
        {"dfl_set_property_value ", ""}, {"dfl_block_", ""}, {"vos_task_", ""},
        {"vos_thread_sem4_p", "lock"},   {"BSP_Set", ""},    {"BMC_FlashWriteCfgPara", "flash"}};
    std::string text;
    for (std::string line : fake::journal(operations)) {
        for (const auto &[prefix, word] : shorter) {
            line = line.starts_with(prefix) ? word + line.substr(prefix.size()) : line;
        }
        text += line.starts_with("lock eeprom") ? "" : (text.empty() ? "" : ", ") + line;
    }
    return text;
}

// What a row leaves behind, as bytes; nothing unless a test says how to find it.
using Left = std::function<Bytes()>;
inline const Left kNothingLeft = [] { return Bytes{}; };

// An operation and all that must come of it.
struct OperationCase {
    const char *name;
    Arrange arrange;
    gint32 status;
    std::string steps; // of the operations that the run watches; not looked at when it watches none
    Texts logs = {};
    Bytes left = {};
};

inline void run_operation(const std::function<gint32()> &operation, const Arrange &build,
                          std::initializer_list<std::string_view> watched, const std::vector<OperationCase> &cases,
                          const Left &left = kNothingLeft, gint32 max_level = 2) {
    for (const OperationCase &row : cases) {
        SCOPED_TRACE(row.name);
        fresh_world();
        build();
        row.arrange();
        EXPECT_EQ(operation(), row.status);
        EXPECT_EQ(watched.size() == 0 ? "" : steps(watched), row.steps);
        EXPECT_EQ(logs_of_interest(max_level), row.logs);
        EXPECT_EQ(left(), row.left);
        expect_contract_kept();
    }
}

// The same for a request to a handler.
struct HandlerCase {
    const char *name;
    Arrange arrange;
    std::optional<Bytes> request; // none: the message carries no data
    Bytes response;
    Texts logs = {};
    std::string steps = {}; // transfers and locks
    Bytes left = {};
    gint32 status = 0;
};

inline void run_cases(IPMI_CMD_FUNC handler, const char *item, const Arrange &build,
                      const std::vector<HandlerCase> &cases, gint32 max_level = 2, const Left &left = kNothingLeft) {
    for (const HandlerCase &row : cases) {
        const auto request = [&] {
            const fake::Reply reply = fake::call(handler, item, row.request);
            EXPECT_EQ(reply.response, row.response);
            return reply.status;
        };
        run_operation(request, build, {"dfl_block_read", "dfl_block_write", "vos_thread_sem4_p"},
                      {{row.name, row.arrange, row.status, row.steps, row.logs, row.left}}, left, max_level);
    }
}

class ModuleTest : public testing::Test {
protected:
    void SetUp() override { fresh_world(); }
    void TearDown() override { expect_contract_kept(); }
};

[[noreturn]] inline void end_of_process() {
    expect_contract_kept();
    const testing::TestResult &result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        std::cerr << result.GetTestPartResult(i).message() << '\n'; // such a process prints no results by itself
    }
    std::exit(result.Failed() ? 1 : 0);
}

// Runs the body in a process of its own, where the module's statics have their first values.
#define IN_FRESH_PROCESS(body)                                                                                         \
    GTEST_FLAG_SET(death_test_style, ASD_DEATH_TEST_STYLE);                                                            \
    EXPECT_EXIT(                                                                                                       \
        {                                                                                                              \
            body();                                                                                                    \
            end_of_process();                                                                                          \
        },                                                                                                             \
        testing::ExitedWithCode(0), "")
