// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// A client of the local IPMI socket (the first byte is even) or of the link between the controllers (odd).

#include "places.h"
#include "service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::Service &service = fuzz::Service::running();
    if (size > 0) {
        service.hear(data[0] % 2 == 0 ? asd_shared::kIpmiSocket : asd_shared::kLinkSocket,
                     {reinterpret_cast<const char *>(data) + 1, size - 1});
        service.require_protected();
    }
    return 0;
}
