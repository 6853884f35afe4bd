// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "json_section.h"

#include <algorithm>
#include <charconv>
#include <numeric>

#include <glib.h>

namespace asd_host {

namespace {

constexpr std::size_t kLongestCompared = 64; // longer texts are no misspelt names

// How many characters must be put in, taken out or replaced to turn one text into the other, whatever their case.
std::size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = g_ascii_tolower(a[i - 1]) == g_ascii_tolower(b[j - 1]);
            const std::size_t replaced = diagonal + (same ? 0U : 1U);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

std::string shown(const JsonNode &node) {
    switch (node.kind) {
    case JsonNode::Kind::kNull:
        return "null";
    case JsonNode::Kind::kBoolean:
        return node.boolean ? "true" : "false";
    case JsonNode::Kind::kInteger:
        return std::to_string(node.integer);
    case JsonNode::Kind::kReal:
        return "a number with a fraction or exponent";
    case JsonNode::Kind::kText:
        return in_quotes(node.text);
    case JsonNode::Kind::kArray:
        return "a list";
    default:
        return "an object";
    }
}

std::optional<std::int64_t> hexadecimal(std::string_view text) {
    if (!text.starts_with("0x") && !text.starts_with("0X")) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data() + 2, end, value, 16);
    return error == std::errc() && stopped == end && value >= 0 ? std::optional(value) : std::nullopt;
}

} // namespace

std::string in_quotes(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

std::optional<std::int64_t> number_of(const JsonNode &node, const NumberRange &range, JsonMistakes &mistakes) {
    std::optional<std::int64_t> number;
    if (node.kind == JsonNode::Kind::kInteger) {
        number = node.integer;
    }
    if (node.kind == JsonNode::Kind::kText) {
        number = hexadecimal(node.text);
    }
    if (number && *number >= range.least && *number <= range.most) {
        return number;
    }
    std::string what = "is " + shown(node) + "; must be a whole number from " + std::to_string(range.least) + " to " +
                       std::to_string(range.most);
    if (!range.why.empty()) {
        what += ": " + std::string(range.why);
    }
    mistakes.add(node, what);
    return std::nullopt;
}

std::string nearest(std::string_view text, std::span<const std::string> candidates) {
    if (text.size() > kLongestCompared) {
        return {};
    }
    std::string best;
    std::size_t best_distance = std::max<std::size_t>(2, text.size() / 3) + 1;
    for (const std::string &candidate : candidates) {
        const std::size_t distance = edit_distance(text, candidate);
        if (distance < best_distance && distance < candidate.size()) {
            best = candidate;
            best_distance = distance;
        }
    }
    return best;
}

JsonSection::JsonSection(const JsonNode *node, JsonMistakes *mistakes) : node_(node), mistakes_(mistakes) {
    if (node_ != nullptr && node_->kind != JsonNode::Kind::kObject) {
        mistakes_->add(*node_, "is " + shown(*node_) + "; must be an object");
        node_ = nullptr;
    }
}

void JsonSection::finish() {
    if (node_ == nullptr) {
        return;
    }
    for (const JsonNode &member : node_->members) {
        if (std::ranges::find(known_, member.key) != known_.end()) {
            continue;
        }
        const std::string meant = nearest(member.key, known_);
        std::string what = "unknown key; ";
        what += meant.empty() ? "remove it" : "did you mean " + in_quotes(meant) + "?";
        mistakes_->add(member, what);
        std::erase(missing_, meant); // one mistake, one line
    }
    for (const std::string &key : missing_) {
        mistakes_->add(*node_, in_quotes(key) + " is missing; add it");
    }
}

const JsonNode *JsonSection::value(std::string_view key, Need need) {
    known_.emplace_back(key);
    if (node_ == nullptr) {
        return nullptr;
    }
    const JsonNode *found = node_->find(key);
    if (found == nullptr && need == kRequired) {
        missing_.emplace_back(key);
    }
    return found;
}

const JsonNode *JsonSection::any(std::string_view key) {
    return value(key, kOptional);
}

const std::vector<JsonNode> &JsonSection::array(std::string_view key, Need need) {
    static const std::vector<JsonNode> kNone;
    const JsonNode *found = value(key, need);
    if (found == nullptr) {
        return kNone;
    }
    if (found->kind != JsonNode::Kind::kArray) {
        mistakes_->add(*found, "is " + shown(*found) + "; must be a list");
        return kNone;
    }
    return found->members;
}

std::optional<std::int64_t> JsonSection::number(std::string_view key, const NumberRange &range, Need need) {
    const JsonNode *found = value(key, need);
    return found == nullptr ? std::nullopt : number_of(*found, range, *mistakes_);
}

bool JsonSection::flag(std::string_view key, bool fallback) {
    const JsonNode *found = value(key, kOptional);
    if (found == nullptr) {
        return fallback;
    }
    if (found->kind == JsonNode::Kind::kBoolean) {
        return found->boolean;
    }
    if (found->kind == JsonNode::Kind::kInteger && (found->integer == 0 || found->integer == 1)) {
        return found->integer == 1;
    }
    mistakes_->add(*found, "is " + shown(*found) + "; must be true or false (or 1 or 0)");
    return fallback;
}

std::string JsonSection::text(std::string_view key, Need need) {
    const JsonNode *found = value(key, need);
    if (found == nullptr) {
        return {};
    }
    if (found->kind != JsonNode::Kind::kText) {
        mistakes_->add(*found, "is " + shown(*found) + "; must be a text");
        return {};
    }
    return found->text;
}

std::size_t JsonSection::choice(std::string_view key, std::span<const std::string_view> choices, std::size_t fallback) {
    const JsonNode *found = value(key, kOptional);
    if (found == nullptr) {
        return fallback;
    }
    const auto chosen = std::ranges::find(choices, std::string_view(found->text));
    if (found->kind == JsonNode::Kind::kText && chosen != choices.end()) {
        return static_cast<std::size_t>(chosen - choices.begin());
    }
    std::string what = "is " + shown(*found) + "; must be ";
    for (std::size_t index = 0; index < choices.size(); ++index) {
        const std::string_view joint = index == 0 ? "" : index + 1 == choices.size() ? " or " : ", ";
        what += std::string(joint) + in_quotes(choices[index]);
    }
    mistakes_->add(*found, what);
    return fallback;
}

} // namespace asd_host
