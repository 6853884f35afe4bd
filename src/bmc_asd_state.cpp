// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_state.h"

#include "bmc_asd_log.h"
#include "vos.h"

#include <array>

std::atomic<guint32> g_masterMode{BOARD_MOS_ERROR};

SharedBytes<kEkeySize> g_ekey_buffer;

// ---- Locks ----

gulong g_ekey_buffer_lock;
gulong g_BayconfigBufLock;
gulong g_eeprom_lock;
gulong g_ccdbSetEnLock;
gulong g_setNodeviewLock;

namespace {

struct ModuleLock {
    gulong *handle;
    const gchar *name;
    const gchar *failure;
};

} // namespace

// clang-format off
static constexpr std::array<ModuleLock, 5> kLocks = {{
    {.handle = &g_ekey_buffer_lock, .name = "ekey",        .failure = "Create g_ekey_buffer_lock failed!"},
    {.handle = &g_BayconfigBufLock, .name = "bayconfig",   .failure = "Create g_BayconfigBufLock failed!"},
    {.handle = &g_eeprom_lock,      .name = "eeprom",      .failure = "Create g_eeprom_lock failed!"},
    {.handle = &g_ccdbSetEnLock,    .name = "CcdbSetEn",   .failure = "Create g_ccdbSetEnLock failed!"},
    {.handle = &g_setNodeviewLock,  .name = "SetNodeview", .failure = "Create g_setNodeviewLock failed!"},
}};
// clang-format on

static std::size_t locks_created; // the first so many of kLocks exist; written at start alone

gint32 asd_ekey_lock_init(void) {
    for (locks_created = 0; locks_created < kLocks.size(); ++locks_created) {
        const ModuleLock &lock = kLocks[locks_created];
        if (vos_thread_mutex_sem4_create(lock.name, lock.handle) != 0) {
            ASD_LOG_ERROR("%s", lock.failure);
            asd_delete_sem();
            return kStatusFailed;
        }
    }
    return kStatusOk;
}

void asd_delete_sem(void) {
    for (; locks_created > 0; --locks_created) {
        (void)vos_thread_sem4_delete(*kLocks[locks_created - 1].handle); // start fails in any case
    }
}

gint32 asd_eeprom_lock(void) {
    if (vos_thread_sem4_p(g_eeprom_lock, 2000) != 0) {
        ASD_LOG_ERROR("Get g_eeprom_lock failed!");
        return kStatusFailed;
    }
    return kStatusOk;
}

void asd_eeprom_unlock(void) {
    (void)vos_thread_sem4_v(g_eeprom_lock); // nothing a caller could do
}
