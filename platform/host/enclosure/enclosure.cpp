// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "enclosure.h"

#include "atomic_file.h"
#include "json_document.h"
#include "json_section.h"
#include "known_items.h"
#include "places.h"
#include "record_format.h"
#include "records.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include <glib.h>

namespace asd_host {

namespace {

constexpr std::int64_t kLargestPage = 4096;
constexpr std::int64_t kHighestLine = 1023;
constexpr std::int64_t kHighestOffset = 65534; // the kernel counts a chip's lines in 16 bits
constexpr std::size_t kLongestName = 63;

constexpr NumberRange kByte = {.least = 0, .most = 255, .why = ""};
constexpr std::array<std::string_view, 3> kRoles = {"auto", "master", "slave"};
constexpr std::array<std::string_view, 2> kFirstValues = {"none", "erased"};
constexpr std::array<std::string_view, 2> kPartKinds = {"image", "device"};
constexpr auto kOptional = JsonSection::kOptional;
constexpr auto kRequired = JsonSection::kRequired;

using Number = std::optional<std::int64_t>;

// Where each part, chip and item was written, in the order of Enclosure's vectors, and the numbers that are compared:
// a number that is a mistake already takes part in no comparison.
struct Written {
    struct Entry {
        const JsonNode *node;
        Number number; // a line's, a part's size, a chip's offset, an item's number
    };
    std::vector<Entry> gpio_lines;
    std::vector<Entry> parts;
    std::vector<Entry> chips;
    std::vector<Entry> items;
};

template <typename Integer>
Integer to(const Number &number, Integer fallback) {
    return number ? static_cast<Integer>(*number) : fallback;
}

// The node of a key that may be missing: then the object itself.
const JsonNode &place_of(const JsonNode &object, std::string_view key) {
    const JsonNode *node = object.find(key);
    return node == nullptr ? object : *node;
}

// Names become parts of D-Bus object paths and of log lines.
std::string read_name(JsonSection &section, const JsonNode &node, JsonMistakes &mistakes) {
    std::string name = section.text("Name", kRequired);
    const JsonNode *written = node.find("Name");
    if (written == nullptr || written->kind != JsonNode::Kind::kText) {
        return name;
    }
    const bool plain = std::ranges::all_of(name, [](char c) { return g_ascii_isalnum(c) || c == '_'; });
    if (name.empty() || name.size() > kLongestName || !plain) {
        mistakes.add(*written, "is " + in_quotes(name) + "; must be 1 to " + std::to_string(kLongestName) +
                                   " letters, digits and underscores");
    }
    return name;
}

// ---- the file's sections

BoardFacts read_board(const JsonNode *node, JsonMistakes &mistakes) {
    JsonSection section(node, &mistakes);
    BoardFacts board;
    board.management_module = section.flag("ManagementModule", board.management_module);
    board.manufacturing_build = section.flag("ManufacturingBuild", board.manufacturing_build);
    board.four_u_four_controller = section.flag("FourUFourController", board.four_u_four_controller);
    board.equipment_frame = section.flag("EquipmentFrame", board.equipment_frame);
    board.tarn_four_u_four_controller = section.flag("TarnFourUFourController", board.tarn_four_u_four_controller);
    board.two_u_expansion = section.flag("TwoUExpansion", board.two_u_expansion);
    board.backplane_eeproms =
        to(section.number("BackplaneEeproms", {.least = 0, .most = 8, .why = ""}, kOptional), board.backplane_eeproms);
    const std::vector<JsonNode> &models = section.array("PcieSasModels", kOptional);
    if (!models.empty()) {
        board.pcie_sas_models.clear();
    }
    for (const JsonNode &model : models) {
        board.pcie_sas_models.push_back(to<std::uint8_t>(number_of(model, kByte, mistakes), 0));
    }
    section.finish();
    return board;
}

DeviceIdentity read_device(const JsonNode *node, JsonMistakes &mistakes) {
    JsonSection section(node, &mistakes);
    const auto number = [&section](std::string_view key, std::int64_t most) {
        return section.number(key, {.least = 0, .most = most, .why = ""}, kOptional);
    };
    DeviceIdentity device;
    device.device_id = to(number("DeviceId", 255), device.device_id);
    device.device_revision = to(number("DeviceRevision", 15), device.device_revision);
    device.firmware_major = to(number("FirmwareMajor", 127), device.firmware_major);
    // People write 12 for the .12 of a version; the answer carries it as two decimal digits.
    const auto minor = to<std::uint8_t>(number("FirmwareMinor", 99), 1);
    device.firmware_minor = static_cast<std::uint8_t>(minor / 10 * 16 + minor % 10);
    device.manufacturer_id = to(number("ManufacturerId", 0xFFFFF), device.manufacturer_id);
    device.product_id = to(number("ProductId", 0xFFFF), device.product_id);
    section.finish();
    return device;
}

// Exactly one of Offset and Name says which of the chip's lines it is.
GpioLineConfig read_gpio_line(const JsonNode &node, JsonMistakes &mistakes, std::vector<Written::Entry> &written) {
    JsonSection section(&node, &mistakes);
    GpioLineConfig line;
    const Number number = section.number("Line", {.least = 0, .most = kHighestLine, .why = ""}, kRequired);
    line.line = to(number, line.line);
    line.chip = section.text("Chip", kRequired);
    const JsonNode *name = node.find("Name");
    const Number offset = section.number("Offset", {.least = 0, .most = kHighestOffset, .why = ""},
                                         name == nullptr ? kRequired : kOptional);
    if (offset) {
        line.offset = static_cast<std::uint32_t>(*offset);
    }
    line.name = section.text("Name", kOptional);
    if (name != nullptr && node.find("Offset") != nullptr) {
        mistakes.add(*name, "stands beside \"Offset\"; keep the one by which the line is to be found");
    }
    line.active_low = section.flag("ActiveLow", false);
    for (const char *key : {"Chip", "Name"}) {
        const JsonNode *text = node.find(key);
        if (text != nullptr && text->kind == JsonNode::Kind::kText && text->text.empty()) {
            mistakes.add(*text, "is empty; gpioinfo lists the chips and their lines");
        }
    }
    section.finish();
    written.push_back({.node = &node, .number = number});
    return line;
}

void check_part_file(const PartConfig &part, const JsonNode &written, JsonMistakes &mistakes) {
    if (!part.file.has_filename()) {
        mistakes.add(written, "is " + in_quotes(part.file.native()) + "; must be the path of a file");
        return;
    }
    if (std::ranges::find(part.file, "..") != part.file.end()) {
        mistakes.add(written, "is " + in_quotes(part.file.native()) +
                                  "; must stay in the state folder (no \"..\") or be an absolute path");
    }
    const std::string first = part.file.lexically_normal().begin()->native();
    if (is_taken(part.shared ? Folder::kState : Folder::kSlotState, first)) {
        mistakes.add(written,
                     "is " + in_quotes(part.file.native()) + ", where the service keeps its own; choose another name");
    }
}

PartConfig read_part(const JsonNode &node, JsonMistakes &mistakes, std::vector<Written::Entry> &written) {
    JsonSection section(&node, &mistakes);
    PartConfig part;
    part.name = read_name(section, node, mistakes);
    part.kind = section.choice("Kind", kPartKinds, 0) == 0 ? PartKind::kImage : PartKind::kDevice;
    part.file = section.text("File", kRequired);
    part.shared = section.flag("Shared", false);
    if (const JsonNode *file = node.find("File"); file != nullptr && file->kind == JsonNode::Kind::kText) {
        check_part_file(part, *file, mistakes);
    }
    const Number size = section.number("Size", {.least = 1, .most = kLargestPart, .why = ""}, kRequired);
    part.size = to(size, part.size);
    part.page_size = to(section.number("PageSize", {.least = 1, .most = kLargestPage, .why = ""}, kRequired), 1U);
    if (!std::has_single_bit(part.page_size)) {
        mistakes.add(*node.find("PageSize"), "is " + std::to_string(part.page_size) +
                                                 "; must be a power of two, such as " +
                                                 std::to_string(std::bit_floor(part.page_size)));
    }
    part.write_cycle_us =
        to(section.number("WriteCycleUs", {.least = 0, .most = 100000, .why = ""}, kOptional), part.write_cycle_us);
    const Number line = section.number("WriteProtectLine", {.least = 0, .most = kHighestLine, .why = ""}, kOptional);
    if (line) {
        part.write_protect_line = static_cast<std::uint32_t>(*line);
    }
    section.finish();
    written.push_back({.node = &node, .number = size});
    return part;
}

ChipConfig read_chip(const JsonNode &node, JsonMistakes &mistakes, std::vector<Written::Entry> &written) {
    JsonSection section(&node, &mistakes);
    ChipConfig chip;
    chip.name = read_name(section, node, mistakes);
    chip.part = section.text("Part", kRequired);
    const Number offset = section.number("Offset", {.least = 0, .most = kLargestPart - 1, .why = ""}, kRequired);
    chip.offset = to(offset, chip.offset);
    constexpr NumberRange kRetries = {
        .least = 1, .most = 100, .why = "without an attempt a read gives zeros and never touches the chip"};
    chip.retry_number = to(section.number("RetryNumber", kRetries, kOptional), chip.retry_number);
    chip.stg_wp = section.flag("StgWp", false) ? 1 : 0;
    chip.stg_is_wp = section.flag("StgIsWp", false) ? 1 : 0;
    section.finish();
    written.push_back({.node = &node, .number = offset});
    return chip;
}

constexpr std::size_t kLongestLabel = 31;

// Operators type labels beside commands and options.
std::string read_label(JsonSection &section, const JsonNode &node, const std::string &usual, JsonMistakes &mistakes) {
    std::string label = section.text("Label", kOptional);
    const JsonNode *const written = node.find("Label");
    if (written == nullptr || written->kind != JsonNode::Kind::kText) {
        return usual;
    }
    const auto plain = [](char c) { return g_ascii_islower(c) || g_ascii_isdigit(c) || c == '-'; };
    if (label.empty() || label.size() > kLongestLabel || !g_ascii_islower(label.front()) ||
        !std::ranges::all_of(label, plain)) {
        mistakes.add(*written, "is " + in_quotes(label) + "; must be a lower-case letter and up to " +
                                   std::to_string(kLongestLabel - 1) + " more, digits or dashes");
    }
    return label;
}

// A format of fixed length on an item of another one could show no value and take none.
void check_format(const ItemConfig &item, const JsonNode &node, JsonMistakes &mistakes) {
    const std::uint32_t length = item.format == "mac" ? 6 : item.format == "model" ? 4 : item.length;
    if (item.length != length && node.find("Format") != nullptr) {
        mistakes.add(*node.find("Format"), "is " + in_quotes(item.format) + ", which has " + std::to_string(length) +
                                               " bytes, and Length is " + std::to_string(item.length));
    }
}

ItemConfig read_item(const JsonNode &node, JsonMistakes &mistakes, std::vector<Written::Entry> &written) {
    JsonSection section(&node, &mistakes);
    ItemConfig item;
    item.name = read_name(section, node, mistakes);
    const Number num = section.number("Num", kByte, kRequired);
    item.num = to(num, item.num);
    item.length = to(section.number("Length", {.least = 1, .most = kLongestItem, .why = ""}, kRequired), item.length);
    item.online = section.flag("Online", true) ? 1 : 0;
    item.need_sync = section.flag("NeedSync", false);
    item.erased_value = section.choice("Value", kFirstValues, 0) == 1;
    item.confidential =
        section.flag("Confidential", std::ranges::find(kKeyPlaces, item.name, &KeyPlace::item) != kKeyPlaces.end());
    const KnownItem *const known = known_item(item.name);
    item.label = read_label(section, node, std::string(label_of(item.name)), mistakes);
    const auto usual = static_cast<std::size_t>(known == nullptr ? Format::kHex : known->format);
    item.format = kFormatNames[section.choice("Format", kFormatNames, usual)];
    check_format(item, node, mistakes);
    item.chips.push_back(section.text(kChipKeys[0], kRequired));
    if (std::string second = section.text(kChipKeys[1], kOptional); node.find(kChipKeys[1]) != nullptr) {
        item.chips.push_back(std::move(second));
    }
    section.finish();
    written.push_back({.node = &node, .number = num});
    return item;
}

// ---- what must fit together

struct Keyed {
    std::string value;
    const JsonNode *node;
};

void report_duplicates(const std::vector<Keyed> &entries, std::string_view key, std::string_view rule,
                       JsonMistakes &mistakes) {
    std::map<std::string_view, const JsonNode *> first;
    for (const auto &[value, node] : entries) {
        if (value.empty()) {
            continue; // a mistake already
        }
        const auto [earlier, is_new] = first.emplace(value, node);
        if (!is_new) {
            mistakes.add(place_of(*node, key), "is " + value + ", as in line " +
                                                   std::to_string(place_of(*earlier->second, key).line) + "; " +
                                                   std::string(rule));
        }
    }
}

void check_names(const Enclosure &enclosure, const Written &written, JsonMistakes &mistakes) {
    const auto shown = [](const std::string &text) { return text.empty() ? text : in_quotes(text); };
    std::vector<Keyed> objects;
    std::vector<Keyed> nums;
    std::vector<Keyed> labels;
    std::vector<Keyed> parts;
    std::vector<Keyed> shared_files;
    std::vector<Keyed> slot_files;
    for (std::size_t i = 0; i < enclosure.parts.size(); ++i) {
        const PartConfig &part = enclosure.parts[i];
        const bool of_slot = part.file.is_relative() && !part.shared;
        parts.push_back({shown(part.name), written.parts[i].node});
        (of_slot ? slot_files : shared_files)
            .push_back({shown(part.file.lexically_normal().native()), written.parts[i].node});
    }
    for (std::size_t i = 0; i < enclosure.chips.size(); ++i) {
        objects.push_back({shown(enclosure.chips[i].name), written.chips[i].node});
    }
    for (std::size_t i = 0; i < enclosure.items.size(); ++i) {
        const Written::Entry &entry = written.items[i];
        objects.push_back({shown(enclosure.items[i].name), entry.node});
        labels.push_back({shown(enclosure.items[i].label), entry.node});
        nums.push_back({entry.number ? std::to_string(*entry.number) : "", entry.node});
    }
    report_duplicates(parts, "Name", "each part needs a name of its own", mistakes);
    report_duplicates(shared_files, "File", "each part needs a file of its own", mistakes);
    report_duplicates(slot_files, "File", "each part needs a file of its own", mistakes);
    report_duplicates(objects, "Name", "an item or chip needs a name that no other item or chip has", mistakes);
    report_duplicates(labels, "Label", "each item needs a label of its own, and well-known items have theirs",
                      mistakes);
    report_duplicates(nums, "Num", "each item needs a number of its own", mistakes);
}

void check_gpio_lines(const Enclosure &enclosure, const Written &written, JsonMistakes &mistakes) {
    std::vector<Keyed> numbers;
    std::vector<Keyed> offsets;
    std::vector<Keyed> names;
    for (std::size_t i = 0; i < enclosure.gpio_lines.size(); ++i) {
        const GpioLineConfig &line = enclosure.gpio_lines[i];
        const Written::Entry &entry = written.gpio_lines[i];
        numbers.push_back({entry.number ? std::to_string(*entry.number) : "", entry.node});
        // A chip is known by its path and by its name.
        const std::string chip = " of " + in_quotes(line.chip.substr(line.chip.starts_with("/dev/") ? 5 : 0));
        offsets.push_back({line.offset ? std::to_string(*line.offset) + chip : "", entry.node});
        names.push_back({line.name.empty() ? "" : in_quotes(line.name) + chip, entry.node});
    }
    report_duplicates(numbers, "Line", "each line is at one place", mistakes);
    report_duplicates(offsets, "Offset", "each line needs a place of its own", mistakes);
    report_duplicates(names, "Name", "each line needs a place of its own", mistakes);
}

// The index of the entry of that name.
template <typename Config>
std::optional<std::size_t> index_of(const std::vector<Config> &entries, std::string_view name) {
    const auto found = std::ranges::find(entries, name, &Config::name);
    return found == entries.end() ? std::nullopt : std::optional(static_cast<std::size_t>(found - entries.begin()));
}

// Says that object's key names nothing; returns the name that was probably meant, else an empty text.
template <typename Config>
std::string report_unknown(const std::vector<Config> &entries, const JsonNode &object, std::string_view key,
                           std::string_view kind, JsonMistakes &mistakes) {
    const JsonNode *written = object.find(key);
    if (written == nullptr || written->kind != JsonNode::Kind::kText) {
        return {}; // a mistake already
    }
    std::vector<std::string> names;
    std::ranges::transform(entries, std::back_inserter(names), &Config::name);
    std::string meant = nearest(written->text, names);
    mistakes.add(*written, "there is no " + std::string(kind) + " " + in_quotes(written->text) + "; " +
                               (meant.empty() ? "add it" : "did you mean " + in_quotes(meant) + "?"));
    return meant;
}

// One record on a part.
struct Record {
    std::uint64_t start;
    std::uint64_t end; // the byte behind it
    std::string_view chip_name;
    std::string_view item_name;
    const JsonNode *chip;
};

std::string shown(const Record &record) {
    return in_quotes(record.chip_name) + " (item " + in_quotes(record.item_name) + ", bytes " +
           std::to_string(record.start) + " to " + std::to_string(record.end - 1) + ")";
}

void check_end(const Record &record, const PartConfig &part, JsonMistakes &mistakes) {
    if (part.size == 0 || record.end <= part.size) {
        return; // size 0: a mistake already
    }
    const std::uint64_t length = record.end - record.start;
    std::string what = "the record of " + shown(record) + " runs past the end of part " + in_quotes(part.name) + " (" +
                       std::to_string(part.size) + " bytes); ";
    what += length <= part.size ? "the highest Offset that fits is " + std::to_string(part.size - length)
                                : "it needs a larger part";
    mistakes.add(place_of(*record.chip, "Offset"), what);
}

void check_records(const PartConfig &part, std::vector<Record> records, JsonMistakes &mistakes) {
    std::ranges::stable_sort(records, {}, &Record::start);
    const Record *furthest = nullptr; // of the records before, the one that reaches furthest
    for (const Record &record : records) {
        check_end(record, part, mistakes);
        if (furthest != nullptr && record.start < furthest->end) {
            mistakes.add(place_of(*record.chip, "Offset"),
                         "the record of " + shown(record) + " overlaps that of " + shown(*furthest) + " on part " +
                             in_quotes(part.name) + "; the first byte behind that is " + std::to_string(furthest->end));
        }
        if (furthest == nullptr || record.end > furthest->end) {
            furthest = &record;
        }
    }
}

// The references between items, chips and parts.
class References {
public:
    References(const Enclosure &enclosure, const Written &written, JsonMistakes &mistakes)
        : enclosure_(enclosure), written_(written), mistakes_(mistakes), users_(enclosure.chips.size(), nullptr),
          records_(enclosure.parts.size()) {}

    void check() {
        for (std::size_t i = 0; i < enclosure_.items.size(); ++i) {
            for (std::size_t copy = 0; copy < enclosure_.items[i].chips.size(); ++copy) {
                check_reference(enclosure_.items[i], *written_.items[i].node, copy);
            }
        }
        for (std::size_t i = 0; i < enclosure_.chips.size(); ++i) {
            check_chip(i);
        }
        for (std::size_t i = 0; i < enclosure_.parts.size(); ++i) {
            check_records(enclosure_.parts[i], std::move(records_[i]), mistakes_);
        }
    }

private:
    void check_reference(const ItemConfig &item, const JsonNode &node, std::size_t copy) {
        const auto chip = index_of(enclosure_.chips, item.chips[copy]);
        if (!chip) {
            meant_.insert(report_unknown(enclosure_.chips, node, kChipKeys[copy], "chip", mistakes_));
            return;
        }
        const ItemConfig *&user = users_[*chip];
        if (user == nullptr) {
            user = &item;
            return;
        }
        const JsonNode &place = place_of(node, kChipKeys[copy]);
        if (user == &item) {
            mistakes_.add(place, "names the chip " + in_quotes(item.chips[copy]) +
                                     " a second time; the second copy needs a chip of its own");
            return;
        }
        mistakes_.add(place, "the chip " + in_quotes(item.chips[copy]) + " holds the record of " +
                                 in_quotes(user->name) + "; each item needs chips of its own");
    }

    void check_chip(std::size_t index) {
        const ChipConfig &chip = enclosure_.chips[index];
        const auto &[node, offset] = written_.chips[index];
        const auto part = index_of(enclosure_.parts, chip.part);
        if (!part) {
            (void)report_unknown(enclosure_.parts, *node, "Part", "part", mistakes_);
        }
        const ItemConfig *user = users_[index];
        if (user == nullptr && !meant_.contains(chip.name)) {
            mistakes_.add(*node, "no item uses the chip " + in_quotes(chip.name) + "; remove it or name it in an item");
        }
        if (user == nullptr || !part || !offset || user->length == 0) {
            return;
        }
        const std::uint64_t start = chip.offset;
        records_[*part].push_back({.start = start,
                                   .end = start + user->length + kChecksumSize,
                                   .chip_name = chip.name,
                                   .item_name = user->name,
                                   .chip = node});
    }

    const Enclosure &enclosure_;
    const Written &written_;
    JsonMistakes &mistakes_;
    std::vector<const ItemConfig *> users_;    // of each chip
    std::set<std::string> meant_;              // chips that a misspelt reference probably means
    std::vector<std::vector<Record>> records_; // on each part
};

// ---- the whole

Enclosure read_enclosure(const JsonNode &root, JsonMistakes &mistakes) {
    Enclosure enclosure;
    Written written;
    JsonSection section(&root, &mistakes);
    (void)section.any("$schema"); // for editors
    enclosure.name = section.text("Name", kRequired);
    enclosure.role = std::array{Role::kAuto, Role::kMaster, Role::kSlave}[section.choice("Role", kRoles, 0)];
    enclosure.ipmi_privilege =
        to(section.number("IpmiPrivilege", {.least = 1, .most = 4, .why = ""}, kOptional), enclosure.ipmi_privilege);
    enclosure.session_privilege = to(section.number("SessionPrivilege", {.least = 1, .most = 4, .why = ""}, kOptional),
                                     enclosure.session_privilege);
    enclosure.board = read_board(section.any("Board"), mistakes);
    enclosure.device = read_device(section.any("Device"), mistakes);
    for (const JsonNode &node : section.array("GpioLines", kOptional)) {
        enclosure.gpio_lines.push_back(read_gpio_line(node, mistakes, written.gpio_lines));
    }
    for (const JsonNode &node : section.array("Parts", kRequired)) {
        enclosure.parts.push_back(read_part(node, mistakes, written.parts));
    }
    for (const JsonNode &node : section.array("Chips", kRequired)) {
        enclosure.chips.push_back(read_chip(node, mistakes, written.chips));
    }
    for (const JsonNode &node : section.array("Items", kRequired)) {
        enclosure.items.push_back(read_item(node, mistakes, written.items));
    }
    enclosure.inventory = read_inventory(section.any("Inventory"), enclosure.items, mistakes);
    section.finish();
    check_gpio_lines(enclosure, written, mistakes);
    check_names(enclosure, written, mistakes);
    References(enclosure, written, mistakes).check();
    return enclosure;
}

} // namespace

LoadedEnclosure load_enclosure(const std::filesystem::path &file) {
    JsonMistakes mistakes(file.native());
    std::error_code no_size; // reading says more about it
    if (const std::uintmax_t size = std::filesystem::file_size(file, no_size); !no_size && size > kLargestEnclosure) {
        mistakes.add(1, "",
                     "has " + std::to_string(size) + " bytes; an enclosure file has at most " +
                         std::to_string(kLargestEnclosure));
        return {.enclosure = std::nullopt, .mistakes = mistakes.lines()};
    }
    int error = 0;
    const auto bytes = read_file(file, &error);
    if (!bytes) {
        return {.enclosure = std::nullopt,
                .mistakes = {file.native() + ": cannot be read: " + std::strerror(error) +
                             "; name an enclosure file with --config"}};
    }
    const std::string text(bytes->begin(), bytes->end());
    const auto root = parse_json(text, mistakes);
    if (!root) {
        return {.enclosure = std::nullopt, .mistakes = mistakes.lines()};
    }
    Enclosure enclosure = read_enclosure(*root, mistakes);
    if (!mistakes.empty()) {
        return {.enclosure = std::nullopt, .mistakes = mistakes.lines()};
    }
    return {.enclosure = std::move(enclosure), .mistakes = {}};
}

} // namespace asd_host
