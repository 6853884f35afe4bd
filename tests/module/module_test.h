// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the module's tests share.

#include "bmc_asd.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi_setter.h"
#include "fake_platform.h"

#include <numeric>
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

inline guint32 size_of(const Bytes &bytes) {
    return static_cast<guint32>(bytes.size());
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
    EXPECT_EQ(fake::violations(), Texts{});
    EXPECT_EQ(fake::semaphores_held(), Texts{});
    for (const auto &[line, level] : fake::board().lines) {
        EXPECT_EQ(level, 0U) << "line " << line << " left open";
    }
}

class ModuleTest : public testing::Test {
protected:
    void SetUp() override { fresh_world(); }
    void TearDown() override { expect_contract_kept(); }
};

// Runs the body in a process of its own, where the module's statics have their first values.
#define IN_FRESH_PROCESS(body)                                                                                         \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                                                                    \
    EXPECT_EXIT(                                                                                                       \
        {                                                                                                              \
            body();                                                                                                    \
            expect_contract_kept();                                                                                    \
            std::exit(testing::Test::HasFailure() ? 1 : 0);                                                            \
        },                                                                                                             \
        testing::ExitedWithCode(0), "")
