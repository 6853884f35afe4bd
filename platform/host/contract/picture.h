// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is known of an enclosure's parts and records, as values, and the sentences that are said of it: on D-Bus, in the
// log and to the service manager.

#include "conditions.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

struct PartView {
    std::string name;
    std::string file = {};
    Condition condition = Condition::kAnswers;
    std::string reason = {}; // of a condition that is bad: "No such file or directory"
    bool operator==(const PartView &) const = default;
};

struct CopyView {
    std::string part;
    Condition condition = Condition::kNotLoaded;
    std::uint64_t content = 0; // equal for copies that hold the same bytes; of a good one
};

struct ItemView {
    std::string name;
    Condition condition = Condition::kNotLoaded;
    std::vector<CopyView> copies;
};

struct Picture {
    std::string role;
    std::vector<PartView> parts;
    std::vector<ItemView> items;
};

// Something that an operator has to know or to do.
struct Concern {
    std::string kind;               // of the condition
    std::string text;               // without a full stop
    std::vector<std::string> names; // items that are lost or in doubt by it
    bool operator==(const Concern &) const = default;
};

// An item's condition by those of its copies.
[[nodiscard]] Condition item_condition(bool ready, bool loading, std::span<const CopyView> copies);

// What is lost: a part at a time, then the items whose copies can be read and are not as they should be.
[[nodiscard]] std::vector<Concern> concerns_of(const Picture &picture);

// "37 good, 12 never written"
[[nodiscard]] std::string counts_of(const Picture &picture);

// All of it in a line: "master; 49 items: 37 good, 12 never written; backplane_b does not answer (...): ..."
[[nodiscard]] std::string summary_of(const Picture &picture);

// "load done in 0.31 s: 49 items, 37 good, 11 never written, 1 damaged: brand (ASD14), copy on backplane_a"
[[nodiscard]] std::string load_summary_of(const Picture &picture, std::chrono::milliseconds took);

// Whether an item is in a bad condition, or a part.
[[nodiscard]] bool anything_bad(const Picture &picture);

} // namespace asd_host
