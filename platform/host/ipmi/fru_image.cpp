// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "fru_image.h"

#include "glib_holders.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <numeric>

#include <glib.h>

namespace asd_host {

namespace {

constexpr std::uint8_t kFormatVersion = 1;
constexpr std::size_t kUnit = 8;            // areas begin at multiples of it, and their lengths are counted in it
constexpr std::uint8_t kLatin = 0xC0;       // type of a field: 8-bit ASCII and Latin 1
constexpr std::uint8_t kEndOfFields = 0xC1; // would also be a text of one character
constexpr std::uint8_t kLocatorType = 0x11; // FRU device locator
constexpr std::uint8_t kSdrVersion = 0x51;  // 1.5, BCD with its digits swapped; that of IPMI 2.0 too
constexpr std::uint8_t kOwnAddress = 0x20;  // of the controller on the IPMB
constexpr std::uint8_t kLogicalDevice = 0x80;
constexpr std::uint8_t kBehindController = 0x10; // device type, with the modifier: an IPMI FRU inventory
constexpr std::uint8_t kFruInventory = 0x02;
constexpr std::uint8_t kSystemChassis = 0x17; // entity
constexpr std::size_t kNameLimit = 16;

// What makes the bytes' sum 0 modulo 256.
std::uint8_t zero_sum(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint8_t>(-std::accumulate(bytes.begin(), bytes.end(), 0));
}

std::string to_latin(const std::string &text, std::size_t limit) {
    std::string latin;
    const char *end = text.c_str() + text.size();
    for (const char *at = text.c_str(); at < end && latin.size() < limit;) {
        const gunichar letter = g_utf8_get_char_validated(at, end - at);
        latin.push_back(letter <= 0xFF ? static_cast<char>(static_cast<unsigned char>(letter)) : '?');
        at = letter < 0x110000 ? at + g_utf8_skip[static_cast<guchar>(*at)] : at + 1;
    }
    return latin;
}

void add_field(std::vector<std::uint8_t> &area, const std::string &text) {
    std::string latin = to_latin(text, kFruFieldLimit);
    if (latin.size() == 1) {
        latin.push_back(' ');
    }
    area.push_back(static_cast<std::uint8_t>(kLatin | latin.size()));
    area.insert(area.end(), latin.begin(), latin.end());
}

std::vector<std::uint8_t> bytes_of(const FruArea &content) {
    std::vector<std::uint8_t> area = {kFormatVersion, 0};
    area.insert(area.end(), content.head.begin(), content.head.end());
    for (const std::string &field : content.fields) {
        add_field(area, field);
    }
    area.push_back(kEndOfFields);
    area.resize((area.size() + 1 + kUnit - 1) / kUnit * kUnit - 1); // a checksum follows
    area[1] = static_cast<std::uint8_t>((area.size() + 1) / kUnit);
    area.push_back(zero_sum(area));
    return area;
}

} // namespace

std::vector<std::uint8_t> fru_image(std::span<const std::optional<FruArea>, 3> areas) {
    constexpr std::size_t kFirstOffset =
        2; // in the head: offsets of the internal area, which there is none of, and of these
    std::vector<std::uint8_t> image(kUnit, 0);
    image[0] = kFormatVersion;
    for (std::size_t i = 0; i < areas.size(); ++i) {
        if (areas[i]) {
            image[kFirstOffset + i] = static_cast<std::uint8_t>(image.size() / kUnit);
            std::ranges::copy(bytes_of(*areas[i]), std::back_inserter(image));
        }
    }
    image[kUnit - 1] = zero_sum(std::span(image).first(kUnit - 1));
    return image;
}

std::vector<std::uint8_t> fru_locator(std::string_view name) {
    const std::string latin = to_latin(std::string(name), kNameLimit);
    std::vector<std::uint8_t> record = {kFruRecord,
                                        0,
                                        kSdrVersion,
                                        kLocatorType,
                                        0,
                                        kOwnAddress,
                                        0,
                                        kLogicalDevice,
                                        0,
                                        0, // FRU 0, on no bus of its own; channel 0; reserved
                                        kBehindController,
                                        kFruInventory,
                                        kSystemChassis,
                                        1,
                                        0,
                                        static_cast<std::uint8_t>(kLatin | latin.size())};
    // An insert GCC 12's optimiser takes for one beyond the end.
    std::ranges::copy(latin, std::back_inserter(record));
    constexpr std::size_t kHead = 5;
    record[kHead - 1] = static_cast<std::uint8_t>(record.size() - kHead);
    return record;
}

std::array<std::uint8_t, 16> guid_of(std::string_view what, std::string_view value) {
    // The name space of these identifiers, drawn once.
    static constexpr std::array<guchar, 16> kSpace = {0x6d, 0x1f, 0x0b, 0x52, 0x94, 0xc7, 0x4e, 0x0a,
                                                      0xb3, 0x5e, 0x27, 0xa8, 0x61, 0xd0, 0x9c, 0x43};
    const std::string name = std::string(what) + '\0' + std::string(value);
    const std::unique_ptr<GChecksum, Releaser<g_checksum_free>> sha1(g_checksum_new(G_CHECKSUM_SHA1));
    g_checksum_update(sha1.get(), kSpace.data(), kSpace.size());
    g_checksum_update(sha1.get(), reinterpret_cast<const guchar *>(name.data()), static_cast<gssize>(name.size()));
    std::array<std::uint8_t, 20> digest{};
    gsize size = digest.size();
    g_checksum_get_digest(sha1.get(), digest.data(), &size);
    std::array<std::uint8_t, 16> guid{};
    std::copy_n(digest.begin(), guid.size(), guid.begin());
    guid[6] = static_cast<std::uint8_t>(0x50U | (guid[6] & 0x0FU)); // version
    guid[8] = static_cast<std::uint8_t>(0x80U | (guid[8] & 0x3FU)); // variant
    std::ranges::reverse(guid);
    return guid;
}

} // namespace asd_host
