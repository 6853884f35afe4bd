// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the IPMI handlers share: the request's layout, completion codes and the two ways to answer.

#include "bmc_asd.h"
#include "ipmi_stack.h"
#include "object_frame.h"

#include <array>
#include <cstddef>

// Completion codes (IPMI 2.0, table 5-2; 0x80 to 0xBE are the command's own).
enum CompletionCode : guint8 {
    kCompleted = 0x00,
    kKeyUnavailable = 0x80, // key write: lock or item not obtained; sync receive: item without Length
    kInvalidCommand = 0xC1,
    kRequestLengthInvalid = 0xC7,
    kOutOfRange = 0xC9,
    kCannotReturnBytes = 0xCA,
    kInvalidField = 0xCC,
    kNoResponse = 0xCE,  // lookup, lock, read or write failed
    kUnavailable = 0xD6, // the function is not available here: backplane model on a board without one
    kModelCrcBad = 0xE0, // backplane model record with a bad CRC
    kUnspecifiedError = 0xFF,
};

// A request's data: head, then payload. The stack's buffer is zero past the request, so a fixed-size payload may be
// read whatever the request's length.
struct RequestHead {
    guint8 fru_id;
    guint8 fru_type[2];
    guint8 device_id; // the chip of a pair, where a command asks for one
    guint8 selector;  // of the record
};
inline constexpr guint32 kHeadSize = sizeof(RequestHead);
static_assert(kHeadSize == 5);

inline constexpr guint32 kRequestMax = 255;

struct Request {
    RequestHead head;
    guint8 payload[kRequestMax - kHeadSize];
};
static_assert(sizeof(Request) == kRequestMax);

inline constexpr guint32 kFrameRequestMax = 229; // request data of a full frame
inline constexpr guint32 kReadFrameSize = 228;   // bytes in a read frame's response
inline constexpr guint32 kWriteFrameSize = 220;  // bytes in a write frame's request

// A response with N data bytes, zero at first.
template <guint32 N>
struct Response {
    std::array<guint8, 1 + N> bytes{};
    [[nodiscard]] guint8 *data() { return bytes.data() + 1; }
};

// Answers with a completion code alone.
[[nodiscard]] inline gint32 answer_code(const IPMI_MSG_S *req_msg, guint8 completion_code) {
    return ipmi_send_simple_response(req_msg, completion_code);
}

// Answers with code 0x00 and the response's data bytes.
template <guint32 N>
[[nodiscard]] gint32 answer_record(const IPMI_MSG_S *req_msg, const Response<N> &response) {
    return ipmi_send_response(req_msg, static_cast<guint32>(response.bytes.size()), response.bytes.data());
}

// The request's data as what travels; null when it has none.
template <typename T>
[[nodiscard]] const T *request_as(const IPMI_MSG_S *req_msg) {
    static_assert(alignof(T) == 1); // the buffer begins anywhere
    static_assert(sizeof(T) <= kRequestMax);
    return reinterpret_cast<const T *>(get_ipmi_src_data(req_msg));
}

// The item that a command's row names.
[[nodiscard]] inline const gchar *row_item(gconstpointer user_data) {
    return static_cast<const gchar *>(user_data);
}

// The frame numbers of a multi-frame request.
struct asd_ipmi_frame_number {
    guint16 total_number;
    guint16 current_number;
};

// The same as they travel, low bytes first.
struct asd_ipmi_mframe_head {
    std::array<guint8, 4> data;

    [[nodiscard]] asd_ipmi_frame_number number() const {
        return {.total_number = static_cast<guint16>(data[0] | (data[1] << 8U)),
                .current_number = static_cast<guint16>(data[2] | (data[3] << 8U))};
    }
};

// A request that carries a frame.
struct FrameRequest {
    RequestHead head;
    asd_ipmi_mframe_head numbers;
    guint8 frame[kRequestMax - kHeadSize - sizeof(asd_ipmi_mframe_head)];
};
inline constexpr guint32 kFrameData = offsetof(FrameRequest, frame); // request data before the frame's bytes
static_assert(sizeof(FrameRequest) == kRequestMax && kFrameData == 9);

// The same in a bay configuration request.
struct ASD_MULTI_FRAME_INFO_S {
    guint16 FrameSendTimes; // total number of frames
    guint16 CurrentFramNum; // this frame's number, from 1
};

extern "C" {

// Reads the frame numbers of a bay configuration request of at least 9 bytes.
void ASD_GetBayconfigCmdFrameInfo(const guint8 *request, ASD_MULTI_FRAME_INFO_S *info);

// Sets *last_len to the bytes of a last frame; leaves it when the frame is not the last.
void ASD_GetLastFrameDataLen(guint32 request_len, guint32 *last_len, const ASD_MULTI_FRAME_INFO_S *info);

// True when message and data are there. A null message: logged, not answered; null data: logged and answered 0xFF.
[[nodiscard]] gboolean ASD_CheckIpmiMsgData(const IPMI_MSG_S *req_msg);

// 0 when a multi-frame write request carries 10 to 229 bytes, else -1, logged but for a null pointer.
[[nodiscard]] gint32 ASD_RequestDataCheck(const guint8 *request, guint32 length);

// True when all bytes are 0xFF; false for a null pointer or no bytes.
[[nodiscard]] gboolean ASD_CheckAsdDataIsFullF(const guint8 *data, guint32 maxLen);

// Traces bytes: as text, then the first six in hexadecimal, zeros where there are fewer.
void Asd_PrintData(const guint8 *String, guint8 Len);

} // extern "C"
