// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "inventory_config.h"

#include "enclosure.h"
#include "json_section.h"
#include "records.h"

#include <algorithm>
#include <utility>

namespace asd_host {

namespace {

constexpr std::uint32_t kMacLength = 6;

// The item's index among items; nothing, and a mistake, when it may not or cannot be shown.
const ItemConfig *shown_item(const std::string &name, const JsonNode &written, std::span<const ItemConfig> items,
                             JsonMistakes &mistakes) {
    const auto found = std::ranges::find(items, name, &ItemConfig::name);
    if (found == items.end()) {
        std::vector<std::string> names;
        std::ranges::transform(items, std::back_inserter(names), &ItemConfig::name);
        const std::string meant = nearest(name, names);
        mistakes.add(written, "there is no item " + in_quotes(name) + "; " +
                                  (meant.empty() ? "add it" : "did you mean " + in_quotes(meant) + "?"));
        return nullptr;
    }
    if (found->confidential || std::ranges::find(kKeyPlaces, name, &KeyPlace::item) != kKeyPlaces.end()) {
        mistakes.add(written, "is " + in_quotes(name) +
                                  ", which is confidential or an electronic key, and an inventory is read by everybody;"
                                  " take another item");
        return nullptr;
    }
    return &*found;
}

// What the item's own entry leaves open.
std::size_t usual_format(const ItemConfig *item) {
    const auto *const found =
        item == nullptr ? kFieldFormats.begin() : std::ranges::find(kFieldFormats, std::string_view(item->format));
    return found == kFieldFormats.end() ? kFieldFormats.size() - 1
                                        : static_cast<std::size_t>(found - kFieldFormats.begin());
}

InventoryField read_field(const JsonNode &node, std::span<const ItemConfig> items, JsonMistakes &mistakes) {
    if (node.kind == JsonNode::Kind::kText) {
        return {.text = node.text};
    }
    if (node.kind != JsonNode::Kind::kObject) {
        mistakes.add(node, "is neither a text nor an object that names an \"Item\"");
        return {};
    }
    JsonSection section(&node, &mistakes);
    InventoryField field;
    field.text = section.text("Prefix", JsonSection::kOptional);
    const std::string name = section.text("Item", JsonSection::kRequired);
    const JsonNode *const written = node.find("Item");
    const bool named = written != nullptr && written->kind == JsonNode::Kind::kText;
    const ItemConfig *const item = named ? shown_item(name, *written, items, mistakes) : nullptr;
    const std::int64_t size = item == nullptr ? static_cast<std::int64_t>(kLongestItem) : item->length;
    const auto offset =
        section.number("Offset", {.least = 0, .most = size - 1, .why = ""}, JsonSection::kOptional).value_or(0);
    const auto length = section.number("Length", {.least = 1, .most = size - offset, .why = "the value ends there"},
                                       JsonSection::kOptional);
    field.format = kFieldFormats[section.choice("Format", kFieldFormats, usual_format(item))];
    section.finish();
    if (item == nullptr) {
        return field; // a mistake already
    }
    field.item = item->name;
    field.offset = static_cast<std::uint32_t>(offset);
    field.length = static_cast<std::uint32_t>(length.value_or(size - offset));
    if (field.format == "mac" && field.length != kMacLength) {
        mistakes.add(node, "shows " + std::to_string(field.length) +
                               " bytes as a MAC address, which has 6; give it "
                               "Offset and Length, or another Format");
    }
    return field;
}

InventoryArea read_area(std::size_t index, const JsonNode &node, std::span<const ItemConfig> items,
                        JsonMistakes &mistakes) {
    JsonSection section(&node, &mistakes);
    InventoryArea area;
    if (index == kChassisArea) {
        const auto type = section.number("Type", {.least = 1, .most = 127, .why = ""}, JsonSection::kOptional);
        area.chassis_type = static_cast<std::uint8_t>(type.value_or(area.chassis_type));
    }
    for (const std::string_view key : area_fields(index)) {
        const JsonNode *const written = section.any(key);
        area.fields.push_back(written == nullptr ? InventoryField{} : read_field(*written, items, mistakes));
    }
    const std::vector<JsonNode> &custom = section.array("Custom", JsonSection::kOptional);
    if (custom.size() > kCustomFields) {
        mistakes.add(*node.find("Custom"), "has " + std::to_string(custom.size()) + " fields; an area has at most " +
                                               std::to_string(kCustomFields) + " of them");
    }
    for (const JsonNode &written : custom) {
        area.custom.push_back(read_field(written, items, mistakes));
    }
    section.finish();
    return area;
}

} // namespace

std::span<const std::string_view> area_fields(std::size_t area) {
    switch (area) {
    case kChassisArea:
        return kChassisFields;
    case kBoardArea:
        return kBoardFields;
    default:
        return kProductFields;
    }
}

std::optional<InventoryConfig> read_inventory(const JsonNode *node, std::span<const ItemConfig> items,
                                              JsonMistakes &mistakes) {
    if (node == nullptr) {
        return std::nullopt;
    }
    JsonSection section(node, &mistakes);
    InventoryConfig inventory;
    for (std::size_t i = 0; i < kInventoryAreas; ++i) {
        if (const JsonNode *const area = section.any(kAreaNames[i])) {
            inventory.areas[i] = read_area(i, *area, items, mistakes);
        }
    }
    if (const JsonNode *const guid = section.any("Guid")) {
        inventory.guid = read_field(*guid, items, mistakes);
    }
    section.finish();
    return inventory;
}

} // namespace asd_host
