// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an enclosure's records are: their limits, how its file names them, and those that are special to operators.

#include "names.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace asd_shared {

inline constexpr std::size_t kLongestItem = 8192;             // data bytes
inline constexpr std::uint32_t kLargestPart = 16U << 20U;     // bytes; serial EEPROMs end far below
inline constexpr std::size_t kLargestEnclosure = 128U << 10U; // bytes of an enclosure file; a full one has some 20 KiB

// The keys under which an item names its chips; the second one is a mirrored item's.
inline constexpr std::array<const char *, 2> kChipKeys = {"AtomStorageDataDev0", "AtomStorageDataDev1"};

// The electronic keys.
struct KeyPlace {
    std::string_view name; // what operators call it
    std::string_view item;
    std::array<std::uint8_t, 3> fru; // the first bytes of its requests
    bool mirror;                     // whether it can be read from memory too
};
inline constexpr std::array kKeyPlaces = {
    KeyPlace{.name = "frameboard", .item = "ASD5", .fru = {0x00, 0x00, 0x80}, .mirror = true},
    KeyPlace{.name = "leftear", .item = "ASD7", .fru = {0x00, 0x80, 0x00}, .mirror = true},
    KeyPlace{.name = "power0", .item = "ASD1000", .fru = {0x00, 0x10, 0x00}, .mirror = false},
    KeyPlace{.name = "power1", .item = "ASD1001", .fru = {0x01, 0x10, 0x00}, .mirror = false},
};
inline constexpr std::size_t kKeySize = 1024;      // bytes of each
inline constexpr std::size_t kBayFileLimit = 2048; // bytes of the bay configuration file, without its length in front

} // namespace asd_shared
