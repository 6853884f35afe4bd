// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "vm_frame.h"

#include <algorithm>

namespace asd_host {
namespace {

constexpr std::uint8_t kMessageEnd = 0xA0;
constexpr std::uint8_t kControlEnd = 0xA1;
constexpr std::uint8_t kEscape = 0xAA;
constexpr std::uint8_t kEscapedBit = 0x10;

void put_escaped(std::vector<std::uint8_t> &wire, std::uint8_t byte) {
    if (byte == kMessageEnd || byte == kControlEnd || byte == kEscape) {
        wire.push_back(kEscape);
        byte |= kEscapedBit;
    }
    wire.push_back(byte);
}

} // namespace

std::optional<VmFrame> VmFrameReader::take(std::uint8_t byte) {
    if (byte == kMessageEnd || byte == kControlEnd) {
        return end(byte == kControlEnd);
    }
    if (byte == kEscape) {
        broken_ = broken_ || escaped_;
        escaped_ = true;
        return std::nullopt;
    }
    if (escaped_) {
        broken_ = broken_ || (byte & kEscapedBit) == 0;
        byte &= static_cast<std::uint8_t>(~kEscapedBit);
        escaped_ = false;
    }
    if (length_ < bytes_.size()) {
        bytes_[length_] = byte;
    }
    ++length_;
    sum_ = static_cast<std::uint8_t>(sum_ + byte);
    return std::nullopt;
}

// Begins anew in any case.
std::optional<VmFrame> VmFrameReader::end(bool control) {
    const std::size_t trailer = control ? 0 : 1;
    const std::size_t least = control ? 1 : kHead + trailer;
    const bool sound = !broken_ && !escaped_ && length_ >= least && (control || sum_ == 0);
    const std::size_t length = length_;
    length_ = 0;
    sum_ = 0;
    escaped_ = false;
    broken_ = false;
    if (!sound) {
        return std::nullopt;
    }
    const bool cut = length > bytes_.size();
    return VmFrame{.control = control,
                   .cut = cut,
                   .bytes = std::span<const std::uint8_t>(bytes_).first(cut ? kLongest : length - trailer)};
}

std::vector<std::uint8_t> vm_message(std::span<const std::uint8_t> bytes) {
    std::vector<std::uint8_t> wire;
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : bytes) {
        put_escaped(wire, byte);
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    put_escaped(wire, static_cast<std::uint8_t>(0x100U - sum));
    wire.push_back(kMessageEnd);
    return wire;
}

std::vector<std::uint8_t> vm_control(std::span<const std::uint8_t> bytes) {
    std::vector<std::uint8_t> wire;
    for (const std::uint8_t byte : bytes) {
        put_escaped(wire, byte);
    }
    wire.push_back(kControlEnd);
    return wire;
}

} // namespace asd_host
