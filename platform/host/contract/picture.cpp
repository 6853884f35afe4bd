// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "picture.h"

#include "known_items.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <map>
#include <utility>

namespace asd_host {

namespace {

constexpr std::size_t kNamedInLine = 8; // of a summary

std::string counted_items(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " item" : " items");
}

std::string labelled(const std::string &item) {
    const std::string_view label = label_of(item);
    return label.empty() ? item : std::string(label) + " (" + item + ")";
}

bool is_on(const ItemView &item, const std::string &part) {
    return std::ranges::find(item.copies, part, &CopyView::part) != item.copies.end();
}

bool is_out(const PartView &part) {
    return part.condition == Condition::kSilent || part.condition == Condition::kWrongSize;
}

std::string part_sentence(const PartView &part) {
    return part.name + " " + std::string(word_of(part.condition).word) +
           (part.reason.empty() ? "" : " (" + part.reason + ")");
}

// "26 items have one copy left, 1 item is not reachable"
Concern part_concern(const Picture &picture, const PartView &part) {
    Concern concern{.kind = std::string(word_of(part.condition).kind), .text = part_sentence(part), .names = {}};
    std::size_t left = 0;
    for (const ItemView &item : picture.items) {
        if (!is_out(part) || item.condition == Condition::kOffline || !is_on(item, part.name)) {
            continue;
        }
        // A copy that was never written is one all the same: nothing that was there has gone with the other.
        const bool other = std::ranges::any_of(item.copies, [](const CopyView &copy) {
            return copy.condition != Condition::kUnreachable && copy.condition != Condition::kCorrupt;
        });
        if (other) {
            ++left;
        } else {
            concern.names.push_back(item.name);
        }
    }
    std::string losses = left == 0 ? "" : counted_items(left) + (left == 1 ? " has" : " have") + " one copy left";
    if (const std::size_t lost = concern.names.size(); lost > 0) {
        losses += (losses.empty() ? "" : ", ") + counted_items(lost) + (lost == 1 ? " is" : " are") + " not reachable";
    }
    concern.text += losses.empty() ? "" : ": " + losses;
    return concern;
}

// Whether a part that is out explains the item's condition.
bool is_explained(const Picture &picture, const ItemView &item) {
    return std::ranges::any_of(picture.parts,
                               [&](const PartView &part) { return is_out(part) && is_on(item, part.name); });
}

// The copies of an item that are not good; none where the item's condition does not come from one of them.
std::vector<CopyView> bad_copies(const ItemView &item) {
    std::vector<CopyView> bad;
    std::ranges::copy_if(item.copies, std::back_inserter(bad), [&](const CopyView &copy) {
        return copy.condition != Condition::kGood && item.condition != Condition::kDiffer;
    });
    return bad;
}

// In the log: "copy on backplane_a", "copy on backplane_a damaged", "both copies"
std::string place_of(const ItemView &item) {
    const std::vector<CopyView> bad = bad_copies(item);
    if (bad.size() != 1) {
        return bad.empty() ? "copies differ" : "both copies";
    }
    const bool same = bad.front().condition == item.condition;
    return "copy on " + bad.front().part + (same ? "" : " " + std::string(word_of(bad.front().condition).word));
}

// Behind a number of items: "is damaged on backplane_a", "have one copy left: that on backplane_a is damaged"
std::string predicate_of(const ItemView &item, bool one) {
    const std::vector<CopyView> bad = bad_copies(item);
    const std::string place = bad.size() == 1 ? bad.front().part : "both parts";
    switch (item.condition) {
    case Condition::kDiffer:
        return one ? "has copies that differ" : "have copies that differ";
    case Condition::kOneLeft:
        return std::string(one ? "has" : "have") + " one copy left, that on " + place + " is " +
               std::string(word_of(bad.front().condition).word);
    default:
        return std::string(one ? "is " : "are ") + std::string(word_of(item.condition).word) + " on " + place;
    }
}

} // namespace

Condition item_condition(bool ready, bool loading, std::span<const CopyView> copies) {
    const auto count = [&](Condition condition) { return std::ranges::count(copies, condition, &CopyView::condition); };
    const auto size = static_cast<std::ptrdiff_t>(copies.size());
    if (size == 0 || count(Condition::kNotLoaded) > 0) {
        return loading ? Condition::kLoading : ready ? Condition::kInMemory : Condition::kNotLoaded;
    }
    if (count(Condition::kGood) == size) {
        const bool equal =
            std::ranges::adjacent_find(copies, std::ranges::not_equal_to{}, &CopyView::content) == copies.end();
        return !equal    ? Condition::kDiffer
               : ready   ? Condition::kGood
               : loading ? Condition::kLoading
                         : Condition::kNotLoaded;
    }
    if (count(Condition::kGood) > 0) {
        return Condition::kOneLeft;
    }
    if (count(Condition::kCorrupt) > 0) {
        return Condition::kCorrupt;
    }
    const auto lost = count(Condition::kUnreachable); // beside one that was never written: what it held is not known
    return lost == size ? Condition::kUnreachable : lost > 0 ? Condition::kOneLeft : Condition::kNeverWritten;
}

std::vector<Concern> concerns_of(const Picture &picture) {
    std::vector<Concern> concerns;
    for (const PartView &part : picture.parts) {
        if (word_of(part.condition).bad) {
            concerns.push_back(part_concern(picture, part));
        }
    }
    std::map<std::string, std::vector<const ItemView *>> alike; // by what is said of them
    for (const ItemView &item : picture.items) {
        if (word_of(item.condition).bad && !is_explained(picture, item)) {
            alike[predicate_of(item, true)].push_back(&item);
        }
    }
    for (const auto &[text, items] : alike) {
        Concern concern{.kind = std::string(word_of(items.front()->condition).kind),
                        .text = counted_items(items.size()) + " " + predicate_of(*items.front(), items.size() == 1),
                        .names = {}};
        std::ranges::transform(items, std::back_inserter(concern.names), &ItemView::name);
        concerns.push_back(std::move(concern));
    }
    return concerns;
}

std::string counts_of(const Picture &picture) {
    std::map<Condition, std::size_t> counts;
    for (const ItemView &item : picture.items) {
        ++counts[item.condition];
    }
    std::string text;
    for (const auto &[condition, count] : counts) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + std::string(counted_word(condition));
    }
    return text;
}

std::string summary_of(const Picture &picture) {
    std::string text = picture.role + "; " + counted_items(picture.items.size()) + ": " + counts_of(picture);
    for (const Concern &concern : concerns_of(picture)) {
        text += "; " + concern.text;
    }
    return text;
}

std::string load_summary_of(const Picture &picture, std::chrono::milliseconds took) {
    std::array<char, 32> seconds{};
    (void)std::snprintf(seconds.data(), seconds.size(), "%.2f", static_cast<double>(took.count()) / 1000);
    std::string text = std::string("load done in ") + seconds.data() + " s: " + counted_items(picture.items.size()) +
                       ", " + counts_of(picture);
    std::size_t named = 0;
    std::size_t bad = 0;
    for (const ItemView &item : picture.items) {
        if (!word_of(item.condition).bad || is_explained(picture, item)) {
            continue;
        }
        if (++bad <= kNamedInLine) {
            text += (named++ == 0 ? ": " : "; ") + labelled(item.name) + ", " + place_of(item);
        }
    }
    text += bad > kNamedInLine ? "; and " + std::to_string(bad - kNamedInLine) + " more" : "";
    for (const PartView &part : picture.parts) {
        text += word_of(part.condition).bad ? "; " + part_concern(picture, part).text : "";
    }
    return text;
}

bool anything_bad(const Picture &picture) {
    const auto bad = [](const auto &one) { return word_of(one.condition).bad; };
    return std::ranges::any_of(picture.parts, bad) || std::ranges::any_of(picture.items, bad);
}

} // namespace asd_host
