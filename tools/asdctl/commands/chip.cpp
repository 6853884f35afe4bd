// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// chip inspect, chip dump: what lies on parts, read from their files without a service.

#include "commands.h"
#include "enclosure.h"
#include "failure.h"
#include "fd.h"
#include "record.h"
#include "records.h"
#include "texts.h"
#include "values.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

namespace asdctl {

namespace {

// ---- Parts ----

struct LoadedPart {
    PartPlan plan;
    std::filesystem::path file;
    std::optional<unsigned> slot; // of a part that a controller has for itself, when the state folder says whose
    Bytes bytes;
    std::string trouble; // why its bytes are not there, or not all of them; empty: they are

    [[nodiscard]] BytesView record(const RecordPlace &place) const {
        return BytesView(bytes).subspan(place.offset, place.length + kChecksumSize);
    }
    [[nodiscard]] std::string title() const {
        return plan.name + (slot ? " of slot " + std::to_string(*slot) : "") + ", " + file.string();
    }
};

bool is_being_written(const Fd &fd) {
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    return ::fcntl(fd.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// The file's bytes, at a moment when no controller is in the middle of a write: two reads say the same, and between
// them nobody held the file's lock. It is not taken here, lest a reader that is stopped keeps the controllers from
// writing.
Bytes read_part(const std::filesystem::path &file) {
    const Fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        throw Failure(file.string() + ": cannot be opened: " + g_strerror(errno));
    }
    struct stat facts = {};
    if (::fstat(fd.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
        throw Failure(file.string() + ": is no file with a part's bytes; name an image or the kernel's eeprom file");
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (;;) {
        Bytes bytes = read_file(file.string(), kLargestPart);
        if (!is_being_written(fd) && read_file(file.string(), kLargestPart) == bytes) {
            return bytes;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            throw Failure(file.string() + ": a controller has been writing to it for 5 seconds");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// A part that is missing, dead or of another size is looked at as far as it goes: the others are why somebody looks.
LoadedPart load(const PartPlan &plan, const std::filesystem::path &file, std::optional<unsigned> slot) {
    LoadedPart part{.plan = plan, .file = file, .slot = slot, .bytes = {}, .trouble = {}};
    try {
        part.bytes = read_part(file);
        if (part.bytes.size() != plan.size) {
            part.trouble = "has " + counted(part.bytes.size(), "byte") + ", but part " + plan.name + " has " +
                           std::to_string(plan.size);
        }
    } catch (const Failure &failure) {
        const std::string_view what = failure.what();
        const std::string prefix = file.string() + ": ";
        part.trouble = what.substr(what.starts_with(prefix) ? prefix.size() : 0);
    }
    return part;
}

std::string names_of(const std::vector<PartPlan> &plans) {
    std::string names;
    for (const PartPlan &plan : plans) {
        names += (names.empty() ? "" : ", ") + plan.name;
    }
    return names;
}

const PartPlan &plan_named(const std::vector<PartPlan> &plans, const std::string &name) {
    const auto found = std::ranges::find(plans, name, &PartPlan::name);
    if (found == plans.end()) {
        throw WrongUsage("there is no part '" + name + "'", "The enclosure has " + names_of(plans) + ".");
    }
    return *found;
}

// The part that the enclosure keeps in a file of this path, or else of this name.
const PartPlan &plan_of_file(const std::vector<PartPlan> &plans, const std::filesystem::path &file) {
    std::error_code unknown; // then no path is the same
    const auto same_path = [&](const PartPlan &plan) { return std::filesystem::equivalent(plan.file, file, unknown); };
    const auto same_name = [&](const PartPlan &plan) { return plan.file.filename() == file.filename(); };
    auto found = std::ranges::find_if(plans, same_path);
    if (found == plans.end() && std::ranges::count_if(plans, same_name) == 1) {
        found = std::ranges::find_if(plans, same_name);
    }
    if (found == plans.end()) {
        throw WrongUsage(file.string() + ": which part is it?", "Say --part with one of " + names_of(plans) + ".");
    }
    return *found;
}

struct ChipOptions {
    std::vector<std::string> files;
    std::vector<std::string> parts;
    std::string config;
    std::string state_dir;
    std::string item;
    std::uint32_t offset = 0;
    std::optional<std::uint32_t> length;
};

std::vector<LoadedPart> load_files(const std::vector<PartPlan> &plans, const ChipOptions &options) {
    if (!options.parts.empty() && options.parts.size() != options.files.size()) {
        throw WrongUsage("--part is to be given once for each file, in their order");
    }
    std::vector<LoadedPart> loaded;
    for (std::size_t i = 0; i < options.files.size(); ++i) {
        const std::string &file = options.files[i];
        loaded.push_back(
            load(options.parts.empty() ? plan_of_file(plans, file) : plan_named(plans, options.parts[i]), file, {}));
    }
    return loaded;
}

// All parts of an enclosure; those that a controller has for itself for each slot that has been run, or for the one
// asked for.
std::vector<LoadedPart> load_state_dir(const Context &context, const std::vector<PartPlan> &plans,
                                       const ChipOptions &options) {
    const std::filesystem::path state_dir = options.state_dir;
    std::error_code unreadable; // counts as not there
    if (!std::filesystem::is_directory(state_dir, unreadable)) {
        throw Failure(state_dir.string() + ": is no folder that this user can look into");
    }
    std::vector<LoadedPart> loaded;
    const auto wanted = [&](const PartPlan &plan) {
        return options.parts.empty() || std::ranges::find(options.parts, plan.name) != options.parts.end();
    };
    std::ranges::for_each(options.parts, [&](const std::string &name) { (void)plan_named(plans, name); }); // or throws
    for (const PartPlan &plan : plans) {
        if (wanted(plan) && (plan.shared || plan.file.is_absolute())) {
            loaded.push_back(load(plan, state_dir / plan.file, {}));
        }
    }
    for (unsigned slot = 0; slot < kSlots; ++slot) {
        const std::filesystem::path folder = state_dir / slot_folder(slot);
        if (context.slot_given ? slot != context.slot : !std::filesystem::is_directory(folder, unreadable)) {
            continue;
        }
        for (const PartPlan &plan : plans) {
            if (wanted(plan) && !plan.shared && !plan.file.is_absolute()) {
                loaded.push_back(load(plan, folder / plan.file, slot));
            }
        }
    }
    return loaded;
}

// ---- inspect ----

struct Finding {
    const LoadedPart *part;
    const RecordPlace *place;
    RecordCheck check;
    std::string differs_from; // the other chip of the pair; empty: it is alike, or was not read
};

bool are_copies(const Finding &one, const Finding &other) {
    return one.place->item == other.place->item && one.place->chip != other.place->chip &&
           (!one.part->slot || !other.part->slot || one.part->slot == other.part->slot);
}

bool same_data(const Finding &one, const Finding &other) {
    return std::ranges::equal(one.part->record(*one.place).first(one.place->length),
                              other.part->record(*other.place).first(other.place->length));
}

std::vector<Finding> findings_of(const std::vector<LoadedPart> &parts, const std::string &item) {
    std::vector<Finding> findings;
    for (const LoadedPart &part : parts) {
        for (const RecordPlace &place : part.plan.records) {
            if (part.trouble.empty() && (item.empty() || item == place.item)) {
                findings.push_back(
                    {.part = &part, .place = &place, .check = check_record(part.record(place)), .differs_from = {}});
            }
        }
    }
    for (Finding &one : findings) {
        const auto other = std::ranges::find_if(
            findings, [&](const Finding &copy) { return are_copies(one, copy) && !same_data(one, copy); });
        one.differs_from = other == findings.end() ? "" : other->place->chip;
    }
    return findings;
}

// Parts that were not looked at, of those with a copy of the item, or of all.
std::vector<const LoadedPart *> unread_of(const std::vector<LoadedPart> &parts, const std::string &item) {
    std::vector<const LoadedPart *> unread;
    for (const LoadedPart &part : parts) {
        if (!part.trouble.empty() && (item.empty() || std::ranges::find(part.plan.records, item, &RecordPlace::item) !=
                                                          part.plan.records.end())) {
            unread.push_back(&part);
        }
    }
    return unread;
}

struct Verdict {
    std::size_t good = 0;
    std::size_t blank = 0;
    std::size_t bad = 0;
    std::size_t bad_unnoticed = 0; // on chips that are not strict
    std::vector<std::string> differing;
    std::vector<std::string> unread; // parts

    [[nodiscard]] int status() const { return bad == 0 && differing.empty() && unread.empty() ? kDone : kFailed; }
};

Verdict verdict_on(const std::vector<Finding> &findings, const std::vector<const LoadedPart *> &unread) {
    Verdict verdict;
    std::ranges::transform(unread, std::back_inserter(verdict.unread),
                           [](const LoadedPart *part) { return part->plan.name; });
    for (const Finding &finding : findings) {
        const RecordState state = finding.check.state;
        ++(state == RecordState::kGood ? verdict.good : state == RecordState::kBlank ? verdict.blank : verdict.bad);
        if (state == RecordState::kBad && !strict_chip(finding.place->chip)) {
            ++verdict.bad_unnoticed;
        }
        const std::string &item = finding.place->item;
        if (!finding.differs_from.empty() && std::ranges::find(verdict.differing, item) == verdict.differing.end()) {
            verdict.differing.push_back(item);
        }
    }
    return verdict;
}

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
        text += "Bad ones on chips that are not strict: " + std::to_string(verdict.bad_unnoticed) +
                ". The service delivers these as if they were good, and does not repair them.\n";
    }
    return text;
}

Json record_json(const LoadedPart &part, const RecordPlace &place) {
    const RecordCheck check = check_record(part.record(place));
    return {{"item", place.item},
            {"chip", place.chip},
            {"part", part.plan.name},
            {"slot", part.slot ? Json(*part.slot) : Json(nullptr)},
            {"offset", place.offset},
            {"length", place.length},
            {"stored", check.stored},
            {"computed", check.computed},
            {"state", state_name(check.state)},
            {"strict", strict_chip(place.chip)}};
}

Json inspection_json(const std::vector<LoadedPart> &parts, const std::vector<Finding> &findings,
                     const Verdict &verdict) {
    Json files = Json::array();
    for (const LoadedPart &part : parts) {
        files.push_back({{"part", part.plan.name},
                         {"slot", part.slot ? Json(*part.slot) : Json(nullptr)},
                         {"file", part.file.string()},
                         {"size", part.bytes.size()},
                         {"error", part.trouble.empty() ? Json(nullptr) : Json(part.trouble)}});
    }
    Json records = Json::array();
    for (const Finding &finding : findings) {
        Json record = record_json(*finding.part, *finding.place);
        record["differs_from"] = finding.differs_from.empty() ? Json(nullptr) : Json(finding.differs_from);
        records.push_back(record);
    }
    return {{"files", files},
            {"records", records},
            {"good", verdict.good},
            {"blank", verdict.blank},
            {"bad", verdict.bad},
            {"bad_unnoticed", verdict.bad_unnoticed},
            {"differing", verdict.differing},
            {"unread", verdict.unread}};
}

int run_inspect(const Context &context, const ChipOptions &options) {
    if (options.files.empty() == options.state_dir.empty()) {
        throw WrongUsage("either files or --state-dir is to be given");
    }
    const std::vector<PartPlan> plans = read_enclosure(options.config);
    const std::vector<LoadedPart> parts =
        options.files.empty() ? load_state_dir(context, plans, options) : load_files(plans, options);
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

// A stretch of a part: a record, or what lies between two.
struct Stretch {
    std::size_t begin;
    std::size_t end;
    const RecordPlace *record; // null: none
};

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
    LoadedPart part{.plan = {}, .file = options.files.front(), .slot = {}, .bytes = {}, .trouble = {}};
    if (options.config.empty()) {
        if (!options.parts.empty()) {
            throw WrongUsage("--part names a part of an enclosure file: --config is missing");
        }
        part.bytes = read_part(part.file);
    } else {
        part = load_files(read_enclosure(options.config), options).front();
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
    inspect->add_option("FILE", options->files, "A part's image or sysfs file; several are compared");
    inspect->add_option("--config", options->config, "The enclosure file")->type_name("FILE")->required();
    inspect->add_option("--part", options->parts, "Which part a file is, once for each; or which of the state folder")
        ->type_name("NAME")
        ->allow_extra_args(false);
    inspect->add_option("--item", options->item, "This item alone")->type_name("ITEM");
    inspect->add_option("--state-dir", options->state_dir, "All parts of an enclosure (--slot: of that controller)")
        ->type_name("DIR");
}

void add_dump(CLI::App &chip, Command &chosen) {
    const auto [dump, options] =
        add_command(chip, chosen, "dump", "Show a part's bytes, with --config each record by its name",
                    "chip dump backplane_a.bin --config enclosure.json --offset 0x500 --length 34", run_dump);
    options->files.resize(1);
    dump->add_option("FILE", options->files.front(), "The part's image or sysfs file")->required();
    dump->add_option("--config", options->config, "The enclosure file")->type_name("FILE");
    dump->add_option("--part", options->parts, "Which part it is; with --config")->type_name("NAME")->expected(1);
    dump->add_option("--offset", options->offset, "The first byte (0)")->type_name("NUMBER");
    dump->add_option("--length", options->length, "How many bytes (to the end)")->type_name("NUMBER");
}

} // namespace

void add_chip_commands(CLI::App &app, Command &chosen) {
    CLI::App *const chip = add_family(app, "chip", "What lies on EEPROM parts, without a service",
                                      "chip inspect --state-dir /var/lib/asd --config enclosure.json");
    add_inspect(*chip, chosen);
    add_dump(*chip, chosen);
}

} // namespace asdctl
