// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Objects and their properties, the chips' write protection, the class methods, the item reload and the backplane
// model. Functions with C linkage are the module's fixed names: debuggers, C callers and other modules find them by
// symbol.

#include "bmc_asd.h"
#include "bmc_asd_holders.h"

#include <array>
#include <string_view>

// Reads a property of the given type into *value: 0, the framework's status, or kStatusFailed when it holds another
// type. *value is untouched on failure.
[[nodiscard]] gint32 property_read(OBJ_HANDLE object, const gchar *property, guint8 *value);
[[nodiscard]] gint32 property_read(OBJ_HANDLE object, const gchar *property, guint32 *value);

// Writes a property. 0 or the framework's status.
[[nodiscard]] gint32 property_write(OBJ_HANDLE object, const gchar *property, guint8 value, DF_OPTIONS options);
[[nodiscard]] gint32 property_write(OBJ_HANDLE object, const gchar *property, gint32 value, DF_OPTIONS options);

// True when name is one of the names; a null name is none of them.
[[nodiscard]] bool name_in(const gchar *name, std::span<const std::string_view> names);

// The object's name for a log line; a text also when it has none, because not every log survives a null one.
[[nodiscard]] const gchar *logged_name(OBJ_HANDLE object);

// The bytes of an "ay" value, which live as long as the value; empty when it is null, of another type or holds no byte.
[[nodiscard]] std::span<const guint8> variant_bytes(GVariant *value);

// A new "ay" value with a copy of the bytes; empty when it could not be built.
[[nodiscard]] Variant variant_from_bytes(const guint8 *data, guint32 len);

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

extern const std::array<asd_handle_bakname_s, 10> g_astasd_handle_bakname;

// The item's Online byte; 0 also when it cannot be read.
guint8 asd_obj_is_online(OBJ_HANDLE object_handle);

// Stores the item's DevCount. 0, or -1 with *count untouched.
gint32 asd_get_eeprom_count(OBJ_HANDLE obj_handle, guint32 *count);

// Finds the object that keeps the item's check flag. 0, -1 (no name), -1018 (the item has none) or the lookup's status.
gint32 asd_choose_object(OBJ_HANDLE object_handle, OBJ_HANDLE *chk_obj_handle);

// Replaces the reference property's name by the second chip's on equipment frames of four-controller boards, whose
// first chip is not the one to use. buf_len: bytes in the buffer, at least 20. 0, or -1 for a null buffer.
gint32 asd_choose_asd_dev(gchar *asd_dev_name, guint8 buf_len);

// ---- Write protection ----
// Called with the EEPROM lock held; one pair of lines serves all chips but "ASDDev7", which has none.

void asd_WriteEnableOrDisable(guint8 isEnabled);
void asd_write_enable(const gchar *DevObjName);
void asd_write_disable(const gchar *DevObjName);

// ---- Class methods (DFL_METHOD_FUNC); results go to the output list, the status is the method's ----

// Writes the chips and Value: [0] "ay" in, one "i" out. -1014 for an unusable argument list.
gint32 asd_write_data(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);
// The same through the mirrored write, whatever the item.
gint32 asd_eqwrite_data(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);
// Writes Value alone: [0] "ay" in, one "i" out.
gint32 Asd_UpdateMemProperty(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);
// Reads the chips, at most 8192 bytes: one "ay" out.
gint32 asd_read_data(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);
// Reads Value of an item that is online and ready: one "ay" out.
gint32 Asd_GetAsdMemData(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);
// Zeroes Value (at most 1024 bytes) and clears the first chip's Health and ErrorCode. No chip is touched.
gint32 asd_clear_memdata(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);
// On a chip: sets ErrorCode to [0] "i".
gint32 Asd_SetErrCode(OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list, GSList **output_list);

// ---- Reload ----

// Reads one item from its chips and publishes it (DFL_FOREACH_FUNC). callback_data: null, or a byte that when non-zero
// reloads "ASD_CCDB" even while its Value is the source of a deferred write. 0: done or skipped; -1: no name, Length or
// buffer.
gint32 process_each_asd_object(OBJ_HANDLE object_handle, gpointer callback_data);

// ---- Backplane PCIe/SAS model: code, 0xA5, 0x5A, CRC-8 of the three ----

// Reads the code from the chip(s), three attempts, and publishes the record. 0, or 0xFF with *BackboardMode untouched.
guint8 asd_get_backboard_mode_from_backboard(guint8 *BackboardMode);
// Writes the record for a code, three attempts. 0 or 0xFF.
guint8 asd_set_backboard_mode_to_backboard(guint8 BackboardMode);
// Brings EEPROM and flash to the same code: a good EEPROM wins, a valid flash restores a bad EEPROM, else both get
// 0x55.
void spare_backboard_pcieorsas_detect_process(void);

} // extern "C"

inline constexpr guint32 kModelRecordSize = 4;
inline constexpr guint32 kModelCrcOffset = 3; // the CRC-8 covers the bytes before it
using ModelRecord = std::array<guint8, kModelRecordSize>;

// The record for a model code.
[[nodiscard]] ModelRecord model_record(guint8 code);
