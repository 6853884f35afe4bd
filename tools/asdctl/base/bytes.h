// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Bytes as an operator gives and sees them: hexadecimal, text, files.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace asdctl {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

// "41 43", "0x4143", "41:43" and single digits; nothing but whole bytes. Throws WrongUsage.
[[nodiscard]] Bytes parse_hex(std::string_view text);

// "0x001B": that many digits, or more where the value needs them.
[[nodiscard]] std::string hex_number(std::uint32_t value, int digits);

// "4143", or "41 43" with a separator.
[[nodiscard]] std::string to_hex(BytesView bytes, std::string_view separator = "");

// The text in a record: without the zeros or 0xFF bytes that fill it up, and with everything that is not printable
// written as \xNN, so that no record can steer a terminal.
[[nodiscard]] std::string to_text(BytesView bytes);

// A whole file, "-" for standard input. One of more than limit bytes throws Failure, as an unreadable one does.
[[nodiscard]] Bytes read_file(const std::string &path, std::size_t limit);

// Writes a whole file, "-" for standard output; a new one can be read by its owner alone. Throws Failure.
void write_file(const std::string &path, BytesView bytes);

// Writes to standard output. A reader that has left is no failure; anything else throws Failure.
void print(std::string_view text);

// The same; false when nobody reads any more.
[[nodiscard]] bool print_to_reader(std::string_view text);

} // namespace asdctl
