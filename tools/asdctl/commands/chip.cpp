// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// chip inspect, chip dump, chip map: what lies on parts, read from their files without a service.

#include "commands.h"
#include "failure.h"
#include "inspection.h"
#include "part_map.h"
#include "records.h"
#include "texts.h"
#include "values.h"

#include <algorithm>

namespace asdctl {

namespace {

struct ChipOptions {
    PartChoice choice;
    std::string config;
    std::string item;
    std::uint32_t offset = 0;
    std::optional<std::uint32_t> length;
};

// ---- inspect ----

Cell check_cell(RecordState state) {
    return {std::string(state_name(state)), state == RecordState::kGood    ? Tone::kGood
                                            : state == RecordState::kBlank ? Tone::kQuiet
                                                                           : Tone::kBad};
}

// The records of one part.
std::string part_text(const Screen &screen, const LoadedPart &part, const std::vector<Finding> &findings) {
    using Align = Table::Align;
    Table table({{.title = "ITEM"},
                 {.title = "COPY"},
                 {.title = "OFFSET", .align = Align::kRight},
                 {.title = "LENGTH", .align = Align::kRight},
                 {.title = "STORED"},
                 {.title = "COMPUTED"},
                 {.title = "STRICT"},
                 {.title = "STATE"}},
                kIndent);
    if (!part.trouble.empty()) {
        return painted(screen, Tone::kStrong, part.title()) + "\n" + std::string(kIndent, ' ') +
               painted(screen, Tone::kBad, part.trouble) +
               "; not looked at: " + counted(part.plan.records.size(), "record") + "\n\n";
    }
    bool any = false;
    for (const Finding &finding : findings) {
        if (finding.part != &part) {
            continue;
        }
        any = true;
        const RecordPlace &place = *finding.place;
        Cell state = check_cell(finding.check.state);
        if (!finding.differs_from.empty()) {
            state = {state.text + ", differs from " + finding.differs_from, Tone::kBad};
        }
        table.add({{place.item},
                   {place.chip},
                   {hex_number(place.offset, 4)},
                   {std::to_string(place.length)},
                   {hex_number(finding.check.stored, 4)},
                   {hex_number(finding.check.computed, 4)},
                   {strict_chip(place.chip) ? "yes" : "-"},
                   state});
    }
    return any ? painted(screen, Tone::kStrong, part.title()) + "\n" + table.text(screen) + "\n" : "";
}

std::string verdict_text(const Verdict &verdict) {
    std::string text = counted(verdict.good + verdict.blank + verdict.bad, "record") + ": " +
                       std::to_string(verdict.good) + " good, " + std::to_string(verdict.blank) + " blank, " +
                       std::to_string(verdict.bad) + " bad\n";
    const auto add = [&text](const char *what, const std::vector<std::string> &names) {
        for (const char *before = what; const std::string &name : names) {
            text += before + name;
            before = " ";
        }
        text += names.empty() ? "" : "\n";
    };
    add("Parts that were not looked at: ", verdict.unread);
    add("Pairs whose copies differ: ", verdict.differing);
    if (verdict.bad_unnoticed > 0) {
        text += "Bad ones that are not strict: " + std::to_string(verdict.bad_unnoticed) +
                ". The service delivers these as if they were good, and does not repair them.\n";
    }
    return text;
}

int run_inspect(const Context &context, const ChipOptions &options) {
    if (options.choice.files.empty() == options.choice.state_dir.empty()) {
        throw WrongUsage("either files or --state-dir is to be given");
    }
    const std::vector<PartPlan> plans = read_enclosure(options.config).parts;
    const std::vector<LoadedPart> parts = options.choice.files.empty() ? load_state_dir(context, plans, options.choice)
                                                                       : load_files(plans, options.choice);
    const KnownItem *const known = known_named(options.item);
    const std::string item = known == nullptr ? options.item : std::string(known->item);
    const std::vector<Finding> findings = findings_of(parts, item);
    const std::vector<const LoadedPart *> unread = unread_of(parts, item);
    if (findings.empty() && unread.empty()) {
        throw Failure(options.item.empty() ? "there are no records on it"
                                           : "item '" + options.item + "' has no record there");
    }
    const Verdict verdict = verdict_on(findings, unread);
    std::string text;
    for (const LoadedPart &part : parts) {
        if (part.trouble.empty() || std::ranges::find(unread, &part) != unread.end()) {
            text += part_text(context.out, part, findings);
        }
    }
    return answer(context, inspection_json(parts, findings, verdict), text + verdict_text(verdict), verdict.status());
}

// ---- dump ----

std::string stretch_title(const Screen &screen, const LoadedPart &part, const Stretch &stretch) {
    if (stretch.record == nullptr) {
        return part.plan.records.empty() ? "" : painted(screen, Tone::kQuiet, "-- free") + "\n";
    }
    const RecordPlace &place = *stretch.record;
    const RecordState state = check_record(part.record(place)).state;
    return painted(screen, Tone::kStrong,
                   "-- " + place.item + " (" + place.chip + "), " + counted(place.length, "byte") +
                       " and the checksum: ") +
           painted(screen, check_cell(state).tone, state_name(state)) + "\n";
}

int run_dump(const Context &context, const ChipOptions &options) {
    LoadedPart part{
        .plan = {}, .file = options.choice.files.front(), .slot = {}, .home = {}, .bytes = {}, .trouble = {}};
    if (options.config.empty()) {
        if (!options.choice.parts.empty()) {
            throw WrongUsage("--part names a part of an enclosure file: --config is missing");
        }
        part.bytes = read_part(part.file);
    } else {
        part = load_files(read_enclosure(options.config).parts, options.choice).front();
    }
    if (!part.trouble.empty() && part.bytes.empty()) {
        throw Failure(part.file.string() + ": " + part.trouble);
    }
    const std::size_t size = part.bytes.size();
    if (options.offset >= size && size > 0) {
        throw Failure(part.file.string() + ": has " + counted(size, "byte") + "; there is none at " +
                      hex_number(options.offset, 4));
    }
    const std::size_t end =
        std::min<std::size_t>(size, std::size_t{options.offset} + options.length.value_or(kLargestPart));
    Json records = Json::array();
    std::string text;
    for (const Stretch &stretch : stretches_of(part.plan, size)) {
        const std::size_t from = std::max<std::size_t>(stretch.begin, options.offset);
        const std::size_t to = std::min(stretch.end, end);
        if (from >= to) {
            continue;
        }
        text += stretch_title(context.out, part, stretch);
        text += hex_dump(context.out, BytesView(part.bytes).subspan(from, to - from), 0, from);
        if (stretch.record != nullptr) {
            records.push_back(record_json(part, *stretch.record));
        }
    }
    text += part.trouble.empty() ? "" : painted(context.out, Tone::kBad, "-- the file " + part.trouble) + "\n";
    return answer(context,
                  {{"file", part.file.string()},
                   {"error", part.trouble.empty() ? Json(nullptr) : Json(part.trouble)},
                   {"offset", options.offset},
                   {"bytes", to_hex(BytesView(part.bytes).subspan(options.offset, end - options.offset))},
                   {"records", records}},
                  text, part.trouble.empty() ? kDone : kFailed);
}

void add_inspect(CLI::App &chip, Command &chosen) {
    const auto [inspect, options] =
        add_command(chip, chosen, "inspect", "Check the records on parts",
                    "chip inspect /sys/bus/i2c/devices/3-0050/eeprom --part backplane_a --config enclosure.json\n"
                    "  asdctl chip inspect --state-dir /var/lib/asd --config enclosure.json",
                    run_inspect);
    inspect->add_option("FILE", options->choice.files, "A part's image or sysfs file; several are compared");
    inspect->add_option("--config", options->config, "The enclosure file")->type_name("FILE")->required();
    inspect
        ->add_option("--part", options->choice.parts,
                     "Which part a file is, once for each; or which of the state folder")
        ->type_name("NAME")
        ->allow_extra_args(false);
    inspect->add_option("--item", options->item, "This item alone")->type_name("ITEM");
    inspect
        ->add_option("--state-dir", options->choice.state_dir, "All parts of an enclosure (--slot: of that controller)")
        ->type_name("DIR");
}

void add_dump(CLI::App &chip, Command &chosen) {
    const auto [dump, options] =
        add_command(chip, chosen, "dump", "Show a part's bytes, with --config each record by its name",
                    "chip dump backplane_a.bin --config enclosure.json --offset 0x500 --length 34", run_dump);
    options->choice.files.resize(1);
    dump->add_option("FILE", options->choice.files.front(), "The part's image or sysfs file")->required();
    dump->add_option("--config", options->config, "The enclosure file")->type_name("FILE");
    dump->add_option("--part", options->choice.parts, "Which part it is; with --config")
        ->type_name("NAME")
        ->expected(1);
    dump->add_option("--offset", options->offset, "The first byte (0)")->type_name("NUMBER");
    dump->add_option("--length", options->length, "How many bytes (to the end)")->type_name("NUMBER");
}

} // namespace

void add_chip_commands(CLI::App &app, Command &chosen) {
    CLI::App *const chip = add_family(app, "chip", "What lies on EEPROM parts, without a service",
                                      "chip inspect --state-dir /var/lib/asd --config enclosure.json");
    add_inspect(*chip, chosen);
    add_dump(*chip, chosen);
    add_map_command(*chip, chosen);
}

} // namespace asdctl
