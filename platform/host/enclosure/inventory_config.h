// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The enclosure file's Inventory section: what the fields of a standard inventory are taken from.

#include "json_document.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

struct ItemConfig;

// A fixed text, or part of an item's value with a text in front of it.
struct InventoryField {
    std::string text = {};
    std::string item = {};    // empty: the text alone, which may be empty too
    std::uint32_t offset = 0; // of the first byte of the value that is shown
    std::uint32_t length = 0; // bytes of it
    std::string format = {};  // of kFieldFormats
};
inline constexpr std::array<std::string_view, 3> kFieldFormats = {"text", "mac", "hex"};

// The areas of a standard inventory and the fields of each, in the order of the Platform Management FRU Information
// Storage Definition 1.0, sections 10 to 12.
enum InventoryAreaIndex : std::size_t { kChassisArea, kBoardArea, kProductArea, kInventoryAreas };
inline constexpr std::array<std::string_view, kInventoryAreas> kAreaNames = {"Chassis", "Board", "Product"};
inline constexpr std::array<std::string_view, 2> kChassisFields = {"PartNumber", "SerialNumber"};
inline constexpr std::array<std::string_view, 5> kBoardFields = {"Manufacturer", "ProductName", "SerialNumber",
                                                                 "PartNumber", "FileId"};
inline constexpr std::array<std::string_view, 7> kProductFields = {
    "Manufacturer", "ProductName", "PartNumber", "Version", "SerialNumber", "AssetTag", "FileId"};
[[nodiscard]] std::span<const std::string_view> area_fields(std::size_t area);

inline constexpr std::size_t kCustomFields = 16; // of an area at most: it ends at 2040 bytes, a field at 64

struct InventoryArea {
    std::uint8_t chassis_type = 2;      // SMBIOS (DSP0134) 7.4.1; 2: unknown
    std::vector<InventoryField> fields; // one for each of area_fields()
    std::vector<InventoryField> custom;
};

struct InventoryConfig {
    std::array<std::optional<InventoryArea>, kInventoryAreas> areas = {};
    InventoryField guid = {}; // the value that the enclosure's identifiers are made from
};

// The section; nothing when the file has none. A mistake is also an item that is none of the enclosure's, and one whose
// value is confidential or an electronic key: what is in the inventory is read by everybody.
[[nodiscard]] std::optional<InventoryConfig> read_inventory(const JsonNode *node, std::span<const ItemConfig> items,
                                                            JsonMistakes &mistakes);

} // namespace asd_host
