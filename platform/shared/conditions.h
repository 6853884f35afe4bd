// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// In what condition parts, copies and items can be: what programs and operators call each.

#include "names.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace asd_shared {

enum class Condition : std::uint8_t {
    // Of a part.
    kAnswers,
    kUnwritable,
    kWrongSize,
    kSilent,
    // Of a copy or an item.
    kGood,
    kNeverWritten, // all 0xFF
    kCorrupt,      // the checksum is wrong
    kUnreachable,  // its part does not answer, or its bytes cannot be read
    kNotLoaded,    // not read yet by this controller
    kLoading,
    // Of an item alone.
    kDiffer,   // both copies are good and hold different bytes
    kOneLeft,  // of two copies one is good
    kInMemory, // there is a value in memory, whose copies this controller has not read
    kOffline,
};

struct ConditionWord {
    Condition condition;
    std::string_view kind; // for programs: in JSON and on D-Bus
    std::string_view word;
    bool bad = false; // something is lost, or about to be
};

// clang-format off
inline constexpr std::array kConditionWords = {
    ConditionWord{.condition = Condition::kAnswers,      .kind = "answers",       .word = "answers"},
    ConditionWord{.condition = Condition::kUnwritable,     .kind = "read-only",     .word = "can only be read", .bad = true},
    ConditionWord{.condition = Condition::kWrongSize,    .kind = "wrong-size",    .word = "has the wrong size", .bad = true},
    ConditionWord{.condition = Condition::kSilent,       .kind = "silent",        .word = "does not answer", .bad = true},
    ConditionWord{.condition = Condition::kGood,         .kind = "good",          .word = "good"},
    ConditionWord{.condition = Condition::kNeverWritten, .kind = "never-written", .word = "never written"},
    ConditionWord{.condition = Condition::kCorrupt,      .kind = "damaged",       .word = "damaged", .bad = true},
    ConditionWord{.condition = Condition::kUnreachable,  .kind = "unreachable",   .word = "not reachable", .bad = true},
    ConditionWord{.condition = Condition::kNotLoaded,    .kind = "not-loaded",    .word = "not loaded"},
    ConditionWord{.condition = Condition::kLoading,      .kind = "loading",       .word = "loading"},
    ConditionWord{.condition = Condition::kDiffer,       .kind = "copies-differ", .word = "copies differ", .bad = true},
    ConditionWord{.condition = Condition::kOneLeft,      .kind = "one-copy-left", .word = "one copy left", .bad = true},
    ConditionWord{.condition = Condition::kInMemory,     .kind = "in-memory",     .word = "in memory"},
    ConditionWord{.condition = Condition::kOffline,      .kind = "offline",       .word = "offline"},
};
// clang-format on
static_assert(std::ranges::adjacent_find(kConditionWords, std::ranges::greater_equal{}, &ConditionWord::condition) ==
              kConditionWords.end());

[[nodiscard]] constexpr const ConditionWord &word_of(Condition condition) {
    return kConditionWords[static_cast<std::size_t>(condition)];
}

// Behind a number: "2 damaged", "2 with one copy left".
[[nodiscard]] constexpr std::string_view counted_word(Condition condition) {
    switch (condition) {
    case Condition::kOneLeft:
        return "with one copy left";
    case Condition::kDiffer:
        return "with copies that differ";
    default:
        return word_of(condition).word;
    }
}

// Null: no condition is called so.
[[nodiscard]] inline const ConditionWord *condition_called(std::string_view kind) {
    const auto *const found = std::ranges::find(kConditionWords, kind, &ConditionWord::kind);
    return found == kConditionWords.end() ? nullptr : found;
}

// A copy's bytes, data and checksum.
[[nodiscard]] inline bool is_blank(std::span<const std::uint8_t> record) {
    return std::ranges::all_of(record, [](std::uint8_t byte) { return byte == 0xFF; });
}

} // namespace asd_shared
