// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// D-Bus messages as bytes, judged as a bus daemon would before it passes them on. Any thread.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace asd_host {

// Where a message ends.
struct BusFrame {
    std::size_t size = 0;          // of the whole message; 0: not known until more bytes are there
    const char *mistake = nullptr; // why no message begins there
};
// The frame of the message that begins with the bytes; one longer than the limit is a mistake.
[[nodiscard]] BusFrame bus_frame(std::span<const std::uint8_t> bytes, std::size_t limit);

struct BusMessage {
    enum class Type : std::uint8_t { kCall = 1, kReturn = 2, kError = 3, kSignal = 4 };
    Type type = Type::kCall;
    std::uint32_t serial = 0;
    std::uint32_t reply_serial = 0; // of an answer
    bool wants_answer = true;
    std::string member;
    std::string mistake; // why it is none; empty: the header is sound
};
// What the header of a whole message, as its frame says, tells. The body is not looked at.
[[nodiscard]] BusMessage read_bus_message(std::span<const std::uint8_t> message);

// The byte of a message with its flags, and the flag of a call that wants no answer.
inline constexpr std::size_t kBusFlagsAt = 2;
inline constexpr std::uint8_t kBusNoAnswer = 1;

} // namespace asd_host
