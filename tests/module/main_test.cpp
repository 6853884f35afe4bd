// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What the module registers at its start, and requests that find their row.

#include "bmc_asd_common.h"
#include "fake_platform.h"

#include <gtest/gtest.h>

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

using fake::Texts;

TEST(Main, WhatIsRegistered) {
    const std::map<std::string, DFL_METHOD_FUNC> methods = {
        {"AtomStorageData.WriteAtomStorageData", asd_write_data},
        {"AtomStorageData.UpdateMemProperty", Asd_UpdateMemProperty},
        {"AtomStorageData.ReadAtomStorageData", asd_read_data},
        {"AtomStorageData.ClearMemData", asd_clear_memdata},
        {"AtomStorageDataDev.SetAsdDevErrCode", Asd_SetErrCode},
        {"AtomStorageData.ReadAsdMemData", Asd_GetAsdMemData},
        {"AtomStorageData.EqWriteAtomStorageData", asd_eqwrite_data}};
    fake::reset();
    EXPECT_EQ(asd_module_main(0, nullptr), 0);
    const fake::Registered &known = fake::world().registered;
    EXPECT_EQ(known.methods, methods);
    EXPECT_EQ(known.reboot, BSP_RebootRequestProcess);
    EXPECT_EQ(known.object_handlers.size(), 2U);
    for (const auto &handler : known.object_handlers) {
        EXPECT_EQ(handler("AtomStorageData", 4711), 0);
    }
    EXPECT_EQ(fake::world().tasks.size(), 4U);
    EXPECT_EQ(fake::semaphores(false), (Texts{"ekey", "bayconfig", "eeprom", "CcdbSetEn", "SetNodeview"}));
}

// Rows that differ in one filter byte; a handler that finds no item says which it is.
TEST(Main, RequestsFindTheirRow) {
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1B, 5, 0, 9, 0}, 0).response, fake::Bytes{0xCE});
    EXPECT_TRUE(fake::logged("2 user data is ASD5"));
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1C, 5, 0, 9, 0}, 0).response, fake::Bytes{0xCE});
    EXPECT_TRUE(fake::logged("0 Get object handle fail! result(-3001)."));
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1D, 5, 0, 9, 0}).response, fake::Bytes{0xC1});
}

} // namespace
