// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "part_plan.h"

#include "bytes.h"
#include "failure.h"
#include "output.h"
#include "records.h"
#include "values.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace asdctl {

namespace {

// Where something is in the document, as a JSON pointer.
struct Place {
    const std::string &file;
    std::string pointer;

    [[nodiscard]] Place of(const std::string &key) const { return {file, pointer + "/" + key}; }
    [[nodiscard]] Failure wrong(const std::string &what) const {
        return Failure(file + ": " + pointer + ": " + what, "'asd --config " + file + " --check-config' says more.");
    }
};

const Json &member(const Place &place, const Json &object, const char *key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw place.of(key).wrong("is missing");
    }
    return *found;
}

std::string text_of(const Place &place, const Json &object, const char *key) {
    const Json &value = member(place, object, key);
    if (!value.is_string()) {
        throw place.of(key).wrong("is no text");
    }
    return value.get<std::string>();
}

// An integer, or a text such as "0x50".
std::uint32_t number_of(const Place &place, const Json &object, const char *key) {
    const Json &value = member(place, object, key);
    std::uint64_t number = std::numeric_limits<std::uint64_t>::max();
    if (value.is_number_unsigned()) {
        number = value.get<std::uint64_t>();
    } else if (value.is_string()) {
        const std::string text = value.get<std::string>();
        const char *const end = text.data() + text.size();
        if (text.starts_with("0x") || text.starts_with("0X")) {
            const auto [stopped, error] = std::from_chars(text.data() + 2, end, number, 16);
            number = error == std::errc() && stopped == end ? number : std::numeric_limits<std::uint64_t>::max();
        }
    }
    if (number > kLargestPart) {
        throw place.of(key).wrong("is no number of bytes");
    }
    return static_cast<std::uint32_t>(number);
}

bool flag_of(const Json &object, const char *key) {
    const auto found = object.find(key);
    return found != object.end() && (found->is_boolean() ? found->get<bool>() : *found == 1);
}

// Calls each(place, object) for the objects in a list of the document.
template <typename Each>
void for_each_in(const std::string &file, const Json &document, const char *list, const Each &each) {
    const Place place{file, std::string("/") + list};
    const auto found = document.find(list);
    if (found == document.end() || !found->is_array()) {
        throw place.wrong("is no list");
    }
    for (std::size_t i = 0; i < found->size(); ++i) {
        const Place here = place.of(std::to_string(i));
        if (!(*found)[i].is_object()) {
            throw here.wrong("is no object");
        }
        each(here, (*found)[i]);
    }
}

struct ChipPlan {
    std::string name;
    std::string part;
    std::uint32_t offset;
};

// Confidential unless it is said: the electronic keys, as for the service.
ItemPlan item_of(const Place &place, const Json &item) {
    std::string name = text_of(place, item, "Name");
    const bool key = std::ranges::find(kKeyPlaces, name, &KeyPlace::item) != kKeyPlaces.end();
    return {.name = std::move(name),
            .length = number_of(place, item, "Length"),
            .confidential = item.contains("Confidential") ? flag_of(item, "Confidential") : key};
}

// What the item's chips add to their parts.
void add_records(const Place &place, const ItemPlan &plan, const Json &item, const std::vector<ChipPlan> &chips,
                 std::vector<PartPlan> *parts) {
    const std::string &name = plan.name;
    const std::uint32_t length = plan.length;
    const bool mirrored = item.contains(kChipKeys[1]);
    for (const char *key : kChipKeys) {
        if (!item.contains(key)) {
            continue;
        }
        const auto chip = std::ranges::find(chips, text_of(place, item, key), &ChipPlan::name);
        const auto part = chip == chips.end() ? parts->end() : std::ranges::find(*parts, chip->part, &PartPlan::name);
        if (part == parts->end()) {
            throw place.of(key).wrong("names no chip on a known part");
        }
        part->records.push_back({.item = name,
                                 .chip = chip->name,
                                 .offset = chip->offset,
                                 .length = length,
                                 .mirrored = mirrored,
                                 .second = key == kChipKeys[1]});
        if (part->records.back().end() > part->size) {
            throw place.of(key).wrong("the record ends behind the part's last byte");
        }
    }
}

} // namespace

EnclosurePlan read_enclosure(const std::string &path) {
    const Bytes bytes = read_file(path, kLargestEnclosure);
    const Json document = Json::parse(bytes, nullptr, false);
    if (!document.is_object()) {
        throw Failure(path + ": is no JSON object", "'asd --config " + path + " --check-config' says more.");
    }
    EnclosurePlan enclosure{
        .name = document.contains("Name") ? text_of({path, ""}, document, "Name") : "", .parts = {}, .items = {}};
    std::vector<PartPlan> &parts = enclosure.parts;
    for_each_in(path, document, "Parts", [&](const Place &place, const Json &part) {
        parts.push_back({.name = text_of(place, part, "Name"),
                         .file = text_of(place, part, "File"),
                         .shared = flag_of(part, "Shared"),
                         .device = part.contains("Kind") && text_of(place, part, "Kind") == "device",
                         .size = number_of(place, part, "Size"),
                         .page_size = part.contains("PageSize") ? number_of(place, part, "PageSize") : 1,
                         .records = {}});
    });
    std::vector<ChipPlan> chips;
    for_each_in(path, document, "Chips", [&](const Place &place, const Json &chip) {
        chips.push_back({.name = text_of(place, chip, "Name"),
                         .part = text_of(place, chip, "Part"),
                         .offset = number_of(place, chip, "Offset")});
    });
    for_each_in(path, document, "Items", [&](const Place &place, const Json &item) {
        enclosure.items.push_back(item_of(place, item));
        learn_item(enclosure.items.back().name, item.contains("Label") ? text_of(place, item, "Label") : "",
                   item.contains("Format") ? text_of(place, item, "Format") : "");
        add_records(place, enclosure.items.back(), item, chips, &parts);
    });
    for (PartPlan &part : parts) {
        std::ranges::sort(part.records, {}, &RecordPlace::offset);
    }
    return enclosure;
}

} // namespace asdctl
