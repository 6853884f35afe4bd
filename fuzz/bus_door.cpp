// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// A client of the private D-Bus socket. The first byte of an input is even when the handshake is done for the client
// and its messages follow, odd when all that it says follows.

#include "places.h"
#include "service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::Service &service = fuzz::Service::running();
    if (size > 0) {
        std::string said = data[0] % 2 == 0 ? '\0' + std::string("AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n") : "";
        service.hear(asd_shared::kBusSocket, said.append(reinterpret_cast<const char *>(data) + 1, size - 1));
    }
    return 0;
}
