// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What operators call the well-known items, what their values are, and which items keep a pair's check flag. An
// enclosure may have fewer items, and others.

#include "names.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace asd_shared {

// What an item's bytes are.
enum class Format {
    kHex,
    kText,    // filled up with zeros or 0xFF
    kMac,     // six bytes
    kModel,   // a model code with its own checksum: docs/record-format.md
    kSetting, // a setting code and bytes that belong to it: docs/record-format.md
    kFlag,    // the check flag of the item .of
};

// How an enclosure file and D-Bus name them, in their order.
inline constexpr std::array<std::string_view, 6> kFormatNames = {"hex", "text", "mac", "model", "setting", "flag"};

[[nodiscard]] constexpr std::string_view format_name(Format format) {
    return kFormatNames[static_cast<std::size_t>(format)];
}

struct KnownItem {
    std::string_view item;
    std::string_view label; // may stand for the item on a command line; empty: it has none
    Format format;
    std::string_view meaning;
    std::uint32_t length = 0; // bytes that its commands and its format need; 0: any
    std::string_view of = {};
    bool identity = false; // what 'asdctl identity' shows
};

// clang-format off
inline constexpr std::array kKnownItems = {
    KnownItem{.item = "ASD0",                      .label = "fan0",               .format = Format::kHex,     .meaning = "data of the first fan"},
    KnownItem{.item = "ASD1",                      .label = "fan1",               .format = Format::kHex,     .meaning = "data of the second fan"},
    KnownItem{.item = "ASD2",                      .label = "fan2",               .format = Format::kHex,     .meaning = "data of the third fan"},
    KnownItem{.item = "ASD3",                      .label = "fan3",               .format = Format::kHex,     .meaning = "data of the fourth fan"},
    KnownItem{.item = "ASD5",                      .label = "key-frameboard",     .format = Format::kHex,     .meaning = "electronic key of the frame board", .length = 1024},
    KnownItem{.item = "ASD7",                      .label = "key-leftear",        .format = Format::kHex,     .meaning = "electronic key of the left ear", .length = 1024},
    KnownItem{.item = "ASD8",                      .label = "fan4",               .format = Format::kHex,     .meaning = "data of the fifth fan"},
    KnownItem{.item = "ASD9",                      .label = "fan5",               .format = Format::kHex,     .meaning = "data of the sixth fan"},
    KnownItem{.item = "ASD10",                     .label = "mac",                .format = Format::kMac,     .meaning = "MAC address", .length = 6, .identity = true},
    KnownItem{.item = "ASD11",                     .label = "serial",             .format = Format::kText,    .meaning = "serial number", .length = 20, .identity = true},
    KnownItem{.item = "ASD13",                     .label = "model",              .format = Format::kText,    .meaning = "model", .length = 16, .identity = true},
    KnownItem{.item = "ASD14",                     .label = "brand",              .format = Format::kText,    .meaning = "brand", .length = 32, .identity = true},
    KnownItem{.item = "ASD15",                     .label = "vendor",             .format = Format::kText,    .meaning = "vendor", .length = 32, .identity = true},
    KnownItem{.item = "ASD17",                     .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD16"},
    KnownItem{.item = "ASD20",                     .label = "oem-model",          .format = Format::kText,    .meaning = "model at the maker of the brand", .length = 16, .identity = true},
    KnownItem{.item = "ASD21",                     .label = "logo",               .format = Format::kHex,     .meaning = "logo", .length = 8, .identity = true},
    KnownItem{.item = "ASD23",                     .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD22"},
    KnownItem{.item = "ASD24",                     .label = "bay-configuration",  .format = Format::kHex,     .meaning = "bay configuration, the short record", .length = 128},
    KnownItem{.item = "ASD25",                     .label = "bay-file",           .format = Format::kHex,     .meaning = "bay configuration file, its length in front", .length = 2052},
    KnownItem{.item = "ASD26",                     .label = "specification",      .format = Format::kText,    .meaning = "specification", .length = 16, .identity = true},
    KnownItem{.item = "ASD27",                     .label = "frame",              .format = Format::kText,    .meaning = "frame information", .length = 32, .identity = true},
    KnownItem{.item = "ASD53",                     .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD52"},
    KnownItem{.item = "ASD1000",                   .label = "key-power0",         .format = Format::kHex,     .meaning = "electronic key of the first power supply", .length = 1024},
    KnownItem{.item = "ASD1001",                   .label = "key-power1",         .format = Format::kHex,     .meaning = "electronic key of the second power supply", .length = 1024},
    KnownItem{.item = "ASD_BBUSWITCH",             .label = "bbu-switch",         .format = Format::kHex,     .meaning = "battery switch"},
    KnownItem{.item = "ASD_BBUSWITCH1",            .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD_BBUSWITCH"},
    KnownItem{.item = "ASD_BBUSWITCHTIME",         .label = "bbu-switch-time",    .format = Format::kHex,     .meaning = "time of the battery switch"},
    KnownItem{.item = "ASD_BBUSWITCHTIME1",        .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD_BBUSWITCHTIME"},
    KnownItem{.item = "ASD_Bucklecard0Eeprom",     .label = "buckle-card0",       .format = Format::kHex,     .meaning = "type of the first buckle card"},
    KnownItem{.item = "ASD_Bucklecard0EepromSub",  .label = "buckle-card0-sub",   .format = Format::kHex,     .meaning = "type of the first buckle card's own card"},
    KnownItem{.item = "ASD_Bucklecard1Eeprom",     .label = "buckle-card1",       .format = Format::kHex,     .meaning = "type of the second buckle card"},
    KnownItem{.item = "ASD_CCDB",                  .label = "customer-block",     .format = Format::kHex,     .meaning = "customer block", .length = 128},
    KnownItem{.item = "ASD_CCDB_VALID",            .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD_CCDB"},
    KnownItem{.item = "ASD_E2PWP",                 .label = "protection-test",    .format = Format::kHex,     .meaning = "record of the write-protect test", .length = 32},
    KnownItem{.item = "ASD_FrameLedRule",          .label = "frame-led-rule",     .format = Format::kHex,     .meaning = "rule of the frame's lamps"},
    KnownItem{.item = "ASD_FrameLedRuleValid",     .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD_FrameLedRule"},
    KnownItem{.item = "ASD_IOCARD_PCIE4",          .label = "io-card-pcie4",      .format = Format::kSetting, .meaning = "I/O card PCIe 4.0 setting", .length = 8, .identity = true},
    KnownItem{.item = "ASD_NODE_VIEW",             .label = "node-view",          .format = Format::kHex,     .meaning = "node view", .length = 64},
    KnownItem{.item = "ASD_NODE_VIEW_VALID",       .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD_NODE_VIEW"},
    KnownItem{.item = "ASD_OVERSEAS",              .label = "overseas",           .format = Format::kHex,     .meaning = "overseas flag", .length = 16, .identity = true},
    KnownItem{.item = "ASD_PCIEORSAS",             .label = "backplane-model",    .format = Format::kModel,   .meaning = "backplane model code", .length = 4, .identity = true},
    KnownItem{.item = "ASD_PRODUCT_CFGINFO",       .label = "product",            .format = Format::kHex,     .meaning = "product configuration", .length = 64},
    KnownItem{.item = "ASD_PRODUCT_CFGINFO_VALID", .label = "",                   .format = Format::kFlag,    .meaning = "check flag", .length = 1, .of = "ASD_PRODUCT_CFGINFO"},
    KnownItem{.item = "ASD_PRODUCT_FRAMECFG",      .label = "product-frame",      .format = Format::kHex,     .meaning = "product's frame configuration", .length = 16},
    KnownItem{.item = "ASD_PowerConfig",           .label = "power-configuration", .format = Format::kHex,    .meaning = "power configuration", .length = 128},
    KnownItem{.item = "ASD_PowerThreshold",        .label = "power-threshold",    .format = Format::kHex,     .meaning = "power threshold"},
};
// clang-format on

[[nodiscard]] inline const KnownItem *known_item(std::string_view item) {
    const auto *const found = std::ranges::find(kKnownItems, item, &KnownItem::item);
    return found == kKnownItems.end() ? nullptr : found;
}

// Empty: it has none.
[[nodiscard]] inline std::string_view label_of(std::string_view item) {
    const KnownItem *const known = known_item(item);
    return known == nullptr ? "" : known->label;
}

// The item that keeps a pair's check flag; null: a pair of this name has none. A pair "ASD10" would keep it in its own
// first bytes, so it has none that is of any use.
[[nodiscard]] inline const KnownItem *flag_item(std::string_view item) {
    const auto *const found = std::ranges::find(kKnownItems, item, &KnownItem::of);
    return item.empty() || found == kKnownItems.end() ? nullptr : found;
}

[[nodiscard]] inline bool has_flag(std::string_view item) {
    return flag_item(item) != nullptr;
}

} // namespace asd_shared
