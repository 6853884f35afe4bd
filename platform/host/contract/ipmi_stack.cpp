// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "ipmi_stack.h"

#include "host.h"
#include "ipmi_registry.h"
#include "log.h"
#include "peer_link.h"
#include "peers.h"
#include "status.h"

#include <algorithm>
#include <cstdint>

namespace asd_host {
namespace {

// One block, as the requester frees it: the message and its bytes behind it. Null when memory is short.
IPMI_RESP_MSG_S *message_of(const IpmiResponse &response) {
    void *block = g_try_malloc(sizeof(IPMI_RESP_MSG_S) + response.size());
    if (block == nullptr) {
        return nullptr;
    }
    auto *message = static_cast<IPMI_RESP_MSG_S *>(block);
    message->data_len = static_cast<guint32>(std::uint64_t{response.size()});
    message->data = static_cast<guint8 *>(block) + sizeof(IPMI_RESP_MSG_S);
    std::ranges::copy(response, message->data);
    return message;
}

} // namespace

} // namespace asd_host

const guint8 *get_ipmi_src_data(const IPMI_MSG_S *req_msg) {
    return req_msg != nullptr ? req_msg->data : nullptr; // also of an empty request: a buffer of zeros
}

guint8 get_ipmi_src_data_len(const IPMI_MSG_S *req_msg) {
    return req_msg != nullptr ? req_msg->length : guint8{0};
}

gint32 ipmi_send_response(const IPMI_MSG_S *req_msg, guint32 length, const guint8 *buffer) {
    if (req_msg == nullptr || buffer == nullptr || length == 0 || length > asd_host::kResponseLimit) {
        return asd_host::kBadArgument;
    }
    if (!req_msg->response->empty()) {
        HOST_LOG(asd_host::kLogError, "a second response to one IPMI request (code 0x%02x) is dropped", buffer[0]);
        return asd_host::kUnsupported;
    }
    req_msg->response->assign(buffer, buffer + length);
    return 0;
}

gint32 ipmi_send_simple_response(const IPMI_MSG_S *req_msg, guint8 completion_code) {
    return ipmi_send_response(req_msg, 1, &completion_code);
}

gint32 ipmi_send_request(const IPMI_REQ_MSG_HEAD_S *head, const void *data, gint32 wait_response,
                         IPMI_RESP_MSG_S **response, gint32 timeout_s) {
    const bool waits = wait_response != 0;
    if (head == nullptr || head->target_type != IPMI_MMC || (data == nullptr && head->src_len > 0) ||
        (waits && response == nullptr)) {
        return asd_host::kBadArgument;
    }
    if (asd_host::host() == nullptr) {
        return asd_host::kUnsupported;
    }
    const asd_host::IpmiRequest request{.netfn = head->netfn,
                                        .lun = head->lun,
                                        .cmd = head->cmd,
                                        .data = {static_cast<const std::uint8_t *>(data), head->src_len}};
    asd_host::IpmiResponse received;
    const gint32 status =
        asd_host::patient_request(head->target_instance, request, timeout_s, waits ? &received : nullptr);
    if (status != 0 || !waits) {
        return status;
    }
    IPMI_RESP_MSG_S *message = asd_host::message_of(received);
    if (message == nullptr) {
        return asd_host::kPeerFailed;
    }
    *response = message;
    return 0;
}
