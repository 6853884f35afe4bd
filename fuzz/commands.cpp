// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Requests through the command table, one after the other. Each is a byte with the privilege (bits 0 to 2) and the
// network function (bit 3: 0x06, else 0x32), the command, the length of its data and the data.

#include "ipmi_registry.h"
#include "service.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::Service &service = fuzz::Service::running();
    for (fuzz::Input rest(data, size); rest.size() >= 3;) {
        const std::size_t length = std::min<std::size_t>(rest[2], rest.size() - 3);
        const asd_host::IpmiResponse response =
            asd_host::ipmi_registry().serve({.netfn = static_cast<std::uint8_t>((rest[0] & 8U) != 0 ? 0x06 : 0x32),
                                             .cmd = rest[1],
                                             .data = rest.subspan(3, length),
                                             .privilege = static_cast<std::uint8_t>(rest[0] & 7U)});
        fuzz::require(!response.empty() && response.size() <= asd_host::kResponseLimit, "no answer that can be sent");
        rest = rest.subspan(3 + length);
    }
    service.require_protected();
    return 0;
}
