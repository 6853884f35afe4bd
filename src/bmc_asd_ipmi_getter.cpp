// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_ipmi_getter.h"

#include "bmc_asd_common.h"
#include "bmc_asd_holders.h"
#include "bmc_asd_ipmi.h"
#include "bmc_asd_log.h"
#include "bmc_asd_property.h"
#include "bmc_asd_read.h"
#include "bmc_asd_records.h"
#include "bmc_asd_state.h"
#include "bmc_asd_update_property.h"
#include "board.h"
#include "object_frame.h"
#include "securec.h"

#include <algorithm>

// ---- Records read in one message ----

// Takes a record from Value when it is loaded, else from the chip. *mirrored: which. 0x00 or the code to answer.
static guint8 record_fetch(const gchar *item_name, guint8 *data, guint32 size, bool *mirrored) {
    OBJ_HANDLE item = 0;
    if (dfl_get_object_handle(item_name, &item) != 0) {
        ASD_LOG_ERROR("[%s] get obj hanld failed!", item_name);
        return kInvalidField;
    }
    guint8 ready = 0;
    if (const gint32 ret = property_read(item, PROPERTY_ASD_READY, &ready); ret != 0) {
        ASD_LOG_ERROR("[%s] get property failed![%d]", item_name, ret);
        return kInvalidField;
    }
    *mirrored = ready != 0;
    gsize value_size = 0;
    const gint32 ret =
        *mirrored ? asd_get_value(item_name, size, data, &value_size) : asd_read_one_chip(item, data, size);
    if (ret != 0) {
        ASD_LOG_ERROR("Call asd_get_value failed! result: %d.", ret); // Kept (log text): one for both sources
        return kNoResponse;
    }
    return kCompleted;
}

// Reads the record on this board. 0x00 or the code to answer.
static guint8 record_get(const gchar *item_name, guint32 size, const RecordRead &read, Response<kRecordMax> *response) {
    bool mirrored = false;
    if (read.zeros == nullptr) {
        const guint8 code = record_fetch(item_name, response->data(), size, &mirrored);
        const bool refused =
            code == kCompleted && read.refuses_erased && mirrored && ASD_CheckAsdDataIsFullF(response->data(), size);
        return refused ? guint8{kNoResponse} : code;
    }
    gsize value_size = 0;
    if (const gint32 ret = asd_get_value(item_name, size, response->data(), &value_size); ret != 0) {
        ASD_LOG_ERROR("Call asd_get_value failed! result: %d.", ret);
        return kNoResponse;
    }
    return kCompleted;
}

static gint32 record_read(const IPMI_MSG_S *req_msg, gconstpointer user_data, guint32 size, const RecordRead &read) {
    if (req_msg == nullptr) {
        if (read.null_message != nullptr) {
            ASD_LOG_ERROR("%s", read.null_message);
        }
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    if (read.names_item) {
        ASD_LOG_DEBUG("user data is %s", item_name);
    }
    if (get_ipmi_src_data(req_msg) == nullptr) {
        ASD_LOG_ERROR("%s", read.no_data);
        return answer_code(req_msg, kInvalidField);
    }
    Response<kRecordMax> response;
    if (read.zeros != nullptr && !is_master()) {
        // Kept (answer): a slave answers success with an empty record, not a failure.
        const gint32 ret = memset_s(response.bytes.data(), response.bytes.size(), 0, response.bytes.size());
        if (ret != 0) {
            ASD_LOG_ERROR("Error: init asd ipmi %s failed, result = %d.", read.zeros, ret);
        }
        ASD_LOG_INFO("This smm board is SLAVE.");
        return ipmi_send_response(req_msg, 1 + size, response.bytes.data());
    }
    if (const guint8 code = record_get(item_name, size, read, &response); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    if (read.leave != nullptr) {
        ASD_LOG_DEBUG("%s%s", read.leave, item_name);
    }
    return ipmi_send_response(req_msg, 1 + size, response.bytes.data());
}

// The rows' reads, so that the rest of the table is not in the program.
static constexpr auto kReads = [] {
    std::array<RecordRead, kRecords.size()> reads{};
    std::ranges::transform(kRecords, reads.begin(), &Record::read);
    return reads;
}();

// clang-format off
#define ASD_DEFINE_READ(item, get, set)                              \
    gint32 get(const IPMI_MSG_S *req_msg, gconstpointer user_data) { \
        return record_read(req_msg, user_data, kRecords[row_of(item)].size, kReads[row_of(item)]); \
    }
ASD_RECORD_HANDLERS(ASD_DEFINE_READ)
// clang-format on

// ---- E2PWP test ----

static constexpr guint32 kE2pwpSize = kRecords[row_of("ASD_E2PWP")].size;

// Reads the item from one chip. 0x00 or the code to answer.
static guint8 e2pwp_fetch(const gchar *item_name, guint8 device_id, guint8 *data) {
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        ASD_LOG_ERROR("get objet handle fail, result(%d).", ret);
        return kNoResponse;
    }
    guint32 length = 0;
    if (asd_get_length(item, &length) != 0) {
        ASD_LOG_ERROR("get len value fail.");
        return kNoResponse;
    }
    if (length > kE2pwpSize) {
        ASD_LOG_ERROR("len(%d) exceed eep max size(%d)", length, kE2pwpSize);
        return kNoResponse;
    }
    HeldLock lock = HeldLock::take(g_eeprom_lock, 2000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("[Get_e2pwp] Lock g_eeprom_lock failed.");
        return kNoResponse;
    }
    const gint32 ret = asd_read_equip_one(item, data, length, device_id);
    lock.release();
    if (ret != 0) {
        ASD_LOG_ERROR("Call asd_read_equip failed, result: %d.", ret);
        return kNoResponse;
    }
    return kCompleted;
}

gint32 ipmi_cmd_get_e2pwp_test(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    ASD_LOG_DEBUG("user data is %s", item_name);
    const auto *request = request_as<Request>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("data pointer is null.");
        return answer_code(req_msg, kInvalidField);
    }
    Response<kE2pwpSize> response;
    if (!is_master()) {
        ASD_LOG_INFO("This smm board is SLAVE.");
        return answer_record(req_msg, response);
    }
    if (const guint8 code = e2pwp_fetch(item_name, request->head.device_id, response.data()); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_DEBUG("Leave user data is %s", item_name);
    return answer_record(req_msg, response);
}

// ---- Electronic keys ----

static constexpr guint32 kEkeyLastReadFrame = kEkeySize - ((kEkeyFrames - 1) * kReadFrameSize);
static_assert(kEkeyLastReadFrame == 112);

// Copies the frame numbers of a request into a head that is cleared.
static asd_ipmi_frame_number ekey_frame_head(const FrameRequest &request, asd_ipmi_mframe_head head = {}) {
    if (const gint32 ret = memcpy_s(&head, sizeof head, &request.numbers, sizeof request.numbers); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi frame header failed, result = %d.", ret);
    }
    return head.number();
}

static void frame_prefill(Response<kReadFrameSize> *response) {
    if (const gint32 ret = memset_s(response->data(), kReadFrameSize, kErased, kReadFrameSize); ret != 0) {
        ASD_LOG_ERROR("Error: init asd ipmi ekey one frame failed, result = %d.", ret);
    }
}

// Copies a frame of the 1024-byte key. 0x00 or the code to answer.
static guint8 ekey_frame_take(const guint8 *key, guint16 current, Response<kReadFrameSize> *response) {
    if (current < 1 || current > kEkeyFrames) {
        ASD_LOG_ERROR("Error frame number! current_number: %d.", current);
        return kOutOfRange;
    }
    const guint32 size = current == kEkeyFrames ? kEkeyLastReadFrame : kReadFrameSize;
    const guint8 *frame = key + (kReadFrameSize * (current - 1U));
    if (const gint32 ret = memcpy_s(response->data(), kReadFrameSize, frame, size); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi ekey frame failed, result = %d.", ret);
    }
    return kCompleted;
}

gint32 ipmi_cmd_get_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    ASD_LOG_DEBUG("user data is %s", item_name);
    asd_ipmi_mframe_head head{};
    if (const gint32 ret = memset_s(&head, sizeof head, 0, sizeof head); ret != 0) {
        ASD_LOG_ERROR("Error: init asd ipmi frame failed, result = %d.", ret);
    }
    const auto *request = request_as<FrameRequest>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!");
        return answer_code(req_msg, kInvalidField);
    }
    const asd_ipmi_frame_number number = ekey_frame_head(*request, head);
    ASD_LOG_DEBUG("total number %u, current number %u", number.total_number, number.current_number);
    Response<kReadFrameSize> response;
    frame_prefill(&response);
    const WorkBuffer key = WorkBuffer::allocate(kEkeySize);
    if (!key) {
        ASD_LOG_ERROR("Malloc failed.");
        return answer_code(req_msg, kRequestLengthInvalid);
    }
    gsize value_size = 0;
    if (asd_get_value(item_name, kEkeySize, key.get(), &value_size) != 0) {
        return answer_code(req_msg, kNoResponse);
    }
    if (const guint8 code = ekey_frame_take(key.get(), number.current_number, &response); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_DEBUG("Leave user data is %s", item_name);
    return answer_record(req_msg, response);
}

// Reads the chip into g_ekey_buffer. 0x00 or the code to answer.
static guint8 ekey_buffer_refill(OBJ_HANDLE item, guint32 length) {
    HeldLock lock = HeldLock::take(g_ekey_buffer_lock, 2000);
    if (lock.result() != 0) {
        ASD_LOG_ERROR("[Get_Ekey] Lock g_ekey_buffer_lock failed!");
        return kNoResponse;
    }
    // Read beside the buffer, because others look at it without the lock; what a failed read left in place is as
    // visible as if it had been read there.
    std::array<guint8, kEkeySize> key{};
    g_ekey_buffer.load(0, key);
    const gint32 ret = asd_read_equip(item, key.data(), length);
    g_ekey_buffer.store(0, key);
    lock.release(); // a log that is slow to take the line must not keep the other keys waiting
    if (ret != 0) {
        ASD_LOG_ERROR("Call asd_read failed! result: %d.", ret);
        return kNoResponse;
    }
    return kCompleted;
}

gint32 ipmi_cmd_get_ekey_ep(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    ASD_LOG_DEBUG("user data is %s", item_name);
    const auto *request = request_as<FrameRequest>(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!");
        return answer_code(req_msg, kInvalidField);
    }
    const asd_ipmi_frame_number number = ekey_frame_head(*request);
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        ASD_LOG_ERROR("Get object handle fail! result(%d).", ret);
        return answer_code(req_msg, kNoResponse);
    }
    guint32 length = 0;
    if (const gint32 ret = asd_get_length(item, &length); ret != 0) {
        ASD_LOG_ERROR("get len value fail[%d]!", ret);
        return answer_code(req_msg, kNoResponse);
    }
    // Kept (answer): the chip is read with frame 1 alone; the other frames come from the buffer as it stands, without
    // the lock.
    if (number.current_number == 1) {
        if (const guint8 code = ekey_buffer_refill(item, std::min(length, kEkeySize)); code != kCompleted) {
            return answer_code(req_msg, code);
        }
    }
    std::array<guint8, kEkeySize> key{};
    g_ekey_buffer.load(0, key);
    Response<kReadFrameSize> response;
    frame_prefill(&response);
    if (const guint8 code = ekey_frame_take(key.data(), number.current_number, &response); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    return answer_record(req_msg, response);
}

// ---- Bay configuration file ----

static constexpr guint32 kBayconfigLengthSize = 4; // the file's length, before the file
static constexpr guint32 kBayconfigReadFrames = 9;
static constexpr guint32 kBayconfigLastReadFrame =
    kBayconfigSize - kBayconfigLengthSize - ((kBayconfigReadFrames - 1) * kReadFrameSize);
static_assert(kBayconfigLastReadFrame == 224);

gint32 ASD_IpmiGetBayconfigFileLen(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    ASD_LOG_INFO("enter get bayconfig len.");
    if (!ASD_CheckIpmiMsgData(req_msg)) {
        return kStatusFailed;
    }
    if (const guint8 length = get_ipmi_src_data_len(req_msg); length < kHeadSize) {
        ASD_LOG_ERROR("Single frame, head DataLen is %d.", length);
        return answer_code(req_msg, kRequestLengthInvalid);
    }
    if (!is_master()) {
        ASD_LOG_INFO("This smm board is SLAVE.");
        return answer_code(req_msg, kRequestLengthInvalid);
    }
    std::array<guint8, kBayconfigLengthSize> file_length{};
    gsize value_size = 0;
    if (asd_get_value(row_item(user_data), kBayconfigLengthSize, file_length.data(), &value_size) != 0) {
        return answer_code(req_msg, kNoResponse);
    }
    ASD_LOG_INFO("Bayconfig len is: 0x%02x %02x %02x %02x.", file_length[3], file_length[2], file_length[1],
                 file_length[0]);
    Response<kBayconfigLengthSize> response;
    const gint32 ret = memcpy_s(response.data(), kBayconfigLengthSize, file_length.data(), file_length.size());
    if (ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi resp data failed, result = %d.", ret);
    }
    return answer_record(req_msg, response);
}

// Checks a frame read and takes its number. 0x00 or the code to answer.
static guint8 bayconfig_frame_check(const IPMI_MSG_S *req_msg, ASD_MULTI_FRAME_INFO_S *info) {
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("Bay config src data is null.");
        return kInvalidCommand;
    }
    if (const guint8 length = get_ipmi_src_data_len(req_msg); length < kFrameData) {
        ASD_LOG_ERROR("Multi frame, head DataLen is %d.", length);
        return kRequestLengthInvalid;
    }
    if (!is_master()) {
        ASD_LOG_INFO("This smm board is SLAVE.");
        return kRequestLengthInvalid;
    }
    ASD_GetBayconfigCmdFrameInfo(request, info);
    if (info->CurrentFramNum < 1 || info->CurrentFramNum > info->FrameSendTimes ||
        info->FrameSendTimes > kBayconfigReadFrames) {
        ASD_LOG_ERROR("Frame num info is error! total %d, cur num %d.", info->FrameSendTimes, info->CurrentFramNum);
        return kRequestLengthInvalid;
    }
    return kCompleted;
}

gint32 ASD_IpmiGetBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    ASD_LOG_INFO("enter get bayconfig.");
    ASD_MULTI_FRAME_INFO_S info{};
    if (const gint32 ret = memset_s(&info, sizeof info, 0, sizeof info); ret != 0) {
        ASD_LOG_ERROR("Error: init asd ipmi frame number failed, result = %d.", ret);
    }
    if (!ASD_CheckIpmiMsgData(req_msg)) {
        return kStatusFailed;
    }
    if (const guint8 code = bayconfig_frame_check(req_msg, &info); code != kCompleted) {
        return answer_code(req_msg, code);
    }
    ASD_LOG_INFO("Get bayconfig, total frame num %u, current number %u.", info.FrameSendTimes, info.CurrentFramNum);
    Response<kReadFrameSize> response;
    if (const gint32 ret = memset_s(response.data(), kReadFrameSize, kErased, kReadFrameSize); ret != 0) {
        ASD_LOG_ERROR("Error: init asd ipmi rsp data failed, result = %d.", ret);
    }
    const WorkBuffer file = WorkBuffer::allocate(kBayconfigSize);
    if (!file) {
        ASD_LOG_ERROR("Malloc failed.");
        return answer_code(req_msg, kRequestLengthInvalid);
    }
    gsize value_size = 0;
    if (asd_get_value(row_item(user_data), kBayconfigSize, file.get(), &value_size) != 0) {
        return answer_code(req_msg, kNoResponse);
    }
    const guint32 size = info.CurrentFramNum == kBayconfigReadFrames ? kBayconfigLastReadFrame : kReadFrameSize;
    const guint8 *frame = file.get() + kBayconfigLengthSize + (kReadFrameSize * (info.CurrentFramNum - 1U));
    if (const gint32 ret = memcpy_s(response.data(), kReadFrameSize, frame, size); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi offset failed, result = %d.", ret);
    }
    Asd_PrintData(response.data(), static_cast<guint8>(size));
    return answer_record(req_msg, response);
}

// ---- Customer block ----

gint32 ipmi_cmd_get_ccdb(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    ASD_LOG_DEBUG("getting ccdb data starts");
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Input parameter pointer is null!");
        return kStatusFailed;
    }
    if (get_ipmi_src_data(req_msg) == nullptr) {
        ASD_LOG_ERROR("get ipmi src data failed!");
        return answer_code(req_msg, kInvalidField);
    }
    std::array<guint8, kCcdbSize> blank{};
    if (const gint32 ret = memset_s(blank.data(), blank.size(), kErased, blank.size()); ret != 0) {
        ASD_LOG_ERROR("Error: init asd ipmi ccdb tmp data failed, result = %d.", ret);
    }
    Response<kCcdbSize> response;
    gsize value_size = 0;
    if (const gint32 ret = asd_get_value(row_item(user_data), kCcdbSize, response.data(), &value_size); ret != 0) {
        ASD_LOG_ERROR("Call asd_get_value failed! result: %d.", ret);
        return answer_code(req_msg, kNoResponse);
    }
    if (std::equal(blank.begin(), blank.end(), response.data())) {
        if (const gint32 ret = memset_s(response.data(), kCcdbSize, 0, kCcdbSize); ret != 0) {
            ASD_LOG_ERROR("Error: init asd ipmi ccdb failed, result = %d.", ret);
        }
    }
    return answer_record(req_msg, response);
}

// ---- Node view ----

gint32 IpmiCmdGetNodeView(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Get nodeView: input parameter is null.");
        return kStatusFailed;
    }
    if (get_ipmi_src_data(req_msg) == nullptr) {
        ASD_LOG_ERROR("Get nodeView, get ipmi src data failed");
        return answer_code(req_msg, kInvalidField);
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(row_item(user_data), &item); ret != 0) {
        ASD_LOG_ERROR("Get nodeView, get handle failed(%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    Response<kNodeViewSize> response;
    if (const gint32 ret = asd_read_check(item, response.data(), kNodeViewSize); ret != 0) {
        ASD_LOG_ERROR("Get nodeView from eeprom failed(%d).", ret);
        return answer_code(req_msg, kNoResponse);
    }
    return answer_record(req_msg, response);
}

// ---- Board records ----

gint32 ipmi_cmd_get_backboard_pcieorsas(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        return kStatusFailed;
    }
    if (BSP_Is4U4CBoard() == 0) {
        return answer_code(req_msg, kUnavailable);
    }
    if (get_ipmi_src_data(req_msg) == nullptr) {
        ASD_LOG_ERROR("Get backboard model failed(get ipmi src data failed)");
        return answer_code(req_msg, kInvalidField);
    }
    ModelRecord record{};
    bool mirrored = false;
    const guint8 code = record_fetch(row_item(user_data), record.data(), kModelRecordSize, &mirrored);
    if (code != kCompleted) {
        return answer_code(req_msg, code);
    }
    if (const guint8 crc = BSP_CalCrc8(0, record.data(), kModelCrcOffset); crc != record[kModelCrcOffset]) {
        // Kept (log text): the byte printed as the real CRC is the one before it.
        ASD_LOG_ERROR("Get backboard model failed(realcrc8=0x%x, calcrc8=0x%x)", record[2], crc);
        return answer_code(req_msg, kModelCrcBad);
    }
    Response<1> response;
    *response.data() = record[0];
    return answer_record(req_msg, response);
}

// Kept (answer): unlike its sibling this does not look at the request's data, and an unreadable Ready is 0xCE here.
gint32 Ipmi_cmdGetProductCfgInfo(const IPMI_MSG_S *req_msg, gconstpointer user_data) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("Get product cfg info failed(input parameter is null)");
        return kStatusFailed;
    }
    const gchar *item_name = row_item(user_data);
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(item_name, &item); ret != 0) {
        ASD_LOG_ERROR("Get product cfg info failed(get %s handle failed ret=%d)", item_name, ret);
        return answer_code(req_msg, kInvalidField);
    }
    guint8 ready = 0;
    if (dfl_get_property_ubyte(item, PROPERTY_ASD_READY, &ready) != 0) {
        return answer_code(req_msg, kNoResponse);
    }
    Response<kProductInfoSize> response;
    static_assert(sizeof response == sizeof(Asd_Product_CfgInfoRsp));
    if (ready != 0) {
        gsize value_size = 0;
        if (const gint32 ret = asd_get_value(item_name, kProductInfoSize, response.data(), &value_size); ret != 0) {
            ASD_LOG_ERROR("Get product cfg info failed(Call asd_get_value failed ret=%d)", ret);
            return answer_code(req_msg, kNoResponse);
        }
    } else if (const gint32 ret = asd_read_method(item, response.data(), kProductInfoSize); ret != 0) {
        ASD_LOG_ERROR("Get product cfg info failed(Call asd_read_method failed ret=%d)", ret);
        return answer_code(req_msg, kNoResponse);
    }
    return answer_record(req_msg, response);
}
