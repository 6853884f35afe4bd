// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The bytes of a standard inventory (Platform Management FRU Information Storage Definition 1.0) and of the record that
// leads to it (IPMI 2.0, section 43.8). Values in, bytes out.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

inline constexpr std::size_t kFruFieldLimit = 63; // bytes of a field: its length has six bits

// What an area has between its length and its fields, and the fields in UTF-8, the standard's first.
struct FruArea {
    std::vector<std::uint8_t> head;
    std::vector<std::string> fields;
};

// Chassis, board and product; an area that is not there is left out. A character that Latin 1 does not have becomes
// '?', a field ends after kFruFieldLimit bytes. Areas of at most 23 fields.
[[nodiscard]] std::vector<std::uint8_t> fru_image(std::span<const std::optional<FruArea>, 3> areas);

inline constexpr std::uint16_t kFruRecord = 1; // number of the only record of the SDR repository

// The FRU device locator record of FRU 0 behind this controller: "FRU 0 is an inventory, of the chassis, called name"
// (16 bytes of it at most).
[[nodiscard]] std::vector<std::uint8_t> fru_locator(std::string_view name);

// A name-based identifier (RFC 4122, version 5) of what and value, its last byte first as IPMI 2.0, table 20-10 has it.
[[nodiscard]] std::array<std::uint8_t, 16> guid_of(std::string_view what, std::string_view value);

} // namespace asd_host
