// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The class methods, the item reload and the backplane model. Functions with C linkage are the module's fixed names:
// debuggers, C callers and other modules find them by symbol.

#include "bmc_asd.h"

#include <array>

extern "C" {

// ---- Class methods (DFL_METHOD_FUNC); results go to the output list, the status is the method's ----

// Writes the chips and Value: [0] "ay" in, one "i" out. -1014 for an unusable argument list.
[[nodiscard]] gint32 asd_write_data(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                    GSList **output_list);
// The same through the mirrored write, whatever the item.
[[nodiscard]] gint32 asd_eqwrite_data(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                      GSList **output_list);
// Writes Value alone: [0] "ay" in, one "i" out.
[[nodiscard]] gint32 Asd_UpdateMemProperty(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                           GSList **output_list);
// Reads the chips, at most 8192 bytes: one "ay" out.
[[nodiscard]] gint32 asd_read_data(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                   GSList **output_list);
// Reads Value of an item that is online and ready: one "ay" out.
[[nodiscard]] gint32 Asd_GetAsdMemData(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                       GSList **output_list);
// Zeroes Value (at most 1024 bytes) and clears the first chip's Health and ErrorCode. No chip is touched.
[[nodiscard]] gint32 asd_clear_memdata(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                       GSList **output_list);
// On a chip: sets ErrorCode to [0] "i".
[[nodiscard]] gint32 Asd_SetErrCode(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                    GSList **output_list);

// ---- Reload ----

// Reads one item from its chips and publishes it (DFL_FOREACH_FUNC). callback_data: null, or a byte, clearAllFlag, that
// when non-zero reloads "ASD_CCDB" even while its Value is the source of a deferred write. 0: done or skipped; -1: no
// name, Length or buffer.
[[nodiscard]] gint32 process_each_asd_object(OBJ_HANDLE object_handle, gpointer callback_data);

// ---- Backplane PCIe/SAS model: code, 0xA5, 0x5A, CRC-8 of the three ----

// Reads the code from the chip(s), three attempts, and publishes the record. 0, or 0xFF with *BackboardMode untouched.
[[nodiscard]] guint8 asd_get_backboard_mode_from_backboard(guint8 *BackboardMode);
// Writes the record for a code, three attempts. 0 or 0xFF.
[[nodiscard]] guint8 asd_set_backboard_mode_to_backboard(guint8 BackboardMode);
// Brings EEPROM and flash to the same code: a good EEPROM wins, a valid flash restores a bad EEPROM, else both get
// 0x55.
void spare_backboard_pcieorsas_detect_process(void);

} // extern "C"

inline constexpr guint32 kModelRecordSize = 4;
inline constexpr guint32 kModelCrcOffset = 3; // the CRC-8 covers the bytes before it
using ModelRecord = std::array<guint8, kModelRecordSize>;

// The record for a model code.
[[nodiscard]] ModelRecord model_record(guint8 code);
