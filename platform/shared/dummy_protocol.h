// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The IPMI socket's protocol, which is that of ipmitool's "dummy" interface: the client's own structs in the machine's
// byte order and padding, each followed by data_len bytes. Both sides have one word size.

#include "names.h"

#include <cstddef>
#include <cstdint>

namespace asd_shared {

struct DummyRequest {
    std::uint8_t netfn;
    std::uint8_t lun;
    std::uint8_t cmd;
    std::uint8_t target_cmd;
    std::uint16_t data_len;
    std::uint8_t *data; // means nothing outside the sender
};

struct DummyResponse {
    std::uint8_t netfn;
    std::uint8_t cmd;
    std::uint8_t seq;
    std::uint8_t lun;
    std::uint8_t ccode;
    std::int32_t data_len; // without the completion code
    std::uint8_t *data;    // as above
};

inline constexpr bool kWideWords = sizeof(void *) == 8;
static_assert(kWideWords || sizeof(void *) == 4);
static_assert(offsetof(DummyRequest, data_len) == 4 && offsetof(DummyRequest, data) == 8);
static_assert(sizeof(DummyRequest) == (kWideWords ? 16 : 12));
static_assert(offsetof(DummyResponse, ccode) == 4 && offsetof(DummyResponse, data_len) == 8);
static_assert(offsetof(DummyResponse, data) == (kWideWords ? 16 : 12));
static_assert(sizeof(DummyResponse) == (kWideWords ? 24 : 16));

// The request, without data, with which a client takes its leave. It is not answered.
inline constexpr std::uint8_t kByeNetfn = 0x3F;
inline constexpr std::uint8_t kByeCmd = 0xFF;

} // namespace asd_shared
