// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "byte_codec.h"

#include <algorithm>

#include <boost/crc.hpp>

namespace asd_host {

namespace {

constexpr std::uint32_t kSealBytes = 4;

std::uint32_t crc32_of(std::span<const std::uint8_t> bytes) {
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

void append_u32(std::vector<std::uint8_t> *bytes, std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes->push_back(static_cast<std::uint8_t>(value >> shift & 0xFFU));
    }
}

} // namespace

void ByteWriter::u32(std::uint32_t value) {
    append_u32(&bytes_, value);
}

void ByteWriter::bytes(std::span<const std::uint8_t> value) {
    bytes_.insert(bytes_.end(), value.begin(), value.end());
}

void ByteWriter::text(std::string_view value) {
    bytes_.insert(bytes_.end(), value.begin(), value.end());
}

std::vector<std::uint8_t> ByteWriter::sealed() const {
    std::vector<std::uint8_t> all = bytes_;
    append_u32(&all, crc32_of(bytes_));
    return all;
}

std::optional<std::uint32_t> ByteReader::u32() {
    const auto four = bytes(4);
    if (!four) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    for (unsigned i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>((*four)[i]) << (8 * i);
    }
    return value;
}

std::optional<std::span<const std::uint8_t>> ByteReader::bytes(std::uint32_t count) {
    if (count > rest_.size()) {
        return std::nullopt;
    }
    const std::span<const std::uint8_t> taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
}

std::optional<std::span<const std::uint8_t>> unsealed(std::span<const std::uint8_t> sealed) {
    if (sealed.size() < kSealBytes) {
        return std::nullopt;
    }
    const std::span<const std::uint8_t> content = sealed.first(sealed.size() - kSealBytes);
    if (ByteReader(sealed.last(kSealBytes)).u32() != crc32_of(content)) {
        return std::nullopt;
    }
    return content;
}

bool same_text(std::span<const std::uint8_t> bytes, std::string_view text) {
    return std::equal(bytes.begin(), bytes.end(), text.begin(), text.end(),
                      [](std::uint8_t byte, char character) { return byte == static_cast<std::uint8_t>(character); });
}

} // namespace asd_host
