// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Parts as their files are, and what is to be said of each record on them.

#include "context.h"
#include "part_plan.h"
#include "record.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace asdctl {

struct LoadedPart {
    PartPlan plan;
    std::filesystem::path file;
    std::optional<unsigned> slot; // of a part that a controller has for itself, when the state folder says whose
    std::filesystem::path home;   // the state folder, or the slot's, in which its intents are; empty: of a file alone
    Bytes bytes;
    std::string trouble; // why its bytes are not there, or not all of them; empty: they are

    [[nodiscard]] BytesView record(const RecordPlace &place) const {
        return BytesView(bytes).subspan(place.offset, place.length + kChecksumSize);
    }
    [[nodiscard]] std::string title() const {
        return plan.name + (slot ? " of slot " + std::to_string(*slot) : "") + ", " + file.string();
    }
};

// Which parts an operator names.
struct PartChoice {
    std::vector<std::string> files;
    std::vector<std::string> parts; // what each file is; of a state folder: these alone
    std::string state_dir;
};

struct Finding {
    const LoadedPart *part;
    const RecordPlace *place;
    RecordCheck check;
    std::string differs_from; // the other chip of the pair; empty: it is alike, or was not read
};

// The file's bytes, at a moment when no controller is in the middle of a write: two reads say the same, and between
// them nobody held the file's lock. It is not taken here, lest a reader that is stopped keeps the controllers from
// writing. Throws Failure.
[[nodiscard]] Bytes read_part(const std::filesystem::path &file);

// Throws WrongUsage where it is not known which part a file is.
[[nodiscard]] std::vector<LoadedPart> load_files(const std::vector<PartPlan> &plans, const PartChoice &options);

// All parts of an enclosure; those that a controller has for itself for each slot that has been run, or for the one
// asked for. Throws Failure where there is no such folder.
[[nodiscard]] std::vector<LoadedPart> load_state_dir(const Context &context, const std::vector<PartPlan> &plans,
                                                     const PartChoice &options);

// Of all records, or those of one item, on the parts that could be read.
[[nodiscard]] std::vector<Finding> findings_of(const std::vector<LoadedPart> &parts, const std::string &item);

// Parts that were not looked at, of those with a copy of the item, or of all.
[[nodiscard]] std::vector<const LoadedPart *> unread_of(const std::vector<LoadedPart> &parts, const std::string &item);

// A copy of an item, read or not.
struct Copy {
    const LoadedPart *part;
    const RecordPlace *place;
    std::optional<RecordCheck> check; // none: its part could not be read

    [[nodiscard]] BytesView record() const { return part->record(*place); }
    [[nodiscard]] BytesView data() const { return record().first(place->length); }
    [[nodiscard]] bool is(RecordState state) const { return check && check->state == state; }
};

// The copies of an item that one controller has, the first chip's first.
struct ItemCopies {
    std::string item;
    std::optional<unsigned> slot; // whose, where some of them are a controller's own
    std::vector<Copy> copies;

    // "ASD16", or "ASD7 of slot 1"
    [[nodiscard]] std::string title() const { return item + (slot ? " of slot " + std::to_string(*slot) : ""); }
};

// In the enclosure's order of items; one that no part holds is left out.
[[nodiscard]] std::vector<ItemCopies> copies_on(const std::vector<LoadedPart> &parts,
                                                const std::vector<ItemPlan> &items);

struct Verdict {
    std::size_t good = 0;
    std::size_t blank = 0;
    std::size_t bad = 0;
    std::size_t bad_unnoticed = 0; // on chips that are not strict
    std::vector<std::string> differing;
    std::vector<std::string> unread; // parts

    [[nodiscard]] int status() const { return bad == 0 && differing.empty() && unread.empty() ? kDone : kFailed; }
};

[[nodiscard]] Verdict verdict_on(const std::vector<Finding> &findings, const std::vector<const LoadedPart *> &unread);

// The place of a record and what is to be said of it.
[[nodiscard]] Json record_json(const LoadedPart &part, const RecordPlace &place);

// What 'chip inspect --json' prints.
[[nodiscard]] Json inspection_json(const std::vector<LoadedPart> &parts, const std::vector<Finding> &findings,
                                   const Verdict &verdict);

} // namespace asdctl
