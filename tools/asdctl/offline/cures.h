// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which copy of an item is good, and what becomes of the other one: docs/record-format.md has the check flags.

#include "inspection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace asdctl {

// Of one item. Nothing, or a copy that is written from the other one, or a sentence on why that cannot be.
struct Cure {
    std::optional<std::size_t> from;
    std::string hopeless;

    [[nodiscard]] std::size_t to() const { return 1 - from.value_or(0); }
};

// A good copy is overwritten only by one that is good too and was chosen, by an operator (from) or by the check flags
// (trusted).
[[nodiscard]] Cure cure_of(const std::vector<Copy> &copies, std::optional<std::size_t> from,
                           std::optional<std::size_t> trusted);

// ---- Check flags ----

// The byte of a flag; none: it is damaged, or was never written.
[[nodiscard]] std::optional<std::uint8_t> flag_byte(const Copy &flag);

// The copy that was written alone; none: no flag says so, or both do, or one cannot be known.
[[nodiscard]] std::optional<std::size_t> trusted_by(const std::vector<Copy> &flags);

// Whether the flags of a pair say what they should once both copies hold the same: all are 1, or, of a pair that was
// never written with them, blank.
[[nodiscard]] bool flags_agree(const std::vector<Copy> &flags);

// The check flag of a pair; null: it has none.
[[nodiscard]] const ItemCopies *flags_of(const std::vector<ItemCopies> &all, const ItemCopies &pair);

// Whether the item is such a flag.
[[nodiscard]] bool is_flag_here(const std::vector<ItemCopies> &all, const ItemCopies &item);

// The record of these data.
[[nodiscard]] Bytes with_checksum(Bytes data);

} // namespace asdctl
