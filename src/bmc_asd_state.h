// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What several files share while the module runs: the locks, the buffer of key transfers and the board's role.

#include "bmc_asd.h"
#include "bmc_asd_holders.h"

#include <atomic>

// The board's role as last read, a BOARD_MOS_E. A number, because a board may report a role beyond the three; atomic,
// because the role monitor alone writes it and everybody reads it without a lock.
extern std::atomic<guint32> g_masterMode;

// The error role is no master.
[[nodiscard]] inline bool is_master() {
    return g_masterMode == BOARD_MASTER;
}

// Staging area of key writes and cache of key reads from the chip, shared by all four keys. Written with
// g_ekey_buffer_lock held; frames 2 to 5 of a chip read take no lock, hence the atomic bytes.
extern SharedBytes<kEkeySize> g_ekey_buffer;

extern "C" {

// ---- Locks: five mutual-exclusion semaphores, created at start; a module that has started keeps them ----
// The only nesting is a buffer or data lock, then the EEPROM lock.

extern gulong g_ekey_buffer_lock; // g_ekey_buffer
extern gulong g_BayconfigBufLock; // the bay configuration buffer
extern gulong g_eeprom_lock;      // chip access of the record write and of the E2PWP test read
extern gulong g_ccdbSetEnLock;    // the pending customer block and its request
extern gulong g_setNodeviewLock;  // the last node view and its flag

// Creates all five, at start: 0, or -1 with none left.
[[nodiscard]] gint32 asd_ekey_lock_init(void);

// Deletes those that were created, when the start fails.
void asd_delete_sem(void);

// Takes g_eeprom_lock, waiting at most 2000 ms: 0 or -1. Any thread but one that holds it.
[[nodiscard]] gint32 asd_eeprom_lock(void);

// Gives it back, on the thread that took it.
void asd_eeprom_unlock(void);

} // extern "C"
