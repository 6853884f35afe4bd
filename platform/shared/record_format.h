// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A record as it lies on a part: docs/record-format.md. Nothing here ever changes, because the parts do not.

#include "names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <boost/crc.hpp>

namespace asd_shared {

inline constexpr std::size_t kChecksumSize = 2; // bytes behind a record's data, the low one first

// CRC-16 of polynomial 0x1021, not reflected, complemented at the end; start continues an earlier one.
[[nodiscard]] inline std::uint16_t crc16(std::span<const std::uint8_t> data, std::uint16_t start = 0) {
    boost::crc_optimal<16, 0x1021, 0x0000, 0xFFFF, false, false> crc(start);
    crc.process_bytes(data.data(), data.size());
    return crc.checksum();
}

// Of a record: data and at least the two bytes behind it.
[[nodiscard]] inline std::uint16_t stored_checksum(std::span<const std::uint8_t> record) {
    return static_cast<std::uint16_t>(record[record.size() - 2] | record.back() << 8U);
}
[[nodiscard]] inline std::uint16_t computed_checksum(std::span<const std::uint8_t> record) {
    return crc16(record.first(record.size() - kChecksumSize));
}

// Whether the bytes are data with their checksum behind them.
[[nodiscard]] inline bool is_record(std::span<const std::uint8_t> bytes) {
    return bytes.size() > kChecksumSize && stored_checksum(bytes) == computed_checksum(bytes);
}

// ---- Check flags ----
// The byte that a flag's record holds on each of the flag's own two chips.
inline constexpr std::uint8_t kStoredBoth = 1;  // both copies of the pair took the last write
inline constexpr std::uint8_t kStoredAlone = 2; // the copy beside this chip was the only one

// Which copy of a pair the flags say was written alone: 0 or 1. None: neither does, or both do. Each is the byte of a
// good flag, or nothing.
[[nodiscard]] inline std::optional<std::size_t> written_alone(std::optional<std::uint8_t> first,
                                                              std::optional<std::uint8_t> second) {
    if ((first == kStoredAlone) == (second == kStoredAlone)) {
        return std::nullopt;
    }
    return first == kStoredAlone ? 0U : 1U;
}

// The chips of which a wrong checksum fails a read. Of all others the bytes are delivered as they are. In the order of
// the document, which a test compares.
inline constexpr std::array<std::string_view, 18> kStrictChips = {
    "ASDDev5a",
    "ASDDev5b",
    "ASDDev21a",
    "ASDDev21b",
    "ASDDev24a",
    "ASDDev25a",
    "ASDDev26a",
    "ASDDev27a",
    "ASDDev52a",
    "ASDDev52b",
    "ASDDev53a",
    "ASDDev53b",
    "ASD_FrameLedRuleDeva",
    "ASD_FrameLedRuleDevb",
    "ASD_CCDBa",
    "ASD_CCDBb",
    "ASD_PRODUCT_CFGINFO_VALIDa",
    "ASD_PRODUCT_CFGINFO_VALIDb",
};

} // namespace asd_shared
