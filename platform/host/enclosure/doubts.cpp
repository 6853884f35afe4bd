// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "doubts.h"

#include "json_section.h"
#include "known_items.h"
#include "record_format.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <tuple>

namespace asd_host {

namespace {

constexpr std::uint32_t kLongestSynced = 128; // data bytes; the module sends no longer items to the peers
constexpr std::string_view kFlagInItself = "ASD10";

// A call takes a third less code than a sum of strings for each sentence.
std::string joined(std::initializer_list<std::string_view> words) {
    std::string sentence;
    for (const std::string_view word : words) {
        sentence += word;
    }
    return sentence;
}

void doubt_parts(const Enclosure &enclosure, std::vector<std::string> *doubts) {
    for (const PartConfig &part : enclosure.parts) {
        if (part.page_size > part.size) {
            doubts->push_back(joined({"part ", in_quotes(part.name), ": a page has ", std::to_string(part.page_size),
                                      " bytes and the part ", std::to_string(part.size), "; is one of them wrong?"}));
        }
        const bool driven = std::ranges::count(enclosure.gpio_lines, part.write_protect_line,
                                               [](const GpioLineConfig &line) { return std::optional(line.line); }) > 0;
        if (part.kind == PartKind::kDevice && part.write_protect_line && !driven) {
            doubts->push_back(joined({"part ", in_quotes(part.name), ": nothing drives its write-protect line ",
                                      std::to_string(*part.write_protect_line),
                                      ", so it is emulated and protects no device; name its GPIO line in GpioLines"}));
        }
    }
}

void doubt_items(const Enclosure &enclosure, std::vector<std::string> *doubts) {
    const auto part_of = [&](const std::string &chip) { // the loader has seen that it is there
        return std::ranges::find(enclosure.chips, chip, &ChipConfig::name)->part;
    };
    for (const ItemConfig &item : enclosure.items) {
        const bool pair = item.chips.size() == 2;
        if (pair && part_of(item.chips[0]) == part_of(item.chips[1])) {
            doubts->push_back(
                joined({"item ", in_quotes(item.name), ": both copies are on part ", in_quotes(part_of(item.chips[0])),
                        " and are lost with it; a second copy belongs on another part"}));
        }
        if (pair && item.name == kFlagInItself) {
            doubts->push_back(joined({"item ", in_quotes(item.name),
                                      ": has two chips, and a method write would put its check flag over the first "
                                      "bytes of its data; give it one"}));
        }
        const KnownItem *const known = known_item(item.name);
        if (known != nullptr && known->length != 0 && known->length != item.length) {
            doubts->push_back(joined({"item ", in_quotes(item.name), ": has ", std::to_string(item.length),
                                      " bytes, but as ", known->meaning, " it is read and written with ",
                                      std::to_string(known->length), "; give it these, or another name"}));
        }
        if (item.need_sync && item.length > kLongestSynced) {
            doubts->push_back(joined({"item ", in_quotes(item.name), ": has ", std::to_string(item.length),
                                      " bytes and NeedSync, but items over ", std::to_string(kLongestSynced),
                                      " bytes are never sent to the other controllers"}));
        }
    }
}

// A part that refreshes whole pages may spoil, when a write is cut off, what else is in the page.
void doubt_pages(const Enclosure &enclosure, std::vector<std::string> *doubts) {
    struct Record {
        std::string_view part;
        std::uint32_t first; // page
        std::uint32_t last;
        std::string_view item;
    };
    std::vector<Record> records;
    for (const ItemConfig &item : enclosure.items) {
        for (const std::string &name : item.chips) {
            const ChipConfig &chip = *std::ranges::find(enclosure.chips, name, &ChipConfig::name);
            const PartConfig &part = *std::ranges::find(enclosure.parts, chip.part, &PartConfig::name);
            const std::uint32_t last = chip.offset + item.length + std::uint32_t{asd_shared::kChecksumSize} - 1;
            records.push_back({.part = part.name,
                               .first = chip.offset / part.page_size,
                               .last = last / part.page_size,
                               .item = item.name});
        }
    }
    std::ranges::sort(records, {},
                      [](const Record &record) { return std::tie(record.part, record.first, record.last); });
    for (std::size_t i = 1; i < records.size(); ++i) {
        const Record &one = records[i - 1];
        const Record &next = records[i];
        if (one.part == next.part && next.first <= one.last) {
            doubts->push_back(
                joined({"items ", in_quotes(one.item), " and ", in_quotes(next.item), ": share a page of part ",
                        in_quotes(one.part),
                        ", and a write of one that is cut off may spoil the other; start each on a page of its own"}));
        }
    }
}

} // namespace

std::vector<std::string> doubts_about(const Enclosure &enclosure) {
    std::vector<std::string> doubts;
    doubt_parts(enclosure, &doubts);
    doubt_items(enclosure, &doubts);
    doubt_pages(enclosure, &doubts);
    return doubts;
}

} // namespace asd_host
