// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Bytes of the host's own small files: numbers little-endian, the whole closed by a CRC-32.

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace asd_host {

// A size that fits, as on a part or in a small file all do; a plain cast would be no cast where size_t has 32 bits.
[[nodiscard]] constexpr std::uint32_t u32_of(std::uint64_t value) {
    return static_cast<std::uint32_t>(value);
}

class ByteWriter {
public:
    void u32(std::uint32_t value);
    void bytes(std::span<const std::uint8_t> value);
    void text(std::string_view value);
    // Everything written so far and its CRC-32.
    [[nodiscard]] std::vector<std::uint8_t> sealed() const;

private:
    std::vector<std::uint8_t> bytes_;
};

// Reads in order; every take past the end comes back empty.
class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : rest_(bytes) {}
    [[nodiscard]] std::optional<std::uint32_t> u32();
    [[nodiscard]] std::optional<std::span<const std::uint8_t>> bytes(std::uint32_t count);
    [[nodiscard]] bool at_end() const { return rest_.empty(); }

private:
    std::span<const std::uint8_t> rest_;
};

// The bytes without their CRC-32; empty when it does not match.
[[nodiscard]] std::optional<std::span<const std::uint8_t>> unsealed(std::span<const std::uint8_t> sealed);

[[nodiscard]] bool same_text(std::span<const std::uint8_t> bytes, std::string_view text);

} // namespace asd_host
