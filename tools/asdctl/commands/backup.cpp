// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// export, import: what an enclosure's items hold, in one file that people can read.

#include "commands.h"
#include "failure.h"
#include "holdings.h"
#include "known_items.h"
#include "record_format.h"
#include "values.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <tuple>

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asdctl {

namespace {

constexpr const char *kMark = "asd_export"; // the key by which such a file is known; its value is the version
constexpr int kVersion = 1;
constexpr std::size_t kLongestExport = 4U << 20U; // bytes; a full enclosure's has some 50 KiB
constexpr std::size_t kMistakesShown = 10;        // mistakes of a file

std::string label_here(const std::string &item) {
    const KnownItem *const known = known_of(item);
    return known == nullptr ? "" : std::string(known->label);
}

std::string checksum_of(BytesView value) {
    return hex_number(crc16(value), 4);
}

// ---- export ----

// Where the values are.
struct Source {
    std::string config; // empty: a service has them
    std::string state_dir = "/var/lib/asd";

    [[nodiscard]] std::unique_ptr<Holdings> open(const Context &context, bool to_write) const {
        return config.empty() ? service_holdings(context) : part_holdings(context, config, state_dir, to_write);
    }
};

struct ExportOptions {
    std::string file;
    Source source;
    bool keys = false;
};

// What an item holds; or why it is not in the file.
Json exported(Holdings &holdings, const Holding &item, bool keys) {
    Json entry = {{"item", item.item}, {"label", label_here(item.item)}, {"length", item.length}, {"value", nullptr}};
    if (item.confidential && !keys) {
        entry["why"] = "confidential: --keys exports it";
    } else if (item.flag) {
        entry["why"] = "the check flag of a pair: it follows when the pair is written";
    } else if (!item.ready) {
        entry["why"] = item.why;
    } else {
        const Bytes value = holdings.read(item);
        entry["text"] = to_text(value);
        entry["value"] = to_hex(value);
        entry["checksum"] = checksum_of(value);
    }
    return entry;
}

// Keys do not go where others can read them.
void check_file_for_keys(const std::string &file) {
    struct stat facts = {};
    if (file != "-" && ::stat(file.c_str(), &facts) == 0 && (facts.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw Failure(file + ": other users may read or write it, and it is to hold keys",
                      "chmod 600 it, or name a file that is not there yet.");
    }
}

// An export that is there already is replaced by a whole one, or stays as it is.
void save(const std::string &file, const std::string &text) {
    const Bytes bytes(text.begin(), text.end());
    struct stat facts = {};
    if (file == "-" || (::stat(file.c_str(), &facts) == 0 && !S_ISREG(facts.st_mode))) {
        write_file(file, bytes);
        return;
    }
    const std::string half = file + ".new";
    (void)::unlink(half.c_str()); // of one that was cut off; a new file is its owner's alone
    write_file(half, bytes);
    if (::rename(half.c_str(), file.c_str()) != 0) {
        throw Failure(file + ": cannot be replaced: " + g_strerror(errno), "The new export is " + half + ".");
    }
}

int run_export(const Context &context, const ExportOptions &options) {
    if (options.keys) {
        check_file_for_keys(options.file);
    }
    const std::unique_ptr<Holdings> holdings = options.source.open(context, false);
    Json items = Json::array();
    std::vector<std::string> left_out;
    for (const Holding &item : holdings->items) {
        items.push_back(exported(*holdings, item, options.keys));
        if (items.back()["value"].is_null() && !item.flag) {
            left_out.push_back(item.item);
        }
    }
    const auto whole = static_cast<std::size_t>(
        std::ranges::count_if(items, [](const Json &entry) { return !entry["value"].is_null(); }));
    const Json file = {
        {kMark, kVersion}, {"asd", holdings->version}, {"enclosure", holdings->enclosure}, {"items", items}};
    const std::string text = file.dump(1) + "\n";
    save(options.file, text);
    if (options.file == "-") {
        return kDone;
    }
    std::string said = counted(whole, "item") + " saved in " + options.file + "\n";
    if (!left_out.empty()) {
        said += "Without a value, not ready or confidential; the file says which:\n" +
                wrapped(context.out, left_out, kIndent);
    }
    return answer(context, {{"file", options.file}, {"items", whole}, {"left_out", left_out}}, said);
}

// ---- import ----

struct Saved {
    std::string item;
    Bytes value;
};

// Reads an export. Everything that is wrong with it, also what a caller finds, is told at once, and nothing is written.
class ExportReader {
public:
    explicit ExportReader(std::string file) : file_(std::move(file)) {}

    [[nodiscard]] std::vector<Saved> read() {
        const Bytes bytes = read_file(file_, kLongestExport);
        const Json json = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
        if (json.is_discarded() || !json.is_object() || !json.contains(kMark)) {
            throw Failure(file_ + ": is no export of asdctl", "'asdctl export FILE' makes one.");
        }
        if (json[kMark] != kVersion || !json.contains("items") || !json["items"].is_array()) {
            throw Failure(file_ + ": is an export of another version, which this asdctl does not know");
        }
        std::vector<Saved> saved;
        for (const Json &entry : json["items"]) {
            if (std::optional<Saved> one = entry_of(entry)) {
                saved.push_back(std::move(*one));
            }
        }
        return saved;
    }

    void mistake(const std::string &what) { mistakes_.push_back(what); }

    void end_with_mistakes() const {
        if (mistakes_.empty()) {
            return;
        }
        std::string text = (file_ == "-" ? "standard input" : file_) + ": nothing has been written:";
        for (std::size_t i = 0; i < std::min(mistakes_.size(), kMistakesShown); ++i) {
            text += "\n  " + mistakes_[i];
        }
        if (mistakes_.size() > kMistakesShown) {
            text += "\n  and " + std::to_string(mistakes_.size() - kMistakesShown) + " more";
        }
        throw Failure(text);
    }

private:
    // None: it has no value, or is wrong.
    std::optional<Saved> entry_of(const Json &entry) {
        if (!entry.is_object() || !entry.contains("item") || !entry["item"].is_string()) {
            mistake("an entry without a name");
            return std::nullopt;
        }
        const auto item = entry["item"].get<std::string>();
        if (!seen_.insert(item).second) {
            mistake(item + " is there twice");
            return std::nullopt;
        }
        if (!entry.contains("value") || entry["value"].is_null()) {
            return std::nullopt;
        }
        try {
            Saved saved{.item = item, .value = parse_hex(entry["value"].get<std::string>())};
            if (entry.value("checksum", "") != checksum_of(saved.value)) {
                mistake(item + ": its value and its checksum do not belong together; " + checksum_of(saved.value) +
                        " is that of the value");
            }
            return saved;
        } catch (const std::exception &) { // nlohmann's on another type, WrongUsage on what is not hexadecimal
            mistake(item + ": its value is not in hexadecimal");
            return std::nullopt;
        }
    }

    std::string file_;
    std::set<std::string> seen_;
    std::vector<std::string> mistakes_;
};

struct ImportOptions {
    std::string file;
    Source source;
    std::vector<std::string> require;
    bool dry_run = false;
};

enum class Fate { kSame, kToWrite, kWritten, kNotWritten };

struct Step {
    const Holding *item;
    const Saved *saved;
    Fate fate;
    std::string why; // it failed
};

Bytes held_by(Holdings &holdings, const Holding &item) {
    return item.ready ? holdings.read(item) : Bytes();
}

// What is to be done with each value; whatever cannot be done keeps all of it from being done.
std::vector<Step> planned(Holdings &holdings, const std::vector<Saved> &saved, ExportReader &reader) {
    std::vector<Step> steps;
    for (const Saved &one : saved) {
        const auto item = std::ranges::find(holdings.items, one.item, &Holding::item);
        if (item == holdings.items.end()) {
            reader.mistake(one.item + ": this enclosure has no such item");
        } else if (item->length != one.value.size()) {
            reader.mistake(one.item + ": has " + counted(item->length, "byte") + " here and " +
                           std::to_string(one.value.size()) + " in the file");
        } else {
            const bool same = item->sound && held_by(holdings, *item) == one.value;
            steps.push_back({.item = &*item, .saved = &one, .fate = same ? Fate::kSame : Fate::kToWrite, .why = {}});
        }
    }
    reader.end_with_mistakes();
    return steps;
}

// The items that have to be the same already, lest the identity of one enclosure gets into another.
void check_required(Holdings &holdings, const std::vector<Saved> &saved, const std::vector<std::string> &required) {
    for (const std::string &name : required) {
        const Holding &item = holdings.named(name);
        const auto one = std::ranges::find(saved, item.item, &Saved::item);
        const Bytes here = held_by(holdings, item);
        const auto shown = [&](const Bytes &value) {
            return item.confidential ? std::string("another key") : "'" + to_text(value) + "'";
        };
        if (one == saved.end() || here != one->value) {
            throw Failure(name + " is " + (here.empty() ? "not ready" : shown(here)) + " here and " +
                              (one == saved.end() ? "missing" : shown(one->value)) +
                              " in the file; nothing has been written",
                          "It is required to be the same. Without --require the file's is written.");
        }
    }
}

// Writes one value and reads it back.
void carry_out(Holdings &holdings, Step *step) {
    try {
        holdings.write(*step->item, step->saved->value);
        const bool held = holdings.read(*step->item) == step->saved->value;
        step->fate = held ? Fate::kWritten : Fate::kNotWritten;
        step->why = held ? "" : "something else was read back";
    } catch (const Failure &failure) {
        step->fate = Fate::kNotWritten;
        step->why = failure.what();
    }
}

Cell fate_cell(const Step &step) {
    switch (step.fate) {
    case Fate::kSame:
        return {"the same", Tone::kQuiet};
    case Fate::kToWrite:
        return {"would be written", Tone::kCaution};
    case Fate::kWritten:
        return {"written", Tone::kGood};
    case Fate::kNotWritten:
        break;
    }
    return {"FAILED: " + step.why, Tone::kBad};
}

int report(const Context &context, const std::vector<Step> &steps) {
    const auto count = [&](Fate fate) {
        return static_cast<std::size_t>(std::ranges::count(steps, fate, &Step::fate));
    };
    Table table({{.title = "ITEM"}, {.title = "LABEL"}, {.title = "STATE"}});
    Json items = Json::array();
    for (const Step &step : steps) {
        const Cell fate = fate_cell(step);
        if (step.fate != Fate::kSame) {
            table.add({{step.item->item}, {label_here(step.item->item)}, fate});
        }
        items.push_back({{"item", step.item->item}, {"state", fate.text}});
    }
    const std::size_t failed = count(Fate::kNotWritten);
    const std::size_t to_write = count(Fate::kToWrite);
    std::string text = count(Fate::kSame) == steps.size() ? "" : table.text(context.out) + "\n";
    text += counted(steps.size(), "item") + ": " + std::to_string(count(Fate::kSame)) + " the same, " +
            (to_write > 0 ? std::to_string(to_write) + " would be written\n"
                          : std::to_string(count(Fate::kWritten)) + " written and read back, " +
                                std::to_string(failed) + " failed\n");
    return answer(context,
                  {{"same", count(Fate::kSame)},
                   {"to_write", to_write},
                   {"written", count(Fate::kWritten)},
                   {"failed", failed},
                   {"items", items}},
                  text, failed == 0 ? kDone : kFailed);
}

int run_import(const Context &context, const ImportOptions &options) {
    ExportReader reader(options.file);
    const std::vector<Saved> saved = reader.read();
    const std::unique_ptr<Holdings> holdings = options.source.open(context, !options.dry_run);
    std::vector<Step> steps = planned(*holdings, saved, reader);
    check_required(*holdings, saved, options.require);
    if (!options.dry_run) {
        ProgressBar bar(context.err, "importing", steps.size());
        for (Step &step : steps) {
            if (step.fate == Fate::kToWrite) {
                carry_out(*holdings, &step);
            }
            bar.step();
        }
    }
    return report(context, steps);
}

void add_source(CLI::App &command, Source &source) {
    command.add_option("--config", source.config, "The enclosure file: on its parts, without a service")
        ->type_name("FILE");
    command.add_option("--state-dir", source.state_dir, "With --config: the state folder (/var/lib/asd)")
        ->type_name("DIR");
}

} // namespace

void add_backup_commands(CLI::App &app, Command &chosen) {
    const auto [save, to] =
        add_command(app, chosen, "export", "Save what the items hold in a file", "export enclosure-7.json", run_export);
    save->add_option("FILE", to->file, "The new file, JSON, for its owner alone; - for standard output")->required();
    save->add_flag("--keys", to->keys, "The electronic keys and other confidential items too");

    add_source(*save, to->source);

    const auto [load, from] = add_command(app, chosen, "import", "Write what an export holds, where it differs",
                                          "import enclosure-7.json --dry-run", run_import);
    load->add_option("FILE", from->file, "A file that 'asdctl export' made; - for standard input")->required();
    load->add_flag("--dry-run", from->dry_run, "Only tell what would be written");
    load->add_option("--require", from->require, "Items that must be the same already, else nothing is written")
        ->type_name("ITEM,...")
        ->delimiter(',');
    add_source(*load, from->source);
}

} // namespace asdctl
