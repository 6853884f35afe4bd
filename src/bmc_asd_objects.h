// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Items, their chips and the chips' write protection: what reads and writes stand on. Keeps no state; any thread.

#include "bmc_asd.h"

#include <array>

// The number of chips that hold an item; an item that does not say counts as having one. *ret: the lookup's result.
[[nodiscard]] guint32 item_chip_count(OBJ_HANDLE item, gint32 *ret);

// Which chips of a pair are good, as the check paths pass it on.
inline constexpr guint8 kFlagChip0 = 0;    // chip 0 alone
inline constexpr guint8 kFlagChip1 = 1;    // chip 1 alone
inline constexpr guint8 kFlagBoth = 2;     // both
inline constexpr guint8 kFlagUnread = 255; // none could be read

// The flag byte on each chip of the check object.
inline constexpr guint8 kStoredBoth = 1;  // both chips took the last write
inline constexpr guint8 kStoredAlone = 2; // this chip alone took it

// The name of the reference property to start from, in the buffer asd_choose_asd_dev may overwrite.
struct DevProperty {
    static constexpr guint8 kSize = 32;
    gchar name[kSize] = "AtomStorageDataDev0";
};

// The reference property of an item's first or only chip on the board at hand.
[[nodiscard]] DevProperty chosen_dev_property();

extern "C" {

// ---- Objects ----

// The items with a check object, each with the item that holds its flag.
extern const std::array<asd_handle_bakname_s, 10> g_astasd_handle_bakname;

// The item's Online byte; 0 also when it cannot be read.
[[nodiscard]] guint8 asd_obj_is_online(OBJ_HANDLE object_handle);

// Stores the item's DevCount. 0, or -1 (null pointer, unreadable) with *count untouched.
[[nodiscard]] gint32 asd_get_eeprom_count(OBJ_HANDLE obj_handle, guint32 *count);

// Finds the object that keeps the item's check flag. 0, -1 (no name), -1018 (the item has none) or the lookup's status;
// *chk_obj_handle is set with 0 alone.
[[nodiscard]] gint32 asd_choose_object(OBJ_HANDLE object_handle, OBJ_HANDLE *chk_obj_handle);

// Replaces the reference property's name by the second chip's on equipment frames of four-controller boards, whose
// first chip is not the one to use. buf_len: bytes in the buffer, at least 20. 0, or -1 for a null buffer.
[[nodiscard]] gint32 asd_choose_asd_dev(gchar *asd_dev_name, guint8 buf_len);

// ---- Write protection ----
// Called with the EEPROM lock held; one pair of lines serves all chips but "ASDDev7", which has none. A line that could
// not be driven is logged; the transfer decides.

void asd_WriteEnableOrDisable(guint8 isEnabled); // drives both lines: non-zero lifts the protection
void asd_write_enable(const gchar *DevObjName);  // lifts the chip's protection; without a name too, after a message
void asd_write_disable(const gchar *DevObjName); // protects it again

} // extern "C"
