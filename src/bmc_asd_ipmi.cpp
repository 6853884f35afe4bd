// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_ipmi.h"

#include "bmc_asd_log.h"
#include "securec.h"

#include <algorithm>

gboolean ASD_CheckIpmiMsgData(const IPMI_MSG_S *req_msg) {
    if (req_msg == nullptr) {
        ASD_LOG_ERROR("MsgData is %p.", static_cast<const void *>(req_msg));
        return FALSE;
    }
    const guint8 *request = get_ipmi_src_data(req_msg);
    if (request == nullptr) {
        ASD_LOG_ERROR("ReqData is %p.", static_cast<const void *>(request));
        (void)answer_code(req_msg, kUnspecifiedError); // the caller only learns that the request is done with
        return FALSE;
    }
    return TRUE;
}

gint32 ASD_RequestDataCheck(const guint8 *request, guint32 length) {
    if (request == nullptr) {
        return kStatusFailed;
    }
    if (length <= kFrameData || length > kFrameRequestMax) {
        ASD_LOG_ERROR("multi frame, head DataLen is %d.", length);
        return kStatusFailed;
    }
    return kStatusOk;
}

gboolean ASD_CheckAsdDataIsFullF(const guint8 *data, guint32 maxLen) {
    if (data == nullptr || maxLen == 0) {
        return FALSE;
    }
    return std::all_of(data, data + maxLen, [](guint8 byte) { return byte == kErased; }) ? TRUE : FALSE;
}

void Asd_PrintData(const guint8 *String, guint8 Len) {
    constexpr guint32 kPrintMax = 229;
    constexpr std::size_t kTraced = 6;
    std::array<guint8, kPrintMax> text{};
    if (const gint32 ret = memcpy_s(text.data(), text.size(), String, Len); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ipmi print data failed, result = %d.", ret);
    }
    ASD_LOG_DEBUG("len is %d.Asd_print : [%.*s]. begin...", Len, static_cast<int>(text.size()),
                  reinterpret_cast<const char *>(text.data()));
    for (std::size_t i = 0; i < kTraced; ++i) {
        ASD_LOG_DEBUG("[0x%02x]. ", text[i]);
    }
}

void ASD_GetBayconfigCmdFrameInfo(const guint8 *request, ASD_MULTI_FRAME_INFO_S *info) {
    const asd_ipmi_frame_number number = reinterpret_cast<const FrameRequest *>(request)->numbers.number();
    info->FrameSendTimes = number.total_number;
    info->CurrentFramNum = number.current_number;
}

void ASD_GetLastFrameDataLen(guint32 request_len, guint32 *last_len, const ASD_MULTI_FRAME_INFO_S *info) {
    if (info->CurrentFramNum == info->FrameSendTimes) {
        *last_len = request_len - kFrameData;
    }
}
