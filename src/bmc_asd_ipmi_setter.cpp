// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_ipmi_setter.h"

#include "bmc_asd_common.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi.h"
#include "bmc_asd_log.h"
#include "bmc_asd_property.h"
#include "bmc_asd_state.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "board.h"
#include "object_frame.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <cstring>

// ---- Fixed-size records ----

namespace {

struct RecordWrite {
    guint32 size;         // bytes stored, from the payload's start
    const gchar *begin;   // null: the handler logs its own
    const gchar *success; // null: nothing
    const gchar *suffix;  // behind every failure text
    const gchar *no_data; // when the request data is missing, before the suffix
};

} // namespace

// clang-format off
static constexpr RecordWrite kWriteMac         = {.size = 6,   .begin = "Begin to set MAC.",       .success = nullptr,                  .suffix = " Set MAC fail.",       .no_data = kNoData};
static constexpr RecordWrite kWriteSn          = {.size = 20,  .begin = "Begin to set SN.",        .success = "Set SN success.",        .suffix = " Set SN fail.",        .no_data = kNoData};
static constexpr RecordWrite kWriteBrand       = {.size = 32,  .begin = "Begin to set Brand.",     .success = "Set Brand success.",     .suffix = " Set Brand fail.",     .no_data = kNoData};
static constexpr RecordWrite kWriteVendor      = {.size = 32,  .begin = "Begin to set Vendor.",    .success = "Set Vendor success.",    .suffix = " Set Vendor fail.",    .no_data = kNoData};
static constexpr RecordWrite kWriteModel       = {.size = 16,  .begin = "Begin to set Model.",     .success = "Set Model success.",     .suffix = " Set Model fail.",     .no_data = kNoData};
static constexpr RecordWrite kWriteOemModel    = {.size = 16,  .begin = "Begin to set OEM Model.", .success = "Set OEM Model success.", .suffix = " Set OEM Model fail.", .no_data = kNoData};
static constexpr RecordWrite kWriteSpec        = {.size = 16,  .begin = "Begin to set spec.",      .success = "Set spec success.",      .suffix = "",                     .no_data = kNoData};
static constexpr RecordWrite kWriteFrameInfo   = {.size = 32,  .begin = "Begin to set FrameInfo.", .success = "Set FrameInfo success.", .suffix = "",                     .no_data = kNoData};
static constexpr RecordWrite kWriteLogo        = {.size = 8,   .begin = "Begin to set Logo.",      .success = "Set Logo success.",      .suffix = " Set Logo fail.",      .no_data = kNoData};
static constexpr RecordWrite kWritePowerConfig = {.size = 128, .begin = nullptr,                   .success = nullptr,                  .suffix = "",                     .no_data = "data pointer is null!"};
// clang-format on

// A step after the record is stored, with the payload. 0x00, or the code to answer instead.
using AfterStore = guint8 (*)(const guint8 *payload);

// Finds the item and stores the record's bytes. 0x00 or the code to answer.
static guint8 record_store(const guint8 *payload, const gchar *item_name, const RecordWrite &record) {
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        ASD_LOG_ERROR("Call dfl_get_object_handle failed! result: %d.%s", ret, record.suffix);
        return kNoResponse;
    }
    if (const gint32 ret = asd_write_equip(item, payload, record.size); ret != 0) {
        ASD_LOG_ERROR("Call asd_write_equip failed! result: %d.%s", ret, record.suffix);
        return kNoResponse;
    }
    return kCompleted;
}

static gint32 record_write(const IPMI_MSG_S *req_msg, gconstpointer user_data, const RecordWrite &record,
                           AfterStore after = nullptr) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    if (record.begin != nullptr) {
        ASD_LOG_INFO("%s", record.begin);
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("%s%s", record.no_data, record.suffix);
        return answer_code(req_msg, kInvalidField);
    }
    const guint8 *payload = request + kHeadSize;
    if (const guint8 code = record_store(payload, row_item(user_data), record); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    if (const guint8 code = after != nullptr ? after(payload) : guint8{kCompleted}; code != kCompleted) {
        return answer_code(req_msg, code);
    }
    if (record.success != nullptr) {
        ASD_LOG_INFO("%s", record.success);
    }
    return answer_code(req_msg, kCompleted);
}

static guint8 mac_to_cpld(const guint8 *payload) {
    std::array<guint8, 6> mac{};
    if (const gint32 ret = memcpy_s(mac.data(), mac.size(), payload, mac.size()); ret != 0) {
        ASD_LOG_ERROR("memcpy srcdata to mac fail, ret_s = %d", ret);
    }
    if (const gint32 ret = BSP_SetWwn2CpldRam(mac.data(), static_cast<UINT32>(mac.size())); ret != 0) {
        ASD_LOG_ERROR("Set mac failed(set mac to cpldram failed,ret=%d)", ret);
        return kUnspecifiedError; // the chips hold the new MAC all the same
    }
    ASD_LOG_MAINTENANCE(1, "Set MAC(%x:%x:%x:%x:%x:%x) success.", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return kCompleted;
}

static guint8 model_to_cpld(const guint8 *payload) {
    std::array<guint8, 16> model{};
    if (const gint32 ret = memcpy_s(model.data(), model.size(), payload, model.size()); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi model failed, result = %d.", ret);
    }
    (void)BSP_SetFrameModelToCpldRam(
        model.data(), static_cast<UINT32>(model.size())); // Kept: unlike the MAC, whose failure is answered
    return kCompleted;
}

gint32 ipmi_cmd_set_mac(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteMac, mac_to_cpld);
}

gint32 ipmi_cmd_set_sn(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteSn);
}

gint32 ipmi_cmd_set_brand(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteBrand);
}

gint32 ipmi_cmd_set_vendor(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteVendor);
}

gint32 ipmi_cmd_set_model(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteModel, model_to_cpld);
}

gint32 ipmi_cmd_set_oem_model(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteOemModel);
}

gint32 ipmi_cmd_set_spec(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteSpec);
}

gint32 ipmi_cmd_set_frameinfo(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteFrameInfo);
}

gint32 ipmi_cmd_set_logo(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kWriteLogo);
}

// The payload of a request as text for a log line: its own bytes, never what lies behind them.
static int payload_size(const IPMI_MSG_S *req_msg) {
    const guint8 length = get_ipmi_src_data_len(req_msg);
    return length > kHeadSize ? static_cast<int>(length - kHeadSize) : 0;
}

static const char *payload_text(const guint8 *request) {
    return reinterpret_cast<const char *>(request + kHeadSize);
}

gint32 ipmi_cmd_set_powerconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    if (const guint8 *request = get_ipmi_src_data(req_msg); request != nullptr) {
        ASD_LOG_INFO("Begin to set powerconfig, config is %.*s.", payload_size(req_msg), payload_text(request));
    }
    return record_write(req_msg, user_data, kWritePowerConfig);
}

gint32 ipmi_cmd_set_e2pwp_test(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    constexpr guint32 kSize = 32;
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("data pointer is null!");
        return answer_code(req_msg, kInvalidField);
    }
    ASD_LOG_INFO("Begin to set E2pwp, E2pwp is %.*s.", payload_size(req_msg), payload_text(request));
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Call dfl_get_object_handle failed! result: %d.", ret);
        return answer_code(req_msg, kNoResponse);
    }
    // Kept: unlike the read this takes no lock around the whole; each transfer takes it.
    const gint32 ret = asd_write_equip_one(item, request + kHeadSize, kSize, request[kByteDeviceId]);
    if (ret != 0) {
        ASD_LOG_ERROR("Call asd_write_equip_one failed! result: %d.", ret);
        return answer_code(req_msg, kNoResponse);
    }
    return answer_code(req_msg, kCompleted);
}

gint32 ipmi_cmd_set_overseas(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    constexpr guint32 kSize = 16;
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Set overseas flag, input parameter pointer is null.");
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set overseas flag, get ipmi src data failed");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set overseas flag get handle failed(ret=%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    std::array<guint8, kSize + 1> flag{}; // one more, so that it prints as text
    if (const gint32 ret = memcpy_s(flag.data(), flag.size(), request + kHeadSize, kSize); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi overseas failed, result = %d.", ret);
    }
    if (const gint32 ret = asd_write_equip(item, flag.data(), kSize); ret != 0) {
        ASD_LOG_ERROR("Set overseas flag write eeprom failed(ret=%d).", ret);
        return answer_code(req_msg, kUnspecifiedError);
    }
    ASD_LOG_INFO("Set overseas flag=%s succeed", reinterpret_cast<const char *>(flag.data()));
    return answer_code(req_msg, kCompleted);
}

gint32 ipmi_cmd_set_baycfg(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    ASD_LOG_INFO("Begin to set Baycfg.");
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed! Set Baycfg fail.");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Call dfl_get_object_handle failed! result: %d. Set Baycfg fail.", ret);
        return answer_code(req_msg, kNoResponse);
    }
    const guint32 length = get_ipmi_src_data_len(req_msg);
    const guint32 size = length >= kHeadSize ? length - kHeadSize : length;
    if (const gint32 ret = asd_write_equip(item, request + kHeadSize, size); ret != 0) {
        ASD_LOG_ERROR("Call asd_write_equip failed! result: %d. Set Baycfg fail.", ret);
        return answer_code(req_msg, kCannotReturnBytes);
    }
    ASD_LOG_ERROR("Set Baycfg success."); // Kept: at the error level
    return answer_code(req_msg, kCompleted);
}

// ---- Electronic keys ----

static constexpr guint32 kEkeyLastWriteFrame = kEkeySize - ((kEkeyFrames - 1) * kWriteFrameSize);
static_assert(kEkeyLastWriteFrame == 144);

// Clears and copies the frame numbers of a request. *ret: both results combined.
static asd_ipmi_frame_number ekey_frame_head(const guint8 *request, gint32 *ret) {
    asd_ipmi_mframe_head head{};
    *ret = memset_s(&head, sizeof head, 0, sizeof head);
    *ret |= memcpy_s(&head, sizeof head, request + kHeadSize, kFrameHeadSize);
    return head.number();
}

// Stages a frame whose number is 1 to 5, with the lock held. The copy's result.
static gint32 ekey_frame_stage(const guint8 *request, guint16 current) {
    const guint32 offset = kWriteFrameSize * (current - 1U);
    const guint32 size = current == kEkeyFrames ? kEkeyLastWriteFrame : kWriteFrameSize;
    std::array<guint8, kEkeySize> key{};
    g_ekey_buffer.load(0, key);
    const gint32 ret = memcpy_s(key.data() + offset, kEkeySize - offset, request + kFrameData, size);
    g_ekey_buffer.store(0, key);
    return ret;
}

static bool ekey_frame_valid(guint16 current) {
    return current >= 1 && current <= kEkeyFrames;
}

using ItemWrite = gint32 (*)(OBJ_HANDLE item, const guint8 *data, guint32 len);

// Writes the whole buffer to the item, with the lock held.
static gint32 ekey_commit(OBJ_HANDLE item, ItemWrite write) {
    std::array<guint8, kEkeySize> key{};
    g_ekey_buffer.load(0, key);
    return write(item, key.data(), kEkeySize);
}

// Stages one frame and, with the last, commits. 0x00 or the code to answer.
static guint8 ekey_frame_write(const guint8 *request, guint16 current, const gchar *item_name, const gchar *board) {
    HeldLock lock = HeldLock::take(g_ekey_buffer_lock, 2000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("[Set_Ekey] Lock g_ekey_buffer_lock failed! %s set ekey fail.", board);
        return kKeyUnavailable;
    }
    if (!ekey_frame_valid(current)) {
        lock.release();
        ASD_LOG_ERROR("Error frame number! current_number: %d.%s set ekey fail.", current, board);
        return kOutOfRange;
    }
    if (const gint32 ret = ekey_frame_stage(request, current); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi ekey failed, result = %d.", ret);
    }
    // Kept: nothing checks that frames 1 to 4 came before; the last frame commits what the buffer holds.
    if (current != kEkeyFrames) {
        return kCompleted;
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        lock.release();
        ASD_LOG_ERROR("Get object handle failed! result: %d.%s set ekey fail.", ret, board);
        return kKeyUnavailable;
    }
    if (const gint32 ret = ekey_commit(item, asd_write_equip); ret != 0) {
        ASD_LOG_ERROR("Call asd_write_equip failed! result: %d.%s set ekey fail.", ret, board);
        return kNoResponse;
    }
    return kCompleted;
}

gint32 ipmi_cmd_set_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    const gchar *board = g_strcmp0(item_name, "ASD5") == 0 ? "Frameboard" : "LeftEar";
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!%s set ekey fail.", board);
        return answer_code(req_msg, kInvalidField);
    }
    gint32 head_ret = 0;
    const asd_ipmi_frame_number number = ekey_frame_head(request, &head_ret);
    if (head_ret != 0) {
        ASD_LOG_ERROR("Error: init or copy asd ipmi frame header failed, result = %d.", head_ret);
    }
    ASD_LOG_INFO("set %s ekey, total number %u, current number %u", board, number.total_number, number.current_number);
    if (const guint8 code = ekey_frame_write(request, number.current_number, item_name, board); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_INFO("%s set ekey success.", board);
    return answer_code(req_msg, kCompleted);
}

// The same for a power supply: other texts, limit and codes. Kept: one text has no blank before the supply's number.
static guint8 power_frame_write(const guint8 *request, guint16 current, const gchar *item_name) {
    const int supply = request[kByteFruId];
    HeldLock lock = HeldLock::take(g_ekey_buffer_lock, 1000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("Lock g_ekey_buffer_lock failed! Power %d set ekey fail.", supply);
        return kNoResponse;
    }
    if (!ekey_frame_valid(current)) {
        lock.release();
        ASD_LOG_ERROR("Error frame number! current_number: %d.Power%d set ekey fail.", current, supply);
        return kOutOfRange;
    }
    if (const gint32 ret = ekey_frame_stage(request, current); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi frame failed, result = %d.", ret);
    }
    if (current != kEkeyFrames) {
        return kCompleted;
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        lock.release();
        ASD_LOG_ERROR("Get object handle failed! result: %d.Power %d set ekey fail.", ret, supply);
        return kNoResponse;
    }
    if (const gint32 ret = ekey_commit(item, asd_power_write); ret != 0) {
        ASD_LOG_ERROR("Call asd_power_write failed! result: %d.Power %d set ekey fail.", ret, supply);
        return kNoResponse;
    }
    return kCompleted;
}

gint32 ipmi_cmd_set_power_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!%s set ekey fail.", item_name);
        return answer_code(req_msg, kInvalidField);
    }
    const int supply = request[kByteFruId];
    ASD_LOG_INFO("Power %d begin to set ekey.", supply);
    gint32 head_ret = 0;
    const asd_ipmi_frame_number number = ekey_frame_head(request, &head_ret);
    if (head_ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi frame failed, result = %d.", head_ret);
    }
    if (const guint8 code = power_frame_write(request, number.current_number, item_name); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_INFO("Power %d set ekey success.", supply);
    return answer_code(req_msg, kCompleted);
}

// ---- Bay configuration file ----

static constexpr guint32 kBayconfigWriteFrames = 10;
static constexpr guint32 kBayconfigLastFrameMax = kBayconfigSize - ((kBayconfigWriteFrames - 1) * kWriteFrameSize);
static_assert(kBayconfigLastFrameMax == 72);

// Staging area of frame writes, guarded by g_BayconfigBufLock; cleared by the erase alone.
static std::array<guint8, kBayconfigSize> g_BayconfigBuf;

// Checks a frame write and takes its numbers. 0x00 or the code to answer.
static guint8 bayconfig_frame_check(const IPMI_MSG_S *req_msg, ASD_MULTI_FRAME_INFO_S *info, guint32 *last_len) {
    const guint8 *request = get_ipmi_src_data(req_msg);
    const guint32 length = get_ipmi_src_data_len(req_msg);
    if (ASD_RequestDataCheck(request, length) != 0) {
        ASD_LOG_ERROR("Multi frame, head DataLen is %d.", length);
        return kRequestLengthInvalid;
    }
    if (!is_master()) {
        ASD_LOG_INFO("This smm board is SLAVE.");
        return kRequestLengthInvalid;
    }
    ASD_GetBayconfigCmdFrameInfo(request, info);
    if (info->CurrentFramNum < 1 || info->CurrentFramNum > info->FrameSendTimes ||
        info->FrameSendTimes > kBayconfigWriteFrames) {
        ASD_LOG_ERROR("Frame num info is error! total %d, cur num %d.", info->FrameSendTimes, info->CurrentFramNum);
        return kRequestLengthInvalid;
    }
    ASD_GetLastFrameDataLen(length, last_len, info);
    if (info->FrameSendTimes == kBayconfigWriteFrames && *last_len > kBayconfigLastFrameMax) {
        ASD_LOG_ERROR("set bay, last frame len %u is error.", *last_len);
        return kInvalidCommand;
    }
    return kCompleted;
}

// Stages one frame, with the lock held. Kept: a middle frame is 220 bytes whatever the request's length.
static void bayconfig_frame_stage(const guint8 *request, const ASD_MULTI_FRAME_INFO_S &info, guint32 last_len) {
    const bool last = info.CurrentFramNum == info.FrameSendTimes;
    const guint32 offset = kWriteFrameSize * (info.CurrentFramNum - 1U);
    const guint32 size = last ? last_len : kWriteFrameSize;
    const gint32 ret = memcpy_s(&g_BayconfigBuf[offset], kBayconfigSize - offset, request + kFrameData, size);
    if (ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi bayconfig failed, result = %d.", ret);
    }
    Asd_PrintData(request + kFrameData, static_cast<guint8>(size));
}

// Writes the whole buffer to the item, with the lock held.
static gint32 bayconfig_commit(OBJ_HANDLE item) {
    const gint32 ret = asd_write_equip(item, g_BayconfigBuf.data(), kBayconfigSize);
    if (ret != 0) {
        ASD_LOG_ERROR("Call asd_write_equip failed! result: %d.", ret);
    }
    return ret;
}

// Stages one frame and, with the last, commits. 0x00 or the code to answer.
static guint8 bayconfig_frame_write(const guint8 *request, const gchar *item_name, const ASD_MULTI_FRAME_INFO_S &info,
                                    guint32 last_len) {
    HeldLock lock = HeldLock::take(g_BayconfigBufLock, 2000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("Get g_BayconfigBufLock failed!");
        return kNoResponse;
    }
    bayconfig_frame_stage(request, info, last_len);
    if (info.CurrentFramNum != info.FrameSendTimes) {
        return kCompleted;
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        lock.release();
        ASD_LOG_ERROR("Get object handle failed! result: %d.", ret);
        return kNoResponse;
    }
    return bayconfig_commit(item) == 0 ? kCompleted : kNoResponse;
}

gint32 ASD_IpmiSetBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    const gulong start = vos_tick_get();
    ASD_LOG_INFO("enter set bayconfig. %" G_GUINT64_FORMAT, guint64{start});
    ASD_MULTI_FRAME_INFO_S info{};
    if (!ASD_CheckIpmiMsgData(req_msg)) {
        return kStatusFailed;
    }
    guint32 last_len = 0;
    if (const guint8 code = bayconfig_frame_check(req_msg, &info, &last_len); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_INFO("total frame num %u, current number %u, last frame len: %u.", info.FrameSendTimes, info.CurrentFramNum,
                 last_len);
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (const guint8 code = bayconfig_frame_write(request, row_item(user_data), info, last_len); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    const gulong end = vos_tick_get();
    ASD_LOG_INFO("Exit set bayconfig. %" G_GINT64_FORMAT ", delta time: %" G_GINT64_FORMAT ".",
                 static_cast<gint64>(end), static_cast<gint64>(end - start));
    return answer_code(req_msg, kCompleted);
}

// Fills the buffer with 0xFF and writes it. 0x00 or the code to answer.
static guint8 bayconfig_erase(const gchar *item_name) {
    HeldLock lock = HeldLock::take(g_BayconfigBufLock, 2000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("Get g_BayconfigBufLock failed!");
        return kNoResponse;
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        lock.release();
        ASD_LOG_ERROR("Get object handle failed! result: %d.", ret);
        return kNoResponse;
    }
    if (const gint32 ret = memset_s(g_BayconfigBuf.data(), kBayconfigSize, kErased, kBayconfigSize); ret != 0) {
        ASD_LOG_ERROR("Error: init asd ipmi bayconfig failed, result = %d.", ret);
    }
    return bayconfig_commit(item) == 0 ? kCompleted : kNoResponse;
}

gint32 ASD_IpmiClearBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    ASD_LOG_INFO("clear bayconfig.");
    if (!ASD_CheckIpmiMsgData(req_msg)) {
        return kStatusFailed;
    }
    if (const guint8 length = get_ipmi_src_data_len(req_msg); length < kHeadSize) {
        ASD_LOG_ERROR("Clear bayconfig error! set cmd, DataLen is %d.", length);
        return answer_code(req_msg, kRequestLengthInvalid);
    }
    if (!is_master()) {
        ASD_LOG_INFO("This smm board is SLAVE.");
        return answer_code(req_msg, kRequestLengthInvalid);
    }
    if (const guint8 code = bayconfig_erase(row_item(user_data)); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_INFO("clear bayconfig successfully.");
    return answer_code(req_msg, kCompleted);
}

// ---- Board records ----

gint32 ipmi_cmd_set_backboard_pcieorsas(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    if (BSP_Is4U4CBoard() == 0) {
        return answer_code(req_msg, kInvalidCommand);
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set backboard model failed(get ipmi src data failed).");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set backboard model failed(Call dfl_get_object_handle failed, ret=%d).", ret);
        return answer_code(req_msg, kNoResponse);
    }
    // Kept: neither is the code checked nor the flash copy written; the next entry into the master role brings them
    // together.
    const guint8 code = request[kHeadSize];
    const ModelRecord record = model_record(code);
    if (const gint32 ret = asd_write_equip(item, record.data(), kModelRecordSize); ret != 0) {
        ASD_LOG_ERROR("Set backboard model 0x%x failed(Call asd_write_equip failed,ret=%d).", code, ret);
        return answer_code(req_msg, kNoResponse);
    }
    ASD_LOG_INFO("Set backboard model 0x%x succeed.", code);
    (void)BSP_SetPcieSasModelToCpldRam(code); // the record is stored; peers get it with the next push
    return answer_code(req_msg, kCompleted);
}

gint32 ASD_IPMI_SetIocardPCIE4(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    constexpr guint32 kSize = 8;
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set backboard iocard pcie4.0 data failed(get ipmi src data failed).");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set backboard iocard pcie4.0 data failed(Call dfl_get_object_handle failed, ret=%d).", ret);
        return answer_code(req_msg, kNoResponse);
    }
    if (get_ipmi_src_data_len(req_msg) != kHeadSize + kSize) {
        return answer_code(req_msg, kOutOfRange);
    }
    std::array<guint8, kSize> data{};
    if (const gint32 ret = memcpy_s(data.data(), data.size(), request + kHeadSize, kSize); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi pcie4.0 failed, result = %d.", ret);
    }
    if (const gint32 ret = asd_write_equip(item, data.data(), kSize); ret != 0) {
        ASD_LOG_ERROR("Set backboard iocard pcie4.0 data failed(Call asd_write_equip failed,ret=%d).", ret);
        return answer_code(req_msg, kNoResponse);
    }
    ASD_LOG_INFO("Set backboard iocard pcie4.0 data succeed(0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x).", data[0],
                 data[1], data[2], data[3], data[4], data[5], data[6], data[7]);
    return answer_code(req_msg, kCompleted);
}

gint32 Ipmi_cmdSetProductFrameCfg(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    constexpr guint32 kSize = 16;
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Set product frame cfg failed(input parameter is null)");
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set product frame cfg failed(get ipmi src data failed)");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set product frame cfg failed(get handle failed ret=%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    const guint8 *cfg = request + kHeadSize;
    if (const gint32 ret = asd_write_equip(item, cfg, kSize); ret != 0) {
        ASD_LOG_ERROR("Set product frame cfg failed(write failed ret=%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    ASD_LOG_INFO("Set product frame cfg "
                 "succeed(0x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x).",
                 cfg[0], cfg[1], cfg[2], cfg[3], cfg[4], cfg[5], cfg[6], cfg[7], cfg[8], cfg[9], cfg[10], cfg[11],
                 cfg[12], cfg[13], cfg[14], cfg[15]);
    return answer_code(req_msg, kCompleted);
}

gint32 Ipmi_cmdSetProductCfgInfo(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Set product cfg info failed(input parameter is null)");
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set product cfg info failed(get ipmi src data failed)");
        return answer_code(req_msg, kInvalidField);
    }
    const gchar *item_name = row_item(user_data);
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        ASD_LOG_ERROR("Set product cfg info failed(get %s handle failed ret=%d)", item_name, ret);
        return answer_code(req_msg, kNoResponse);
    }
    std::array<guint8, kProductInfoSize> info{};
    std::copy_n(request + kHeadSize, info.size(), info.begin());
    if (const gint32 ret = asd_write_method(item, info.data(), kProductInfoSize); ret != 0) {
        ASD_LOG_ERROR("Set product cfg info failed(write failed ret=%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    if (const gint32 ret = BSP_SetProductCfgInfoToCpldRam(info.data(), kProductInfoSize); ret != 0) {
        ASD_LOG_ERROR("Set product cfg info failed(write cpldram failed ret=%d)", ret);
        return answer_code(req_msg, kNoResponse); // the chips keep the new record
    }
    ASD_LOG_INFO("Set product cfg info succeed");
    return answer_code(req_msg, kCompleted);
}

// ---- The peer's side of the master's push ----

// Takes the value out of a sync message that is as long as its item. 0x00 or the code to answer.
static guint8 sync_store(OBJ_HANDLE item, const guint8 *request, guint8 request_len) {
    guint32 length = 0;
    if (const gint32 ret = property_read(item, PROPERTY_ASD_LENGTH, &length); ret != 0) {
        ASD_LOG_DEBUG("ASD get property Length failed, ret(%d).", ret);
        return kKeyUnavailable;
    }
    if (request_len < kSyncHeadSize || length != request_len - kSyncHeadSize) {
        return kOutOfRange;
    }
    const WorkBuffer value = WorkBuffer::allocate(length + 1);
    if (!value) {
        return kNoResponse;
    }
    if (const gint32 ret = memcpy_s(value.get(), length + 1, request + kSyncHeadSize, length); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi sync data failed, result = %d.", ret);
    }
    const gint32 ret = asd_update_property(item, value.get(), length);
    asd_update_local_data(item, value.get(), length);
    return ret == 0 ? kCompleted : kInvalidField;
}

gint32 ASD_GetEEPromData(const IPMI_MSG_S *req_msg, gconstpointer /*user_data*/) {
    constexpr guint32 kByteAsdNum = 5;
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Input Parameter is Null.");
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        return answer_code(req_msg, kUnspecifiedError);
    }
    const guint8 request_len = get_ipmi_src_data_len(req_msg);
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_binded_object(kClassItem, request[kByteAsdNum], &item); ret != 0) {
        ASD_LOG_DEBUG("ASD get property AtomStorageData failed, ret(%d).", ret);
        return answer_code(req_msg, kInvalidField);
    }
    return answer_code(req_msg, sync_store(item, request, request_len));
}

// ---- Customer block ----

static constexpr guint8 kCcdbImmediate = 0x2C;

gint32 ipmi_cmd_set_ccdb(const IPMI_MSG_S *req_msg, gconstpointer /*user_data*/) {
    ASD_LOG_DEBUG("setting ccdb data starts.");
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Input parameter pointer is null!");
        return kStatusFailed;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!");
        return answer_code(req_msg, kInvalidField);
    }
    HeldLock lock = HeldLock::take(g_ccdbSetEnLock, 4000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("Set ccdb get lock failed(ret=%d)", lock.result());
        return answer_code(req_msg, kNoResponse);
    }
    // Kept: an immediate set of an unchanged block requests nothing; the block is on its way already.
    const guint8 *block = request + kHeadSize;
    if (!ccdb_is_pending(block)) {
        if (ccdb_make_pending(block) != 0) {
            ASD_LOG_INFO("Error: copy ccdb data failed."); // the write then takes the block from what is published here
        }
        (void)update_ccdb_data_of_ram(block); // logged there; the block is pending all the same
        if (request[kByteSdrType] == kCcdbImmediate) {
            AsdSetGCcdbSetEn(1);
            ASD_LOG_INFO("set ccdb data immediately");
        } else {
            ASD_LOG_INFO("set ccdb data to eeprom in next 24 hour");
        }
    }
    lock.release();
    return answer_code(req_msg, kCompleted);
}

// ---- Node view ----

gint32 IpmiCmdSetNodeView(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Set nodeView: input parameter is null.");
        return kStatusFailed;
    }
    ASD_LOG_MAINTENANCE(1, "Start to set node view.");
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set nodeView, get ipmi src data failed");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set nodeView, get handle failed(%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    const gint32 ret = AsdSetNodevie2E2prom(item, request + kHeadSize, kNodeViewSize);
    return answer_code(req_msg, ret == 0 ? kCompleted : kNoResponse);
}
