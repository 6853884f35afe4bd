// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writing records: one chip with checksum and retries, the ways an item with one or two chips is written, and the chips
// of power supplies, fans and buckle cards, which have paths of their own. An item is written as an image of exactly
// Length bytes: the caller's, cut to Length, behind them 0xFF. Any thread; a write blocks for the transfers.

#include "bmc_asd.h"

extern "C" {

// ---- One record on one chip ----

// Builds data and checksum in out (len + 2 bytes). 0, or -1 without data or out.
gint32 asd_eeprom_writecrc(const guint8 *data, guint32 len, guint8 *out);

// Writes a record under the EEPROM lock with the chips' protection lifted for each attempt. 0; -1 (no Offset, no
// memory, no attempt got the lock); the platform's status of the last transfer. crc_kind is not consulted.
gint32 asd_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);

// ---- An item; all refuse an item over 8192 bytes with -1 ----

// Online items: one chip, or both as mirrors; publishes Value when every chip took the image. -1007, -1008.
gint32 asd_write_equip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
gint32 asd_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// Online items on two chips: the chip with this index; publishes Value.
gint32 asd_write_equip_one(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, guint8 DeviceId);
gint32 asd_write_chip_one(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, guint8 DeviceId);

// Online items: one chip, or both and the flag that says which took it; one good chip whose flag was written is a
// success.
gint32 asd_write_method(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
gint32 asd_write_check(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// Online items: Value alone.
gint32 Asd_WriteMemProperty(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// ---- Pairs with a check flag (values as for reading) ----

gint32 asd_write_chip_check(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len); // -1006: neither chip took it
gint32 asd_choose_object_write(OBJ_HANDLE obj_handle, guint8 check_flag);
gint32 asd_write_check_flag(OBJ_HANDLE chk_obj_handle, guint8 check_flag);

// ---- Power supplies: one chip, at most 1024 bytes, StgWp lifted for each attempt ----

gint32 asd_power_write(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len); // publishes Value
gint32 asd_power_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
gint32 asd_power_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);
void asd_power_eprom_write_enable(OBJ_HANDLE dev_handle);
void asd_power_eprom_write_disable(OBJ_HANDLE dev_handle);

// ---- Fan modules: one chip; Value untouched. For other modules ----

gint32 asd_fan_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
gint32 asd_fan_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);

// ---- Buckle cards: a 4-byte card type on one chip; Value untouched ----
// data must hold four bytes even when len is 2 or 3. The result is that of protecting the chip again: a failed write
// shows in the chip's Health and ErrorCode alone.

gint32 asd_bucklecard_writetype(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
gint32 asd_bucklecard_eeprom_write(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);
gint32 asd_bucklecard_eeprom_wp(OBJ_HANDLE dev_handle, guint8 value);
gint32 asd_bucklecard_eeprom_writedata(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 crc_kind);

} // extern "C"
