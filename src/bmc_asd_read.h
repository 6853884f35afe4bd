// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reading records: one chip with checksum and retries, and the ways an item with one or two chips is read.
// data has room for len bytes, the item's Length; on failure its content is not to be used. Any thread; a read blocks
// for the transfer and 100 ms a failed attempt.

#include "bmc_asd.h"

extern "C" {

// ---- One record on one chip ----

// Address and retry budget of a chip's record; 5 retries when the chip names none. 0, or -1.
gint32 asd_eeprom_getoffset(OBJ_HANDLE dev_handle, guint32 *retry, guint32 *offset);

// Reads a record. 0; -1 (null data, no Offset, no memory); the platform's transfer status; on chips whose checksum must
// hold, that status with bit 0 set when it did not. Other chips deliver a record with a bad checksum as it is, with 0.
gint32 asd_eeprom_read(OBJ_HANDLE dev_handle, guint8 *data, guint32 len);

// The loop behind it. work: len + 2 bytes, zero-filled.
gint32 asd_eeprom_readblk(OBJ_HANDLE dev_handle, guint8 *data, guint32 len, guint8 *work, guint32 offset,
                          guint32 retry);

// 1 when a bad checksum on this chip is worth another read, 0 for an erased chip that may be blank. work: len + 2
// bytes.
gint32 ASD_IsNeedCcrRetry(const gchar *dev_name, guint32 len, const guint8 *work);

// As asd_eeprom_read for the repair: -1019 when the checksum was bad three times on a chip whose checksum must hold
// (the data is delivered all the same); 0 at once on other chips.
gint32 asd_eeprom_check_read(OBJ_HANDLE dev_handle, guint8 *data, guint32 len);

// ---- An item ----

// Online items: one chip, or both compared (-1016 when they differ); publishes Value. Also -1007, -1008.
gint32 asd_read_equip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
gint32 asd_read_chip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len); // the same, online or not, Value untouched

// Online items on two chips: the chip with this index; publishes Value.
gint32 asd_read_equip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId);
gint32 asd_read_chip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId);

// Online items: one chip, or the one the check flag names; publishes Value.
gint32 asd_read_method(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
gint32 asd_read_check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);

// Chip 0, and chip 1 when that fails; online or not, Value untouched.
gint32 asd_read_one_chip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
gint32 asd_read_devchip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, const gchar *property);

// ---- Pairs with a check flag: 0 chip 0 only, 1 chip 1 only, 2 both, 255 none could be read ----

gint32 asd_read_chip_check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len);
gint32 asd_choose_object_read(OBJ_HANDLE obj_handle, guint8 *check_flag);
gint32 asd_read_check_flag(OBJ_HANDLE chk_obj_handle, guint8 *check_flag); // -1006 when neither chip gave its flag
gint32 asd_read_chip_dev0check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 check_flag);
gint32 asd_read_chip_dev1check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 check_flag);

// Rewrites the copy whose checksum is bad from the one whose checksum is good; differing good copies are left alone.
// 0 when done or nothing to do, else why not.
gint32 asd_eeprom_check(const gchar *obj_name);
gint32 asd_check_read_chip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId);

void AsdCheckFlagErrorlog(const gchar *obj_name, gint32 chip, gint32 ret);
void AsdChipCheckErrorLog(const gchar *obj_name, gint32 chip, guint8 check_flag, gint32 ret);

} // extern "C"
