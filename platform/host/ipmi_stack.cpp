// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "ipmi_stack.h"

#include "host.h"
#include "ipmi_registry.h"
#include "log.h"
#include "status.h"

#include <array>
#include <cstdint>

namespace asd_host {
namespace {

constexpr std::uint8_t kNetfnApp = 0x06;
constexpr std::uint8_t kGetDeviceId = 0x01;
constexpr std::uint8_t kIpmiVersion = 0x02; // 2.0: BCD, the digits swapped

std::uint8_t byte_of(std::uint32_t value, unsigned index) {
    return static_cast<std::uint8_t>(value >> (8U * index) & 0xFFU);
}

gint32 answer_device_id(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    if (host() == nullptr) {
        return ipmi_send_simple_response(message, kNodeBusy);
    }
    const DeviceIdentity &device = host()->enclosure.device;
    const std::array<std::uint8_t, 16> response = {
        kCompleted,
        device.device_id,
        static_cast<std::uint8_t>(device.device_revision & 0x0FU), // no SDRs
        static_cast<std::uint8_t>(device.firmware_major & 0x7FU),  // in normal operation
        device.firmware_minor,
        kIpmiVersion,
        0, // none of the optional devices of table 20-2
        byte_of(device.manufacturer_id, 0),
        byte_of(device.manufacturer_id, 1),
        byte_of(device.manufacturer_id, 2),
        byte_of(device.product_id, 0),
        byte_of(device.product_id, 1),
        0, // auxiliary firmware revision, 4 bytes: none
        0,
        0,
        0,
    };
    return ipmi_send_response(message, response.size(), response.data());
}

} // namespace

std::span<const IPMI_CMD_S> platform_ipmi_rows() {
    static constexpr std::array<IPMI_CMD_S, 1> kRows{{
        {.netfn = kNetfnApp,
         .cmd = kGetDeviceId,
         .filter = "",
         .privilege = 0,
         .role_func = "",
         .max_length = 0,
         .min_length = 0,
         .ipmi_handler = answer_device_id,
         .user_data = nullptr},
    }};
    return kRows;
}

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
