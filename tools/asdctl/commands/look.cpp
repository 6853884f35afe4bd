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
#include <map>

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

Cell condition_cell(Condition condition) {
    const ConditionWord &word = word_of(condition);
    const bool quiet = condition == Condition::kOffline || condition == Condition::kNeverWritten;
    return {std::string(word.word), word.bad                        ? Tone::kBad
                                    : condition == Condition::kGood ? Tone::kGood
                                    : quiet                         ? Tone::kQuiet
                                                                    : Tone::kCaution};
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

std::vector<Concern> concerns_of(const Snapshot &snapshot) {
    std::vector<Concern> concerns = snapshot.concerns;
    const Board &board = snapshot.board;
    if (board.role == "error") {
        concerns.push_back({.kind = "no-role", .text = "The board does not tell its role", .names = {}});
    }
    std::vector<std::string> chips;
    for (const Chip &chip : snapshot.chips) {
        if (!chip.sound()) {
            chips.push_back(chip.name);
        }
    }
    if (!chips.empty()) {
        concerns.push_back({.kind = "access-failed",
                            .text = (chips.size() == 1 ? "1 copy" : std::to_string(chips.size()) + " copies") +
                                    " failed at the last access",
                            .names = chips});
    }
    if (board.equipment_mode != 0) {
        concerns.push_back({.kind = "equipment-mode",
                            .text = "The board is in equipment mode " + std::to_string(board.equipment_mode),
                            .names = {}});
    }
    if (board.cpld_upgrading != 0) {
        concerns.push_back(
            {.kind = "cpld-upgrade", .text = "The CPLD is being upgraded: daily writes wait", .names = {}});
    }
    for (const auto &[operation, status] : board.faults) {
        concerns.push_back({.kind = "fault-set",
                            .text = "A fault is set: " + operation + " fails with " + std::to_string(status),
                            .names = {}});
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

// How many are in each condition that occurs.
template <typename Thing>
std::map<Condition, std::size_t> conditions_of(const std::vector<Thing> &things) {
    std::map<Condition, std::size_t> counts;
    for (const Thing &thing : things) {
        ++counts[thing.condition];
    }
    return counts;
}

template <typename Thing>
Json conditions_json(const std::vector<Thing> &things) {
    Json json = Json::object();
    for (const auto &[condition, count] : conditions_of(things)) {
        json[std::string(word_of(condition).kind)] = count;
    }
    return json;
}

// "49: 37 good, 12 never written"
template <typename Thing>
std::string conditions_text(const std::vector<Thing> &things) {
    std::string text = std::to_string(things.size());
    const char *between = ": ";
    for (const auto &[condition, count] : conditions_of(things)) {
        text += between + (count == things.size() ? "all" : std::to_string(count)) + " " +
                std::string(counted_word(condition));
        between = ", ";
    }
    return text;
}

std::string parts_text(const std::vector<Part> &parts) {
    const auto bad = std::ranges::count_if(parts, [](const Part &part) { return word_of(part.condition).bad; });
    return std::to_string(parts.size()) + ": " +
           (bad == 0 ? "all answer" : std::to_string(bad) + (bad == 1 ? " needs" : " need") + " attention");
}

Json status_json(const Snapshot &snapshot) {
    const Counts counts = counts_of(snapshot);
    Json concerns = Json::array();
    for (const Concern &concern : concerns_of(snapshot)) {
        concerns.push_back({{"kind", concern.kind}, {"text", concern.text}, {"names", concern.names}});
    }
    Json parts = Json::array();
    for (const Part &part : snapshot.parts) {
        parts.push_back({{"name", part.name},
                         {"file", part.file},
                         {"state", word_of(part.condition).kind},
                         {"reason", part.reason}});
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
              {"offline", counts.offline},
              {"states", conditions_json(snapshot.items)}}},
            {"chips",
             {{"total", snapshot.chips.size()},
              {"failed", counts.chips_failed},
              {"states", conditions_json(snapshot.chips)}}},
            {"parts", parts},
            {"attention", concerns}};
}

std::string concerns_text(const Screen &screen, const std::vector<Concern> &concerns) {
    if (concerns.empty()) {
        return painted(screen, Tone::kGood, "Nothing needs attention.") + "\n";
    }
    std::string text = painted(screen, Tone::kCaution, "Needs attention") + "\n";
    for (const Concern &concern : concerns) {
        text += wrapped(screen, concern.text + (concern.names.empty() ? "." : ":"), kIndent);
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
    add("Items", conditions_text(snapshot.items));
    add("Copies", conditions_text(snapshot.chips));
    add("Parts", parts_text(snapshot.parts));
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
            {"state", word_of(chip.condition).kind},
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
            {"state", word_of(item.condition).kind},
            {"online", item.online},
            {"ready", item.ready},
            {"need_sync", item.need_sync},
            {"confidential", item.confidential},
            {"chips", chips}};
}

Cell value_cell(const Item &item, Format format) {
    if (item.confidential) {
        return {"confidential", Tone::kQuiet};
    }
    if (!item.online || !item.ready) {
        return condition_cell(item.condition);
    }
    const std::string text = decoded(format, item.value);
    return text.empty() ? Cell{"never written", Tone::kQuiet} : Cell{text};
}

constexpr std::size_t kListedValue = 20; // characters; 'show' has all of it

// What fits of an item's value; of one that has none its state says why.
Cell listed_value(const Item &item) {
    if (item.condition == Condition::kNeverWritten || !item.online || !item.ready) {
        return {"-", Tone::kQuiet};
    }
    const KnownItem *const known = known_of(item.name);
    Cell cell = value_cell(item, known == nullptr ? Format::kHex : known->format);
    if (cell.text.size() > kListedValue) {
        cell.text = cell.text.substr(0, kListedValue - 3) + "...";
    }
    return cell;
}

// On a narrow screen the number of copies stands for their names, and there is no room for values.
Table list_table(const std::vector<Item> &items, bool narrow) {
    using Align = Table::Align;
    std::vector<Table::Column> columns = {{.title = "NUM", .align = Align::kRight},
                                          {.title = "ITEM"},
                                          {.title = "LENGTH", .align = Align::kRight},
                                          {.title = "STATE"},
                                          {.title = "COPIES", .align = narrow ? Align::kRight : Align::kLeft},
                                          {.title = "HEALTH"},
                                          {.title = "ERROR"}};
    if (!narrow) {
        columns.push_back({.title = "VALUE"});
    }
    Table table(columns);
    for (const Item &item : items) {
        const std::string health =
            of_each(item, [](const Chip &chip) { return chip.health == 0 ? "ok" : std::to_string(chip.health); });
        const std::string error = of_each(
            item, [](const Chip &chip) { return chip.error_code == 0 ? "-" : std::to_string(chip.error_code); });
        std::vector<Cell> row = {{std::to_string(item.num), Tone::kQuiet},
                                 {item.name},
                                 {std::to_string(item.length)},
                                 condition_cell(item.condition),
                                 {narrow ? std::to_string(item.chips.size()) : chips_text(item)},
                                 {health, health == "ok" ? Tone::kGood : Tone::kBad},
                                 {error, error == "-" ? Tone::kQuiet : Tone::kBad}};
        if (!narrow) {
            row.push_back(listed_value(item));
        }
        table.add(row);
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
    std::vector<std::vector<Cell>> rows = {
        {{"Part", Tone::kQuiet}},           {{"Offset", Tone::kQuiet}},
        {{"State", Tone::kQuiet}},          {{"Health", Tone::kQuiet}},
        {{"Error code", Tone::kQuiet}},     {{"Retries", Tone::kQuiet}},
        {{"Own protection", Tone::kQuiet}}, {{"Pages of the part written", Tone::kQuiet}}};
    for (const Chip &chip : item.chips) {
        columns.push_back({.title = chip.name});
        const std::string protection = chip.stg_is_wp == 0 ? "none" : chip.stg_wp == 0 ? "lifted" : "on";
        const std::array<Cell, 8> cells = {
            Cell{chip.part},
            Cell{hex_number(chip.offset, 4)},
            condition_cell(chip.condition),
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
    facts.add({{"State", Tone::kQuiet}, condition_cell(item.condition)});
    facts.add({{"In memory", Tone::kQuiet}, {item.ready ? "yes" : "no"}});
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

struct IdentityOptions {
    bool all = false;
};

int run_identity(const Context &context, const IdentityOptions &options) {
    const Snapshot snapshot = Service(context).snapshot();
    Table table({{.title = "LABEL"}, {.title = "ITEM"}, {.title = "MEANING"}, {.title = "VALUE"}});
    Table short_table({{.title = "LABEL"}, {.title = "ITEM"}, {.title = "VALUE"}});
    Json list = Json::array();
    for (const KnownItem *const one : known_of_all()) {
        const KnownItem &known = *one;
        const auto item = std::ranges::find(snapshot.items, known.item, &Item::name);
        if (item == snapshot.items.end() || !(options.all || known.identity)) {
            continue;
        }
        const Cell value = value_cell(*item, known.format);
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
    add_command(app, "status", "How the controller is, and what is lost", "status")->callback([&chosen] {
        chosen = run_status;
    });

    const auto [list, options] =
        add_command(app, chosen, "list", "The items with their state, copies and values", "list --not-ready", run_list);
    list->add_flag("--not-ready", options->not_ready, "Only items that are online and not ready");
    list->add_flag("--unhealthy", options->unhealthy, "Only items with a copy whose last access failed");

    const auto [identity, every] =
        add_command(app, chosen, "identity", "Who the enclosure is: labels and values", "identity --all", run_identity);
    identity->add_flag("--all", every->all, "All items that are well known, with their meanings");

    const auto [show, name] =
        add_command(app, chosen, "show", "All about an item, its copies and its value", "show ASD14", run_show);
    show->add_option("ITEM", *name, "The item's name or label")->required();
}

} // namespace asdctl
