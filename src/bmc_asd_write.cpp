// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_write.h"

#include "arith.h"
#include "bmc_asd_holders.h"
#include "bmc_asd_log.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_property.h"
#include "bmc_asd_read.h"
#include "bmc_asd_record.h"
#include "bmc_asd_state.h"
#include "bmc_asd_update_property.h"
#include "object_frame.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <array>
#include <string_view>

static constexpr guint32 kWritePauseMs = 50;
static constexpr guint32 kSpecialPauseMs = 200; // of power supplies, fans and buckle cards
static constexpr guint32 kProtectSettleMs = 10; // after StgWp is lifted
static constexpr guint8 kProtectOff = 0;
static constexpr guint8 kProtectOn = 1;
static constexpr guint32 kBucklecardTypeSize = 4;

static constexpr std::array<std::string_view, 2> kPowerChips = {"ASDDev1000", "ASDDev1001"};
static constexpr std::array<std::string_view, 6> kFanChips = {"ASDDev3",  "ASDDev2", "ASDDev1",
                                                              "ASDDev0A", "ASDDev8", "ASDDev9"};

// ---- One record on one chip ----

gint32 asd_eeprom_writecrc(const guint8 *data, guint32 len, guint8 *out) {
    const guint32 size = record_size(len);
    if (data == nullptr || out == nullptr || size == 0) {
        return kStatusFailed;
    }
    if (const gint32 ret = memcpy_s(out, size, data, len); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd check data failed, result = %d.", ret);
    }
    const guint16 checksum = arith_make_crc_checksum(0, data, len);
    out[len] = static_cast<guint8>(checksum & 0xFFU);
    out[len + 1] = static_cast<guint8>(checksum >> 8U);
    return kStatusOk;
}

static gint32 record_transfer(const ChipRecord &record) {
    return dfl_block_write(record.chip, PROPERTY_ASD_DEV_STORAGELOC, record.offset, record_size(record.len),
                           record.bytes);
}

// Attempts a write until one succeeds or the attempts are used up. One that does not get the lock is used up without a
// transfer and without a pause.
static gint32 record_attempts(const ChipRecord &record, const gchar *name) {
    gint32 ret = kStatusOk;
    bool transferred = false;
    bool lock_lost = false;
    for (guint32 attempt = 0; attempt < record.retry; ++attempt) {
        if (asd_eeprom_lock() != 0) {
            lock_lost = true;
            continue;
        }
        asd_write_enable(name);
        ret = record_transfer(record);
        asd_write_disable(name);
        asd_eeprom_unlock();
        transferred = true;
        if (ret == 0) {
            return ret;
        }
        if (attempt + 1 < record.retry) {
            vos_task_delay(kWritePauseMs);
        }
    }
    return lock_lost && !transferred ? kStatusFailed : ret;
}

gint32 asd_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 /*crc_kind*/) {
    static RateLimit limit(300000, 3);
    ChipRecord record = {.chip = dev_handle, .len = len};
    if (asd_eeprom_getoffset(dev_handle, &record.retry, &record.offset) != 0) {
        ASD_LOG_ERROR("Get eeprom offset faild.");
        return kStatusFailed;
    }
    const guint32 size = record_size(len);
    const WorkBuffer bytes = WorkBuffer::allocate(size);
    if (!bytes) {
        ASD_LOG_ERROR("Malloc asd write buff(len=%d) fail", size);
        return kStatusFailed;
    }
    record.bytes = bytes.get();
    if (asd_eeprom_writecrc(data, len, record.bytes) != 0) {
        return kStatusFailed;
    }
    const gchar *name = dfl_get_object_name(dev_handle);
    const gint32 ret = record_attempts(record, name);
    if (ret != 0 && limit.admits()) {
        ASD_LOG_ERROR("[%s] Write eeprom failed! result: %d.", logged_name(dev_handle), ret);
    }
    asd_check_errlevel(dev_handle, ret, name, ret != 0 ? 1 : 0);
    (void)asd_update_dev_errcode(dev_handle, ret); // logged there
    return ret;
}

// ---- The image of an item ----

// The caller's bytes, cut to length, behind them 0xFF; empty without memory or data. A failed fill or copy is only
// logged, copied saying of what, and the write goes on.
static WorkBuffer image_build(const guint8 *data, guint32 len, guint32 length, const gchar *copied) {
    WorkBuffer image = WorkBuffer::allocate(data != nullptr ? length : 0);
    if (image) {
        gint32 ret = memset_s(image.get(), length, kErased, length);
        ret |= memcpy_s(image.get(), length, data, std::min(len, length));
        if (ret != 0) {
            ASD_LOG_ERROR("Error: copy asd %s failed, result = %d.", copied, ret);
        }
    }
    return image;
}

static bool length_fits(const gchar *name, guint32 length) {
    if (length <= kItemMax) {
        return true;
    }
    ASD_LOG_ERROR("%s length(%d) exceed asd eep max size(%d).", name, length, kItemMax);
    return false;
}

// The image of an item that is not too long.
static WorkBuffer image_checked(const gchar *name, const guint8 *data, guint32 len, guint32 length,
                                const gchar *copied) {
    return length_fits(name, length) ? image_build(data, len, length, copied) : WorkBuffer::allocate(0);
}

// ---- One chip, or both as mirrors ----

gint32 asd_write_equip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get objname failed.");
        return kStatusFailed;
    }
    if (asd_obj_is_online(obj_handle) == 0) {
        ASD_LOG_ERROR("%s: %s asd not online!", __func__, name);
        return kStatusNotOnline;
    }
    guint32 length = 0;
    if (const gint32 ret = asd_get_length(obj_handle, &length); ret != 0) {
        ASD_LOG_ERROR("%s: %s asd get value len failed!", __func__, name);
        return ret;
    }
    const WorkBuffer image = image_checked(name, data, len, length, "data");
    if (!image) {
        return kStatusFailed;
    }
    if (const gint32 ret = asd_write_chip(obj_handle, image.get(), length); ret != 0) {
        ASD_LOG_ERROR("%s: %s Write eeprom failed[%d]!", __func__, name, ret);
        return ret;
    }
    return asd_update_property(obj_handle, image.get(), length);
}

// Both chips of a pair, the second also when the first failed: one good copy is better than none.
static gint32 write_both(const gchar *function, const gchar *name, OBJ_HANDLE item, const guint8 *data, guint32 len) {
    gint32 failure = kStatusOk;
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(item, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: %s Get PROPERTY_ASD_DEV0 failed! ret(%d).", function, name, ret);
        failure = ret;
    } else if (const gint32 write_ret = asd_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16); write_ret != 0) {
        ASD_LOG_ERROR("%s: %s Write 1st EEPROM failed! ret(%d).", function, name, write_ret);
        failure = write_ret;
    }
    if (const gint32 ret = referenced_chip(item, PROPERTY_ASD_DEV1, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: %s Get PROPERTY_ASD_DEV1 failed! ret(%d).", function, name, ret);
        return ret;
    }
    if (const gint32 ret = asd_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16); ret != 0) {
        ASD_LOG_ERROR("%s: %s Write 2nd EEPROM failed! ret(%d).", function, name, ret);
        failure = ret;
    }
    return failure;
}

// Kept (answer): unlike asd_read_chip this does not ask how many EEPROMs the backplane has; a write goes to every chip
// the item names.
gint32 asd_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    const DevProperty property = chosen_dev_property();
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get objname failed.");
        return kStatusFailed;
    }
    gint32 count_ret = 0;
    const guint32 count = item_chip_count(obj_handle, &count_ret);
    if (count_ret != 0) {
        ASD_LOG_ERROR("%s: %s Get eeprom count failed! result: %d.", __func__, name, count_ret);
    }
    if (count == 1) {
        OBJ_HANDLE chip = 0;
        if (const gint32 ret = referenced_chip(obj_handle, property.name, &chip); ret != 0) {
            ASD_LOG_ERROR("%s: %s Get dev failed! ret(%d).", __func__, name, ret);
            return ret;
        }
        return asd_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16);
    }
    if (count == 2) {
        return write_both(__func__, name, obj_handle, data, len);
    }
    ASD_LOG_ERROR("%s: %s chip count(%d) is wrong!", __func__, name, count);
    return kStatusChipCount;
}

// ---- The chip the caller names ----

gint32 asd_write_equip_one(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, guint8 DeviceId) {
    if (asd_obj_is_online(obj_handle) == 0) {
        ASD_LOG_ERROR("asd not online!");
        return kStatusNotOnline;
    }
    guint32 length = 0;
    if (const gint32 ret = asd_get_length(obj_handle, &length); ret != 0) {
        ASD_LOG_ERROR("asd get value len failed!");
        return ret;
    }
    const WorkBuffer image = image_checked(logged_name(obj_handle), data, len, length, "final data");
    if (!image) {
        return kStatusFailed;
    }
    if (const gint32 ret = asd_write_chip_one(obj_handle, image.get(), length, DeviceId); ret != 0) {
        ASD_LOG_ERROR("Write eeprom failed[%d]!", ret);
        return ret;
    }
    return asd_update_property(obj_handle, image.get(), length);
}

gint32 asd_write_chip_one(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len, guint8 DeviceId) {
    const DevProperty property = chosen_dev_property();
    gint32 ret = 0;
    const guint32 count = item_chip_count(obj_handle, &ret);
    if (ret != 0) {
        ASD_LOG_ERROR("Get eeprom count failed! result: %d.", ret);
    }
    if (count != 2) {
        ASD_LOG_ERROR("eeprom count is not 2! result: %d.", ret); // Kept (log text): the lookup's result, not the count
        return kStatusFailed;
    }
    if (DeviceId > 1) {
        ASD_LOG_ERROR("device id(%d) is wrong!", DeviceId);
        return kStatusFailed;
    }
    const bool second = DeviceId == 1;
    OBJ_HANDLE chip = 0;
    ret = referenced_chip(obj_handle, second ? PROPERTY_ASD_DEV1 : property.name, &chip);
    if (ret != 0) {
        ASD_LOG_ERROR("Get %s failed! ret(%d).", second ? "PROPERTY_ASD_DEV1" : "dev", ret);
        return ret;
    }
    ret = asd_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16);
    if (ret != 0) {
        ASD_LOG_ERROR("Write %s EEPROM failed! ret(%d).", second ? "2nd" : "1st", ret);
    }
    return ret;
}

// ---- One chip, or both and the check flag ----

gint32 asd_write_method(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get objname failed.");
        return kStatusFailed;
    }
    if (asd_obj_is_online(obj_handle) == 0) {
        ASD_LOG_ERROR("%s: %s asd not online!", __func__, name);
        return kStatusNotOnline;
    }
    guint32 length = 0;
    if (const gint32 ret = asd_get_length(obj_handle, &length); ret != 0) {
        ASD_LOG_ERROR("%s: %s asd get value len failed[%d]!", __func__, name, ret);
        return ret;
    }
    const WorkBuffer image = image_checked(name, data, len, length, "final data");
    if (!image) {
        return kStatusFailed;
    }
    if (const gint32 ret = asd_write_check(obj_handle, image.get(), length); ret != 0) {
        ASD_LOG_INFO("%s: Write eeprom failed! result: %d.", __func__, ret);
        return ret;
    }
    return asd_update_property(obj_handle, image.get(), length);
}

gint32 asd_write_check(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    const DevProperty property = chosen_dev_property();
    const gchar *name = logged_name(obj_handle);
    gint32 count_ret = 0;
    const guint32 count = item_chip_count(obj_handle, &count_ret);
    if (count_ret != 0) {
        ASD_LOG_ERROR("%s: %s Get eeprom count failed! ret: %d.", __func__, name, count_ret);
    }
    if (count == 1) {
        OBJ_HANDLE chip = 0;
        if (const gint32 ret = referenced_chip(obj_handle, property.name, &chip); ret != 0) {
            ASD_LOG_ERROR("%s: %s Get dev failed! ret: %d.", __func__, name, ret);
            return ret;
        }
        return asd_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16);
    }
    if (count == 2) {
        return asd_write_chip_check(obj_handle, data, len);
    }
    ASD_LOG_ERROR("%s: %s chip count(%d) is wrong!", __func__, name, count);
    return kStatusChipCount;
}

gint32 Asd_WriteMemProperty(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    if (data == nullptr) {
        ASD_LOG_ERROR("Input Parameter is NULL.");
        return kStatusFailed;
    }
    if (asd_obj_is_online(obj_handle) == 0) {
        ASD_LOG_ERROR("%s: asd is not online!", __func__);
        return kStatusNotOnline;
    }
    const gchar *name = logged_name(obj_handle);
    guint32 length = 0;
    if (const gint32 ret = asd_get_length(obj_handle, &length); ret != 0) {
        ASD_LOG_ERROR("%s: asd(%s) get value len failed(%d)!", __func__, name, ret);
        return ret;
    }
    if (!length_fits(name, length)) {
        return kStatusFailed;
    }
    const WorkBuffer image = image_build(data, len, length, "final data");
    if (!image) {
        ASD_LOG_ERROR("%s: asd(%s) malloc failed!", __func__, name);
        return kStatusFailed;
    }
    return asd_update_property(obj_handle, image.get(), length);
}

// ---- Pairs with a check flag ----

// Writes the chip with this index of a flagged pair.
static gint32 pair_chip_write(OBJ_HANDLE item, const gchar *name, gint32 index, const guint8 *data, guint32 len) {
    static constexpr const gchar *kFunction = "asd_write_chip_check"; // as the texts name it
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(item, index == 0 ? PROPERTY_ASD_DEV0 : PROPERTY_ASD_DEV1, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: %s Get PROPERTY_ASD_DEV%d failed! ret: %d.", kFunction, name, index, ret);
        return ret;
    }
    const gint32 ret = asd_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16);
    if (ret != 0) {
        ASD_LOG_INFO("%s: Write %s EEPROM failed! ret: %d.", kFunction, index == 0 ? "1st" : "2nd", ret);
    }
    return ret;
}

gint32 asd_write_chip_check(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get objname failed.");
        return kStatusFailed;
    }
    const gint32 ret0 = pair_chip_write(obj_handle, name, 0, data, len);
    const gint32 ret1 = pair_chip_write(obj_handle, name, 1, data, len);
    if (ret0 == 0) {
        return asd_choose_object_write(obj_handle, ret1 == 0 ? kFlagBoth : kFlagChip0);
    }
    return ret1 == 0 ? asd_choose_object_write(obj_handle, kFlagChip1) : kStatusNoChipUsable;
}

gint32 asd_choose_object_write(OBJ_HANDLE obj_handle, guint8 check_flag) {
    OBJ_HANDLE check_object = 0;
    if (const gint32 ret = asd_choose_object(obj_handle, &check_object); ret != 0) {
        return ret;
    }
    return asd_write_check_flag(check_object, check_flag);
}

static gint32 flag_chip_write(OBJ_HANDLE chip, guint8 stored) {
    return asd_eeprom_write(chip, &stored, 1, ASD_CHECKSUM_CRC16);
}

// Kept (record): the flag of the chip that failed stays as it was, so that the good chip, holding 2, is picked first. A
// 2 left on chip 0 by an earlier one-sided write wins over chip 1's.
gint32 asd_write_check_flag(OBJ_HANDLE chk_obj_handle, guint8 check_flag) {
    const gchar *name = dfl_get_object_name(chk_obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get objname failed.");
        return kStatusFailed;
    }
    if (check_flag > kFlagBoth) {
        ASD_LOG_ERROR("%s check_flag(%d) is wrong!", name, check_flag);
        return kStatusFailed;
    }
    OBJ_HANDLE chip = 0;
    gint32 ret = referenced_chip(chk_obj_handle, PROPERTY_ASD_DEV0, &chip);
    if (ret != 0) {
        ASD_LOG_ERROR("%s Get check_flag PROPERTY_ASD_DEV0 failed! ret: %d.", name, ret);
    } else if (check_flag != kFlagChip1) {
        ret = flag_chip_write(chip, check_flag == kFlagChip0 ? kStoredAlone : kStoredBoth);
        if (ret != 0) {
            ASD_LOG_ERROR("%s Write 1st EEPROM check_flag failed! check_flag: %d, ret: %d.", name, check_flag, ret);
            return ret;
        }
    }
    if (check_flag == kFlagChip0) {
        if (ret == 0) {
            ASD_LOG_INFO("Only write 1st EEPROM and write OK! check_flag: %d.", check_flag);
        }
        return ret;
    }
    ret = referenced_chip(chk_obj_handle, PROPERTY_ASD_DEV1, &chip);
    if (ret != 0) {
        ASD_LOG_ERROR("%s Get check_flag PROPERTY_ASD_DEV1 failed! ret: %d.", name, ret);
        return ret;
    }
    ret = flag_chip_write(chip, check_flag == kFlagChip1 ? kStoredAlone : kStoredBoth);
    if (ret != 0) {
        ASD_LOG_ERROR("%s Write 2nd EEPROM check_flag failed! check_flag: %d, ret: %d.", name, check_flag, ret);
    }
    return ret;
}

// ---- Power supplies ----

gint32 asd_power_write(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    // Kept (answer): no online check on this path, unlike all others.
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get objname failed.");
        return kStatusFailed;
    }
    guint32 length = 0;
    if (const gint32 ret = asd_get_length(obj_handle, &length); ret != 0) {
        return ret;
    }
    if (length > kPowerItemMax) {
        ASD_LOG_ERROR("%s length(%d) exceed asd ekey max len(%d).", name, length, kPowerItemMax);
        return kStatusFailed;
    }
    const WorkBuffer image = image_build(data, len, length, "final data");
    if (!image) {
        ASD_LOG_ERROR("malloc fail");
        return kStatusFailed;
    }
    if (const gint32 ret = asd_power_write_chip(obj_handle, image.get(), length); ret != 0) {
        ASD_LOG_ERROR("%s write power eeprom failed[%d]!", name, ret);
        return ret;
    }
    return asd_update_property(obj_handle, image.get(), length);
}

gint32 asd_power_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    guint32 count = 0;
    if (const gint32 ret = asd_get_eeprom_count(obj_handle, &count); ret != 0) {
        ASD_LOG_ERROR("get eeprom count failed!");
        return ret;
    }
    if (count != 1) {
        ASD_LOG_ERROR("chip count(%d) is wrong!", count);
        return kStatusChipCount;
    }
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(obj_handle, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("get dev failed, ret(%d)", ret);
        return ret;
    }
    return asd_power_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16);
}

// Chips with a control of their own: whether it worked shows in the transfer.
void asd_power_eprom_write_enable(OBJ_HANDLE dev_handle) {
    (void)property_write(dev_handle, PROPERTY_ASD_DEV_STGWP, kProtectOff, kOptionsStgWp); // the transfer decides
    vos_task_delay(kProtectSettleMs);
}

void asd_power_eprom_write_disable(OBJ_HANDLE dev_handle) {
    (void)property_write(dev_handle, PROPERTY_ASD_DEV_STGWP, kProtectOn, kOptionsStgWp); // the transfer decides
}

using AttemptHook = void (*)(OBJ_HANDLE chip);

// Attempts a write without the EEPROM lock and the shared lines, before and after each attempt the hooks, where given.
static gint32 special_attempts(const ChipRecord &record, AttemptHook before, AttemptHook after) {
    gint32 ret = kStatusOk;
    for (guint32 attempt = 0; attempt < record.retry; ++attempt) {
        if (before != nullptr) {
            before(record.chip);
        }
        ret = record_transfer(record);
        if (after != nullptr) {
            after(record.chip);
        }
        if (ret == 0) {
            return ret;
        }
        vos_task_delay(kSpecialPauseMs);
    }
    return ret;
}

// Builds the record in a buffer of its own; empty without memory or data.
static WorkBuffer special_build(ChipRecord *record, const guint8 *data) {
    WorkBuffer bytes = WorkBuffer::allocate(data != nullptr ? record_size(record->len) : 0);
    if (bytes) {
        (void)asd_eeprom_writecrc(data, record->len, bytes.get()); // fails for what has been checked alone
    }
    record->bytes = bytes.get();
    return bytes;
}

static gint32 special_outcome(OBJ_HANDLE chip, gint32 ret) {
    (void)asd_update_dev_health(chip, ret != 0 ? 1 : 0); // logged there
    (void)asd_update_dev_errcode(chip, ret);             // logged there
    return ret;
}

gint32 asd_power_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 /*crc_kind*/) {
    const gchar *name = dfl_get_object_name(dev_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("get object name fail.");
        return kStatusFailed;
    }
    ChipRecord record = {.chip = dev_handle, .len = len};
    if (const gint32 ret = property_read(dev_handle, PROPERTY_ASD_DEV_OFFSET, &record.offset); ret != 0) {
        ASD_LOG_ERROR("Get power eeprom offset failed! result: %d.", ret);
        return kStatusFailed;
    }
    (void)property_read(dev_handle, PROPERTY_ASD_DEV_RETRYNUMBER, &record.retry); // missing: the default stands
    if (!name_in(name, kPowerChips)) {
        ASD_LOG_ERROR("Please check whether this eeprom is in power.");
        return kStatusFailed;
    }
    const WorkBuffer bytes = special_build(&record, data);
    if (!bytes) {
        return kStatusFailed;
    }
    const gint32 ret = special_attempts(record, asd_power_eprom_write_enable, asd_power_eprom_write_disable);
    if (ret != 0) {
        ASD_LOG_ERROR("write power eeprom failed! result: %d.", ret);
    }
    return special_outcome(dev_handle, ret);
}

// ---- Fan modules ----

gint32 asd_fan_write_chip(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    guint32 count = 0;
    if (const gint32 ret = asd_get_eeprom_count(obj_handle, &count); ret != 0) {
        ASD_LOG_ERROR("%s: get eeprom count failed!(line:%d)", __func__, __LINE__);
        return ret;
    }
    if (count != 1) {
        ASD_LOG_ERROR("%s: chip count(%d) is wrong!(line:%d)", __func__, count, __LINE__);
        return kStatusChipCount;
    }
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(obj_handle, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: get dev failed!(line:%d) ret(%d)", __func__, __LINE__, ret);
        return ret;
    }
    return asd_fan_eeprom_write(chip, data, len, ASD_CHECKSUM_CRC16);
}

gint32 asd_fan_eeprom_write(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 /*crc_kind*/) {
    ChipRecord record = {.chip = dev_handle, .len = len};
    if (asd_eeprom_getoffset(dev_handle, &record.retry, &record.offset) != 0) {
        ASD_LOG_ERROR("Get eeprom offset faild.");
        return kStatusFailed;
    }
    if (!name_in(dfl_get_object_name(dev_handle), kFanChips)) {
        ASD_LOG_ERROR("Please check whether this eeprom is in fan mode.");
        return kStatusFailed;
    }
    const WorkBuffer bytes = special_build(&record, data);
    if (!bytes) {
        return kStatusFailed;
    }
    const gint32 ret = special_attempts(record, nullptr, nullptr);
    if (ret != 0) {
        ASD_LOG_ERROR("write fan eeprom failed! result: %d.", ret);
    }
    return special_outcome(dev_handle, ret);
}

// ---- Buckle cards ----

gint32 asd_bucklecard_writetype(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    // Kept (answer): the test is looser than the copy; callers hand in four bytes.
    if (data == nullptr || len < 2) {
        ASD_LOG_ERROR("Write bucklecard type input data len is invalid");
        return kStatusFailed;
    }
    std::array<guint8, kBucklecardTypeSize> type{};
    std::copy_n(data, type.size(), type.begin());
    return asd_bucklecard_eeprom_write(obj_handle, type.data(), kBucklecardTypeSize);
}

gint32 asd_bucklecard_eeprom_write(OBJ_HANDLE obj_handle, const guint8 *data, guint32 len) {
    guint32 count = 0;
    if (asd_get_eeprom_count(obj_handle, &count) != 0) {
        ASD_LOG_ERROR("%s: get eeprom count failed", __func__);
        return kStatusFailed;
    }
    if (count != 1) {
        ASD_LOG_ERROR("%s chip count(%d) is invalid!", __func__, count);
        return kStatusFailed;
    }
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(obj_handle, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: get dev obj failed(ret=%d)", __func__, ret);
        return kStatusFailed;
    }
    if (asd_bucklecard_eeprom_wp(chip, kProtectOff) != 0) {
        return kStatusFailed;
    }
    vos_task_delay(kProtectSettleMs);
    (void)asd_bucklecard_eeprom_writedata(chip, data, len, ASD_CHECKSUM_CRC16); // shows in Health and ErrorCode
    // Kept (answer): the result is that of protecting the card again; a failed write shows in Health and ErrorCode.
    return asd_bucklecard_eeprom_wp(chip, kProtectOn);
}

gint32 asd_bucklecard_eeprom_wp(OBJ_HANDLE dev_handle, guint8 value) {
    const gchar *name = dfl_get_object_name(dev_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("get object name failed.");
        return kStatusFailed;
    }
    guint8 protectable = 0;
    if (const gint32 ret = property_read(dev_handle, PROPERTY_ASD_DEV_STGISWP, &protectable); ret != 0) {
        ASD_LOG_ERROR("%s get eeprom is need protect value failed(ret=%d)", name, ret);
        return ret;
    }
    if (protectable != 1) {
        return kStatusOk;
    }
    const gint32 ret = property_write(dev_handle, PROPERTY_ASD_DEV_STGWP, value, kOptionsStgWp);
    if (ret != 0) {
        ASD_LOG_ERROR("%s set eeprom wp %d failed(ret=%d)", name, value, ret);
    }
    return ret;
}

gint32 asd_bucklecard_eeprom_writedata(OBJ_HANDLE dev_handle, const guint8 *data, guint32 len, guint32 /*crc_kind*/) {
    const gchar *name = dfl_get_object_name(dev_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("get object name fail.");
        return kStatusFailed;
    }
    ChipRecord record = {.chip = dev_handle, .len = len};
    if (asd_eeprom_getoffset(dev_handle, &record.retry, &record.offset) != 0) {
        ASD_LOG_ERROR("Get eeprom offset faild.");
        return kStatusFailed;
    }
    const WorkBuffer bytes = special_build(&record, data);
    if (!bytes) {
        return kStatusFailed;
    }
    const gint32 ret = special_attempts(record, nullptr, nullptr);
    if (ret != 0) {
        ASD_LOG_ERROR("%s: write failed(ret=%d)", name, ret);
    }
    return special_outcome(dev_handle, ret);
}
