// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// status, list, show: what the service shows of itself.

#include "commands.h"
#include "failure.h"
#include "service.h"
#include "texts.h"
#include "values.h"

#include <algorithm>
#include <array>

namespace asdctl {

namespace {

constexpr std::size_t kNamesShown = 24; // in status; list shows them all

// ---- Words ----

std::string duration_text(std::uint64_t seconds) {
    const std::array<std::pair<std::uint64_t, const char *>, 4> units = {
        {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}}};
    std::string text;
    int parts = 0; // the two largest units say enough
    for (const auto &[size, name] : units) {
        if (parts < 2 && (seconds >= size || (size == 1 && parts == 0))) {
            text += (parts++ > 0 ? " " : "") + std::to_string(seconds / size) + " " + name;
            seconds %= size;
        }
    }
    return text;
}

Cell state_cell(const Item &item) {
    if (!item.online) {
        return {"offline", Tone::kQuiet};
    }
    return item.ready ? Cell{"ready", Tone::kGood} : Cell{"not ready", Tone::kCaution};
}

Cell health_cell(const Chip &chip) {
    return chip.health == 0 ? Cell{"ok", Tone::kGood} : Cell{std::to_string(chip.health), Tone::kBad};
}

// "ASDDev14a/b" for a pair whose names differ in the last letter alone.
std::string chips_text(const Item &item) {
    if (item.chips.empty()) {
        return "-";
    }
    const std::string &first = item.chips.front().name;
    if (item.chips.size() == 1) {
        return first;
    }
    const std::string &second = item.chips.back().name;
    if (first.size() == second.size() && first.compare(0, first.size() - 1, second, 0, second.size() - 1) == 0) {
        return first + "/" + second.back();
    }
    return first + ", " + second;
}

// The same value of every chip once, different ones side by side.
template <typename Value>
std::string of_each(const Item &item, const Value &value) {
    std::vector<std::string> texts;
    for (const Chip &chip : item.chips) {
        texts.push_back(value(chip));
    }
    if (texts.empty()) {
        return "-";
    }
    return texts.size() == 1 || texts.front() == texts.back() ? texts.front() : texts.front() + "/" + texts.back();
}

bool chips_sound(const Item &item) {
    return std::ranges::all_of(item.chips, &Chip::sound);
}

bool waits_for_value(const Item &item) {
    return item.online && !item.ready;
}

// ---- status ----

// A line of what needs attention, and names that belong to it.
struct Concern {
    std::string text;
    std::vector<std::string> names;
};

std::vector<Concern> concerns_of(const Snapshot &snapshot) {
    std::vector<Concern> concerns;
    const Board &board = snapshot.board;
    if (board.role == "error") {
        concerns.push_back({.text = "The board does not tell its role.", .names = {}});
    }
    std::vector<std::string> chips;
    for (const Chip &chip : snapshot.chips) {
        if (!chip.sound()) {
            chips.push_back(chip.name);
        }
    }
    if (!chips.empty()) {
        concerns.push_back({.text = (chips.size() == 1 ? "1 copy" : std::to_string(chips.size()) + " copies") +
                                    " failed at the last access:",
                            .names = chips});
    }
    std::vector<std::string> items;
    for (const Item &item : snapshot.items) {
        if (waits_for_value(item)) {
            items.push_back(item.name);
        }
    }
    // The master alone loads its items.
    if (!items.empty() && board.role == "master") {
        concerns.push_back(
            {.text = counted(items.size(), "item") + " not ready (never written, damaged, or not loaded):",
             .names = items});
    }
    if (board.equipment_mode != 0) {
        concerns.push_back(
            {.text = "The board is in equipment mode " + std::to_string(board.equipment_mode) + ".", .names = {}});
    }
    if (board.cpld_upgrading != 0) {
        concerns.push_back({.text = "The CPLD is being upgraded: daily writes wait.", .names = {}});
    }
    for (const auto &[operation, status] : board.faults) {
        concerns.push_back(
            {.text = "A fault is set: " + operation + " fails with " + std::to_string(status) + ".", .names = {}});
    }
    return concerns;
}

struct Counts {
    std::size_t ready = 0;
    std::size_t not_ready = 0;
    std::size_t offline = 0;
    std::size_t chips_failed = 0;
};

Counts counts_of(const Snapshot &snapshot) {
    Counts counts;
    for (const Item &item : snapshot.items) {
        ++(!item.online ? counts.offline : item.ready ? counts.ready : counts.not_ready);
    }
    counts.chips_failed =
        static_cast<std::size_t>(std::ranges::count_if(snapshot.chips, [](const Chip &chip) { return !chip.sound(); }));
    return counts;
}

Json status_json(const Snapshot &snapshot) {
    const Counts counts = counts_of(snapshot);
    Json concerns = Json::array();
    for (const Concern &concern : concerns_of(snapshot)) {
        concerns.push_back({{"text", concern.text}, {"names", concern.names}});
    }
    return {{"version", snapshot.version},
            {"slot", snapshot.slot},
            {"role", snapshot.board.role},
            {"enclosure", snapshot.enclosure},
            {"uptime_s", snapshot.uptime_s},
            {"time_scale", snapshot.time_scale},
            {"tasks", snapshot.tasks},
            {"items",
             {{"total", snapshot.items.size()},
              {"ready", counts.ready},
              {"not_ready", counts.not_ready},
              {"offline", counts.offline}}},
            {"chips", {{"total", snapshot.chips.size()}, {"failed", counts.chips_failed}}},
            {"attention", concerns}};
}

std::string items_text(const Snapshot &snapshot, const Counts &counts) {
    std::string text = std::to_string(counts.ready) + " of " + std::to_string(snapshot.items.size()) + " ready";
    return counts.offline == 0 ? text : text + ", " + std::to_string(counts.offline) + " offline";
}

std::string concerns_text(const Screen &screen, const std::vector<Concern> &concerns) {
    if (concerns.empty()) {
        return painted(screen, Tone::kGood, "Nothing needs attention.") + "\n";
    }
    std::string text = painted(screen, Tone::kCaution, "Needs attention") + "\n";
    for (const Concern &concern : concerns) {
        text += std::string(kIndent, ' ') + concern.text + "\n";
        std::vector<std::string> names = concern.names;
        if (names.size() > kNamesShown) {
            names.resize(kNamesShown);
            names.emplace_back("...");
        }
        text += names.empty() ? "" : wrapped(screen, names, 2 * kIndent);
    }
    return text;
}

} // namespace

std::string service_text(const Screen &screen, const Snapshot &snapshot) {
    const Counts counts = counts_of(snapshot);
    const std::string scale =
        snapshot.time_scale == 1 ? "" : ", time runs " + std::to_string(snapshot.time_scale) + " times as fast";
    std::vector<std::string> tasks = snapshot.tasks;
    Table table = Table::pairs();
    const auto add = [&](const char *name, const std::string &text, Tone tone = Tone::kPlain) {
        table.add({Cell(name, Tone::kQuiet), Cell(text, tone)});
    };
    add("Slot", std::to_string(snapshot.slot) + ", " + snapshot.board.role, Tone::kStrong);
    add("Enclosure", snapshot.enclosure);
    add("Running", duration_text(snapshot.uptime_s) + ", asd " + snapshot.version + scale);
    add("Items", items_text(snapshot, counts));
    add("Copies", counts.chips_failed == 0 ? std::to_string(snapshot.chips.size()) + ", all sound"
                                           : std::to_string(counts.chips_failed) + " of " +
                                                 std::to_string(snapshot.chips.size()) + " failed");
    add("Tasks", tasks.empty() ? "none" : "");
    std::string text = table.text(screen);
    if (!tasks.empty()) {
        // In the second column, however many lines they take.
        const std::size_t column = std::string_view("Enclosure").size() + 2;
        const std::string lines = wrapped(screen, tasks, column);
        const std::string title = painted(screen, Tone::kQuiet, "Tasks");
        text.resize(text.rfind(title));
        text += title + lines.substr(std::string_view("Tasks").size());
    }
    return text + "\n" + concerns_text(screen, concerns_of(snapshot));
}

namespace {

int run_status(const Context &context) {
    const Snapshot snapshot = Service(context).snapshot();
    return answer(context, status_json(snapshot), service_text(context.out, snapshot));
}

// ---- list ----

Json chip_json(const Chip &chip) {
    return {{"name", chip.name},
            {"part", chip.part},
            {"offset", chip.offset},
            {"health", chip.health},
            {"error_code", chip.error_code},
            {"retry_number", chip.retry_number},
            {"stg_wp", chip.stg_wp},
            {"stg_is_wp", chip.stg_is_wp},
            {"page_cycles", chip.page_cycles}};
}

Json item_json(const Item &item) {
    Json chips = Json::array();
    for (const Chip &chip : item.chips) {
        chips.push_back(chip_json(chip));
    }
    return {{"name", item.name},
            {"number", item.num},
            {"length", item.length},
            {"online", item.online},
            {"ready", item.ready},
            {"need_sync", item.need_sync},
            {"confidential", item.confidential},
            {"chips", chips}};
}

// On a narrow screen the number of chips stands for their names.
Table list_table(const std::vector<Item> &items, bool narrow) {
    using Align = Table::Align;
    Table table({{.title = "NUM", .align = Align::kRight},
                 {.title = "ITEM"},
                 {.title = "LENGTH", .align = Align::kRight},
                 {.title = "STATE"},
                 {.title = "COPIES", .align = narrow ? Align::kRight : Align::kLeft},
                 {.title = "HEALTH"},
                 {.title = "ERROR"}});
    for (const Item &item : items) {
        const std::string health =
            of_each(item, [](const Chip &chip) { return chip.health == 0 ? "ok" : std::to_string(chip.health); });
        const std::string error = of_each(
            item, [](const Chip &chip) { return chip.error_code == 0 ? "-" : std::to_string(chip.error_code); });
        table.add({{std::to_string(item.num), Tone::kQuiet},
                   {item.name},
                   {std::to_string(item.length)},
                   state_cell(item),
                   {narrow ? std::to_string(item.chips.size()) : chips_text(item)},
                   {health, health == "ok" ? Tone::kGood : Tone::kBad},
                   {error, error == "-" ? Tone::kQuiet : Tone::kBad}});
    }
    return table;
}

struct ListOptions {
    bool not_ready = false;
    bool unhealthy = false;
};

int run_list(const Context &context, const ListOptions &options) {
    std::vector<Item> items = Service(context).snapshot().items;
    const std::size_t all = items.size();
    std::erase_if(items, [&](const Item &item) {
        return (options.not_ready && !waits_for_value(item)) || (options.unhealthy && chips_sound(item));
    });
    Json list = Json::array();
    std::ranges::transform(items, std::back_inserter(list), item_json);
    Table table = list_table(items, false);
    if (context.out.width && table.width() > *context.out.width) {
        table = list_table(items, true);
    }
    return answer(context, list,
                  items.empty() ? "None of the " + counted(all, "item") + ".\n" : table.text(context.out));
}

// ---- show ----

std::string chips_table(const Screen &screen, const Item &item) {
    std::vector<Table::Column> columns = {{}};
    std::vector<std::vector<Cell>> rows = {{{"Part", Tone::kQuiet}},
                                           {{"Offset", Tone::kQuiet}},
                                           {{"Health", Tone::kQuiet}},
                                           {{"Error code", Tone::kQuiet}},
                                           {{"Retries", Tone::kQuiet}},
                                           {{"Own protection", Tone::kQuiet}},
                                           {{"Pages of the part written", Tone::kQuiet}}};
    for (const Chip &chip : item.chips) {
        columns.push_back({.title = chip.name});
        const std::string protection = chip.stg_is_wp == 0 ? "none" : chip.stg_wp == 0 ? "lifted" : "on";
        const std::array<Cell, 7> cells = {
            Cell{chip.part},
            Cell{hex_number(chip.offset, 4)},
            health_cell(chip),
            Cell{std::to_string(chip.error_code), chip.error_code == 0 ? Tone::kPlain : Tone::kBad},
            Cell{std::to_string(chip.retry_number)},
            Cell{protection},
            Cell{std::to_string(chip.page_cycles)}};
        for (std::size_t i = 0; i < cells.size(); ++i) {
            rows[i].push_back(cells[i]);
        }
    }
    Table table(columns, kIndent);
    std::ranges::for_each(rows, [&](const std::vector<Cell> &row) { table.add(row); });
    std::string text = "\n" + table.text(screen);
    for (const Chip &chip : item.chips) {
        text += chip.error_code == 0
                    ? ""
                    : "\n" + std::string(kIndent, ' ') + chip.name + ": " + status_text(chip.error_code) + "\n";
    }
    return text;
}

std::string item_text(const Screen &screen, const Item &item) {
    Table facts = Table::pairs(kIndent);
    const KnownItem *const known = known_named(item.name);
    if (known != nullptr) {
        facts.add({{"Meaning", Tone::kQuiet},
                   {std::string(known->meaning) + (known->of.empty() ? "" : " of " + std::string(known->of)) +
                    (known->label.empty() ? "" : ", '" + std::string(known->label) + "'")}});
    }
    facts.add({{"Number", Tone::kQuiet}, {std::to_string(item.num)}});
    facts.add({{"Length", Tone::kQuiet}, {counted(item.length, "byte")}});
    facts.add({{"State", Tone::kQuiet}, state_cell(item)});
    facts.add({{"Pushed to peers", Tone::kQuiet}, {item.need_sync ? "yes" : "no"}});
    if (const std::string text = to_text(item.value); !text.empty()) {
        facts.add({{"Text", Tone::kQuiet}, {text}});
    }
    std::string text = painted(screen, Tone::kStrong, item.name) + "\n" + facts.text(screen);
    text += chips_table(screen, item);
    text += "\n" + std::string(kIndent, ' ') + painted(screen, Tone::kQuiet, "Value in memory") + "\n";
    if (item.confidential) {
        return text + std::string(kIndent, ' ') + "confidential; 'asdctl get " + item.name + "' shows it\n";
    }
    return text + (item.value.empty() ? std::string(kIndent, ' ') + "none\n" : hex_dump(screen, item.value, kIndent));
}

int run_show(const Context &context, const std::string &name) {
    const Snapshot snapshot = Service(context).snapshot();
    const Item &item = snapshot.item(name);
    Json json = item_json(item);
    json["value"] = item.confidential ? Json(nullptr) : Json(to_hex(item.value));
    json["text"] = item.confidential ? Json(nullptr) : Json(to_text(item.value));
    return answer(context, json, item_text(context.out, item));
}

// ---- identity ----

Cell value_cell(const Item &item, const KnownItem &known) {
    if (item.confidential) {
        return {"confidential", Tone::kQuiet};
    }
    if (!item.online || !item.ready) {
        return state_cell(item);
    }
    const std::string text = decoded(known.format, item.value);
    return text.empty() ? Cell{"never written", Tone::kQuiet} : Cell{text};
}

struct IdentityOptions {
    bool all = false;
};

int run_identity(const Context &context, const IdentityOptions &options) {
    const Snapshot snapshot = Service(context).snapshot();
    Table table({{.title = "LABEL"}, {.title = "ITEM"}, {.title = "MEANING"}, {.title = "VALUE"}});
    Table short_table({{.title = "LABEL"}, {.title = "ITEM"}, {.title = "VALUE"}});
    Json list = Json::array();
    for (const KnownItem &known : kKnownItems) {
        const auto item = std::ranges::find(snapshot.items, known.item, &Item::name);
        if (item == snapshot.items.end() || !(options.all || known.identity)) {
            continue;
        }
        const Cell value = value_cell(*item, known);
        const std::string meaning =
            std::string(known.meaning) + (known.of.empty() ? "" : " of " + std::string(known.of));
        short_table.add({{std::string(known.label), Tone::kStrong}, {item->name, Tone::kQuiet}, value});
        table.add({{std::string(known.label), Tone::kStrong}, {item->name, Tone::kQuiet}, {meaning}, value});
        list.push_back({{"label", known.label},
                        {"item", item->name},
                        {"meaning", meaning},
                        {"ready", item->ready},
                        {"decoded", item->confidential ? Json(nullptr) : Json(decoded(known.format, item->value))}});
    }
    const bool wide = options.all && (!context.out.width || table.width() <= *context.out.width);
    return answer(context, list, (wide ? table : short_table).text(context.out));
}

} // namespace

void add_look_commands(CLI::App &app, Command &chosen) {
    add_command(app, "status", "How the controller is, and what needs attention", "status")->callback([&chosen] {
        chosen = run_status;
    });

    const auto [list, options] =
        add_command(app, chosen, "list", "The items with their state and chips", "list --not-ready", run_list);
    list->add_flag("--not-ready", options->not_ready, "Only items that are online and not ready");
    list->add_flag("--unhealthy", options->unhealthy, "Only items with a chip whose last access failed");

    const auto [identity, every] =
        add_command(app, chosen, "identity", "Who the enclosure is: labels and values", "identity --all", run_identity);
    identity->add_flag("--all", every->all, "All items that are well known, with their meanings");

    const auto [show, name] =
        add_command(app, chosen, "show", "All about an item, its chips and its value", "show ASD14", run_show);
    show->add_option("ITEM", *name, "The item's name or label")->required();
}

} // namespace asdctl
