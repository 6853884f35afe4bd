// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The bytes between a virtual machine and its controller: the protocol of OpenIPMI's virtual machines (its README.vm),
// which QEMU's ipmi-bmc-extern speaks.
//
//   message   sequence number, network function << 2 | LUN, command, in an answer the completion code, data, a byte
//             with which all of these add up to 0 modulo 256; then 0xA0
//   control   a code and what belongs to it; then 0xA1
//
// 0xA0, 0xA1 and 0xAA within one travel as 0xAA and the byte with bit 4 set. After whatever is wrong the next one
// begins behind the next 0xA0 or 0xA1.

#include "ipmi_registry.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace asd_host {

// Codes of control sequences.
enum VmControl : std::uint8_t {
    kVmReset = 0x04, // from the machine: it has been reset
    kVmInterruptsOn = 0x05,
    kVmInterruptsOff = 0x06,
    kVmCapabilities = 0x08, // what the machine's side can do, a byte of flags
    kVmVersion = 0xFF,      // of the protocol, a byte
};
inline constexpr std::uint8_t kVmProtocol = 1;
inline constexpr std::uint8_t kVmHasInterrupts = 0x04; // a capability

struct VmFrame {
    bool control = false;
    bool cut = false;                      // it was longer: bytes holds its beginning
    std::span<const std::uint8_t> bytes{}; // unescaped, a message's without the checksum; until the next byte is taken
};

// Puts frames together, a byte at a time.
class VmFrameReader {
public:
    static constexpr std::size_t kHead = 3; // sequence number, network function and LUN, command
    static constexpr std::size_t kLongest = kHead + kRequestLimit;

    // The frame that ends with this byte. Nothing: none does, or it is none: empty, a broken escape, a message too
    // short or whose sum is wrong.
    [[nodiscard]] std::optional<VmFrame> take(std::uint8_t byte);

    // None has begun.
    [[nodiscard]] bool empty() const { return length_ == 0 && !escaped_ && !broken_; }

private:
    [[nodiscard]] std::optional<VmFrame> end(bool control);

    std::array<std::uint8_t, kLongest + 1> bytes_{}; // the checksum's
    std::size_t length_ = 0;                         // also of what has no place
    std::uint8_t sum_ = 0;
    bool escaped_ = false;
    bool broken_ = false;
};

// What goes over the wire for a message of these bytes, and for a control sequence.
[[nodiscard]] std::vector<std::uint8_t> vm_message(std::span<const std::uint8_t> bytes);
[[nodiscard]] std::vector<std::uint8_t> vm_control(std::span<const std::uint8_t> bytes);

} // namespace asd_host
