// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reading records: one chip with checksum and retries, and the ways an item with one or two chips is read.
// data has room for len bytes, the item's Length; on failure its content is not to be used. Any thread; a read blocks
// for the transfers and 100 ms a failed attempt. Where nothing else is said the status is 0, one of those named, or
// that of the lookup, the chip's read or the publication that failed.

#include "bmc_asd.h"

extern "C" {

// ---- One record on one chip ----

// Address and retry budget of a chip's record; 5 retries when the chip names none. 0, or -1 (null pointer, no Offset).
[[nodiscard]] gint32 asd_eeprom_getoffset(OBJ_HANDLE dev_handle, guint32 *retry, guint32 *offset);

// Reads a record and notes the outcome in the chip's Health and ErrorCode. 0; -1 (null data, no Offset, no memory); the
// platform's transfer status; on chips whose checksum must hold, that status with bit 0 set when it did not. Other
// chips deliver a record with a bad checksum as it is, with 0.
[[nodiscard]] gint32 asd_eeprom_read(OBJ_HANDLE dev_handle, guint8 *data, guint32 len);

// The loop behind it, with its statuses but -1. work: len + 2 bytes, zero-filled. offset: the record's first byte in
// the chip. retry: failed transfers tolerated in the call; with 0 no transfer is made and the work buffer is what was
// read.
[[nodiscard]] gint32 asd_eeprom_readblk(OBJ_HANDLE dev_handle, guint8 *data, guint32 len, guint8 *work, guint32 offset,
                                        guint32 retry);

// 1 when a bad checksum on this chip is worth another read, 0 for an erased chip that may be blank. work: len + 2
// bytes.
[[nodiscard]] gint32 ASD_IsNeedCcrRetry(const gchar *dev_name, guint32 len, const guint8 *work);

// As asd_eeprom_read for the repair: -1019 when the checksum was bad three times on a chip whose checksum must hold
// (the data is delivered all the same); 0 at once on other chips.
[[nodiscard]] gint32 asd_eeprom_check_read(OBJ_HANDLE dev_handle, guint8 *data, guint32 len);

// ---- An item ----

// Online items: one chip, or both compared (-1016 when they differ); publishes Value. -1007 (not online), -1008 (chip
// count).
[[nodiscard]] gint32 asd_read_equip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
// The same, online or not, Value untouched.
[[nodiscard]] gint32 asd_read_chip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);

// Online items on two chips: the chip with index DeviceId; publishes Value. -1007; -1 (other count or index).
[[nodiscard]] gint32 asd_read_equip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId);
// The same, online or not, Value untouched.
[[nodiscard]] gint32 asd_read_chip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId);

// Online items: one chip, or the one the check flag names; publishes Value. -1007, -1008.
[[nodiscard]] gint32 asd_read_method(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
// The same, online or not, Value untouched.
[[nodiscard]] gint32 asd_read_check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);

// Chip 0, and chip 1 when that fails; online or not, Value untouched. -1008.
[[nodiscard]] gint32 asd_read_one_chip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
// The chip behind a reference property; online or not, Value untouched.
[[nodiscard]] gint32 asd_read_devchip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, const gchar *property);

// ---- Pairs with a check flag: 0 chip 0 only, 1 chip 1 only, 2 both, 255 none could be read ----

// The chip that the item's flag names, chip 0 for both. Also the statuses of finding and reading the flag.
[[nodiscard]] gint32 asd_read_chip_check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
// The flag of an item: that of its check object. -1018 when it has none.
[[nodiscard]] gint32 asd_choose_object_read(OBJ_HANDLE obj_handle, guint8 *check_flag);
// The flag that the check object's two chips hold. -1006 when neither gave its byte; *check_flag is then 255.
[[nodiscard]] gint32 asd_read_check_flag(OBJ_HANDLE chk_obj_handle, guint8 *check_flag);
// Chip 0, or chip 1, when the flag says it is good; with another flag nothing is read and the status is 0.
[[nodiscard]] gint32 asd_read_chip_dev0check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 check_flag);
[[nodiscard]] gint32 asd_read_chip_dev1check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 check_flag);

// Reads both copies of the named item and, on chips whose checksum must hold, rewrites the one whose checksum is bad
// from the one whose checksum is good. 0 when it was rewritten, and when there was nothing to do or nothing could be
// done: both bad, a copy unreadable, Length unreadable; good copies that differ are left alone. Otherwise the lookup's
// status, -1 (over-long item, no memory) or that of the rewriting.
[[nodiscard]] gint32 asd_eeprom_check(const gchar *obj_name);
// As asd_read_chip_one for the repair: -1019 as above, no look at the chip count.
[[nodiscard]] gint32 asd_check_read_chip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId);

// Log a failed read of the flag, or of the data of a pair; rationed for the items of the battery switch. chip: 1 or 2.
void AsdCheckFlagErrorlog(const gchar *obj_name, gint32 chip, gint32 ret);
void AsdChipCheckErrorLog(const gchar *obj_name, gint32 chip, guint8 check_flag, gint32 ret);

} // extern "C"
