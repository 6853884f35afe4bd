// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "inspection.h"

#include "failure.h"
#include "fd.h"
#include "places.h"
#include "records.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <thread>

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

namespace asdctl {

namespace {

bool is_being_written(const Fd &fd) {
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    return ::fcntl(fd.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// A part that is missing, dead or of another size is looked at as far as it goes: the others are why somebody looks.
LoadedPart load(const PartPlan &plan, const std::filesystem::path &file, std::optional<unsigned> slot) {
    LoadedPart part{.plan = plan, .file = file, .slot = slot, .home = {}, .bytes = {}, .trouble = {}};
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

// The controller that has the private parts of an absolute path: the one asked for, else the one that has been run.
unsigned own_slot(const Context &context, const std::filesystem::path &state_dir) {
    if (context.slot_given) {
        return context.slot;
    }
    std::error_code unreadable; // counts as not there
    unsigned slot = 0;
    while (slot + 1 < kSlots && !std::filesystem::is_directory(state_dir / slot_folder(slot), unreadable)) {
        ++slot;
    }
    return slot;
}

bool are_copies(const Finding &one, const Finding &other) {
    return one.place->item == other.place->item && one.place->chip != other.place->chip &&
           (!one.part->slot || !other.part->slot || one.part->slot == other.part->slot);
}

bool same_data(const Finding &one, const Finding &other) {
    return std::ranges::equal(one.part->record(*one.place).first(one.place->length),
                              other.part->record(*other.place).first(other.place->length));
}

} // namespace

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

std::vector<LoadedPart> load_files(const std::vector<PartPlan> &plans, const PartChoice &options) {
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

std::vector<LoadedPart> load_state_dir(const Context &context, const std::vector<PartPlan> &plans,
                                       const PartChoice &options) {
    const std::filesystem::path state_dir = options.state_dir;
    std::error_code unreadable; // counts as not there
    if (!std::filesystem::is_directory(state_dir, unreadable)) {
        throw Failure(state_dir.string() + ": is no folder that this user can look into");
    }
    const std::filesystem::path own_folder = state_dir / slot_folder(own_slot(context, state_dir));
    std::vector<LoadedPart> loaded;
    const auto wanted = [&](const PartPlan &plan) {
        return options.parts.empty() || std::ranges::find(options.parts, plan.name) != options.parts.end();
    };
    std::ranges::for_each(options.parts, [&](const std::string &name) { (void)plan_named(plans, name); }); // or throws
    for (const PartPlan &plan : plans) {
        if (wanted(plan) && (plan.shared || plan.file.is_absolute())) {
            loaded.push_back(load(plan, state_dir / plan.file, {}));
            loaded.back().home = plan.shared ? state_dir : own_folder;
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
                loaded.back().home = folder;
            }
        }
    }
    return loaded;
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

std::vector<ItemCopies> copies_on(const std::vector<LoadedPart> &parts, const std::vector<ItemPlan> &items) {
    std::vector<ItemCopies> all;
    for (const ItemPlan &item : items) {
        std::vector<Copy> shared;
        std::map<unsigned, std::vector<Copy>> own; // by slot
        for (const LoadedPart &part : parts) {
            for (const RecordPlace &place : part.plan.records) {
                if (place.item == item.name) {
                    (part.slot ? own[*part.slot] : shared).push_back({.part = &part, .place = &place, .check = {}});
                }
            }
        }
        if (own.empty() && !shared.empty()) {
            all.push_back({.item = item.name, .slot = {}, .copies = shared});
        }
        for (auto &[slot, copies] : own) {
            copies.insert(copies.end(), shared.begin(), shared.end());
            all.push_back({.item = item.name, .slot = slot, .copies = copies});
        }
    }
    for (ItemCopies &item : all) {
        std::ranges::sort(item.copies, {}, [](const Copy &copy) { return copy.place->second; });
        for (Copy &copy : item.copies) {
            if (copy.part->trouble.empty()) {
                copy.check = check_record(copy.record());
            }
        }
    }
    return all;
}

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

} // namespace asdctl
