// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "values.h"

#include "failure.h"

#include <algorithm>
#include <list>

#include <boost/crc.hpp>
#include <glib.h>

namespace asdctl {

namespace {

constexpr std::size_t kMacSize = 6;
constexpr std::size_t kModelSize = 4;
constexpr std::size_t kShownBytes = 16; // of a long value

// What an enclosure says of an item; known looks into the other two.
struct Learnt {
    std::string item;
    std::string label;
    KnownItem known{};
};

std::list<Learnt> &learnt_items() {
    static std::list<Learnt> items; // a command knows one enclosure
    return items;
}

std::uint8_t model_checksum(BytesView record) {
    boost::crc_optimal<8, 0x07, 0, 0, false, false> crc; // docs/record-format.md
    crc.process_bytes(record.data(), kModelSize - 1);
    return crc.checksum();
}

std::string shortened_hex(BytesView bytes) {
    const bool whole = bytes.size() <= kShownBytes;
    return to_hex(whole ? bytes : bytes.first(kShownBytes)) +
           (whole ? "" : "... (" + std::to_string(bytes.size()) + " bytes)");
}

std::uint8_t code_of(const KnownItem &item, const std::string &text) {
    const Bytes code = parse_hex(text);
    if (code.size() != 1) {
        throw WrongUsage("'" + text + "' is no " + std::string(item.meaning), "It is one byte, such as 0x55.");
    }
    return code.front();
}

} // namespace

void learn_item(const std::string &item, const std::string &label, const std::string &format) {
    const auto *const named = std::ranges::find(kFormatNames, format);
    const KnownItem *const usual = known_item(item);
    const Format meant = named == kFormatNames.end() ? (usual == nullptr ? Format::kHex : usual->format)
                                                     : static_cast<Format>(named - kFormatNames.begin());
    const std::string_view called = !label.empty() || usual == nullptr ? std::string_view(label) : usual->label;
    const bool news =
        usual == nullptr ? !label.empty() || meant != Format::kHex : called != usual->label || meant != usual->format;
    const bool again = std::ranges::find(learnt_items(), item, &Learnt::item) != learnt_items().end();
    if (!news || again) {
        return;
    }
    Learnt &learnt = learnt_items().emplace_back();
    learnt.item = item;
    learnt.label = called;
    learnt.known =
        usual == nullptr
            ? KnownItem{.item = {}, .label = {}, .format = {}, .meaning = learnt.label, .identity = !label.empty()}
            : *usual;
    learnt.known.item = learnt.item;
    learnt.known.label = learnt.label;
    learnt.known.format = meant;
}

std::vector<const KnownItem *> known_of_all() {
    std::vector<const KnownItem *> all;
    std::ranges::transform(kKnownItems, std::back_inserter(all),
                           [](const KnownItem &known) { return known_of(known.item); });
    for (const Learnt &learnt : learnt_items()) {
        if (known_item(learnt.item) == nullptr) {
            all.push_back(&learnt.known);
        }
    }
    return all;
}

const KnownItem *known_of(std::string_view item) {
    const std::list<Learnt> &learnt = learnt_items();
    const auto found = std::ranges::find(learnt, item, &Learnt::item);
    return found == learnt.end() ? known_item(item) : &found->known;
}

const KnownItem *known_named(std::string_view name) {
    const auto same = [name](std::string_view other) {
        return other.size() == name.size() && g_ascii_strncasecmp(other.data(), name.data(), name.size()) == 0;
    };
    if (name.empty()) {
        return nullptr;
    }
    const std::vector<const KnownItem *> all = known_of_all();
    const auto found =
        std::ranges::find_if(all, [&](const KnownItem *known) { return known->item == name || same(known->label); });
    return found == all.end() ? nullptr : *found;
}

std::vector<std::string> known_labels() {
    std::vector<std::string> labels;
    for (const KnownItem *known : known_of_all()) {
        if (!known->label.empty()) {
            labels.emplace_back(known->label);
        }
    }
    return labels;
}

std::string decoded(Format format, BytesView bytes) {
    if (std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0xFF; })) {
        return {};
    }
    switch (format) {
    case Format::kText:
        return to_text(bytes);
    case Format::kMac:
        return bytes.size() == kMacSize ? to_hex(bytes, ":") : shortened_hex(bytes);
    case Format::kModel:
        return bytes.size() == kModelSize && bytes.back() == model_checksum(bytes) ? hex_number(bytes.front(), 2)
                                                                                   : shortened_hex(bytes) + ", damaged";
    case Format::kSetting:
        return hex_number(bytes.front(), 2);
    case Format::kFlag:
        return bytes.front() == 1 ? "both copies" : bytes.front() == 2 ? "one copy" : shortened_hex(bytes);
    case Format::kHex:
        break;
    }
    return shortened_hex(bytes);
}

Bytes encoded(const KnownItem &item, const std::string &text) {
    switch (item.format) {
    case Format::kText:
        return {text.begin(), text.end()};
    case Format::kMac: {
        Bytes mac = parse_hex(text);
        if (mac.size() != kMacSize) {
            throw WrongUsage("'" + text + "' is no MAC address", "It has six bytes: 02:00:5e:10:20:30.");
        }
        return mac;
    }
    case Format::kModel: {
        Bytes record = {code_of(item, text), 0xA5, 0x5A, 0};
        record.back() = model_checksum(record);
        return record;
    }
    case Format::kSetting:
        return {code_of(item, text)};
    case Format::kFlag:
    case Format::kHex:
        break;
    }
    return parse_hex(text);
}

} // namespace asdctl
