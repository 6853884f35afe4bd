// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_update_property.h"

#include "bmc_asd_holders.h"
#include "bmc_asd_log.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_property.h"
#include "object_frame.h"
#include "securec.h"

#include <algorithm>
#include <array>
#include <string_view>

// Kept (answer): failures of these chips mark them unhealthy only with status bit 0x20000.
static constexpr std::array<std::string_view, 5> kSparedChips = {"ASDDev5a", "ASDDev5b", "ASDDev7", "ASDDev11a",
                                                                 "ASDDev11b"};
static constexpr guint32 kSparedFailureBit = 0x20000;

// ---- Value and Ready ----

gint32 asd_update_property(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    if (data == nullptr) {
        ASD_LOG_ERROR("Input parameter NULL!");
        return kStatusNullData;
    }
    const gint32 ret = asd_set_value2(obj_handle, data, len, kOptionsNone);
    if (ret != 0) {
        ASD_LOG_ERROR("%s Call asd_set_value2 failed! result: %d.", logged_name(obj_handle), ret);
    }
    return asd_set_ready(obj_handle, ret == 0 ? 1 : 0, kOptionsNone);
}

gint32 asd_set_value2(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, DF_OPTIONS options) {
    if (data == nullptr) {
        ASD_LOG_ERROR("Input parameter NULL!");
        return kStatusFailed;
    }
    const Variant value = Variant::sink(new_byte_array(data, len));
    if (!value) {
        ASD_LOG_ERROR("New fixed array fail.");
        return kStatusByteArray;
    }
    if (const gint32 ret = dfl_set_property_value(obj_handle, PROPERTY_ASD_VALUE, value.get(), options); ret != 0) {
        ASD_LOG_ERROR("%s: %s set dev value failed!ret(%d)", __func__, logged_name(obj_handle), ret);
        return kStatusValueRefused;
    }
    return kStatusOk;
}

gint32 asd_set_ready(OBJ_HANDLE obj_handle, guint8 ready, DF_OPTIONS options) {
    const gint32 ret = property_write(obj_handle, PROPERTY_ASD_READY, ready, options);
    if (ret != 0) {
        ASD_LOG_ERROR("Set PROPERTY_ASD_READY failed! result: %d.", ret);
    }
    return ret;
}

// Copies what fits of a value's bytes; *len gets their number.
static gint32 value_copy(const gchar *obj_name, GVariant *value, guint32 data_len, guint8 *data, gsize *len) {
    const std::span<const guint8> bytes = variant_bytes(value);
    *len = bytes.size();
    if (bytes.empty()) {
        ASD_LOG_ERROR("Get %s array failed!", obj_name);
        return kStatusByteArray;
    }
    const gint32 ret = memcpy_s(data, data_len, bytes.data(), std::min<gsize>(data_len, bytes.size()));
    if (ret != 0) {
        ASD_LOG_ERROR("Error: copy asd data failed, result = %d.", ret);
    }
    return ret;
}

gint32 asd_get_value(const gchar *obj_name, guint32 data_len, guint8 *data, gsize *len) {
    if (obj_name == nullptr || data == nullptr || len == nullptr) {
        ASD_LOG_ERROR("Input parameter error.");
        return kStatusFailed;
    }
    OBJ_HANDLE object = 0;
    if (dfl_get_object_handle(obj_name, &object) != 0) {
        return kStatusUnknownItem;
    }
    if (asd_obj_is_online(object) == 0) {
        std::fill_n(data, data_len, guint8{0});
        ASD_LOG_MAINTENANCE(1, "%s not online!", obj_name);
        return kStatusOk;
    }
    Variant value;
    if (const gint32 ret = dfl_get_property_value(object, PROPERTY_ASD_VALUE, value.out()); ret != 0) {
        ASD_LOG_ERROR("Get %s value failed! ret: %d.", obj_name, ret);
        return ret;
    }
    return value_copy(obj_name, value.get(), data_len, data, len);
}

gint32 asd_get_length(OBJ_HANDLE obj_handle, guint32 *len) {
    if (len == nullptr) {
        ASD_LOG_ERROR("Input parameter error.");
        return kStatusFailed;
    }
    const gint32 ret = property_read(obj_handle, PROPERTY_ASD_LENGTH, len);
    if (ret != 0) {
        ASD_LOG_ERROR("Get PROPERTY_ASD_LENGTH failed! result: %d.", ret);
    }
    return ret;
}

// ---- Health and ErrorCode ----

gint32 asd_update_dev_health(OBJ_HANDLE dev_handle, guint8 health) {
    const gint32 ret = property_write(dev_handle, PROPERTY_ASD_DEV_HEALTH, health, kOptionsNone);
    if (ret != 0) {
        ASD_LOG_ERROR("%s Set PROPERTY_ASD_DEV_HEALTH failed! result: %d.", logged_name(dev_handle), ret);
    }
    return ret;
}

gint32 asd_update_dev_errcode(OBJ_HANDLE dev_handle, gint32 errcode) {
    const gint32 ret = property_write(dev_handle, PROPERTY_ASD_DEV_ERRORCODE, errcode, kOptionsNone);
    if (ret != 0) {
        ASD_LOG_ERROR("%s Set PROPERTY_ASD_DEV_ERRORCODE failed! result: %d.", logged_name(dev_handle), ret);
    }
    return ret;
}

void asd_check_errlevel(OBJ_HANDLE dev_handle, gint32 ret, const gchar *ObjName, guint8 health) {
    if (health == 0) {
        (void)asd_update_dev_health(dev_handle, 0); // logged there; the access succeeded
        return;
    }
    UINT8 idle = 0xFF;
    (void)BSP_ReadCpldBit(kCpldIdleRegister, kCpldIdleBit, &idle); // unreadable: the failure counts
    if (idle == 1) {
        return;
    }
    if (!name_in(ObjName, kSparedChips)) {
        (void)asd_update_dev_health(dev_handle, health); // logged there
        return;
    }
    if ((static_cast<guint32>(ret) & kSparedFailureBit) != 0) {
        (void)asd_update_dev_health(dev_handle, 1); // logged there
    }
}
