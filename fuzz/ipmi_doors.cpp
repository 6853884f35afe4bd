// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// A client of the local IPMI socket, of the link between the controllers or of the door for a virtual machine, by the
// first byte.

#include "places.h"
#include "service.h"

#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::Service &service = fuzz::Service::running();
    constexpr std::array kDoors{asd_shared::kIpmiSocket, asd_shared::kLinkSocket, asd_shared::kHostSocket};
    if (size > 0) {
        service.hear(kDoors[data[0] % kDoors.size()], {reinterpret_cast<const char *>(data) + 1, size - 1});
        service.require_protected();
    }
    return 0;
}
