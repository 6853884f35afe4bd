// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_read.h"

#include "arith.h"
#include "bmc_asd_holders.h"
#include "bmc_asd_log.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_property.h"
#include "bmc_asd_record.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "object_frame.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <string_view>

// ---- Chips by checksum rule ----

// A bad checksum on these is a failure. Kept (answer): 24a to 27a have no second chip.
static constexpr std::array<std::string_view, 18> kStrictChips = {"ASDDev5a",
                                                                  "ASDDev5b",
                                                                  "ASDDev21a",
                                                                  "ASDDev21b",
                                                                  "ASDDev24a",
                                                                  "ASDDev25a",
                                                                  "ASDDev26a",
                                                                  "ASDDev27a",
                                                                  "ASDDev52a",
                                                                  "ASDDev52b",
                                                                  "ASDDev53a",
                                                                  "ASDDev53b",
                                                                  "ASD_FrameLedRuleDeva",
                                                                  "ASD_FrameLedRuleDevb",
                                                                  "ASD_CCDBa",
                                                                  "ASD_CCDBb",
                                                                  "ASD_PRODUCT_CFGINFO_VALIDa",
                                                                  "ASD_PRODUCT_CFGINFO_VALIDb"};

// These may be blank: an erased record is taken as it is, without another read.
static constexpr std::array<std::string_view, 12> kBlankTolerantChips = {
    "ASDDev10a", "ASDDev10b", "ASDDev11a", "ASDDev11b", "ASDDev13a", "ASDDev13b",
    "ASDDev14a", "ASDDev14b", "ASDDev15a", "ASDDev15b", "ASDDev20a", "ASDDev20b"};

static_assert(std::ranges::find_first_of(kStrictChips, kBlankTolerantChips) == kStrictChips.end());

static constexpr std::string_view kPowerThresholdChip = "ASDDevPowerThresholda";
static constexpr std::string_view kPowerThresholdItem = "ASD_PowerThreshold";
static constexpr std::string_view kChipSilentOnChecksum = "ASDDev25a"; // the bay configuration is often absent

static constexpr guint32 kReadRounds = 3;
static constexpr guint32 kReadPauseMs = 100;

// Log-once flags of the power threshold's chip and item, so that a missing EEPROM does not flood the log; a race only
// repeats a message.
static std::atomic<bool> power_threshold_chip_failed{false};
static std::atomic<bool> power_threshold_item_failed{false};

// ---- One record on one chip ----

gint32 asd_eeprom_getoffset(OBJ_HANDLE dev_handle, guint32 *retry, guint32 *offset) {
    if (retry == nullptr || offset == nullptr) {
        return kStatusFailed;
    }
    if (const gint32 ret = property_read(dev_handle, PROPERTY_ASD_DEV_OFFSET, offset); ret != 0) {
        ASD_LOG_ERROR("[%s] Get eeprom offset failed! result: %d.", logged_name(dev_handle), ret);
        return kStatusFailed;
    }
    if (property_read(dev_handle, PROPERTY_ASD_DEV_RETRYNUMBER, retry) != 0) {
        *retry = kRetryDefault;
    }
    return kStatusOk;
}

gint32 ASD_IsNeedCcrRetry(const gchar *dev_name, guint32 len, const guint8 *work) {
    if (!name_in(dev_name, kBlankTolerantChips)) {
        return 1;
    }
    const std::span record(work, gsize{len} + kChecksumSize);
    return std::ranges::all_of(record, [](guint8 byte) { return byte == kErased; }) ? 0 : 1;
}

namespace {

// A chip's record as the last round of a call left it.
struct LastRound {
    gint32 ret = 0;              // of the last transfer
    guint16 computed = 0;        // checksum of the data, of the last round whose transfer succeeded
    guint16 stored = 0;          // checksum behind it
    bool rounds_used_up = false; // read three times, bad each time

    [[nodiscard]] bool matches() const { return computed == stored; }
};

} // namespace

using ReadAgain = bool (*)(const gchar *dev_name, guint32 len, const guint8 *work);

static bool strict_reads_again(const gchar *dev_name, guint32 /*len*/, const guint8 * /*work*/) {
    return name_in(dev_name, kStrictChips);
}

static bool any_reads_again(const gchar *dev_name, guint32 len, const guint8 *work) {
    return name_in(dev_name, kStrictChips) || ASD_IsNeedCcrRetry(dev_name, len, work) != 0;
}

// Transfers until one succeeds or the budget, which all rounds of a call share, is spent. Without budget no transfer is
// made and the previous result stands.
static gint32 record_transfer(ChipRecord *record, gint32 previous) {
    gint32 ret = previous;
    while (record->retry != 0) {
        ret = dfl_block_read(record->chip, PROPERTY_ASD_DEV_STORAGELOC, record->offset, record_size(record->len),
                             record->bytes);
        if (ret == 0) {
            return ret;
        }
        vos_task_delay(kReadPauseMs);
        --record->retry;
    }
    return ret;
}

// Reads a record until its checksum is good, again says that another round is not worth it, or three rounds are done.
static LastRound record_read(ChipRecord record, ReadAgain again) {
    const gchar *name = dfl_get_object_name(record.chip);
    LastRound read;
    for (guint32 round = 0; round < kReadRounds; ++round) {
        read.ret = record_transfer(&record, read.ret);
        (void)asd_update_dev_errcode(record.chip, read.ret); // logged there
        if (read.ret != 0) {
            return read;
        }
        const guint8 *checksum = record.bytes + record.len;
        read.computed = arith_make_crc_checksum(0, record.bytes, record.len);
        read.stored = static_cast<guint16>(checksum[0] | (checksum[1] << 8U));
        if (read.matches() || !again(name, record.len, record.bytes)) {
            return read;
        }
    }
    read.rounds_used_up = true;
    return read;
}

static void record_deliver(const ChipRecord &record, guint8 *data) {
    if (const gint32 ret = memcpy_s(data, record.len, record.bytes, record.len); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd check data failed, result = %d.", ret);
    }
}

// Logs, and on accepted data delivers, what a read found.
static void record_conclude(const ChipRecord &record, const gchar *name, const LastRound &read, guint8 *data) {
    const bool power_threshold = name == kPowerThresholdChip;
    if (read.ret != 0) {
        if (power_threshold && !power_threshold_chip_failed.exchange(true)) {
            ASD_LOG_ERROR("[%s] Read eeprom failed! result: %d.", name, read.ret);
        }
        return;
    }
    if (read.rounds_used_up) {
        if (name != kChipSilentOnChecksum) {
            ASD_LOG_INFO("Read backBoard(%s) eeprom ok but crc check failed(CrcRet=%d, CrcReal=%d)", name,
                         read.computed, read.stored);
        }
        record_deliver(record, data);
        return;
    }
    if (!read.matches()) {
        ASD_LOG_INFO("%s Read eeprom OK but CRC check failed.CrcRet[%d], CrcReal[%d]!", name, read.computed,
                     read.stored);
    }
    record_deliver(record, data);
    if (power_threshold) {
        power_threshold_chip_failed = false;
    }
}

gint32 asd_eeprom_readblk(OBJ_HANDLE dev_handle, guint8 *data, guint32 len, guint8 *work, guint32 offset,
                          guint32 retry) {
    assert(data != nullptr && work != nullptr && record_size(len) != 0);
    const gchar *name = logged_name(dev_handle);
    ChipRecord record = {.chip = dev_handle, .len = len, .offset = offset, .retry = retry};
    record.bytes = work;
    const LastRound read = record_read(record, any_reads_again);
    record_conclude(record, name, read, data);
    asd_check_errlevel(dev_handle, read.ret, name, read.ret != 0 ? 1 : 0);
    if (name_in(name, kStrictChips) && !read.matches()) {
        return read.ret | 1;
    }
    // Kept (answer): elsewhere a bad checksum is no failure; the bytes are delivered as they were read.
    return read.ret;
}

// What both reads of a record do first: the address, the budget and the work buffer.
static WorkBuffer read_prepare(ChipRecord *record, const guint8 *data) {
    if (data == nullptr) {
        ASD_LOG_ERROR("Input parameter error.");
        return WorkBuffer::allocate(0);
    }
    if (asd_eeprom_getoffset(record->chip, &record->retry, &record->offset) != 0) {
        ASD_LOG_ERROR("Get eeprom offset faild.");
        return WorkBuffer::allocate(0);
    }
    WorkBuffer work = WorkBuffer::allocate(record_size(record->len));
    if (!work) {
        ASD_LOG_ERROR("%s malloc memory failed.", logged_name(record->chip));
    }
    record->bytes = work.get();
    return work;
}

gint32 asd_eeprom_read(OBJ_HANDLE dev_handle, guint8 *data, guint32 len) {
    ChipRecord record = {.chip = dev_handle, .len = len};
    const WorkBuffer work = read_prepare(&record, data);
    if (!work) {
        return kStatusFailed;
    }
    return asd_eeprom_readblk(dev_handle, data, len, work.get(), record.offset, record.retry);
}

// Reads, delivers and frees the work buffer: it must not outlive the transfer, writing Health may take its time.
static LastRound check_read_run(const ChipRecord &record, WorkBuffer /*work*/, guint8 *data) {
    const LastRound read = record_read(record, strict_reads_again);
    if (read.ret == 0) {
        if (read.rounds_used_up) {
            ASD_LOG_ERROR("Read BackBoard [%s] eeprom OK but CRC check failed.CrcRet[%d], CrcReal[%d]!",
                          logged_name(record.chip), read.computed, read.stored);
        }
        record_deliver(record, data);
    }
    return read;
}

gint32 asd_eeprom_check_read(OBJ_HANDLE dev_handle, guint8 *data, guint32 len) {
    ChipRecord record = {.chip = dev_handle, .len = len};
    WorkBuffer work = read_prepare(&record, data);
    if (!work) {
        return kStatusFailed;
    }
    const LastRound read = check_read_run(record, std::move(work), data);
    asd_check_errlevel(dev_handle, read.ret, dfl_get_object_name(dev_handle), read.ret != 0 ? 1 : 0);
    return read.rounds_used_up ? kStatusChecksum : read.ret;
}

// ---- An item ----

gint32 asd_read_equip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len) {
    if (asd_obj_is_online(obj_handle) == 0) {
        return kStatusNotOnline;
    }
    if (const gint32 ret = asd_read_chip(obj_handle, data, len); ret != 0) {
        ASD_LOG_ERROR("%s: %s Read eeprom failed[%d]!", __func__, logged_name(obj_handle), ret);
        return ret;
    }
    return asd_update_property(obj_handle, data, len);
}

// Both chips of a pair, which must hold the same bytes.
static gint32 read_both(const gchar *function, const gchar *name, OBJ_HANDLE item, guint8 *data, guint32 len) {
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(item, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: %s Get PROPERTY_ASD_DEV0 failed! ret: %d.", function, name, ret);
        return ret;
    }
    if (const gint32 ret = asd_eeprom_read(chip, data, len); ret != 0) {
        ASD_LOG_ERROR("%s: %s Read 1st EEPROM failed! ret: %d.", function, name, ret);
        return ret;
    }
    if (const gint32 ret = referenced_chip(item, PROPERTY_ASD_DEV1, &chip); ret != 0) {
        ASD_LOG_ERROR("%s: %s Get PROPERTY_ASD_DEV1 failed! ret: %d.", function, name, ret);
        return ret;
    }
    const WorkBuffer second = WorkBuffer::allocate(len);
    if (!second) {
        ASD_LOG_ERROR("%s malloc fail", function);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_eeprom_read(chip, second.get(), len); ret != 0) {
        ASD_LOG_ERROR("%s: %s Read 2nd EEPROM failed! ret: %d.", function, name, ret);
        return ret;
    }
    if (std::memcmp(data, second.get(), len) != 0) {
        ASD_LOG_ERROR("%s: %s Data is not same in two EEPROM!", function, name);
        return kStatusChipsDiffer;
    }
    return kStatusOk;
}

gint32 asd_read_chip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len) {
    const DevProperty property = chosen_dev_property();
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        return kStatusFailed;
    }
    gint32 count_ret = 0;
    guint32 count = item_chip_count(obj_handle, &count_ret);
    if (count_ret != 0) {
        ASD_LOG_ERROR("%s: %s Get eeprom count failed! ret: %d.", __func__, name, count_ret);
    }
    if (BSP_GetBpEepromCount() == 1) {
        count = 1;
    }
    if (count == 1) {
        OBJ_HANDLE chip = 0;
        if (const gint32 ret = referenced_chip(obj_handle, property.name, &chip); ret != 0) {
            ASD_LOG_ERROR("%s: %s Get dev failed! ret: %d.", __func__, name, ret);
            return ret;
        }
        return asd_eeprom_read(chip, data, len);
    }
    if (count == 2) {
        return read_both(__func__, name, obj_handle, data, len);
    }
    ASD_LOG_ERROR("%s: %s chip count(%u) is wrong!", __func__, name, count);
    return kStatusChipCount;
}

gint32 asd_read_equip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId) {
    if (asd_obj_is_online(obj_handle) == 0) {
        return kStatusNotOnline;
    }
    if (const gint32 ret = asd_read_chip_one(obj_handle, data, len, DeviceId); ret != 0) {
        ASD_LOG_ERROR("%s: Read eeprom failed[%d]!", __func__, ret);
        return ret;
    }
    return asd_update_property(obj_handle, data, len);
}

using RecordReader = gint32 (*)(OBJ_HANDLE chip, guint8 *data, guint32 len);

// Reads the chip with index device_id, chip 0 behind first_property.
static gint32 read_device(OBJ_HANDLE item, guint8 *data, guint32 len, guint8 device_id, const gchar *first_property,
                          RecordReader read) {
    if (device_id > 1) {
        ASD_LOG_ERROR("device id(%d) is wrong!", device_id);
        return kStatusFailed;
    }
    const bool second = device_id == 1;
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(item, second ? PROPERTY_ASD_DEV1 : first_property, &chip); ret != 0) {
        ASD_LOG_ERROR("Get %s failed! ret: %d.", second ? "PROPERTY_ASD_DEV1" : "dev", ret);
        return ret;
    }
    const gint32 ret = read(chip, data, len);
    if (ret != 0) {
        ASD_LOG_ERROR("Read %s EEPROM failed! ret: %d.", second ? "2nd" : "1st", ret);
    }
    return ret;
}

gint32 asd_read_chip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId) {
    const DevProperty property = chosen_dev_property();
    gint32 ret = 0;
    const guint32 count = item_chip_count(obj_handle, &ret);
    if (ret != 0) {
        ASD_LOG_ERROR("Get eeprom count failed! ret: %d.", ret);
    }
    if (count != 2) {
        ASD_LOG_ERROR("eeprom count is not 2! result: %d.", ret); // Kept (log text): the lookup's result, not the count
        return kStatusFailed;
    }
    return read_device(obj_handle, data, len, DeviceId, property.name, asd_eeprom_read);
}

gint32 asd_read_method(OBJ_HANDLE obj_handle, guint8 *data, guint32 len) {
    if (asd_obj_is_online(obj_handle) == 0) {
        return kStatusNotOnline;
    }
    const gchar *name = dfl_get_object_name(obj_handle);
    if (name == nullptr) {
        return kStatusFailed;
    }
    const bool power_threshold = name == kPowerThresholdItem;
    if (const gint32 ret = asd_read_check(obj_handle, data, len); ret != 0) {
        if (power_threshold && !power_threshold_item_failed.exchange(true)) {
            ASD_LOG_ERROR("%s: (%s)Read eeprom failed! result: %d.", __func__, name, ret);
        }
        return ret;
    }
    const gint32 ret = asd_update_property(obj_handle, data, len);
    if (power_threshold) {
        power_threshold_item_failed = false;
    }
    return ret;
}

// Kept (answer): unlike asd_read_chip this does not ask how many EEPROMs the backplane has.
gint32 asd_read_check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len) {
    const DevProperty property = chosen_dev_property();
    const gchar *name = logged_name(obj_handle);
    gint32 count_ret = 0;
    const guint32 count = item_chip_count(obj_handle, &count_ret);
    if (count_ret != 0) {
        ASD_LOG_ERROR("%s: (%s)Get eeprom count failed! ret: %d.", __func__, name, count_ret);
    }
    if (count == 1) {
        OBJ_HANDLE chip = 0;
        if (const gint32 ret = referenced_chip(obj_handle, property.name, &chip); ret != 0) {
            ASD_LOG_ERROR("%s: (%s)Get dev failed! ret(%d).", __func__, name, ret);
            return ret;
        }
        return asd_eeprom_read(chip, data, len);
    }
    if (count == 2) {
        return asd_read_chip_check(obj_handle, data, len);
    }
    ASD_LOG_ERROR("%s: (%s)chip count(%u) is wrong!", __func__, name, count);
    return kStatusChipCount;
}

// Kept (answer): this, the pairs and the repair start from AtomStorageDataDev0 on every board; only the paths of a
// single chip, and of the chip that the caller names, choose.
gint32 asd_read_one_chip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len) {
    const gchar *name = logged_name(obj_handle);
    gint32 count_ret = 0;
    const guint32 count = item_chip_count(obj_handle, &count_ret);
    if (count_ret != 0) {
        ASD_LOG_ERROR("%s Get eeprom count failed! ret: %d.", name, count_ret);
    }
    if (count != 1 && count != 2) {
        ASD_LOG_ERROR("%s chip count(%u) is wrong!", name, count);
        return kStatusChipCount;
    }
    gint32 ret = asd_read_devchip(obj_handle, data, len, PROPERTY_ASD_DEV0);
    if (ret == 0) {
        return ret;
    }
    if (count == 1) {
        ASD_LOG_ERROR("%s read eeprom count 1 failed, ret=%d", name, ret);
        return ret;
    }
    ret = asd_read_devchip(obj_handle, data, len, PROPERTY_ASD_DEV1);
    if (ret != 0) {
        ASD_LOG_ERROR("%s read eeprom count 2 failed, ret=%d", name, ret);
    }
    return ret;
}

gint32 asd_read_devchip(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, const gchar *property) {
    const gchar *name = logged_name(obj_handle);
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(obj_handle, property, &chip); ret != 0) {
        ASD_LOG_ERROR("%s Get dev failed(ret=%d)", name, ret);
        return ret;
    }
    const gint32 ret = asd_eeprom_read(chip, data, len);
    if (ret != 0) {
        ASD_LOG_ERROR("%s read eeprom failed(ret=%d)", name, ret);
    }
    return ret;
}

// ---- Pairs with a check flag ----

// The flag byte on the chip with this index of the check object; 0 when it cannot be read.
static gint32 flag_chip_read(OBJ_HANDLE check_object, const gchar *name, gint32 index, guint8 *stored) {
    OBJ_HANDLE chip = 0;
    gint32 ret = referenced_chip(check_object, index == 0 ? PROPERTY_ASD_DEV0 : PROPERTY_ASD_DEV1, &chip);
    if (ret != 0) {
        ASD_LOG_ERROR("asd_read_check_flag: (%s)Get check_flag PROPERTY_ASD_DEV%d failed! ret: %d.", name, index, ret);
        return ret;
    }
    ret = asd_eeprom_read(chip, stored, 1);
    if (ret != 0) {
        *stored = 0; // a strict chip delivers the byte even when its checksum is bad
        AsdCheckFlagErrorlog(name, index + 1, ret);
    }
    return ret;
}

gint32 asd_read_check_flag(OBJ_HANDLE chk_obj_handle, guint8 *check_flag) {
    const gchar *name = dfl_get_object_name(chk_obj_handle);
    if (name == nullptr) {
        ASD_LOG_ERROR("Get get objname failed.");
        return kStatusFailed;
    }
    guint8 stored0 = 0;
    const gint32 ret0 = flag_chip_read(chk_obj_handle, name, 0, &stored0);
    guint8 stored1 = 0;
    const gint32 ret1 = flag_chip_read(chk_obj_handle, name, 1, &stored1);
    if (ret0 != 0 && ret1 != 0) {
        *check_flag = kFlagUnread;
        return kStatusNoChipUsable;
    }
    // Kept (answer): chip 0's flag is looked at first, also when chip 1 was written alone after it; see the write.
    if (stored0 == kStoredAlone) {
        *check_flag = kFlagChip0;
    } else if (stored1 == kStoredAlone) {
        *check_flag = kFlagChip1;
    } else {
        *check_flag = kFlagBoth;
    }
    return kStatusOk;
}

gint32 asd_choose_object_read(OBJ_HANDLE obj_handle, guint8 *check_flag) {
    OBJ_HANDLE check_object = 0;
    if (const gint32 ret = asd_choose_object(obj_handle, &check_object); ret != 0) {
        return ret;
    }
    return asd_read_check_flag(check_object, check_flag);
}

gint32 asd_read_chip_dev0check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 check_flag) {
    const gchar *name = logged_name(obj_handle);
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(obj_handle, PROPERTY_ASD_DEV0, &chip); ret != 0) {
        ASD_LOG_ERROR("(%s)Get PROPERTY_ASD_DEV0 failed! ret: %d.", name, ret);
        return ret;
    }
    if (check_flag == kFlagChip0) {
        const gint32 ret = asd_eeprom_read(chip, data, len);
        if (ret != 0) {
            ASD_LOG_ERROR("(%s)Only read 1st EEPROM and read failed! check_flag: %d, ret: %d.", name, check_flag, ret);
        }
        return ret;
    }
    if (check_flag == kFlagBoth) {
        const gint32 ret = asd_eeprom_read(chip, data, len);
        if (ret != 0) {
            AsdChipCheckErrorLog(name, 1, kFlagBoth, ret);
            return ret;
        }
        ASD_LOG_INFO("(%s)Read 1st EEPROM OK! check_flag: %d.", name, check_flag);
    }
    return kStatusOk;
}

gint32 asd_read_chip_dev1check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 check_flag) {
    const gchar *name = logged_name(obj_handle);
    OBJ_HANDLE chip = 0;
    if (const gint32 ret = referenced_chip(obj_handle, PROPERTY_ASD_DEV1, &chip); ret != 0) {
        ASD_LOG_ERROR("(%s)Get PROPERTY_ASD_DEV1 failed! ret: %d.", name, ret);
        return ret;
    }
    if (check_flag != kFlagChip1 && check_flag != kFlagBoth) {
        return kStatusOk;
    }
    const gint32 ret = asd_eeprom_read(chip, data, len);
    if (ret == 0) {
        return ret;
    }
    if (check_flag == kFlagBoth) {
        AsdChipCheckErrorLog(name, 2, kFlagBoth, ret);
    } else {
        ASD_LOG_ERROR("%s)Only read 2nd EEPROM and read failed! check_flag: %d, ret: %d.", name, check_flag, ret);
    }
    return ret;
}

// Kept (answer): with both chips expected good, a failing chip 0 is not replaced by chip 1: the read fails.
gint32 asd_read_chip_check(OBJ_HANDLE obj_handle, guint8 *data, guint32 len) {
    guint8 check_flag = kFlagUnread;
    if (const gint32 ret = asd_choose_object_read(obj_handle, &check_flag); ret != 0) {
        return ret;
    }
    const gint32 ret = asd_read_chip_dev0check(obj_handle, data, len, check_flag);
    if (check_flag != kFlagChip1) {
        return ret;
    }
    return asd_read_chip_dev1check(obj_handle, data, len, check_flag);
}

// ---- Compare and repair ----

gint32 asd_check_read_chip_one(OBJ_HANDLE obj_handle, guint8 *data, guint32 len, guint8 DeviceId) {
    return read_device(obj_handle, data, len, DeviceId, PROPERTY_ASD_DEV0, asd_eeprom_check_read);
}

// An all-0xFF buffer: a copy that could not be read looks erased.
static WorkBuffer erased_buffer(guint32 length) {
    WorkBuffer buffer = WorkBuffer::allocate(length);
    if (buffer) {
        (void)memset_s(buffer.get(), length, kErased, length); // cannot fail: the buffer has this size
    }
    return buffer;
}

static gint32 repair_write(const gchar *name, OBJ_HANDLE item, const guint8 *good, guint32 length, guint8 device_id) {
    const gint32 ret = asd_write_chip_one(item, good, length, device_id);
    if (ret != 0) {
        ASD_LOG_ERROR("%s eeprom%d write failed! ret(%d).", name, device_id, ret);
    }
    return ret;
}

gint32 asd_eeprom_check(const gchar *obj_name) {
    OBJ_HANDLE item = 0;
    gint32 ret = dfl_get_object_handle(obj_name, &item);
    if (ret != 0) {
        ASD_LOG_ERROR("%s call dfl_get_object_handle failed! result: %d.", obj_name, ret);
        return ret;
    }
    guint32 length = 0;
    if (const gint32 length_ret = asd_get_length(item, &length); length_ret != 0) {
        ASD_LOG_ERROR("%s get length failed! result: %d.", obj_name, length_ret);
        return ret; // Kept (answer): the lookup's 0; the log has said what failed
    }
    if (length > kItemMax) {
        ASD_LOG_ERROR("%s length(%d) exceed asd eep max size(%d).", obj_name, length, kItemMax);
        return kStatusFailed;
    }
    const WorkBuffer copy0 = erased_buffer(length);
    const WorkBuffer copy1 = erased_buffer(length);
    if (!copy0 || !copy1) {
        ASD_LOG_ERROR("ASD BMC_g_malloc0 failed!");
        return kStatusFailed;
    }
    const gint32 ret0 = asd_check_read_chip_one(item, copy0.get(), length, 0);
    if (ret0 != 0) {
        ASD_LOG_ERROR("Read eeprom failed[%d]!", ret0);
    }
    const gint32 ret1 = asd_check_read_chip_one(item, copy1.get(), length, 1);
    if (ret1 != 0) {
        ASD_LOG_ERROR("Read eeprom failed[%d]!", ret1);
    }
    if (ret0 == kStatusChecksum && ret1 == 0) {
        ret = repair_write(obj_name, item, copy1.get(), length, 0);
    } else if (ret0 == 0 && ret1 == kStatusChecksum) {
        ret = repair_write(obj_name, item, copy0.get(), length, 1);
    }
    return ret;
}

// ---- Failure loggers ----

// Kept (log text): the ordinal's suffix depends on the object, not on the chip's number.
void AsdCheckFlagErrorlog(const gchar *obj_name, gint32 chip, gint32 ret) {
    static RateLimit limit(600000, 4);
    if (obj_name == nullptr || std::string_view(obj_name) != "ASD_BBUSWITCH1") {
        ASD_LOG_ERROR("(%s)Read %dst EEPROM check_flag failed! ret: %d.", obj_name, chip, ret);
    } else if (limit.admits()) {
        ASD_LOG_ERROR("(%s)Read %dnd EEPROM check_flag failed! ret: %d.", obj_name, chip, ret);
    }
}

void AsdChipCheckErrorLog(const gchar *obj_name, gint32 chip, guint8 check_flag, gint32 ret) {
    static RateLimit limit(600000, 4);
    const bool rationed = obj_name != nullptr && std::string_view(obj_name) == "ASD_BBUSWITCH";
    if (!rationed || limit.admits()) {
        ASD_LOG_ERROR("(%s)Read %dst EEPROM failed! check_flag: %d, ret: %d.", obj_name, chip, check_flag, ret);
    }
}
