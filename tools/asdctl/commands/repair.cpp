// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// repair: what a good copy can mend is written from it, here on parts that no service runs on.

#include "commands.h"
#include "cures.h"
#include "failure.h"
#include "inspection.h"
#include "known_items.h"
#include "mend.h"
#include "part_store.h"
#include "values.h"

#include <algorithm>
#include <array>
#include <optional>

namespace asdctl {

namespace {

// ---- The plan ----

struct Write {
    Copy copy;
    Bytes record;
    std::string from; // in words
    std::string failure;
    bool done = false;
};

struct Hopeless {
    std::string item;
    std::string why;
};

struct Plan {
    std::vector<Write> writes;
    std::vector<Hopeless> hopeless;
};

// The flags of a pair, whose copies are to be alike then unless it is hopeless.
void plan_flags(const ItemCopies &pair, const ItemCopies &flags, const Cure &cure, Plan *plan) {
    const bool never = std::ranges::all_of(pair.copies, [](const Copy &copy) { return !copy.is(RecordState::kGood); });
    const bool damaged = std::ranges::any_of(flags.copies, [](const Copy &flag) { return flag.is(RecordState::kBad); });
    const bool whole = cure.hopeless.empty() && !never &&
                       std::ranges::all_of(pair.copies, [](const Copy &copy) { return copy.check.has_value(); });
    if (!whole) {
        if (damaged) {
            plan->hopeless.push_back({flags.title(), "a check flag is damaged, and the copies of " + pair.item +
                                                         " are not both there for it to name"});
        }
        return;
    }
    if (!cure.from && flags_agree(flags.copies)) {
        return;
    }
    for (const Copy &flag : flags.copies) {
        if (flag.check && flag_byte(flag) != kStoredBoth) {
            plan->writes.push_back(
                {.copy = flag, .record = with_checksum({kStoredBoth}), .from = "follows " + pair.item, .failure = {}});
        }
    }
}

// Data before its flag, as the service writes them.
Plan plan_of(const std::vector<ItemCopies> &all, const std::string &item, std::optional<std::size_t> from) {
    Plan plan;
    for (const ItemCopies &one : all) {
        const ItemCopies *const flags = flags_of(all, one);
        const bool wanted = item.empty() || one.item == item || (flags != nullptr && flags->item == item);
        if (!wanted || is_flag_here(all, one)) {
            continue;
        }
        const Cure cure = cure_of(one.copies, from, flags == nullptr ? std::nullopt : trusted_by(flags->copies));
        if (!cure.hopeless.empty()) {
            plan.hopeless.push_back({one.title(), cure.hopeless});
        }
        if (cure.from) {
            const Copy &good = one.copies[*cure.from];
            plan.writes.push_back({.copy = one.copies[cure.to()],
                                   .record = Bytes(good.record().begin(), good.record().end()),
                                   .from = good.place->chip,
                                   .failure = {}});
        }
        if (flags != nullptr) {
            plan_flags(one, *flags, cure, &plan);
        }
    }
    return plan;
}

// ---- What is shown ----

std::string state_of(const Copy &copy) {
    return copy.is(RecordState::kGood) ? "differs" : std::string(state_name(copy.check->state));
}

std::string plan_text(const Screen &screen, const Plan &plan) {
    if (plan.writes.empty()) {
        return "";
    }
    Table table({{.title = "ITEM"},
                 {.title = "COPY"},
                 {.title = "PART"},
                 {.title = "OFFSET", .align = Table::Align::kRight},
                 {.title = "STATE"},
                 {.title = "FROM"}});
    for (const Write &write : plan.writes) {
        const RecordPlace &place = *write.copy.place;
        table.add({{place.item},
                   {place.chip},
                   {write.copy.part->plan.name},
                   {hex_number(place.offset, 4)},
                   {state_of(write.copy), Tone::kBad},
                   {write.from, Tone::kGood}});
    }
    return table.text(screen) + "\n";
}

std::size_t failed_of(const Plan &plan) {
    return static_cast<std::size_t>(
        std::ranges::count_if(plan.writes, [](const Write &write) { return !write.failure.empty(); }));
}

std::string outcome_text(const Screen &screen, const Plan &plan, const std::vector<const LoadedPart *> &unread,
                         bool dry_run) {
    const std::size_t failed = failed_of(plan);
    std::string text = plan.writes.empty() ? "Nothing to write"
                       : dry_run           ? counted(plan.writes.size(), "record") + " would be written"
                                 : counted(plan.writes.size() - failed, "record") + " written and read back, " +
                                       std::to_string(failed) + " failed";
    text += plan.writes.empty() && plan.hopeless.empty() && unread.empty() ? ": all is well\n" : "\n";
    const auto line = [&](Tone tone, const std::string &name, const std::string &why) {
        text += std::string(kIndent, ' ') + painted(screen, tone, name) + ": " + why + "\n";
    };
    for (const Write &write : plan.writes) {
        if (!write.failure.empty()) {
            line(Tone::kBad, write.copy.place->chip, write.failure);
        }
    }
    if (!plan.hopeless.empty()) {
        text += "Cannot be mended; 'asdctl set' or 'asdctl import' writes them anew:\n";
    }
    for (const Hopeless &one : plan.hopeless) {
        line(Tone::kBad, one.item, one.why);
    }
    if (!unread.empty()) {
        text += "Parts that were not read; their records are neither judged nor mended:\n";
    }
    for (const LoadedPart *part : unread) {
        line(Tone::kBad, part->plan.name, part->trouble);
    }
    return text;
}

Json plan_json(const Plan &plan, const std::vector<const LoadedPart *> &unread) {
    Json writes = Json::array();
    for (const Write &write : plan.writes) {
        const RecordPlace &place = *write.copy.place;
        writes.push_back({{"item", place.item},
                          {"chip", place.chip},
                          {"part", write.copy.part->plan.name},
                          {"slot", write.copy.part->slot ? Json(*write.copy.part->slot) : Json(nullptr)},
                          {"offset", place.offset},
                          {"length", write.record.size()},
                          {"from", write.from},
                          {"written", write.done},
                          {"error", write.failure.empty() ? Json(nullptr) : Json(write.failure)}});
    }
    Json hopeless = Json::array();
    for (const Hopeless &one : plan.hopeless) {
        hopeless.push_back({{"item", one.item}, {"why", one.why}});
    }
    Json parts = Json::array();
    for (const LoadedPart *part : unread) {
        parts.push_back({{"part", part->plan.name}, {"error", part->trouble}});
    }
    return {{"writes", writes}, {"failed", failed_of(plan)}, {"hopeless", hopeless}, {"unread", parts}};
}

// ---- The command ----

struct RepairOptions {
    std::string item;
    std::string from;
    std::string config;
    PartChoice choice;
    bool dry_run = false;
};

void carry_out(PartStore &store, Plan *plan) {
    for (Write &write : plan->writes) {
        try {
            store.write(*write.copy.part, write.copy.place->offset, write.record);
            write.done = true;
        } catch (const Failure &failure) {
            write.failure = failure.what();
        }
    }
}

int run_repair(const Context &context, const RepairOptions &options) {
    if (options.config.empty()) {
        return repair_online(context, options.item, options.from, options.dry_run);
    }
    if (options.from == "memory") {
        throw WrongUsage("parts that no service runs on have no memory", "--from is a or b with --config.");
    }
    const EnclosurePlan enclosure = read_enclosure(options.config);
    const KnownItem *const known = known_named(options.item);
    const std::string item = known == nullptr ? options.item : std::string(known->item);
    if (!item.empty() && std::ranges::find(enclosure.items, item, &ItemPlan::name) == enclosure.items.end()) {
        throw Failure(options.config + ": has no item '" + options.item + "'");
    }
    const auto load = [&] { return load_state_dir(context, enclosure.parts, options.choice); };
    std::vector<LoadedPart> parts = load();
    std::optional<PartStore> store;
    if (!options.dry_run) {
        store.emplace(context, options.choice.state_dir, parts);
        parts = load(); // cut writes are finished now
    }
    for (const LoadedPart &part : parts) {
        if (options.dry_run && has_cut_write(part) && !context.json) {
            print(part.plan.name + ": a cut write would be finished first\n");
        }
    }
    const std::optional<std::size_t> from =
        options.from.empty() ? std::nullopt : std::optional<std::size_t>(options.from == "a" ? 0 : 1);
    Plan plan = plan_of(copies_on(parts, enclosure.items), item, from);
    const std::vector<const LoadedPart *> unread = unread_of(parts, item);
    if (!context.json) {
        print(plan_text(context.out, plan));
    }
    if (store) {
        carry_out(*store, &plan);
    }
    const bool well = plan.hopeless.empty() && unread.empty() && failed_of(plan) == 0;
    return answer(context, plan_json(plan, unread), outcome_text(context.out, plan, unread, options.dry_run),
                  well ? kDone : kFailed);
}

} // namespace

void add_repair_command(CLI::App &app, Command &chosen) {
    const auto [repair, options] =
        add_command(app, chosen, "repair", "Mend damaged copies from good ones",
                    "repair --dry-run\n  asdctl repair serial --from b --config /etc/asd/enclosure.json", run_repair);
    options->choice.state_dir = "/var/lib/asd";
    repair->add_option("ITEM", options->item, "This item and its check flag alone");
    repair
        ->add_option(
            "--from", options->from,
            "Which copy stays where both are good and differ: a, the first, or b; or memory, where no copy is good")
        ->type_name("a|b|memory")
        ->check(unsaid(CLI::IsMember({"a", "b", "memory"})));
    repair
        ->add_option("--config", options->config,
                     "Work on the parts of this enclosure file; no service may run on them")
        ->type_name("FILE");
    repair->add_option("--state-dir", options->choice.state_dir, "The enclosure's state folder (/var/lib/asd)")
        ->type_name("DIR");
    repair->add_flag("--dry-run", options->dry_run, "Only show what would be written");
}

} // namespace asdctl
