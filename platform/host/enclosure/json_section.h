// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reads the keys of one JSON object; what is wrong with them goes to the mistakes and the default is returned.

#include "json_document.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

// An inclusive range of whole numbers. why, when not empty, is added to the message about a number outside it.
struct NumberRange {
    std::int64_t least;
    std::int64_t most;
    std::string_view why;
};

[[nodiscard]] std::string in_quotes(std::string_view text);

// The number of a JSON integer or of a text such as "0x50"; a mistake when it is neither or outside the range.
[[nodiscard]] std::optional<std::int64_t> number_of(const JsonNode &node, const NumberRange &range,
                                                    JsonMistakes &mistakes);

// The text among candidates that a person most probably meant; empty when none is near.
[[nodiscard]] std::string nearest(std::string_view text, std::span<const std::string> candidates);

class JsonSection {
public:
    enum Need : bool { kOptional, kRequired };

    // A null node reads as an object without keys that misses none.
    JsonSection(const JsonNode *node, JsonMistakes *mistakes);

    // The key's value whatever it is; null when the key is missing.
    [[nodiscard]] const JsonNode *any(std::string_view key);
    [[nodiscard]] const std::vector<JsonNode> &array(std::string_view key, Need need);

    // Nothing when the key is missing or its number is a mistake.
    [[nodiscard]] std::optional<std::int64_t> number(std::string_view key, const NumberRange &range, Need need);
    [[nodiscard]] bool flag(std::string_view key, bool fallback);    // true, false, 1 or 0
    [[nodiscard]] std::string text(std::string_view key, Need need); // empty: missing or a mistake
    // The index of the text among choices.
    [[nodiscard]] std::size_t choice(std::string_view key, std::span<const std::string_view> choices,
                                     std::size_t fallback);

    // To be called last: every key that was not asked for is a mistake, and every required key that is missing.
    void finish();

private:
    const JsonNode *value(std::string_view key, Need need);

    const JsonNode *node_;
    JsonMistakes *mistakes_;
    std::vector<std::string> known_;
    std::vector<std::string> missing_;
};

} // namespace asd_host
