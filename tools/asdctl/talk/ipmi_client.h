// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The service's local IPMI socket: the protocol of ipmitool's "dummy" interface.

#include "bytes.h"
#include "context.h"
#include "fd.h"

#include <cstdint>

namespace asdctl {

struct IpmiAnswer {
    std::uint8_t code = 0; // completion code
    Bytes data;
};

inline constexpr std::size_t kIpmiRequestLimit = 255; // bytes of request data

class IpmiClient {
public:
    // Connects to the slot's socket. Throws Failure.
    explicit IpmiClient(const Context &context);
    ~IpmiClient(); // takes leave of the service
    IpmiClient(const IpmiClient &) = delete;
    IpmiClient &operator=(const IpmiClient &) = delete;

    // One request, at most kIpmiRequestLimit bytes, and its answer. Throws Failure when none comes within five seconds;
    // a completion code other than 0 is an answer.
    [[nodiscard]] IpmiAnswer request(std::uint8_t netfn, std::uint8_t cmd, BytesView data);

private:
    void send(BytesView bytes) const;
    void receive(std::span<std::uint8_t> bytes, std::int64_t deadline_us) const;

    std::string socket_;
    Fd fd_;
};

} // namespace asdctl
