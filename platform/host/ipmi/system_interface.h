// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a host's driver asks the system interface itself (IPMI 2.0, section 22): no message ever waits for the host,
// there is no event message buffer, and no other channel to send to.

#include "ipmi_registry.h"

#include <cstdint>
#include <optional>
#include <utility>

namespace asd_host {

// The state of one interface. One thread.
class SystemInterface {
public:
    // The answer to a request that is the interface's own; nothing: it is for the registered commands.
    [[nodiscard]] std::optional<IpmiResponse> answer(const IpmiRequest &request);

    // The host has been reset.
    void reset() { set_enables(0); }

    // Whether the host wants an interrupt with each answer, once after each time that it has said so; nothing: it has
    // said nothing since.
    [[nodiscard]] std::optional<bool> take_interrupts() { return std::exchange(interrupts_, std::nullopt); }

private:
    void set_enables(std::uint8_t enables);

    std::uint8_t enables_ = 0; // global enables
    std::optional<bool> interrupts_;
};

} // namespace asd_host
