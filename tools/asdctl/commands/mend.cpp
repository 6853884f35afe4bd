// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// reload, and repair through the running service.

#include "mend.h"

#include "commands.h"
#include "failure.h"
#include "known_items.h"
#include "service.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

namespace asdctl {

namespace {

constexpr std::uint8_t kFlagBit = 4;
constexpr std::array<std::string_view, 4> kSources = {"a", "b", "memory", ""};

// What the service said: without what was being done, which the line it stands in says, and without the kind of error.
std::string reason_of(const Failure &failure) {
    const std::string what = failure.what();
    const std::size_t kind = what.find(": ");
    const std::size_t said = kind == std::string::npos ? kind : what.find(": ", kind + 2);
    return said != std::string::npos ? what.substr(said + 2) : kind != std::string::npos ? what.substr(kind + 2) : what;
}

// Items that fail for the same reason, a line each reason.
class Refusals {
public:
    void add(const std::string &item, const std::string &reason) { items_[reason].push_back(item); }
    [[nodiscard]] bool empty() const { return items_.empty(); }
    [[nodiscard]] std::string text(const Screen &screen) const {
        std::string text;
        for (const auto &[reason, items] : items_) {
            text += std::string(kIndent, ' ') + painted(screen, Tone::kBad, reason) + ":\n" +
                    wrapped(screen, items, 2 * kIndent);
        }
        return text;
    }

private:
    std::map<std::string, std::vector<std::string>> items_;
};

// What became of one item.
struct Outcome {
    const Item *item;
    Repaired repaired;
    std::string failure; // empty: it was, or could be, done
};

// The named item, or all of them but check flags, which go with their pairs.
std::vector<const Item *> chosen_items(const Snapshot &snapshot, const std::string &name, bool with_flags) {
    if (!name.empty()) {
        return {&snapshot.item(name)};
    }
    std::vector<const Item *> items;
    for (const Item &item : snapshot.items) {
        const KnownItem *const known = known_item(item.name);
        if (with_flags || known == nullptr || known->of.empty()) {
            items.push_back(&item);
        }
    }
    return items;
}

Outcome attempt(Service &service, const Item &item, std::uint8_t from, bool dry_run) {
    Outcome outcome{.item = &item, .repaired = {}, .failure = {}};
    try {
        outcome.repaired = service.repair_item(item.name, from, dry_run);
    } catch (const Failure &failure) {
        outcome.failure = reason_of(failure);
    }
    return outcome;
}

std::string source_name(const Outcome &outcome) {
    const Repaired &repaired = outcome.repaired;
    return repaired.taken < outcome.item->chips.size() ? outcome.item->chips[repaired.taken].name
           : repaired.taken == 2                       ? "memory"
                                                       : "";
}

// The records that are written: a row each.
struct Written {
    std::string copy;
    std::string part;
};
std::vector<Written> written_by(const Outcome &outcome) {
    std::vector<Written> rows;
    for (std::size_t number = 0; number < outcome.item->chips.size(); ++number) {
        if ((outcome.repaired.copies >> number & 1U) != 0) {
            rows.push_back({outcome.item->chips[number].name, outcome.item->chips[number].part});
        }
    }
    if ((outcome.repaired.copies & kFlagBit) != 0) {
        const KnownItem *const flag = flag_item(outcome.item->name);
        rows.push_back({flag == nullptr ? "its check flag" : "check flag " + std::string(flag->item), ""});
    }
    return rows;
}

std::string repair_text(const Screen &screen, const std::vector<Outcome> &outcomes, bool dry_run) {
    Table table({{.title = "ITEM"}, {.title = "WRITTEN"}, {.title = "PART"}, {.title = "FROM"}});
    std::size_t records = 0;
    Refusals refusals;
    std::vector<std::string> in_memory;
    for (const Outcome &outcome : outcomes) {
        if (!outcome.failure.empty()) {
            refusals.add(outcome.item->name, outcome.failure);
            if (outcome.item->ready) {
                in_memory.push_back(outcome.item->name);
            }
            continue;
        }
        for (const Written &row : written_by(outcome)) {
            table.add({{outcome.item->name}, {row.copy}, {row.part}, {source_name(outcome), Tone::kGood}});
            ++records;
        }
    }
    std::string text = records == 0 ? "" : table.text(screen) + "\n";
    text += records == 0 ? std::string(refusals.empty() ? "Nothing to write: all is well\n" : "Nothing written\n")
                         : counted(records, "record") + (dry_run ? " would be written\n" : " written and read back\n");
    if (!refusals.empty()) {
        text += "Not mended; --from says which copy stays, 'asdctl set' or 'asdctl import' writes an item anew:\n" +
                refusals.text(screen);
    }
    if (!in_memory.empty()) {
        text += "Still in memory; 'asdctl get ITEM' shows the value, 'asdctl repair ITEM --from memory' writes it:\n" +
                wrapped(screen, in_memory, 2 * kIndent);
    }
    return text;
}

Json repair_json(const std::vector<Outcome> &outcomes, bool dry_run) {
    Json items = Json::array();
    for (const Outcome &outcome : outcomes) {
        Json written = Json::array();
        for (const Written &row : written_by(outcome)) {
            written.push_back(row.copy);
        }
        items.push_back({{"item", outcome.item->name},
                         {"from", source_name(outcome)},
                         {"written", written},
                         {"error", outcome.failure.empty() ? Json(nullptr) : Json(outcome.failure)}});
    }
    return {{"dry_run", dry_run}, {"items", items}};
}

// ---- reload ----

int run_reload(const Context &context, const std::string &name) {
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    Json items = Json::array();
    Refusals refusals;
    std::size_t loaded = 0;
    std::size_t never_written = 0;
    for (const Item *item : chosen_items(snapshot, name, true)) {
        Json error;
        try {
            service.reload_item(item->name);
            ++loaded;
        } catch (const Failure &failure) {
            error = reason_of(failure);
            if (name.empty() && item->condition == Condition::kNeverWritten) {
                ++never_written; // nobody misses it
            } else {
                refusals.add(item->name, reason_of(failure));
            }
        }
        items.push_back({{"item", item->name}, {"error", error}});
    }
    return answer(context, {{"loaded", loaded}, {"items", items}},
                  counted(loaded, "item") + " loaded from the parts into memory" +
                      (never_written == 0 ? "" : ", " + std::to_string(never_written) + " never written") + "\n" +
                      (refusals.empty() ? "" : "Not loaded; memory is as it was:\n" + refusals.text(context.out)),
                  refusals.empty() ? kDone : kFailed);
}

} // namespace

int repair_online(const Context &context, const std::string &name, const std::string &from, bool dry_run) {
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    const auto source =
        static_cast<std::uint8_t>(std::ranges::find(kSources, from) - kSources.begin()); // the option was checked
    std::vector<Outcome> outcomes;
    for (const Item *item : chosen_items(snapshot, name, false)) {
        Outcome outcome = attempt(service, *item, source, dry_run);
        if (!outcome.failure.empty() || outcome.repaired.copies != 0) {
            outcomes.push_back(std::move(outcome));
        }
    }
    const bool well = std::ranges::all_of(outcomes, [](const Outcome &outcome) { return outcome.failure.empty(); });
    return answer(context, repair_json(outcomes, dry_run), repair_text(context.out, outcomes, dry_run),
                  well ? kDone : kFailed);
}

void add_reload_command(CLI::App &app, Command &chosen) {
    const auto [reload, item] = add_command(app, chosen, "reload", "Bring records from their parts into memory again",
                                            "reload serial", run_reload);
    reload->add_option("ITEM", *item, "This item alone: its name or label");
}

} // namespace asdctl
