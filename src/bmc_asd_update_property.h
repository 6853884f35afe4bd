// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The property mirror: what publishes an item's bytes, hands them out again, and notes how chip accesses went. All
// writes of Value, Ready and Health are here. Keeps no state; any thread.

#include "bmc_asd.h"

extern "C" {

// Publishes an item's bytes: Value, then Ready 1 (0 when Value was refused).
// Kept (answer): the result is that of the Ready write, or -1001 for null data. Callers learn of a refused Value
// through Ready alone.
[[nodiscard]] gint32 asd_update_property(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len);

// Writes Value. 0, -1 (null data), -1005 (array not built), -1012 (refused by the framework).
[[nodiscard]] gint32 asd_set_value2(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, DF_OPTIONS options);

// Writes Ready. 0 or the framework's status.
[[nodiscard]] gint32 asd_set_ready(OBJ_HANDLE obj_handle, guint8 ready, DF_OPTIONS options);

// Copies at most data_len bytes of the named item's Value into data; *len gets the size of the whole Value. An item
// that is not online yields zeros and 0, with *len untouched. 0, -1 (null argument), -1017 (unknown name), -1005, the
// framework's or the copy's status; data is then to be ignored.
[[nodiscard]] gint32 asd_get_value(const gchar *obj_name, guint32 data_len, guint8 *data, gsize *len);

// Stores the item's Length. 0, -1 (null pointer) or the framework's status with *len untouched.
[[nodiscard]] gint32 asd_get_length(OBJ_HANDLE obj_handle, guint32 *len);

// Write a chip's Health (0: the last access succeeded) and ErrorCode. 0 or the framework's status.
[[nodiscard]] gint32 asd_update_dev_health(OBJ_HANDLE dev_handle, guint8 health);
[[nodiscard]] gint32 asd_update_dev_errcode(OBJ_HANDLE dev_handle, gint32 errcode);

// Records a chip's health after an access with status ret; health is what the access found, 0 for success. Failures are
// not counted while bit 1 of CPLD register 0x1F8 is set, and against five named chips only those of status bit 0x20000.
void asd_check_errlevel(OBJ_HANDLE dev_handle, gint32 ret, const gchar *ObjName, guint8 health);

} // extern "C"
