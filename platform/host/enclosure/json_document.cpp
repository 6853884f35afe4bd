// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "json_document.h"

#include "printable.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <span>
#include <utility>

#include <nlohmann/json.hpp>

namespace asd_host {

namespace {

constexpr std::size_t kDeepest = 32; // far more than any configuration, far less than the stack

// The line of the character read last. A line feed belongs to the line it ends: the parser reads one character past a
// number before it reports it.
struct LineCounter {
    std::size_t line = 1;
    bool at_line_feed = false;

    void read(char character) {
        if (at_line_feed) {
            ++line;
        }
        at_line_feed = character == '\n';
    }
};

// Characters that report their passing.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    CountingIterator(const char *at, LineCounter *counter) : at_(at), counter_(counter) {}
    reference operator*() const { return *at_; }
    CountingIterator &operator++() {
        counter_->read(*at_);
        ++at_;
        return *this;
    }
    bool operator==(const CountingIterator &other) const { return at_ == other.at_; }

private:
    const char *at_;
    LineCounter *counter_;
};

std::string escaped_token(std::string_view key) {
    std::string token;
    for (const char character : key) {
        switch (character) {
        case '~':
            token += "~0";
            break;
        case '/':
            token += "~1";
            break;
        default:
            token += character;
        }
    }
    return token;
}

// Builds the tree from the parser's events.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    TreeBuilder(const LineCounter *counter, JsonMistakes *mistakes) : counter_(counter), mistakes_(mistakes) {}

    [[nodiscard]] JsonNode take_root() { return std::move(root_); }

    bool null() override {
        place(JsonNode::Kind::kNull);
        return true;
    }
    bool boolean(bool value) override {
        place(JsonNode::Kind::kBoolean).boolean = value;
        return true;
    }
    bool number_integer(number_integer_t value) override {
        place(JsonNode::Kind::kInteger).integer = value;
        return true;
    }
    bool number_unsigned(number_unsigned_t value) override {
        constexpr auto kLargest = static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max());
        place(JsonNode::Kind::kInteger).integer = static_cast<std::int64_t>(std::min(value, kLargest));
        return true;
    }
    bool number_float(number_float_t /*value*/, const string_t & /*text*/) override {
        place(JsonNode::Kind::kReal);
        return true;
    }
    bool string(string_t &value) override {
        place(JsonNode::Kind::kText).text = std::move(value);
        return true;
    }
    bool binary(binary_t & /*value*/) override { return false; }
    bool start_object(std::size_t /*elements*/) override { return open(JsonNode::Kind::kObject); }
    bool key(string_t &name) override {
        const JsonNode *earlier = open_.back()->find(name);
        if (earlier != nullptr) {
            mistakes_->add(counter_->line, open_.back()->pointer + "/" + escaped_token(name),
                           "the key stands a second time (first in line " + std::to_string(earlier->line) +
                               "); keep one of them");
        }
        key_ = std::move(name);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t /*elements*/) override { return open(JsonNode::Kind::kArray); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t /*position*/, const std::string &last_token,
                     const nlohmann::json::exception &error) override {
        // Of "[...] parse error at line 1, column 2: reason" the reason alone: the line is ours.
        const std::string_view text = error.what();
        const std::size_t column = text.find("column ");
        const std::size_t colon = column == std::string_view::npos ? column : text.find(": ", column);
        std::string what = "not JSON: ";
        what += colon == std::string_view::npos ? text : text.substr(colon + 2);
        if (last_token.ends_with('/')) {
            what += "; comments are not part of JSON, remove it";
        }
        mistakes_->add(counter_->line, open_.empty() ? "" : open_.back()->pointer, what);
        return false;
    }

private:
    JsonNode &place(JsonNode::Kind kind) {
        JsonNode &node = open_.empty() ? root_ : open_.back()->members.emplace_back();
        node.kind = kind;
        node.line = counter_->line;
        if (open_.empty()) {
            return node;
        }
        const JsonNode &parent = *open_.back();
        const bool in_array = parent.kind == JsonNode::Kind::kArray;
        node.pointer =
            parent.pointer + "/" + (in_array ? std::to_string(parent.members.size() - 1) : escaped_token(key_));
        node.key = std::exchange(key_, {});
        return node;
    }

    bool open(JsonNode::Kind kind) {
        JsonNode &node = place(kind);
        if (open_.size() == kDeepest) {
            mistakes_->add(node, "nested deeper than " + std::to_string(kDeepest) + " levels; nothing here needs that");
            return false;
        }
        open_.push_back(&node);
        return true;
    }

    bool close() {
        open_.pop_back();
        return true;
    }

    const LineCounter *counter_;
    JsonMistakes *mistakes_;
    JsonNode root_;
    // The containers that are open, outermost first. Each is its parent's last member, so none moves while it is here.
    std::vector<JsonNode *> open_;
    std::string key_;
};

} // namespace

const JsonNode *JsonNode::find(std::string_view name) const {
    const auto found = std::ranges::find(members, name, &JsonNode::key);
    return found == members.end() ? nullptr : &*found;
}

void JsonMistakes::add(std::size_t line, std::string_view pointer, std::string_view what) {
    std::string text = file_ + ":" + std::to_string(line) + ": ";
    text += pointer.empty() ? "/" : pointer;
    text += ": ";
    text += what;
    mistakes_.push_back({.line = line, .text = std::move(text)});
}

// Keys and values of the file stand in them: whatever bytes those have, a terminal takes the lines as text.
std::vector<std::string> JsonMistakes::lines() const {
    std::vector<Mistake> sorted = mistakes_;
    std::ranges::stable_sort(sorted, {}, &Mistake::line);
    std::vector<std::string> texts;
    for (const Mistake &mistake : std::span(sorted).first(std::min(kShown, sorted.size()))) {
        texts.push_back(printable(mistake.text));
    }
    if (sorted.size() > kShown) {
        texts.push_back(printable(file_) + ": and " + std::to_string(sorted.size() - kShown) +
                        " more mistakes; mend these first");
    }
    return texts;
}

std::optional<JsonNode> parse_json(std::string_view text, JsonMistakes &mistakes) {
    LineCounter counter;
    TreeBuilder builder(&counter, &mistakes);
    const CountingIterator first(text.data(), &counter);
    const CountingIterator last(text.data() + text.size(), &counter);
    if (!nlohmann::json::sax_parse(first, last, &builder)) {
        return std::nullopt;
    }
    return builder.take_root();
}

} // namespace asd_host
