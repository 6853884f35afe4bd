// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What lies where on a part, for what draws it.

#include "inspection.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace asdctl {

// A stretch of a part: a record, or what lies between two.
struct Stretch {
    std::size_t begin;
    std::size_t end;
    const RecordPlace *record; // null: none
};

// All of a file of this size, in order. Of records, those that end within it.
[[nodiscard]] std::vector<Stretch> stretches_of(const PartPlan &plan, std::size_t size);

enum class MapState { kFree, kGood, kBlank, kBad, kDiffers };

struct MapStateFacts {
    std::string_view name; // as JSON and style sheets have it
    std::string_view meaning;
    char mark; // on a screen without colours
    Tone tone;
};
[[nodiscard]] const MapStateFacts &facts_of(MapState state);

struct MapPiece {
    Stretch stretch;
    MapState state;
    const Finding *finding; // null: no record
};
[[nodiscard]] std::vector<MapPiece> pieces_of(const LoadedPart &part, const std::vector<Finding> &findings);

// A drawing's line: bytes of the part; of several lines without a record there is one.
struct MapRow {
    std::size_t begin;
    std::size_t end;
    bool folded;
};
struct MapGrid {
    std::size_t cell; // bytes
    std::vector<MapRow> rows;
};
// With cells of a power of two bytes, as small as lets the lines that have records number at most so many.
[[nodiscard]] MapGrid grid_of(const PartPlan &plan, std::size_t size, std::size_t cells, std::size_t most_rows);

} // namespace asdctl
