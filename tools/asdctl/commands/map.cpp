// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// chip map: a part drawn on a terminal.

#include "commands.h"
#include "failure.h"
#include "inspection.h"
#include "part_map.h"

#include <algorithm>
#include <string_view>

namespace asdctl {

namespace {

struct MapOptions {
    PartChoice choice;
    std::string config;
};

constexpr std::size_t kMapCells = 64;
constexpr std::size_t kMapRows = 8; // that have records; with the list of them below this fits a terminal
constexpr std::string_view kMapLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

// What one cell shows of its bytes: the letter of a record that begins there, else the state of what has most of it.
Cell map_cell(const std::vector<MapPiece> &pieces, std::size_t begin, std::size_t end) {
    MapState state = MapState::kFree;
    char sign = facts_of(state).mark;
    std::size_t number = 0; // of the record
    for (const MapPiece &piece : pieces) {
        const bool record = piece.finding != nullptr;
        if (record && piece.stretch.begin < end && begin < piece.stretch.end && piece.state >= state) {
            state = piece.state;
            sign = piece.stretch.begin >= begin ? kMapLetters[number % kMapLetters.size()] : facts_of(state).mark;
        }
        number += record ? 1 : 0;
    }
    return {std::string(1, sign), facts_of(state).tone};
}

std::string map_rows(const Screen &screen, const LoadedPart &part, const std::vector<MapPiece> &pieces) {
    const MapGrid grid = grid_of(part.plan, part.bytes.size(), kMapCells, kMapRows);
    std::string text = painted(screen, Tone::kStrong, part.title()) + ": " + counted(part.plan.size, "byte") + ", " +
                       std::to_string(grid.cell) + " for a sign\n";
    for (const MapRow &row : grid.rows) {
        const std::string front = hex_number(static_cast<std::uint32_t>(row.begin), 4).substr(2) + "  ";
        if (row.folded) {
            text += front + painted(screen, Tone::kQuiet, counted(row.end - row.begin, "byte") + " free") + "\n";
            continue;
        }
        text += front;
        for (std::size_t begin = row.begin; begin < row.end; begin += grid.cell) {
            const Cell cell = map_cell(pieces, begin, std::min(begin + grid.cell, row.end));
            text += painted(screen, cell.tone, cell.text);
        }
        text += "\n";
    }
    return text + "\n";
}

// Each record with its letter, and between the two its state; words of one width in columns.
std::string map_legend(const Screen &screen, const std::vector<MapPiece> &pieces) {
    std::vector<Cell> words;
    std::size_t number = 0;
    for (const MapPiece &piece : pieces) {
        if (piece.finding != nullptr) {
            const MapStateFacts &facts = facts_of(piece.state);
            words.emplace_back(kMapLetters[number++ % kMapLetters.size()] + std::string(1, facts.mark) +
                                   piece.stretch.record->item,
                               facts.tone);
        }
    }
    return words.empty() ? "" : wrapped(screen, words, 0);
}

// What the marks mean, and how many bytes and records there are of each.
std::string map_key(const Screen &screen, const std::vector<MapPiece> &pieces) {
    std::string text;
    for (const MapState state : {MapState::kGood, MapState::kBlank, MapState::kBad, MapState::kDiffers}) {
        const auto count = static_cast<std::size_t>(std::ranges::count(pieces, state, &MapPiece::state));
        const MapStateFacts &facts = facts_of(state);
        if (count > 0 || state == MapState::kGood) {
            text += painted(screen, facts.tone,
                            facts.mark + (" " + std::to_string(count)) + " " + std::string(facts.meaning)) +
                    "   ";
        }
    }
    std::size_t free = 0;
    for (const MapPiece &piece : pieces) {
        free += piece.finding == nullptr ? piece.stretch.end - piece.stretch.begin : 0;
    }
    const MapStateFacts &facts = facts_of(MapState::kFree);
    return text + painted(screen, facts.tone, facts.mark + (" " + counted(free, "byte")) + " free") + "\n";
}

Json map_json(const LoadedPart &part, const std::vector<MapPiece> &pieces) {
    Json json = {{"part", part.plan.name}, {"file", part.file.string()}, {"size", part.bytes.size()}};
    for (const MapPiece &piece : pieces) {
        Json entry = {{"offset", piece.stretch.begin},
                      {"length", piece.stretch.end - piece.stretch.begin},
                      {"state", facts_of(piece.state).name}};
        if (piece.finding != nullptr) {
            entry["item"] = piece.stretch.record->item;
            entry["chip"] = piece.stretch.record->chip;
        }
        json["stretches"].push_back(entry);
    }
    return json;
}

int run_map(const Context &context, const MapOptions &options) {
    const std::vector<PartPlan> plans = read_enclosure(options.config).parts;
    PartChoice all = options.choice; // a copy on another part may differ
    all.parts.clear();
    const std::vector<LoadedPart> named = load_state_dir(context, plans, options.choice); // throws if there is none
    const std::vector<LoadedPart> parts = load_state_dir(context, plans, all);
    const std::vector<Finding> findings = findings_of(parts, "");
    bool well = true;
    std::string text;
    Json json = Json::array();
    for (const LoadedPart &part : parts) {
        if (part.plan.name != options.choice.parts.front()) {
            continue;
        }
        const std::vector<MapPiece> pieces = pieces_of(part, findings);
        text += text.empty() ? "" : "\n";
        json.push_back(map_json(part, pieces));
        json.back()["error"] = part.trouble.empty() ? Json(nullptr) : Json(part.trouble);
        if (!part.trouble.empty()) {
            text += painted(context.out, Tone::kStrong, part.title()) + "\n" + std::string(kIndent, ' ') +
                    painted(context.out, Tone::kBad, part.trouble) + "\n";
            well = false;
            continue;
        }
        text +=
            map_rows(context.out, part, pieces) + map_legend(context.out, pieces) + "\n" + map_key(context.out, pieces);
    }
    if (named.empty()) {
        throw Failure("no controller has run that has a part '" + options.choice.parts.front() + "'");
    }
    return answer(context, json, text, well ? kDone : kFailed);
}

} // namespace

void add_map_command(CLI::App &chip, Command &chosen) {
    const auto [map, options] = add_command(chip, chosen, "map", "Draw what lies where on a part",
                                            "chip map backplane_a --config /etc/asd/enclosure.json", run_map);
    options->choice.parts.resize(1);
    options->choice.state_dir = "/var/lib/asd";
    map->add_option("PART", options->choice.parts.front(), "The part's name")->required();
    map->add_option("--config", options->config, "The enclosure file")->type_name("FILE")->required();
    map->add_option("--state-dir", options->choice.state_dir, "The enclosure's state folder (/var/lib/asd)")
        ->type_name("DIR");
}

} // namespace asdctl
