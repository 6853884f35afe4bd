// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "metrics.h"

#include "host.h"
#include "request_counts.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <map>
#include <string_view>
#include <utility>

namespace asd_host {
namespace {

using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

// The text while it grows: families, and the samples of the last one.
class Exposition {
public:
    // What every sample says: several controllers may be on one machine.
    explicit Exposition(std::uint8_t slot) : slot_(std::to_string(slot)) {}

    void family(std::string_view name, std::string_view type, std::string_view help, std::string_view unit = {}) {
        name_ = name;
        line({"# TYPE ", name, " ", type});
        if (!unit.empty()) {
            line({"# UNIT ", name, " ", unit});
        }
        line({"# HELP ", name, " ", help});
    }

    void sample(std::string_view suffix, Labels labels, std::string_view value) {
        text_.append(name_).append(suffix).append("{slot=\"").append(slot_).append("\"");
        for (const auto &[label, content] : labels) {
            text_.append(",").append(label).append("=\"").append(escaped(content)).append("\"");
        }
        line({"} ", value});
    }
    void sample(std::string_view suffix, Labels labels, std::uint64_t value) {
        sample(suffix, labels, std::to_string(value));
    }

    [[nodiscard]] std::string end() {
        line({"# EOF"});
        return std::move(text_);
    }

private:
    void line(std::initializer_list<std::string_view> words) {
        for (const std::string_view word : words) {
            text_ += word;
        }
        text_ += '\n';
    }

    static std::string escaped(std::string_view content) {
        std::string text;
        for (const char letter : content) {
            text += letter == '\n' ? "\\n" : std::string(letter == '"' || letter == '\\' ? 1 : 0, '\\') + letter;
        }
        return text;
    }

    std::string slot_;
    std::string name_;
    std::string text_;
};

std::string in_seconds(std::chrono::nanoseconds time) {
    std::array<char, 40> text{};
    (void)std::snprintf(text.data(), text.size(), "%.9f", std::chrono::duration<double>(time).count());
    return text.data();
}

// "0.001", "1.0": as the standard writes the bounds of a class.
std::string bound_text(std::chrono::milliseconds bound) {
    const auto whole = bound.count() / 1000;
    std::string text = std::to_string(whole) + ".";
    return text + (whole > 0 ? "0" : bound.count() == 1 ? "001" : bound.count() == 10 ? "01" : "1");
}

void add_item_figures(const Picture &picture, Exposition &text) {
    text.family("asd_items", "gauge", "Items by state.");
    for (const ConditionWord &word : kConditionWords) {
        if (word.condition < Condition::kGood) {
            continue; // of parts
        }
        const auto count = std::ranges::count(picture.items, word.condition, &ItemView::condition);
        text.sample("", {{"state", word.kind}}, static_cast<std::uint64_t>(count));
    }
}

void add_part_figures(const Host &platform, const Picture &picture, Exposition &text) {
    std::map<std::string_view, std::uint64_t> lost;
    for (const ItemView &item : picture.items) {
        for (const CopyView &copy : item.copies) {
            lost[copy.part] += std::uint64_t{word_of(copy.condition).bad};
        }
    }
    text.family("asd_copies_lost", "gauge", "Copies of items that are damaged or cannot be reached.");
    for (const PartView &part : picture.parts) {
        text.sample("", {{"part", part.name}}, lost[part.name]);
    }
    text.family("asd_part_healthy", "gauge", "1: the EEPROM part answers, can be written and has its size.");
    for (const PartView &part : picture.parts) {
        text.sample("", {{"part", part.name}}, std::uint64_t{!word_of(part.condition).bad});
    }
    text.family("asd_page_writes", "counter", "Pages that this process has written.");
    for (const auto &[name, part] : platform.parts) {
        text.sample("_total", {{"part", name}}, part->page_cycles());
    }
}

void add_request_figures(Exposition &text) {
    const auto doors = request_counts().all();
    text.family("asd_ipmi_requests", "counter", "IPMI requests by door and completion code.");
    for (const auto &[door, counts] : doors) {
        for (const auto &[code, count] : counts.answers) {
            std::array<char, 8> code_text{};
            (void)std::snprintf(code_text.data(), code_text.size(), "0x%02x", unsigned{code});
            text.sample("_total", {{"door", door}, {"code", code_text.data()}}, count);
        }
    }
    text.family("asd_ipmi_request_duration_seconds", "histogram", "From a request's arrival to its answer.", "seconds");
    for (const auto &[door, counts] : doors) {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < counts.durations.size(); ++i) {
            sum += counts.durations[i];
            const bool last = i == RequestCounts::kBounds.size();
            text.sample("_bucket", {{"door", door}, {"le", last ? "+Inf" : bound_text(RequestCounts::kBounds[i])}},
                        sum);
        }
        text.sample("_count", {{"door", door}}, sum);
        text.sample("_sum", {{"door", door}}, in_seconds(counts.time));
    }
}

} // namespace

std::string metrics_text(Host &platform) {
    const Picture picture = platform.lookout.picture();
    Exposition text(platform.options.slot);
    text.family("asd_version", "gauge", "1, with the version and the enclosure's name.");
    text.sample("", {{"version", ASD_VERSION}, {"enclosure", platform.enclosure.name}}, std::uint64_t{1});
    text.family("asd_master", "gauge", "1: this controller is the master of its enclosure.");
    text.sample("", {}, std::uint64_t{picture.role == "master"});
    text.family("asd_takeovers", "counter", "How often this process has become the master.");
    text.sample("_total", {}, platform.board.takeovers());
    add_item_figures(picture, text);
    add_part_figures(platform, picture, text);
    add_request_figures(text);
    return text.end();
}

} // namespace asd_host
