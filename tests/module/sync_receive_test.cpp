// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The peer's side of the master's push.

#include "module_test.h"

namespace {

using SyncReceiveTest = ModuleTest;

TEST_F(SyncReceiveTest, Messages) {
    const auto push = [](guint8 number, const Bytes &value) {
        return fake::call(ASD_GetEEPromData, nullptr, joined({9, 2, 0, 9, 0x2A, number}, value)).response;
    };
    EXPECT_EQ(ASD_SyncSourceObjectForeach(fake::add_item("ASD10", {.length = 6, .num = 42}), nullptr), 0);
    EXPECT_EQ(ASD_SyncSourceObjectForeach(fake::add_item("ASD15", {.length = 249, .num = 43}), nullptr), 0);
    EXPECT_EQ(ASD_SyncSourceObjectForeach(fake::add_item("ASD14", {.length = 0xFFFFFFFF}), nullptr), 0);
    EXPECT_EQ(push(42, {1, 2, 3, 4, 5, 0xAB}), Bytes{0x00});
    EXPECT_EQ(mirror("ASD10"), (Bytes{1, 2, 3, 4, 5, 0xAB, 1}));
    EXPECT_EQ(fake::world().board.wwn, (Bytes{1, 2, 3, 4, 5, 0xAB}));
    EXPECT_EQ(push(42, pattern(7)), Bytes{0xC9});
    EXPECT_EQ(push(42, {}), Bytes{0xC9});
    EXPECT_EQ(push(41, {1}), Bytes{0xCC});
    EXPECT_EQ(push(43, pattern(249)), Bytes{0x00}); // more than a sender packs
    EXPECT_EQ(fake::value("ASD15"), pattern(249));
    // Number 0: a five-byte request reads as this, and its length never fits.
    EXPECT_EQ(fake::call(ASD_GetEEPromData, nullptr, Bytes{9, 2, 0, 9, 0x2A}).response, Bytes{0xC9});
}

} // namespace
