// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// get, read, set, clear, errcode: the methods of items and chips.

#include "commands.h"
#include "failure.h"
#include "ipmi_client.h"
#include "records.h"
#include "service.h"
#include "texts.h"
#include "values.h"

#include <algorithm>

namespace asdctl {

namespace {

// ---- get, read ----

struct ReadOptions {
    std::string item;
    bool raw = false;
    bool text = false;
    bool hex = false;
    std::string output;
};

Bytes shaped(const ReadOptions &options, const Bytes &value) {
    if (!options.text && !options.hex) {
        return value;
    }
    const std::string line = (options.text ? to_text(value) : to_hex(value)) + "\n";
    return {line.begin(), line.end()};
}

bool is_pair(const Item &item) {
    return item.chips.size() == 2;
}

// Whether the service can say which copy of the item is to be trusted.
bool can_be_read(const Item &item) {
    return !is_pair(item) || has_flag(item.name);
}

// How to see what is on the parts; never a command that would send the reader back here.
std::string look_advice(const Item &item) {
    return can_be_read(item) ? "'asdctl read " + item.name + "' reads it from its parts."
                             : "'asdctl chip inspect --item " + item.name + "' shows both copies on their parts.";
}

Bytes read_chips(Service &service, const Item &item) {
    if (!can_be_read(item)) { // asking would leave errors in the service's log
        throw Failure(item.name + " is a pair without a check flag, so nothing says which copy to trust",
                      item.ready ? "'asdctl get " + item.name + "' shows the value that the service has loaded."
                                 : look_advice(item));
    }
    return service.read_item(item.name, "ReadAtomStorageData");
}

// Shows or saves a value that came from there.
int deliver(const Context &context, const ReadOptions &options, const std::string &item, const char *source,
            const Bytes &value) {
    Json json = {{"item", item}, {"source", source}, {"length", value.size()}};
    if (!options.output.empty()) {
        write_file(options.output, shaped(options, value));
        json["file"] = options.output;
        return options.output == "-"
                   ? kDone
                   : answer(context, json,
                            item + ": " + counted(value.size(), "byte") + " saved in " + options.output + "\n");
    }
    if (!context.json && (options.raw || options.text || options.hex)) {
        write_file("-", shaped(options, value));
        return kDone;
    }
    json["value"] = to_hex(value);
    json["text"] = to_text(value);
    const KnownItem *const known = known_named(options.item);
    json["label"] = known == nullptr || known->label.empty() ? Json(nullptr) : Json(known->label);
    json["decoded"] = known == nullptr ? Json(nullptr) : Json(decoded(known->format, value));
    // Who asks by the label wants what people write, who asks by the item's name its bytes.
    const bool people = known != nullptr && known->item != options.item && known->format != Format::kHex;
    return answer(context, json, people ? decoded(known->format, value) + "\n" : hex_dump(context.out, value));
}

int run_get(const Context &context, const ReadOptions &options) {
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    const Item &item = snapshot.item(options.item);
    if (item.online && !item.ready) {
        throw Failure(item.name + " is not ready: " + std::string(word_of(item.condition).word),
                      (snapshot.board.role == "master" ? ""
                                                       : "The role of this controller is " + snapshot.board.role +
                                                             ", and the master loads them all. ") +
                          look_advice(item));
    }
    return deliver(context, options, item.name, "memory", service.read_item(item.name, "ReadAsdMemData"));
}

int run_read(const Context &context, const ReadOptions &options) {
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    const Item &item = snapshot.item(options.item);
    return deliver(context, options, item.name, "chips", read_chips(service, item));
}

void add_read_command(CLI::App &app, Command &chosen, const char *name, const char *what,
                      int (*run)(const Context &, const ReadOptions &)) {
    const auto [command, options] = add_command(app, chosen, name, what, std::string(name) + " ASD26 --text", run);
    command->add_option("ITEM", options->item, "The item's name or label")->required();
    CLI::Option *const raw = command->add_flag("--raw", options->raw, "The bytes themselves");
    CLI::Option *const text = command->add_flag("--text", options->text, "As text, without what fills the record up");
    CLI::Option *const hex = command->add_flag("--hex", options->hex, "As one line of hexadecimal");
    raw->excludes(text)->excludes(hex);
    text->excludes(hex);
    command->add_option("-o,--output", options->output, "Save the bytes (or the text, or the line) in a file")
        ->type_name("FILE");
}

// ---- set ----

struct SetOptions {
    std::string item;
    std::string value; // as people write it
    std::string text;
    std::string hex;
    std::string file;
    bool equip = false;
    bool memory = false;
    bool truncate = false;
};

Bytes given_bytes(const SetOptions &options) {
    Bytes bytes;
    if (!options.file.empty()) {
        bytes = read_file(options.file, kLongestItem);
    } else if (!options.hex.empty()) {
        bytes = parse_hex(options.hex);
    } else if (!options.value.empty()) {
        const KnownItem *const known = known_named(options.item);
        if (known == nullptr) {
            throw WrongUsage("nothing is known of how values of " + options.item + " are written",
                             "Say --text, --hex or --file." + did_you_mean(options.item, known_labels()));
        }
        bytes = encoded(*known, options.value);
    } else {
        bytes.assign(options.text.begin(), options.text.end());
    }
    if (bytes.empty()) {
        throw WrongUsage("there is nothing to write",
                         "An item is blanked with --hex ff: the rest is filled up with 0xFF.");
    }
    return bytes;
}

// All Length bytes, so that what an item holds does not depend on how its method fills it up.
Bytes image_of(const Item &item, Bytes bytes, bool truncate) {
    if (bytes.size() > item.length && !truncate) {
        throw Failure(item.name + " takes " + counted(item.length, "byte") + " and " + std::to_string(bytes.size()) +
                          " are given",
                      "--truncate writes the first " + std::to_string(item.length) + ".");
    }
    bytes.resize(item.length, 0xFF);
    return bytes;
}

constexpr const char *kWrite = "WriteAtomStorageData";
constexpr const char *kEquipWrite = "EqWriteAtomStorageData";
constexpr const char *kMemoryWrite = "UpdateMemProperty";

constexpr const char *kCustomerBlock = "ASD_CCDB";

// The service keeps the next customer block to be stored beside the item, and its daily write puts that over whatever a
// method wrote. Only the command replaces it; the method then brings the same bytes to the chips without waiting.
void replace_pending_block(const Context &context, Service &service, BytesView image) {
    constexpr std::size_t kBlockSize = 128;
    constexpr std::uint8_t kNetfn = 0x32;
    constexpr std::uint8_t kCommand = 0xBC;
    if (const std::string role = service.role(); role != "master") {
        throw Failure(std::string(kCustomerBlock) + ": the role of this controller is " + role +
                          ", and the master stores its own block over what others write",
                      "Set it at the master; --memory changes the copy here alone.");
    }
    if (image.size() != kBlockSize) {
        throw Failure(std::string(kCustomerBlock) + " has " + counted(image.size(), "byte") +
                      " in this enclosure, and the command that sets it takes " + std::to_string(kBlockSize));
    }
    Bytes request = {0x00, 0x00, 0x80, 0x00, 0x2C};
    request.insert(request.end(), image.begin(), image.end());
    if (const std::uint8_t code = IpmiClient(context).request(kNetfn, kCommand, request).code; code != 0) {
        throw Failure("setting " + std::string(kCustomerBlock) + ": " + completion_text(code),
                      "It may be written just now: try again.");
    }
}

// A pair without a flag is written by the other method: this one would write both copies too, but refuse it then.
const char *method_of(const Item &item, const SetOptions &options) {
    return options.memory ? kMemoryWrite : options.equip || !can_be_read(item) ? kEquipWrite : kWrite;
}

std::string copy_text(const Chip &chip) {
    return chip.name + " on " + chip.part;
}

// What became of a pair of which one copy was not written. With a flag the service answers success.
Failure half_written(const Item &item, const char *method, bool first_failed) {
    const Chip &failed = first_failed ? item.chips.front() : item.chips.back();
    const Chip &written = first_failed ? item.chips.back() : item.chips.front();
    const std::string what = item.name + ": written to " + copy_text(written) + " alone; " + copy_text(failed) +
                             " failed with " + status_text(failed.error_code);
    if (method == kWrite) {
        return Failure(what,
                       std::string("Memory has the new value, and the check flag names this copy to the next start") +
                           (first_failed ? ", unless the last write before had reached the first copy alone" : "") +
                           ". Write it again once the part answers.");
    }
    return Failure(what,
                   "Memory keeps the value from before. " +
                       std::string(first_failed ? "The next start takes the first copy, which is the old one, if it "
                                                  "can be read then, else the new one."
                                                : "The next start takes the first copy, which is the new one.") +
                       " Write it again once the part answers.");
}

// Refuses to call written what is not on every part. For some parts the service answers success even when the write
// failed; the copies' error codes tell.
void check_written(const Item &item, const char *method, std::int32_t status) {
    const auto failed = [](const Chip &chip) { return chip.error_code != 0; };
    const auto count = method == kMemoryWrite ? 0 : std::ranges::count_if(item.chips, failed);
    if (count == 1 && is_pair(item)) {
        const bool first = failed(item.chips.front());
        if (status == (method == kWrite ? 0 : (first ? item.chips.front() : item.chips.back()).error_code)) {
            throw half_written(item, method, first);
        }
    }
    const std::string advice = "'asdctl show " + item.name + "' shows the state of its copies.";
    if (status != 0) {
        throw Failure("writing " + item.name + ": status " + status_text(status), advice);
    }
    if (count > 0) {
        throw Failure(item.name + ": the service accepted the bytes, but no part took them: " +
                          status_text(item.chips.front().error_code),
                      advice);
    }
}

std::string set_text(const Item &item, const SetOptions &options, std::size_t given) {
    const std::size_t written = std::min<std::size_t>(given, item.length);
    std::string text = item.name + ": " + counted(written, "byte") + " written to " +
                       (options.memory       ? "memory; the parts keep theirs"
                        : is_pair(item)      ? "both copies"
                        : item.chips.empty() ? "its part"
                                             : "its copy on " + item.chips.front().part);
    if (given < item.length) {
        text += "; the remaining " + std::to_string(item.length - given) + " are 0xFF";
    }
    if (given > item.length) {
        text += "; " + std::to_string(given - item.length) + " cut off";
    }
    return text + "\n";
}

// The item as it is after the write.
struct Stored {
    Item item;
    const char *method;
};

Stored store(const Context &context, Service &service, const Item &item, const SetOptions &options, BytesView image) {
    if (item.name == kCustomerBlock && !options.memory) {
        replace_pending_block(context, service, image);
    }
    const char *const method = method_of(item, options);
    const std::int32_t status = service.write_item(item.name, method, image);
    Stored stored{.item = service.snapshot().item(item.name), .method = method};
    check_written(stored.item, method, status);
    return stored;
}

int run_set(const Context &context, const SetOptions &options) {
    const bool as_shown = !options.value.empty(); // how that is, the service tells
    Bytes bytes = as_shown ? Bytes() : given_bytes(options);
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    bytes = as_shown ? given_bytes(options) : bytes;
    const Item &before = snapshot.item(options.item);
    const Bytes image = image_of(before, bytes, options.truncate);
    const auto [item, method] = store(context, service, before, options, image);
    Json chips = Json::array();
    for (const Chip &chip : item.chips) {
        chips.push_back({{"name", chip.name}, {"health", chip.health}, {"error_code", chip.error_code}});
    }
    const std::size_t written = std::min<std::size_t>(bytes.size(), item.length);
    return answer(context,
                  {{"item", item.name},
                   {"method", method},
                   {"written", written},
                   {"filled", item.length - written},
                   {"cut", bytes.size() - written},
                   {"chips", chips}},
                  set_text(item, options, bytes.size()));
}

void add_set_command(CLI::App &app, Command &chosen) {
    const auto [set, options] = add_command(app, chosen, "set", "Write an item to its parts",
                                            "set mac 02:00:5e:10:20:30\n  asdctl set ASD14 --text ACME", run_set);
    set->add_option("ITEM", options->item, "The item's name or label")->required();
    auto *const what = set->add_option_group("Value", "What to write; the rest of the item is filled up with 0xFF");
    what->add_option("VALUE", options->value, "As 'asdctl identity' shows it: 02:00:5e:10:20:30, a text, a code");
    what->add_option("--text", options->text, "This text")->type_name("TEXT");
    what->add_option("--hex", options->hex, "These bytes in hexadecimal")->type_name("HEX");
    what->add_option("--file", options->file, "This file's bytes; - for standard input")->type_name("FILE");
    what->require_option(1);
    CLI::Option *const equip =
        set->add_flag("--equip", options->equip, "Write both copies of a pair alike, without the check flag");
    set->add_flag("--memory", options->memory, "Change the copy in memory alone")->excludes(equip);
    set->add_flag("--truncate", options->truncate, "Cut off what is longer than the item");
}

// ---- clear, errcode ----

int run_clear(const Context &context, const std::string &name) {
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    const Item &item = snapshot.item(name);
    service.clear_item(item.name);
    const std::string chip = item.chips.empty() ? "its copy" : item.chips.front().name;
    return answer(context, {{"item", item.name}, {"cleared", true}},
                  item.name + ": zeros in memory, health and error code of " + chip +
                      " reset; the parts keep their bytes\n");
}

struct ErrcodeOptions {
    std::string chip;
    std::int32_t code = 0;
};

int run_errcode(const Context &context, const ErrcodeOptions &options) {
    Service service(context);
    const Snapshot snapshot = service.snapshot();
    const Chip &chip = snapshot.chip(options.chip);
    service.set_error_code(chip.name, options.code);
    return answer(context, {{"chip", chip.name}, {"error_code", options.code}, {"before", chip.error_code}},
                  chip.name + ": error code " + std::to_string(options.code) + " (was " +
                      std::to_string(chip.error_code) + ")\n");
}

} // namespace

void store_item(const Context &context, Service &service, const Item &item, BytesView value) {
    (void)store(context, service, item, {}, value);
}

void add_item_commands(CLI::App &app, Command &chosen) {
    add_read_command(app, chosen, "get", "An item's value in memory", run_get);
    add_read_command(app, chosen, "read", "An item's value on its parts", run_read);
    add_set_command(app, chosen);

    const auto [clear, item] = add_command(
        app, chosen, "clear", "Zero an item's value in memory; its parts keep theirs", "clear ASD14", run_clear);
    clear->add_option("ITEM", *item, "The item's name or label")->required();

    const auto [errcode, options] =
        add_command(app, chosen, "errcode", "Set a copy's error code", "errcode ASDDev14a 0", run_errcode);
    errcode->add_option("COPY", options->chip, "The copy's name")->required();
    errcode->add_option("CODE", options->code, "The error code; 0: none")->required()->type_name("NUMBER");
}

} // namespace asdctl
