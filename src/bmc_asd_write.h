// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writing records: one chip with checksum and retries, the ways an item with one or two chips is written, and the chips
// of power supplies, fans and buckle cards, which have paths of their own. Any thread; a write blocks for the transfers
// and the pauses between attempts. Where nothing else is said the status is 0, one of those named, or that of the
// lookup, the chip's write or the publication that failed. crc_kind is not consulted anywhere.

#include "bmc_asd.h"

extern "C" {

// ---- One record on one chip ----

// Builds data and checksum in out (len + 2 bytes). 0, or -1 without data or out.
[[nodiscard]] gint32 asd_eeprom_writecrc(const guint8 *data, guint32 len, guint8 *out);

// Writes a record under the EEPROM lock with the chips' protection lifted for each attempt, and notes the outcome in
// the chip's Health and ErrorCode. 0; -1 (no data, no Offset, no memory, no attempt got the lock); the platform's
// status of the last transfer.
[[nodiscard]] gint32 asd_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);

// ---- An item ----
// Those that publish Value write an image of exactly Length bytes, the caller's cut to Length and behind them 0xFF, and
// refuse an item whose Length is over 8192 with -1. The others write the caller's len bytes as they are.

// Online items: one chip, or both as mirrors; publishes Value when every chip took the image. -1007 (not online), -1008
// (chip count).
[[nodiscard]] gint32 asd_write_equip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// The same, online or not, Value untouched.
[[nodiscard]] gint32 asd_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// Online items on two chips: the chip with index DeviceId; publishes Value. -1007; -1 (other count or index).
[[nodiscard]] gint32 asd_write_equip_one(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, guint8 DeviceId);
// The same, online or not, Value untouched.
[[nodiscard]] gint32 asd_write_chip_one(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, guint8 DeviceId);

// Online items: one chip, or both and the flag that says which took it; one good chip whose flag was written is a
// success. Publishes Value. -1007, -1008.
[[nodiscard]] gint32 asd_write_method(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// The same, online or not, Value untouched.
[[nodiscard]] gint32 asd_write_check(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// Online items: Value alone, no chip. -1 (no data), -1007.
[[nodiscard]] gint32 Asd_WriteMemProperty(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// ---- Pairs with a check flag (values as for reading) ----

// Both chips, then the flag. -1006: neither chip took it, the flag is left as it was.
[[nodiscard]] gint32 asd_write_chip_check(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// Writes the flag of an item: that of its check object. -1018 when it has none.
[[nodiscard]] gint32 asd_choose_object_write(OBJ_HANDLE obj_handle, guint8 check_flag);
// Writes the flag to the check object's chips. check_flag: 0, 1 or 2; another one is refused with -1, nothing written.
[[nodiscard]] gint32 asd_write_check_flag(OBJ_HANDLE chk_obj_handle, guint8 check_flag);

// ---- Power supplies: one chip, StgWp lifted for each attempt ----

// An image as above, of at most 1024 bytes, online or not; publishes Value. -1 (over-long item, no memory), -1008.
[[nodiscard]] gint32 asd_power_write(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// The caller's bytes, Value untouched. -1 (no DevCount), -1008.
[[nodiscard]] gint32 asd_power_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// The record on the chip. -1 (no power supply's chip, no Offset, no memory); the platform's status.
[[nodiscard]] gint32 asd_power_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);
void asd_power_eprom_write_enable(OBJ_HANDLE dev_handle);  // lifts the protection and waits 10 ms
void asd_power_eprom_write_disable(OBJ_HANDLE dev_handle); // protects again

// ---- Fan modules: one chip; Value untouched. For other modules ----

// -1 (no DevCount), -1008.
[[nodiscard]] gint32 asd_fan_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// The record on the chip. -1 (no fan's chip, no Offset, no memory); the platform's status.
[[nodiscard]] gint32 asd_fan_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);

// ---- Buckle cards: a 4-byte card type on one chip; Value untouched ----
// The result is that of protecting the chip again: a failed write shows in the chip's Health and ErrorCode alone.

// data must hold four bytes even when len is 2 or 3. -1 (no data, len below 2, no single chip).
[[nodiscard]] gint32 asd_bucklecard_writetype(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// The same for len bytes.
[[nodiscard]] gint32 asd_bucklecard_eeprom_write(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
// Writes StgWp of a chip that is protected through it (StgIsWp 1); 0 at once for others. -1: no name.
[[nodiscard]] gint32 asd_bucklecard_eeprom_wp(OBJ_HANDLE dev_handle, guint8 value);
// The record on the chip. -1 (no name, no Offset, no memory); the platform's status.
[[nodiscard]] gint32 asd_bucklecard_eeprom_writedata(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len,
                                                     guint32 crc_kind);

} // extern "C"
