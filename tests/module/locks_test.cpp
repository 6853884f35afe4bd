// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The module's five locks.

#include "module_test.h"

#include <array>

namespace {

using LocksTest = ModuleTest;

TEST_F(LocksTest, AFailedCreationDeletesEveryLock) {
    const std::array<std::pair<const char *, const char *>, 5> locks = {{{"ekey", "g_ekey_buffer_lock"},
                                                                         {"bayconfig", "g_BayconfigBufLock"},
                                                                         {"eeprom", "g_eeprom_lock"},
                                                                         {"CcdbSetEn", "g_ccdbSetEnLock"},
                                                                         {"SetNodeview", "g_setNodeviewLock"}}};
    for (std::size_t failing = 0; failing < locks.size(); ++failing) {
        SCOPED_TRACE(locks[failing].first);
        fake::reset();
        fake::inject({.operation = "vos_thread_mutex_sem4_create", .subject = locks[failing].first, .status = 5});
        EXPECT_EQ(asd_ekey_lock_init(), -1);
        EXPECT_EQ(fake::logs(2), (Texts{"0 Create " + std::string(locks[failing].second) + " failed!"}));
        EXPECT_EQ(fake::semaphores(), Texts{});
        EXPECT_EQ(fake::calls("vos_thread_mutex_sem4_create"), failing + 1);
    }
    fresh_world();
    EXPECT_EQ(fake::semaphores(), (Texts{"ekey", "bayconfig", "eeprom", "CcdbSetEn", "SetNodeview"})); // as created
}

TEST_F(LocksTest, TheEepromLockWaitsTwoSeconds) {
    EXPECT_EQ(asd_eeprom_lock(), 0);
    EXPECT_EQ(fake::semaphores_held(), Texts{"eeprom"});
    asd_eeprom_unlock();
    EXPECT_EQ(fake::semaphores_held(), Texts{});
    fake::hold_semaphore("eeprom");
    EXPECT_EQ(asd_eeprom_lock(), -1);
    EXPECT_EQ(fake::ticks(), 2000U);
    EXPECT_EQ(fake::logs(2), Texts{"0 Get g_eeprom_lock failed!"});
}

} // namespace
