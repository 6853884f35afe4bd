// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "standard_commands.h"

#include "host.h"
#include "ipmi_registry.h"

#include <array>
#include <cstdint>

namespace asd_host {
namespace {

constexpr std::uint8_t kNetfnApp = 0x06;
constexpr std::uint8_t kGetDeviceId = 0x01;
constexpr std::uint8_t kIpmiVersion = 0x02; // 2.0: BCD, the digits swapped
constexpr unsigned kSdrRepository = 0x02;   // the optional devices of table 20-2
constexpr unsigned kFruInventoryDevice = 0x08;

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
        static_cast<std::uint8_t>(host()->enclosure.inventory ? kFruInventoryDevice | kSdrRepository : 0),
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

std::span<const IPMI_CMD_S> standard_commands() {
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
