// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_ipmi_setter.h"

#include "bmc_asd_common.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi.h"
#include "bmc_asd_log.h"
#include "bmc_asd_property.h"
#include "bmc_asd_records.h"
#include "bmc_asd_state.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "board.h"
#include "object_frame.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <cstring>

// ---- Records written in one message ----

// A step after a record is stored, with the stored bytes; it logs the success. 0x00, or the code to answer instead.
using AfterStore = guint8 (*)(const guint8 *data);

static guint8 mac_stored(const guint8 *data) {
    std::array<guint8, kRecords[row_of("ASD10")].size> mac{};
    if (const gint32 ret = memcpy_s(mac.data(), mac.size(), data, mac.size()); ret != 0) {
        ASD_LOG_ERROR("memcpy srcdata to mac fail, ret_s = %d", ret);
    }
    if (const gint32 ret = BSP_SetWwn2CpldRam(mac.data(), static_cast<UINT32>(mac.size())); ret != 0) {
        ASD_LOG_ERROR("Set mac failed(set mac to cpldram failed,ret=%d)", ret);
        return kUnspecifiedError; // the chips hold the new MAC all the same
    }
    ASD_LOG_MAINTENANCE(1, "Set MAC(%x:%x:%x:%x:%x:%x) success.", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return kCompleted;
}

static guint8 model_stored(const guint8 *data) {
    std::array<guint8, kRecords[row_of("ASD13")].size> model{};
    if (const gint32 ret = memcpy_s(model.data(), model.size(), data, model.size()); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi model failed, result = %d.", ret);
    }
    // Kept (answer): unlike the MAC, whose failure is answered.
    (void)BSP_SetFrameModelToCpldRam(model.data(), static_cast<UINT32>(model.size()));
    ASD_LOG_INFO("Set Model success.");
    return kCompleted;
}

static guint8 baycfg_stored(const guint8 * /*data*/) {
    ASD_LOG_ERROR("Set Baycfg success."); // Kept (log text): at the error level
    return kCompleted;
}

static guint8 overseas_stored(const guint8 *data) {
    ASD_LOG_INFO("Set overseas flag=%s succeed", reinterpret_cast<const char *>(data));
    return kCompleted;
}

static guint8 iocard_stored(const guint8 *data) {
    ASD_LOG_INFO("Set backboard iocard pcie4.0 data succeed(0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x).", data[0],
                 data[1], data[2], data[3], data[4], data[5], data[6], data[7]);
    return kCompleted;
}

static guint8 frame_cfg_stored(const guint8 *data) {
    ASD_LOG_INFO("Set product frame cfg "
                 "succeed(0x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x).",
                 data[0], data[1], data[2], data[3], data[4], data[5], data[6], data[7], data[8], data[9], data[10],
                 data[11], data[12], data[13], data[14], data[15]);
    return kCompleted;
}

// The payload of a request: its own bytes, never what lies behind them.
static guint32 payload_size(const IPMI_MSG_S *req_msg) {
    const guint32 length = get_ipmi_src_data_len(req_msg);
    return length > kHeadSize ? length - kHeadSize : 0;
}

// The same for a record that is stored as it was sent. Kept (answer): without a whole head its bytes count as payload.
static guint32 sent_size(const IPMI_MSG_S *req_msg) {
    const guint32 length = get_ipmi_src_data_len(req_msg);
    return length >= kHeadSize ? length - kHeadSize : length;
}

// Logs a row's text with a status at its %d, and the suffix.
static void status_log(const gchar *text, gint32 status, const gchar *suffix) {
    const gchar *at = std::strstr(text, "%d");
    ASD_LOG_ERROR("%.*s%d%s%s", static_cast<int>(at - text), text, status, at + 2, suffix);
}

// Stores the record's bytes. 0x00 or the code to answer.
static guint8 record_store(const IPMI_MSG_S *req_msg, const Request &request, const gchar *item_name, guint32 size,
                           const RecordWrite &write, AfterStore after) {
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        status_log(write.no_item, ret, write.suffix);
        return kNoResponse;
    }
    if (write.measured && payload_size(req_msg) != size) {
        return kOutOfRange;
    }
    const guint8 *data = request.payload;
    std::array<guint8, kRecordCopyMax + 1> copy{}; // one more, so that it prints as text
    if (write.copy != nullptr) {
        if (const gint32 ret = memcpy_s(copy.data(), copy.size(), data, size); ret != 0) {
            ASD_LOG_ERROR("Error: copy asd ipmi %s failed, result = %d.", write.copy, ret);
        }
        data = copy.data();
    }
    const guint32 stored = write.as_sent ? sent_size(req_msg) : size;
    // Kept (answer): unlike the read from one chip this takes no lock around the whole; each transfer takes it.
    const gint32 ret = write.chip_of_request ? asd_write_equip_one(item, data, stored, request.head.device_id)
                                             : asd_write_equip(item, data, stored);
    if (ret != 0) {
        status_log(write.not_written, ret, write.suffix);
        return write.failed_code;
    }
    return after != nullptr ? after(data) : guint8{kCompleted};
}

static gint32 record_write(const IPMI_MSG_S *req_msg, gconstpointer user_data, guint32 size, const RecordWrite &write,
                           AfterStore after) {
    if (req_msg == nullptr) {
        if (write.null_message != nullptr) {
            ASD_LOG_ERROR("%s", write.null_message);
        }
        return kStatusFailed;
    }
    if (write.name != nullptr) {
        ASD_LOG_INFO("Begin to set %s.", write.name);
    }
    const auto *request = request_as<Request>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("%s%s", write.no_data, write.suffix);
        return answer_code(req_msg, kInvalidField);
    }
    if (write.payload != nullptr) {
        ASD_LOG_INFO("%s%.*s.", write.payload, static_cast<int>(payload_size(req_msg)),
                     reinterpret_cast<const char *>(request->payload));
    }
    const guint8 code = record_store(req_msg, *request, row_item(user_data), size, write, after);
    if (code == kCompleted && write.name != nullptr && after == nullptr) {
        ASD_LOG_INFO("Set %s success.", write.name);
    }
    return answer_code(req_msg, code);
}

// The rows' steps after the store.
// clang-format off
template <std::size_t row> constexpr AfterStore kAfter = nullptr;
template <> constexpr AfterStore kAfter<row_of("ASD10")> = mac_stored;
template <> constexpr AfterStore kAfter<row_of("ASD13")> = model_stored;
template <> constexpr AfterStore kAfter<row_of("ASD24")> = baycfg_stored;
template <> constexpr AfterStore kAfter<row_of("ASD_IOCARD_PCIE4")> = iocard_stored;
template <> constexpr AfterStore kAfter<row_of("ASD_OVERSEAS")> = overseas_stored;
template <> constexpr AfterStore kAfter<row_of("ASD_PRODUCT_FRAMECFG")> = frame_cfg_stored;
// clang-format on

// The rows' writes, so that the rest of the table is not in the program.
static constexpr auto kWrites = [] {
    std::array<RecordWrite, kRecords.size()> writes{};
    std::ranges::transform(kRecords, writes.begin(), &Record::write);
    return writes;
}();

template <std::size_t row>
static gint32 record_write(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write(req_msg, user_data, kRecords[row].size, kWrites[row], kAfter<row>);
}

// clang-format off
#define ASD_DEFINE_WRITE(item, get, set)                             \
    gint32 set(const IPMI_MSG_S *req_msg, gconstpointer user_data) { \
        return record_write<row_of(item)>(req_msg, user_data);       \
    }
ASD_RECORD_HANDLERS(ASD_DEFINE_WRITE)
// clang-format on

gint32 ipmi_cmd_set_e2pwp_test(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return record_write<row_of("ASD_E2PWP")>(req_msg, user_data);
}

// ---- Electronic keys ----

static constexpr guint32 kEkeyLastWriteFrame = kEkeySize - ((kEkeyFrames - 1) * kWriteFrameSize);
static_assert(kEkeyLastWriteFrame == 144);

using ItemWrite = gint32 (*)(OBJ_HANDLE item, const guint8 *data, guint32 len);

namespace {

// What the writes of a board's key and of a power supply's key differ in.
struct KeyWrite {
    bool of_supply;
    const gchar *lock;        // before the text of a buffer that was not obtained
    const gchar *head;        // what failed with the frame numbers
    const gchar *frame;       // what failed with a frame
    const gchar *commit_name; // as the text of a failed commit has it
    ItemWrite commit;         // stores the whole key
    guint32 lock_ms;          // how long to wait for the buffer
    guint8 unavailable_code;  // without buffer or item
};

// Whose key it is, for the texts. Kept (log text): one has no blank before a supply's number.
struct KeyOwner {
    std::array<gchar, 16> name{};
    std::array<gchar, 16> squeezed{};
};

} // namespace

// clang-format off
static constexpr KeyWrite kBoardKey  = {.of_supply = false, .lock = "[Set_Ekey] ", .head = "init or copy asd ipmi frame header", .frame = "copy asd ipmi ekey",
                                        .commit_name = "asd_write_equip", .commit = asd_write_equip, .lock_ms = 2000, .unavailable_code = kKeyUnavailable};
static constexpr KeyWrite kSupplyKey = {.of_supply = true,  .lock = "",            .head = "copy asd ipmi frame",                .frame = "copy asd ipmi frame",
                                        .commit_name = "asd_power_write", .commit = asd_power_write, .lock_ms = 1000, .unavailable_code = kNoResponse};
// clang-format on

static const gchar *key_board(const gchar *item_name) {
    return g_strcmp0(item_name, "ASD5") == 0 ? "Frameboard" : "LeftEar";
}

static KeyOwner key_owner(const KeyWrite &key, const gchar *item_name, const FrameRequest &request) {
    KeyOwner owner;
    if (key.of_supply) {
        (void)g_snprintf(owner.name.data(), owner.name.size(), "Power %d", request.head.fru_id);
        (void)g_snprintf(owner.squeezed.data(), owner.squeezed.size(), "Power%d", request.head.fru_id);
        return owner;
    }
    (void)g_snprintf(owner.name.data(), owner.name.size(), "%s", key_board(item_name));
    owner.squeezed = owner.name;
    return owner;
}

// Takes the frame numbers of a request. *ret: the results of clearing and copying, combined.
static asd_ipmi_frame_number key_frame_number(const FrameRequest &request, gint32 *ret) {
    asd_ipmi_mframe_head head{};
    *ret = memset_s(&head, sizeof head, 0, sizeof head);
    *ret |= memcpy_s(&head, sizeof head, &request.numbers, sizeof request.numbers);
    return head.number();
}

// Stages a frame whose number is 1 to 5, with the lock held. The copy's result.
static gint32 key_frame_stage(const FrameRequest &request, guint16 current) {
    const guint32 offset = kWriteFrameSize * (current - 1U);
    const guint32 size = current == kEkeyFrames ? kEkeyLastWriteFrame : kWriteFrameSize;
    std::array<guint8, kEkeySize> bytes{};
    g_ekey_buffer.load(0, bytes);
    const gint32 ret = memcpy_s(bytes.data() + offset, kEkeySize - offset, request.frame, size);
    g_ekey_buffer.store(0, bytes);
    return ret;
}

// Writes the whole buffer to the item, with the lock held.
static gint32 key_commit(OBJ_HANDLE item, ItemWrite commit) {
    std::array<guint8, kEkeySize> bytes{};
    g_ekey_buffer.load(0, bytes);
    return commit(item, bytes.data(), kEkeySize);
}

// Stages one frame and, with the last, commits. 0x00 or the code to answer.
static guint8 key_frame_write(const KeyWrite &key, const FrameRequest &request, guint16 current,
                              const gchar *item_name) {
    const KeyOwner owner = key_owner(key, item_name, request);
    HeldLock lock = HeldLock::take(g_ekey_buffer_lock, key.lock_ms);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("%sLock g_ekey_buffer_lock failed! %s set ekey fail.", key.lock, owner.name.data());
        return key.unavailable_code;
    }
    if (current < 1 || current > kEkeyFrames) {
        lock.release();
        ASD_LOG_ERROR("Error frame number! current_number: %d.%s set ekey fail.", current, owner.squeezed.data());
        return kOutOfRange;
    }
    if (const gint32 ret = key_frame_stage(request, current); ret != 0) {
        ASD_LOG_ERROR("Error: %s failed, result = %d.", key.frame, ret);
    }
    // Kept (answer): nothing checks that frames 1 to 4 came before; the last frame commits what the buffer holds.
    if (current != kEkeyFrames) {
        return kCompleted;
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        lock.release();
        ASD_LOG_ERROR("Get object handle failed! result: %d.%s set ekey fail.", ret, owner.name.data());
        return key.unavailable_code;
    }
    if (const gint32 ret = key_commit(item, key.commit); ret != 0) {
        ASD_LOG_ERROR("Call %s failed! result: %d.%s set ekey fail.", key.commit_name, ret, owner.name.data());
        return kNoResponse;
    }
    return kCompleted;
}

static gint32 key_write(const IPMI_MSG_S *req_msg, gconstpointer user_data, const KeyWrite &key) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    const auto *request = request_as<FrameRequest>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!%s set ekey fail.", key.of_supply ? item_name : key_board(item_name));
        return answer_code(req_msg, kInvalidField);
    }
    const KeyOwner owner = key_owner(key, item_name, *request);
    if (key.of_supply) {
        ASD_LOG_INFO("%s begin to set ekey.", owner.name.data());
    }
    gint32 head_ret = 0;
    const asd_ipmi_frame_number number = key_frame_number(*request, &head_ret);
    if (head_ret != 0) {
        ASD_LOG_ERROR("Error: %s failed, result = %d.", key.head, head_ret);
    }
    if (!key.of_supply) {
        ASD_LOG_INFO("set %s ekey, total number %u, current number %u", owner.name.data(), number.total_number,
                     number.current_number);
    }
    const guint8 code = key_frame_write(key, *request, number.current_number, item_name);
    if (code == kCompleted) {
        ASD_LOG_INFO("%s set ekey success.", owner.name.data());
    }
    return answer_code(req_msg, code);
}

gint32 ipmi_cmd_set_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return key_write(req_msg, user_data, kBoardKey);
}

gint32 ipmi_cmd_set_power_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    return key_write(req_msg, user_data, kSupplyKey);
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

// Stages one frame, with the lock held. Kept (answer): a middle frame is 220 bytes whatever the request's length.
static void bayconfig_frame_stage(const FrameRequest &request, const ASD_MULTI_FRAME_INFO_S &info, guint32 last_len) {
    const bool last = info.CurrentFramNum == info.FrameSendTimes;
    const guint32 offset = kWriteFrameSize * (info.CurrentFramNum - 1U);
    const guint32 size = last ? last_len : kWriteFrameSize;
    const gint32 ret = memcpy_s(&g_BayconfigBuf[offset], kBayconfigSize - offset, request.frame, size);
    if (ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi bayconfig failed, result = %d.", ret);
    }
    Asd_PrintData(request.frame, static_cast<guint8>(size));
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
static guint8 bayconfig_frame_write(const FrameRequest &request, const gchar *item_name,
                                    const ASD_MULTI_FRAME_INFO_S &info, guint32 last_len) {
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
    const auto *request = request_as<FrameRequest>(req_msg);
    if (const guint8 code = bayconfig_frame_write(*request, row_item(user_data), info, last_len); code != kCompleted) {
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
    const auto *request = request_as<Request>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set backboard model failed(get ipmi src data failed).");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set backboard model failed(Call dfl_get_object_handle failed, ret=%d).", ret);
        return answer_code(req_msg, kNoResponse);
    }
    // Kept (answer): neither is the code checked nor the flash copy written; the next entry into the master role brings
    // them together.
    const guint8 code = request->payload[0];
    const ModelRecord record = model_record(code);
    if (const gint32 ret = asd_write_equip(item, record.data(), kModelRecordSize); ret != 0) {
        ASD_LOG_ERROR("Set backboard model 0x%x failed(Call asd_write_equip failed,ret=%d).", code, ret);
        return answer_code(req_msg, kNoResponse);
    }
    ASD_LOG_INFO("Set backboard model 0x%x succeed.", code);
    (void)BSP_SetPcieSasModelToCpldRam(code); // the record is stored; peers get it with the next push
    return answer_code(req_msg, kCompleted);
}

gint32 Ipmi_cmdSetProductCfgInfo(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Set product cfg info failed(input parameter is null)");
        return kStatusFailed;
    }
    const auto *request = request_as<Asd_Product_CfgInfoReq>(req_msg);
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
    std::copy_n(request->proCfgInfo, info.size(), info.begin());
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

namespace {

// The push as a peer takes it: a value may be as long as a request has room for.
struct SyncRequest {
    RequestHead head;
    guint8 item_number;
    guint8 value[kRequestMax - kSyncHeadSize];
};
static_assert(sizeof(SyncRequest) == kRequestMax && offsetof(SyncRequest, value) == kSyncHeadSize);

} // namespace

// Takes the value out of a sync message that is as long as its item. 0x00 or the code to answer.
static guint8 sync_store(OBJ_HANDLE item, const SyncRequest &request, guint8 request_len) {
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
    if (const gint32 ret = memcpy_s(value.get(), length + 1, request.value, length); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi sync data failed, result = %d.", ret);
    }
    const gint32 ret = asd_update_property(item, value.get(), length);
    asd_update_local_data(item, value.get(), length);
    return ret == 0 ? kCompleted : kInvalidField;
}

gint32 ASD_GetEEPromData(const IPMI_MSG_S *req_msg, gconstpointer /*user_data*/) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Input Parameter is Null.");
        return kStatusFailed;
    }
    const auto *request = request_as<SyncRequest>(req_msg);
    if (request == nullptr) {
        return answer_code(req_msg, kUnspecifiedError);
    }
    const guint8 request_len = get_ipmi_src_data_len(req_msg);
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_binded_object(kClassItem, request->item_number, &item); ret != 0) {
        ASD_LOG_DEBUG("ASD get property AtomStorageData failed, ret(%d).", ret);
        return answer_code(req_msg, kInvalidField);
    }
    return answer_code(req_msg, sync_store(item, *request, request_len));
}

// ---- Customer block ----

static constexpr guint8 kCcdbImmediate = 0x2C;

gint32 ipmi_cmd_set_ccdb(const IPMI_MSG_S *req_msg, gconstpointer /*user_data*/) {
    ASD_LOG_DEBUG("setting ccdb data starts.");
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Input parameter pointer is null!");
        return kStatusFailed;
    }
    const auto *request = request_as<Request>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!");
        return answer_code(req_msg, kInvalidField);
    }
    HeldLock lock = HeldLock::take(g_ccdbSetEnLock, 4000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("Set ccdb get lock failed(ret=%d)", lock.result());
        return answer_code(req_msg, kNoResponse);
    }
    // Kept (answer): an immediate set of the pending block requests nothing, even when that waits for the daily write.
    const guint8 *block = request->payload;
    if (!ccdb_is_pending(block)) {
        if (ccdb_make_pending(block) != 0) {
            ASD_LOG_INFO("Error: copy ccdb data failed."); // the write then takes the block from what is published here
        }
        (void)update_ccdb_data_of_ram(block); // logged there; the block is pending all the same
        if (request->head.selector == kCcdbImmediate) {
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
    const auto *request = request_as<Request>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Set nodeView, get ipmi src data failed");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Set nodeView, get handle failed(%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    const gint32 ret = AsdSetNodevie2E2prom(item, request->payload, kNodeViewSize);
    return answer_code(req_msg, ret == 0 ? kCompleted : kNoResponse);
}
