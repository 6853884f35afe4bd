// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_common.h"

#include "bmc_asd_log.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_property.h"
#include "bmc_asd_read.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "gpio.h"
#include "object_frame.h"
#include "securec.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// ---- Tables ----

// clang-format off
const std::array<asd_handle_bakname_s, 10> g_astasd_handle_bakname = {{
    {.handle_name = "ASD16",               .handle_bakname = "ASD17"},
    {.handle_name = "ASD10",               .handle_bakname = "ASD10"}, // Kept (record)
    {.handle_name = "ASD22",               .handle_bakname = "ASD23"},
    {.handle_name = "ASD_FrameLedRule",    .handle_bakname = "ASD_FrameLedRuleValid"},
    {.handle_name = "ASD52",               .handle_bakname = "ASD53"},
    {.handle_name = "ASD_BBUSWITCH",       .handle_bakname = "ASD_BBUSWITCH1"},
    {.handle_name = "ASD_BBUSWITCHTIME",   .handle_bakname = "ASD_BBUSWITCHTIME1"},
    {.handle_name = "ASD_NODE_VIEW",       .handle_bakname = "ASD_NODE_VIEW_VALID"},
    {.handle_name = "ASD_CCDB",            .handle_bakname = "ASD_CCDB_VALID"},
    {.handle_name = "ASD_PRODUCT_CFGINFO", .handle_bakname = "ASD_PRODUCT_CFGINFO_VALID"},
}};
// clang-format on

// Items that are a card's type rather than a record: they are written by a path of their own.
static constexpr std::array<std::string_view, 3> kBucklecardItems = {"ASD_Bucklecard0Eeprom", "ASD_Bucklecard1Eeprom",
                                                                     "ASD_Bucklecard0EepromSub"};

static constexpr std::string_view kItemNeverReloaded = "ASD7";
static constexpr std::string_view kItemCcdb = "ASD_CCDB";
static constexpr std::string_view kChipWithoutLine = "ASDDev7";

static constexpr guint32 kWriteLineTarn = 39; // in place of kWriteLine on Tarn four-controller boards
static constexpr guint32 kWriteLine = 55;
static constexpr guint32 kWriteLineCommon = 56; // beside the other one, on every board
static constexpr guint32 kGpioOutput = 1;

static constexpr const gchar *kModelItem = "ASD_PCIEORSAS";
static constexpr guint32 kModelFlashParameter = 0x11;
static constexpr guint8 kModelDefault = 0x55;
static constexpr guint8 kModelMarker0 = 0xA5;
static constexpr guint8 kModelMarker1 = 0x5A;
static constexpr guint8 kModelFailed = 0xFF;
static constexpr guint32 kModelAttempts = 3;
static constexpr guint32 kModelPauseMs = 100;

// ---- Objects ----

guint8 asd_obj_is_online(OBJ_HANDLE object_handle) {
    guint8 online = 0;
    if (const gint32 ret = property_read(object_handle, PROPERTY_ASD_ONLINE, &online); ret != 0) {
        ASD_LOG_ERROR("Get PROPERTY_ASD_ONLINE property failed! result: %d.", ret);
        return 0;
    }
    return online;
}

gint32 asd_get_eeprom_count(OBJ_HANDLE obj_handle, guint32 *count) {
    if (count == nullptr) {
        return kStatusFailed;
    }
    if (const gint32 ret = property_read(obj_handle, PROPERTY_ASD_DEVCOUNT, count); ret != 0) {
        ASD_LOG_ERROR("Get PROPERTY_ASD_DEVCOUNT property failed! result: %d.", ret);
        return kStatusFailed;
    }
    return kStatusOk;
}

gint32 asd_choose_object(OBJ_HANDLE object_handle, OBJ_HANDLE *chk_obj_handle) {
    const gchar *name = dfl_get_object_name(object_handle);
    if (name == nullptr) {
        return kStatusFailed;
    }
    const auto *const row =
        std::ranges::find(g_astasd_handle_bakname, std::string_view(name),
                          [](const asd_handle_bakname_s &r) { return std::string_view(r.handle_name); });
    if (row == g_astasd_handle_bakname.end()) {
        ASD_LOG_ERROR("Get object name failed!");
        return kStatusNoCheckObject;
    }
    const gint32 ret = dfl_get_object_handle(row->handle_bakname, chk_obj_handle);
    if (ret != 0) {
        ASD_LOG_ERROR("Get %s obj handle failed! ret: %d.", row->handle_bakname, ret);
    }
    return ret;
}

gint32 asd_choose_asd_dev(gchar *asd_dev_name, guint8 buf_len) {
    if (asd_dev_name == nullptr) {
        ASD_LOG_ERROR("Input arguments is NULL.");
        return kStatusFailed;
    }
    if (BSP_Is4U4CBoard() == 0 || BSP_isEquipFrameBoard() == 0) {
        return kStatusOk;
    }
    const gint32 cleared = memset_s(asd_dev_name, buf_len, 0, buf_len);
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the zero fill ends the name
    const gint32 copied = memcpy_s(asd_dev_name, buf_len, PROPERTY_ASD_DEV1, std::strlen(PROPERTY_ASD_DEV1));
    if ((cleared | copied) != 0) {
        ASD_LOG_ERROR("Error: init and copy asd devname failed, result = %d.", cleared | copied);
    }
    return kStatusOk;
}

guint32 item_chip_count(OBJ_HANDLE item, gint32 *ret) {
    guint32 count = 1;
    *ret = asd_get_eeprom_count(item, &count);
    return count;
}

DevProperty chosen_dev_property() {
    DevProperty property;
    (void)asd_choose_asd_dev(property.name, DevProperty::kSize); // fails for a null buffer alone
    return property;
}

// ---- Write protection ----

void asd_WriteEnableOrDisable(guint8 isEnabled) {
    const guint32 level = isEnabled != 0 ? 1 : 0;
    const guint32 line = BSP_IsTarn4U4CBoard() != 0 ? kWriteLineTarn : kWriteLine;
    gint32 ret = gpio_init(line, kGpioOutput);
    ret |= gpio_write(line, level);
    ret |= gpio_init(kWriteLineCommon, kGpioOutput);
    ret |= gpio_write(kWriteLineCommon, level);
    if (ret != 0) {
        // The transfer decides: a write that the platform reports as done is on the chip.
        ASD_LOG_ERROR("Gpio init or write failed! ret: %d.", ret);
    }
}

// Whether the lines serve the chip; one without a name is taken for such a chip.
static bool lines_serve(const gchar *function, const gchar *chip) {
    if (chip == nullptr) {
        ASD_LOG_ERROR("%s: Get device object name failed!", function);
        return true;
    }
    return chip != kChipWithoutLine;
}

void asd_write_enable(const gchar *DevObjName) {
    if (lines_serve(__func__, DevObjName)) {
        ASD_LOG_DEBUG("==========open wp by gpio=========");
        asd_WriteEnableOrDisable(1);
    }
}

void asd_write_disable(const gchar *DevObjName) {
    if (lines_serve(__func__, DevObjName)) {
        asd_WriteEnableOrDisable(0);
    }
}

// ---- Class methods ----

// Argument 0 of a method; null when it is missing. It stays the framework's.
static GVariant *first_argument(GSList *input_list) {
    return static_cast<GVariant *>(g_slist_nth_data(input_list, 0));
}

// Gives a new value to the framework, floating: the framework sinks and releases what the list holds.
static void output_append(GSList **output_list, GVariant *value) {
    *output_list = g_slist_append(*output_list, value);
}

static gint32 output_status(GSList **output_list, gint32 status) {
    output_append(output_list, g_variant_new_int32(status));
    return status;
}

using ItemWrite = gint32 (*)(OBJ_HANDLE item, const guint8 *data, guint32 len);

// A write method: argument 0 goes to write, its status is the output.
static gint32 write_method_run(const gchar *method, ItemWrite write, OBJ_HANDLE item, GSList *input_list,
                               GSList **output_list) {
    if (input_list == nullptr || output_list == nullptr) {
        return kStatusArguments;
    }
    GVariant *argument = first_argument(input_list);
    if (argument == nullptr) {
        ASD_LOG_ERROR("%s: parse input list failed!", method);
        return kStatusArguments;
    }
    const std::span<const guint8> bytes = variant_bytes(argument);
    if (bytes.empty()) {
        ASD_LOG_ERROR("%s: get byte array failed!", method);
        return kStatusArguments;
    }
    return output_status(output_list, write(item, bytes.data(), static_cast<guint32>(bytes.size())));
}

// The card type is four bytes even when the argument is shorter: the missing ones are zeros, never what lies behind it.
static gint32 bucklecard_write(OBJ_HANDLE item, const guint8 *data, guint32 len) {
    std::array<guint8, 4> type{};
    std::copy_n(data, std::min<gsize>(len, type.size()), type.begin());
    return asd_bucklecard_writetype(item, type.data(), len);
}

static gint32 item_write(OBJ_HANDLE item, const guint8 *data, guint32 len) {
    return name_in(dfl_get_object_name(item), kBucklecardItems) ? bucklecard_write(item, data, len)
                                                                : asd_write_method(item, data, len);
}

gint32 asd_write_data(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList *input_list, GSList **output_list) {
    return write_method_run(__func__, item_write, object_handle, input_list, output_list);
}

gint32 asd_eqwrite_data(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList *input_list, GSList **output_list) {
    return write_method_run(__func__, asd_write_equip, object_handle, input_list, output_list);
}

gint32 Asd_UpdateMemProperty(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList *input_list,
                             GSList **output_list) {
    if (input_list == nullptr || output_list == nullptr) {
        return kStatusArguments;
    }
    const gchar *name = dfl_get_object_name(object_handle);
    if (name == nullptr) {
        return kStatusFailed;
    }
    GVariant *argument = first_argument(input_list);
    if (argument == nullptr) {
        ASD_LOG_ERROR("%s: parse input list is null!", __func__);
        return kStatusArguments;
    }
    const std::span<const guint8> bytes = variant_bytes(argument);
    if (bytes.empty()) {
        ASD_LOG_ERROR("%s: asd(%s) get byte array failed!", __func__, name);
        return kStatusArguments;
    }
    return output_status(output_list,
                         Asd_WriteMemProperty(object_handle, bytes.data(), static_cast<guint32>(bytes.size())));
}

gint32 asd_read_data(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList * /*input_list*/,
                     GSList **output_list) {
    const gchar *name = dfl_get_object_name(object_handle);
    guint32 length = 0;
    if (name == nullptr || asd_get_length(object_handle, &length) != 0) {
        return kStatusFailed;
    }
    length = std::min(length, kItemMax);
    const WorkBuffer buffer = WorkBuffer::allocate(length);
    if (!buffer) {
        ASD_LOG_ERROR("%s: %s malloc for save ekey fail!", __func__, name);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_read_method(object_handle, buffer.get(), length); ret != 0) {
        return ret;
    }
    if (output_list == nullptr) {
        return kStatusArguments;
    }
    GVariant *bytes = new_byte_array(buffer.get(), length);
    if (bytes == nullptr) {
        return kStatusByteArray;
    }
    output_append(output_list, bytes);
    return kStatusOk;
}

// Whether the in-memory copy may be handed out.
static bool mem_data_ready(OBJ_HANDLE item, const gchar *name) {
    if (asd_obj_is_online(item) == 0) {
        ASD_LOG_INFO("%s not online!", name);
        return false;
    }
    guint8 ready = 0;
    if (const gint32 ret = property_read(item, PROPERTY_ASD_READY, &ready); ret != 0) {
        ASD_LOG_ERROR("[%s] get property ready failed![%d]", name, ret);
        return false;
    }
    if (ready == 0) {
        ASD_LOG_DEBUG("[%s] ready property not ok.", name);
        return false;
    }
    return true;
}

// The first Length bytes of Value as a new, floating value; null after a logged failure.
static GVariant *mem_data_take(OBJ_HANDLE item, const gchar *name) {
    guint32 length = 0;
    if (const gint32 ret = property_read(item, PROPERTY_ASD_LENGTH, &length); ret != 0) {
        ASD_LOG_ERROR("[%s] get property length failed![%d]", name, ret);
        return nullptr;
    }
    Variant value;
    if (const gint32 ret = dfl_get_property_value(item, PROPERTY_ASD_VALUE, value.out()); ret != 0) {
        ASD_LOG_ERROR("[%s] get value failed, ret[%d]", name, ret);
        return nullptr;
    }
    const std::span<const guint8> bytes = variant_bytes(value.get());
    if (bytes.empty()) {
        ASD_LOG_ERROR("[%s] get array failed!", name);
        return nullptr;
    }
    const gsize count = std::min<gsize>(std::min(length, kItemMax), bytes.size());
    GVariant *data = new_byte_array(bytes.data(), static_cast<guint32>(count));
    if (data == nullptr) {
        ASD_LOG_ERROR("[%s] get property data failed!", name);
    }
    return data;
}

gint32 Asd_GetAsdMemData(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList * /*input_list*/,
                         GSList **output_list) {
    const gchar *name = dfl_get_object_name(object_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get ObjName failed!");
        return kStatusFailed;
    }
    if (!mem_data_ready(object_handle, name)) {
        return kStatusFailed;
    }
    GVariant *data = mem_data_take(object_handle, name);
    if (data == nullptr) {
        return kStatusFailed;
    }
    if (output_list != nullptr) {
        output_append(output_list, data);
    } else {
        g_variant_unref(data);
    }
    return kStatusOk;
}

// Kept (answer): only the first chip is cleared, also of a mirrored item.
static gint32 first_chip_clear(OBJ_HANDLE item, const gchar *method, const gchar *name) {
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(item, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: %s Get dev handle failed! ret: %d.", method, name, ret);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_update_dev_health(chip, 0); ret != 0) {
        ASD_LOG_ERROR("%s: %s update dev health failed! ret: %d.", method, name, ret);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_update_dev_errcode(chip, 0); ret != 0) {
        ASD_LOG_ERROR("%s: %s update errcode failed! ret: %d.", method, name, ret);
        return kStatusFailed;
    }
    return kStatusOk;
}

gint32 asd_clear_memdata(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList * /*input_list*/,
                         GSList ** /*output_list*/) {
    const gchar *name = dfl_get_object_name(object_handle);
    if (name == nullptr) {
        return kStatusFailed;
    }
    guint32 length = 0;
    if (const gint32 ret = property_read(object_handle, PROPERTY_ASD_LENGTH, &length); ret != 0) {
        ASD_LOG_ERROR("get length fail: %d", ret);
        return kStatusFailed;
    }
    // Kept (answer): a longer item is left with 1024 zero bytes, though reads go up to 8192.
    length = std::min(length, kClearMax);
    const WorkBuffer zeros = WorkBuffer::allocate(length);
    if (!zeros) {
        ASD_LOG_ERROR("%s malloc memory failed.", name);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_set_value2(object_handle, zeros.get(), length, kOptionsNone); ret != 0) {
        ASD_LOG_ERROR("%s Call asd_clear_memdata failed[%d]!", name, ret);
        return kStatusFailed;
    }
    return first_chip_clear(object_handle, __func__, name);
}

gint32 Asd_SetErrCode(OBJ_HANDLE object_handle, GSList * /*caller_info*/, GSList *input_list,
                      GSList ** /*output_list*/) {
    GVariant *argument = input_list != nullptr ? first_argument(input_list) : nullptr;
    if (argument == nullptr || !g_variant_is_of_type(argument, G_VARIANT_TYPE_INT32)) {
        return kStatusFailed;
    }
    return property_write(object_handle, PROPERTY_ASD_DEV_ERRORCODE, g_variant_get_int32(argument), kOptionsNone);
}

// ---- Reload ----

// A set customer block waits in Value for its deferred write; a reload would replace it by the chip's older one.
static bool ccdb_is_ready(OBJ_HANDLE item) {
    guint8 ready = 0;
    if (property_read(item, PROPERTY_ASD_READY, &ready) != 0) {
        ASD_LOG_ERROR("Get CCDB ready signal failed.");
        return false;
    }
    return ready != 0;
}

// The item's Length, when it can be loaded.
static gint32 reload_length(OBJ_HANDLE item, const gchar *name, guint32 *length) {
    if (const gint32 ret = property_read(item, PROPERTY_ASD_LENGTH, length); ret != 0) {
        ASD_LOG_ERROR("%s: get data length failed[%d]!", name, ret);
        return kStatusFailed;
    }
    if (*length > kItemMax) {
        ASD_LOG_ERROR("%s data length is out of range!", name);
        return kStatusFailed;
    }
    return kStatusOk;
}

gint32 process_each_asd_object(OBJ_HANDLE object_handle, gpointer callback_data) {
    const guint8 clearAllFlag = callback_data != nullptr ? *static_cast<const guint8 *>(callback_data) : guint8{0};
    const gchar *name = dfl_get_object_name(object_handle);
    if (name == nullptr) {
        return kStatusFailed;
    }
    if (name == kItemNeverReloaded || asd_obj_is_online(object_handle) == 0) {
        return kStatusOk;
    }
    if (name == kItemCcdb && clearAllFlag == 0 && ccdb_is_ready(object_handle)) {
        return kStatusOk;
    }
    guint32 length = 0;
    if (reload_length(object_handle, name, &length) != 0) {
        return kStatusFailed;
    }
    const WorkBuffer buffer = WorkBuffer::allocate(length);
    if (!buffer) {
        ASD_LOG_ERROR("%s malloc memory failed.", name);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_read_one_chip(object_handle, buffer.get(), length); ret != 0) {
        ASD_LOG_DEBUG("%s: Read eeprom failed! result: %d.", name, ret);
        if (BSP_IsManuVersion() == 0) {
            return kStatusOk;
        }
        // Kept (answer): a manufacturing build publishes what the buffer holds, zeros where nothing was read.
    } else {
        ASD_LOG_DEBUG("%s: Read eeprom OK!", name);
    }
    (void)asd_update_property(object_handle, buffer.get(), length); // logged there; Ready tells
    return kStatusOk;
}

// ---- Backplane PCIe/SAS model ----

ModelRecord model_record(guint8 code) {
    ModelRecord record = {code, kModelMarker0, kModelMarker1, 0};
    record[kModelCrcOffset] = BSP_CalCrc8(0, record.data(), kModelCrcOffset);
    return record;
}

static gint32 model_item(OBJ_HANDLE *item) {
    const gint32 ret = dfl_get_object_handle(kModelItem, item);
    if (ret != 0) {
        ASD_LOG_ERROR("Call dfl_get_object_handle failed! result: %d.", ret);
    }
    return ret;
}

guint8 asd_get_backboard_mode_from_backboard(guint8 *BackboardMode) {
    if (BackboardMode == nullptr) {
        ASD_LOG_ERROR("Input pointer is NULL!");
        return kModelFailed;
    }
    OBJ_HANDLE item = 0;
    if (model_item(&item) != 0) {
        return kModelFailed;
    }
    ModelRecord record{};
    gint32 ret = kStatusFailed;
    for (guint32 attempt = 0; attempt < kModelAttempts && ret != 0; ++attempt) {
        ret = asd_read_one_chip(item, record.data(), kModelRecordSize);
        if (ret != 0) {
            vos_task_delay(kModelPauseMs);
        }
    }
    if (ret != 0) {
        ASD_LOG_ERROR("%s: Read eeprom failed! result: %d.", kModelItem, ret);
        return kModelFailed;
    }
    // Kept (answer): the markers are not looked at, though a good CRC does not say that they are right.
    if (const guint8 crc = BSP_CalCrc8(0, record.data(), kModelCrcOffset); crc != record[kModelCrcOffset]) {
        ASD_LOG_ERROR(" backboard_mode CalCrc8 from e2prom not fit(realcrc8=0x%x,calccrc8=0x%x)",
                      record[kModelCrcOffset], crc);
        return kModelFailed;
    }
    *BackboardMode = record[0];
    (void)asd_update_property(item, record.data(), kModelRecordSize); // logged there; the code was read
    ASD_LOG_INFO("Get backboard from e2prom 0x%x succeed.", record[0]);
    return 0;
}

guint8 asd_set_backboard_mode_to_backboard(guint8 BackboardMode) {
    OBJ_HANDLE item = 0;
    if (model_item(&item) != 0) {
        return kModelFailed;
    }
    const ModelRecord record = model_record(BackboardMode);
    gint32 ret = asd_write_equip(item, record.data(), kModelRecordSize);
    for (guint32 attempt = 1; attempt < kModelAttempts && ret != 0; ++attempt) {
        vos_task_delay(kModelPauseMs);
        ret = asd_write_equip(item, record.data(), kModelRecordSize);
    }
    if (ret != 0) {
        ASD_LOG_ERROR("set backboard_mode to e2prom failed(Call asd_write to equip failed,ret =%d).", ret);
        return kModelFailed;
    }
    ASD_LOG_INFO("Set backboard mode to e2prom 0x%x succeed.", BackboardMode);
    return 0;
}

static void model_refresh_flash(guint8 local, guint8 eeprom) {
    if (local == eeprom) {
        return;
    }
    const gint32 ret = BMC_FlashWriteCfgPara(kModelFlashParameter, 1, &eeprom);
    if (ret != 0) {
        ASD_LOG_ERROR("Refresh local pciesas model failed(local=0x%x eep=0x%x ret=%xd)", local, eeprom,
                      static_cast<guint32>(ret));
        return;
    }
    ASD_LOG_INFO("Refresh local pciesas model succeed(local=0x%x eep=0x%x)", local, eeprom);
}

static void model_restore(guint8 local) {
    if (BSP_bPcieorsasModelValid(local) == 1) {
        (void)asd_set_backboard_mode_to_backboard(
            local); // logged there; the next entry into the master role tries again
        return;
    }
    (void)asd_set_backboard_mode_to_backboard(kModelDefault); // as above
    const gint32 ret = BMC_FlashWriteCfgPara(kModelFlashParameter, 1, &kModelDefault);
    ASD_LOG_INFO("Refresh local pciesas model to default 0x%x ret=%d", kModelDefault, ret);
}

void spare_backboard_pcieorsas_detect_process(void) {
    if (BSP_isEquipFrameBoard() != 0) {
        ASD_LOG_INFO("Equip frameboard is not supported");
        return;
    }
    guint8 local = 0;
    if (BMC_FlashReadCfgPara(kModelFlashParameter, 1, &local) != 0) {
        local = 0;
        ASD_LOG_ERROR("Read pciesas model from local flash faild,local default=0x%x", local);
    }
    guint8 eeprom = 0;
    if (asd_get_backboard_mode_from_backboard(&eeprom) == 0 && BSP_bPcieorsasModelValid(eeprom) == 1) {
        model_refresh_flash(local, eeprom);
        return;
    }
    model_restore(local);
}
