// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "part_map.h"

#include <algorithm>
#include <array>

namespace asdctl {

namespace {

// clang-format off
constexpr std::array kFacts = {
    MapStateFacts{.name = "free",    .meaning = "free",                        .mark = '.', .tone = Tone::kQuiet},
    MapStateFacts{.name = "good",    .meaning = "good",                        .mark = '=', .tone = Tone::kGood},
    MapStateFacts{.name = "blank",   .meaning = "never written",               .mark = '-', .tone = Tone::kPlain},
    MapStateFacts{.name = "bad",     .meaning = "damaged",                     .mark = '!', .tone = Tone::kBad},
    MapStateFacts{.name = "differs", .meaning = "differs from the other copy", .mark = '~', .tone = Tone::kCaution},
};
// clang-format on

// Beside a copy that is damaged or was never written a good one is just good.
MapState state_of(const Finding &finding, const std::vector<Finding> &findings) {
    const bool other_is_good = std::ranges::any_of(findings, [&](const Finding &other) {
        return other.place->item == finding.place->item && other.place->chip == finding.differs_from &&
               other.check.state == RecordState::kGood;
    });
    switch (finding.check.state) {
    case RecordState::kGood:
        return other_is_good ? MapState::kDiffers : MapState::kGood;
    case RecordState::kBlank:
        return MapState::kBlank;
    case RecordState::kBad:
        break;
    }
    return MapState::kBad;
}

bool has_record(const PartPlan &plan, std::size_t begin, std::size_t end) {
    return std::ranges::any_of(plan.records,
                               [=](const RecordPlace &place) { return place.offset < end && begin < place.end(); });
}

} // namespace

const MapStateFacts &facts_of(MapState state) {
    return kFacts[static_cast<std::size_t>(state)];
}

std::vector<Stretch> stretches_of(const PartPlan &plan, std::size_t size) {
    std::vector<Stretch> stretches;
    std::size_t next = 0;
    for (const RecordPlace &place : plan.records) {
        if (place.end() > size) {
            continue; // of a file that ends before the part does
        }
        if (place.offset > next) {
            stretches.push_back({next, place.offset, nullptr});
        }
        stretches.push_back({place.offset, place.end(), &place});
        next = stretches.back().end;
    }
    if (next < size) {
        stretches.push_back({next, size, nullptr});
    }
    return stretches;
}

std::vector<MapPiece> pieces_of(const LoadedPart &part, const std::vector<Finding> &findings) {
    std::vector<MapPiece> pieces;
    for (const Stretch &stretch : stretches_of(part.plan, part.bytes.size())) {
        const auto found = std::ranges::find_if(
            findings, [&](const Finding &finding) { return finding.part == &part && finding.place == stretch.record; });
        const Finding *const finding = found == findings.end() ? nullptr : &*found;
        pieces.push_back({.stretch = stretch,
                          .state = finding == nullptr ? MapState::kFree : state_of(*finding, findings),
                          .finding = finding});
    }
    return pieces;
}

MapGrid grid_of(const PartPlan &plan, std::size_t size, std::size_t cells, std::size_t most_rows) {
    MapGrid grid{.cell = 1, .rows = {}};
    for (;; grid.cell *= 2) {
        const std::size_t row = grid.cell * cells;
        grid.rows.clear();
        for (std::size_t begin = 0; begin < size; begin += row) {
            const std::size_t end = std::min(begin + row, size);
            const bool free = !has_record(plan, begin, end);
            if (free && !grid.rows.empty() && grid.rows.back().folded) {
                grid.rows.back().end = end;
            } else {
                grid.rows.push_back({.begin = begin, .end = end, .folded = free});
            }
        }
        const auto used = std::ranges::count(grid.rows, false, &MapRow::folded);
        if (static_cast<std::size_t>(used) <= most_rows) {
            return grid;
        }
    }
}

} // namespace asdctl
