// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// JSON text as a tree that remembers where each value stands, and mistakes that name the place.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

struct JsonNode {
    enum class Kind { kNull, kBoolean, kInteger, kReal, kText, kArray, kObject };

    Kind kind = Kind::kNull;
    std::size_t line = 1;
    std::string pointer;           // RFC 6901, from the document's root
    std::string key;               // in its object
    bool boolean = false;          // kBoolean
    std::int64_t integer = 0;      // kInteger; the nearest value when the number is out of this range
    std::string text;              // kText
    std::vector<JsonNode> members; // kArray: elements; kObject: values, in the order of the text

    [[nodiscard]] const JsonNode *find(std::string_view name) const; // the first of that key; null: none
};

// Mistakes in one file, one line of text each: "FILE:LINE: /place: what is wrong; what would be right".
class JsonMistakes {
public:
    explicit JsonMistakes(std::string file) : file_(std::move(file)) {}

    void add(const JsonNode &node, std::string_view what) { add(node.line, node.pointer, what); }
    void add(std::size_t line, std::string_view pointer, std::string_view what);

    static constexpr std::size_t kShown = 50;

    [[nodiscard]] bool empty() const { return mistakes_.empty(); }
    // In the order of the file, printable; after the first kShown one line that says how many more there are.
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    struct Mistake {
        std::size_t line;
        std::string text;
    };
    std::string file_;
    std::vector<Mistake> mistakes_;
};

// The document, or nothing when the text is not JSON or nested deeper than 32. Duplicate keys are mistakes that do not
// end it.
[[nodiscard]] std::optional<JsonNode> parse_json(std::string_view text, JsonMistakes &mistakes);

} // namespace asd_host
