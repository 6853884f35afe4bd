// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "sweep.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

namespace {

// ---- What a transcript shows ---------------------------------------------------------------------------------------

constexpr gint32 kInjected = 6; // bit 0 is clear, so that a status that a bad checksum was added to shows
// clang-format off
const std::set<gint32> kStatuses = {
    0, 1, -1, -1001, -1005, -1006, -1007, -1008, -1012, -1014, -1016, -1017, -1018, -1019, 0xFF,
    kInjected, kInjected | 1, 0x20006, 0x20007, fake::kNotFound, fake::kTimedOut, fake::kRefused};
// clang-format on
const std::set<guint8> kCodes = {0x00, 0x80, 0xC1, 0xC7, 0xC9, 0xCA, 0xCC, 0xCE, 0xD6, 0xE0, 0xFF};

std::string hash_of(const std::string &text) {
    const std::unique_ptr<gchar, decltype(&g_free)> hash(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar *>(text.data()), text.size()),
        g_free);
    return std::string(hash.get()).substr(0, 16);
}

// One line whatever bytes a log carries; the tick at which it was written is not the module's to choose.
std::string line_of(const fake::Event &event) {
    const std::unique_ptr<gchar, decltype(&g_free)> escaped(g_strescape(event.line.c_str(), "\"\\"), g_free);
    std::string line = escaped.get();
    if (!event.operation.empty()) {
        return line;
    }
    const std::string tick = std::to_string(event.tick);
    if (const std::size_t place = line.find(tick); place != std::string::npos) {
        line.replace(place, tick.size(), "TICK");
    }
    if (const std::size_t place = line.find("(line:"); place != std::string::npos) {
        line.replace(place + 6, line.find(')', place) - place - 6, "N");
    }
    return "| " + line;
}

// The lines from one event on; one that follows itself is told once.
std::string lines_of(const std::vector<fake::Event> &events, std::size_t from) {
    std::string text;
    for (std::size_t i = from; i < events.size();) {
        std::size_t next = i + 1;
        while (next < events.size() && events[next].line == events[i].line) {
            ++next;
        }
        text += "    " + line_of(events[i]) + (next - i > 1 ? " x" + std::to_string(next - i) : "") + "\n";
        i = next;
    }
    return text;
}

// ---- What an operation may leave -----------------------------------------------------------------------------------

using Facts = std::map<std::string, Bytes>;

Bytes number_bytes(guint64 number) {
    Bytes bytes;
    for (; number != 0; number >>= 8U) {
        bytes.insert(bytes.begin(), static_cast<guint8>(number & 0xFFU));
    }
    return bytes;
}

Bytes bytes_of(const asd_host::PropertyValue &value) {
    if (const auto *code = std::get_if<gint32>(&value); code != nullptr) {
        const auto *first = reinterpret_cast<const guint8 *>(code);
        return {first, first + sizeof *code};
    }
    const auto *byte = std::get_if<guint8>(&value);
    return byte != nullptr ? Bytes{*byte} : std::get<Bytes>(value);
}

Facts facts() {
    Facts all;
    const asd_host::ObjectStore &objects = *fake::world().objects;
    for (OBJ_HANDLE handle = 1; objects.name_of(handle) != nullptr; ++handle) {
        for (const char *property : {"Value", "Ready", "Health", "ErrorCode", "StgWp"}) {
            asd_host::PropertyValue value;
            if (objects.get(handle, property, &value) == 0) {
                all[*objects.name_of(handle) + "." + property] = bytes_of(value);
            }
        }
    }
    for (const auto &[name, part] : fake::world().parts) {
        all["part " + name] = *part;
    }
    const fake::Board &board = fake::world().board;
    all["CPLD WWN"] = board.wwn;
    all["CPLD frame model"] = board.frame_model;
    all["CPLD product info"] = board.product_info;
    all["CPLD PCIe model"] = board.pcie_model.has_value() ? Bytes{*board.pcie_model} : Bytes{};
    for (const auto &[parameter, bytes] : board.flash) {
        all["flash " + std::to_string(parameter)] = bytes;
    }
    for (const auto &[address, byte] : board.cpld_ram) {
        all["CPLD " + std::to_string(address)] = {byte};
    }
    for (const fake::SentRequest &sent : fake::world().sent) {
        Bytes &bytes = all["sent to " + std::to_string(sent.slot)];
        bytes = joined(bytes, joined({sent.target_type, sent.lun, sent.netfn, sent.cmd}, sent.data));
    }
    Bytes keys(kEkeySize);
    g_ekey_buffer.load(0, keys);
    all["key buffer"] = keys;
    all["pending block"] = {AsdGetGCcdbSetData(), AsdGetGCcdbSetData() + kCcdbSize};
    all["block requested"] = {AsdGetGCcdbSetEn()};
    all["role"] = number_bytes(g_masterMode);
    return all;
}

// Of a part only the bytes that changed, so that a record's neighbours show.
std::string change_of(const std::string &name, const Bytes &before, const Bytes &after) {
    if (!name.starts_with("part ") || before.size() != after.size()) {
        return shown(after);
    }
    const auto first = std::ranges::mismatch(before, after).in1 - before.begin();
    const auto last = std::mismatch(before.rbegin(), before.rend(), after.rbegin()).first.base() - before.begin();
    return std::to_string(first) + ": " + shown({after.begin() + first, after.begin() + last});
}

std::string left_of(const Facts &before, const Facts &after) {
    std::string text;
    for (const auto &[name, bytes] : after) {
        const auto found = before.find(name);
        if (found == before.end() ? !bytes.empty() : found->second != bytes) {
            text += "    left: " + name + " = " +
                    change_of(name, found == before.end() ? Bytes{} : found->second, bytes) + "\n";
        }
    }
    return text;
}

// ---- What must hold ------------------------------------------------------------------------------------------------

// A chip's record is what it was or what was written last, whole, and nothing else on the part changed.
void expect_whole_records(const Facts &before, const Facts &after) {
    for (const auto &[handle, chip] : fake::world().chips) {
        const std::string &name = *fake::world().objects->name_of(handle);
        const Bytes &was = before.at("part " + name);
        const Bytes &is = after.at("part " + name);
        std::size_t length = 0; // of the last write
        const std::string write = "dfl_block_write " + name + " 64 ";
        for (const fake::Event &event : fake::world().events) {
            length = event.line.starts_with(write) ? std::stoul(event.line.substr(write.size())) : length;
        }
        EXPECT_TRUE(std::equal(was.begin(), was.begin() + 64, is.begin())) << "before the record of " << name;
        EXPECT_TRUE(std::equal(was.begin() + 64 + static_cast<std::ptrdiff_t>(length), was.end(),
                               is.begin() + 64 + static_cast<std::ptrdiff_t>(length)))
            << "behind the record of " << name;
        if (was != is) {
            const Bytes data = part_of(is, 64, length - 2);
            EXPECT_EQ(part_of(is, 64, length), fake::record(data)) << "on " << name;
        }
    }
}

bool starts_with_any(const std::string &text, std::initializer_list<const char *> starts) {
    return std::ranges::any_of(starts, [&](const char *start) { return text.starts_with(start); });
}

// hit: the call that failed, empty if none did.
void expect_order(const SweepAnswer &answer, const Facts &before, const Facts &after, const std::string &hit) {
    EXPECT_TRUE(answer.known) << "no code or status of the module's: " << answer.text;
    EXPECT_EQ(fake::world().violations, Texts{});
    EXPECT_EQ(fake::semaphores(true), Texts{});
    if (!starts_with_any(hit, {"gpio_", "BSP_IsTarn4U4CBoard"})) { // the latter says which line it is
        for (const auto &[line, level] : fake::world().board.lines) {
            EXPECT_EQ(level, 0U) << "line " << line << " left open";
        }
    }
    // A card's protection needs lookups of its own; when they fail, that is the answer.
    if (hit.find(".StgWp") == std::string::npos &&
        (hit.find("Bucklecard") == std::string::npos || answer.outcome == "0")) {
        for (const auto &[name, bytes] : after) {
            EXPECT_TRUE(!name.ends_with(".StgWp") || bytes == before.at(name)) << name;
        }
    }
    if (!starts_with_any(hit, {"memcpy_s", "memset_s"})) { // a copy that failed is logged, and the zeros are written
        expect_whole_records(before, after);
    }
}

// ---- Runs ----------------------------------------------------------------------------------------------------------

struct Disturbance {
    std::string name; // empty: none
    Arrange apply = kAsBuilt;
    std::string hit = {};      // the call that fails
    std::size_t from = 0;      // its place among the events
    bool told_in_full = false; // else from there on
    bool spoils = false;       // data, whatever the answer
};

struct Run {
    SweepAnswer answer;
    std::vector<fake::Event> events;
    std::string left;
};

// Ticks never go back, and between two runs the longest quiet time passes: each message is printed as if for the first
// time.
guint64 next_start() {
    constexpr guint64 kApart = 4'000'000;
    static guint64 last = 0;
    last = std::max(last, fake::world().ticks) / kApart * kApart + kApart;
    last = last > 3'800'000'000 ? kApart : last; // the module counts in 32 bits, and the counter's wrap has tests
    return last;
}

// original: the undisturbed answer; null in the undisturbed run.
Run run_once(const SweepCase &row, const Disturbance &disturbance, const SweepAnswer *original) {
    const guint64 start = next_start();
    fresh_world();
    fake::world().ticks = start;
    fake::world().board.four_u = 1;
    row.build();
    fake::clear_journal();
    const std::vector<fake::Fault> own = fake::world().faults; // of this world, whatever comes on top
    disturbance.apply();
    const Facts before = facts();
    Run run{.answer = row.run(), .events = fake::world().events, .left = {}};
    const Facts after = facts();
    run.left = left_of(before, after);
    expect_order(run.answer, before, after, disturbance.hit);
    if (original != nullptr) {
        fake::lift_faults();
        fake::world().faults = own;
        const SweepAnswer again = row.run();
        // What a bad copy or a flipped bit left in memory is there still.
        const bool spoils = disturbance.spoils || starts_with_any(disturbance.hit, {"memcpy_s", "memset_s"});
        EXPECT_EQ(spoils ? again.outcome : again.text, spoils ? original->outcome : original->text)
            << "afterwards, undisturbed";
    }
    return run;
}

std::vector<Disturbance> failing_calls(const std::vector<fake::Event> &events) {
    std::vector<Disturbance> all;
    guint32 nth = 0;
    guint32 looks = 0; // at a request's data
    for (std::size_t i = 0; i < events.size(); ++i) {
        const std::string &operation = events[i].operation;
        if (operation.empty()) {
            continue;
        }
        ++nth;
        if (operation == "vos_task_delay" || operation == "vos_thread_sem4_v") {
            continue; // nothing follows from their results
        }
        if (operation == "get_ipmi_src_data" && ++looks > 2) {
            continue; // nor is it looked at once more whether a message still has the data that it had twice
        }
        const auto add = [&](const char *name, const fake::Fault &fault) {
            all.push_back({.name = std::string(name) + ": " + line_of(events[i]),
                           .apply = [=] { fake::inject(fault); },
                           .hit = events[i].line,
                           .from = i,
                           .spoils = fault.flips_bit});
        };
        add("fails", {.status = kInjected, .nth = nth});
        add("fails for good", {.status = kInjected, .nth = nth, .sticks = true});
        if (operation == "dfl_block_read") {
            add("one bit flips", {.nth = nth, .flips_bit = true});
            add("one bit flips for good", {.nth = nth, .flips_bit = true, .sticks = true});
        }
        if (operation == "dfl_get_property_value") {
            add("gives another type", {.nth = nth, .mistyped = true});
        }
    }
    return all;
}

std::vector<Disturbance> held_locks(const std::vector<fake::Event> &events) {
    std::vector<Disturbance> all;
    std::set<std::string> seen;
    for (const fake::Event &event : events) {
        std::istringstream words(event.line);
        std::string operation;
        std::string lock;
        std::string timeout;
        words >> operation >> lock >> timeout;
        // One that is waited for without a limit would be waited for for ever.
        if (operation == "vos_thread_sem4_p" && timeout != "0" && seen.insert(lock).second) {
            all.push_back({.name = "held by others: " + lock,
                           .apply = [=] { fake::hold_semaphore(lock); },
                           .told_in_full = true});
        }
    }
    return all;
}

std::string told(const Run &run, std::size_t from) {
    return lines_of(run.events, from) + run.left + "    -> " + run.answer.text + "\n";
}

struct Transcript {
    std::string text;
    std::size_t runs = 0;
};

void sweep_case(const SweepCase &row, Transcript *transcript) {
    SCOPED_TRACE(row.name);
    const Run plain = run_once(row, {}, nullptr);
    transcript->text += "  " + row.name + "\n" + told(plain, 0);
    ++transcript->runs;
    if (!row.disturbed) {
        return;
    }
    std::vector<Disturbance> disturbances = failing_calls(plain.events);
    std::ranges::move(held_locks(plain.events), std::back_inserter(disturbances));
    std::string last; // what became of the call that failed once
    for (const Disturbance &disturbance : disturbances) {
        SCOPED_TRACE(disturbance.name);
        const Run run = run_once(row, disturbance, &plain.answer);
        ++transcript->runs;
        for (std::size_t i = 0; i < disturbance.from && i < run.events.size(); ++i) {
            if (run.events[i].line != plain.events[i].line) {
                ASSERT_EQ(line_of(run.events[i]), line_of(plain.events[i])) << "the same until the call fails";
            }
        }
        const std::size_t from = disturbance.told_in_full ? 0 : disturbance.from;
        const std::string outcome = told(run, from);
        transcript->text +=
            "  " + row.name + "; " + disturbance.name + "\n" + (outcome == last ? "    as before\n" : outcome);
        last = outcome;
    }
}

Transcript transcript_of(const SweepEntry &entry) {
    SCOPED_TRACE(entry.name);
    Transcript transcript;
    for (const SweepCase &row : entry.cases) {
        sweep_case(row, &transcript);
    }
    return transcript;
}

std::string digest_line(const SweepEntry &entry, const Transcript &transcript) {
    return entry.name + " " + std::to_string(transcript.runs) + " runs " + hash_of(transcript.text);
}

// ---- Digests -------------------------------------------------------------------------------------------------------

SweepEntries all_entries() {
    SweepEntries all;
    for (const auto &group : {command_entries, method_entries, function_entries, task_entries}) {
        std::ranges::move(group(), std::back_inserter(all));
    }
    return all;
}

// The frozen lines by entry.
std::map<std::string, std::string> frozen() {
    std::map<std::string, std::string> lines;
    std::ifstream file(ASD_SWEEP_DIGESTS);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with("#")) {
            lines[line.substr(0, line.find(' '))] = line;
        }
    }
    return lines;
}

void expect_frozen(const SweepEntries &entries) {
    const std::map<std::string, std::string> lines = frozen();
    for (const SweepEntry &entry : entries) {
        const auto found = lines.find(entry.name);
        EXPECT_EQ(digest_line(entry, transcript_of(entry)), found == lines.end() ? "no digest" : found->second)
            << "see what changed: scripts/transcript --since COMMIT " << entry.name;
    }
}

TEST(Sweep, Commands) {
    expect_frozen(command_entries());
}

TEST(Sweep, Methods) {
    expect_frozen(method_entries());
}

TEST(Sweep, Functions) {
    expect_frozen(function_entries());
}

TEST(Sweep, Tasks) {
    expect_frozen(task_entries());
}

TEST(Sweep, EachDigestIsOfAnEntry) {
    std::set<std::string> names;
    for (const SweepEntry &entry : all_entries()) {
        EXPECT_TRUE(names.insert(entry.name).second) << entry.name << " is there twice";
    }
    for (const auto &[name, line] : frozen()) {
        EXPECT_TRUE(names.contains(name)) << line;
    }
}

// Prints one entry's transcript, or with list their names, or with digests what the file of digests should hold.
int print(const std::string &what) {
    bool found = false;
    for (const SweepEntry &entry : all_entries()) {
        if (what == "--list" || (what != "--digests" && what != entry.name)) {
            std::cout << (what == "--list" ? entry.name + "\n" : "");
            continue;
        }
        found = true;
        const Transcript transcript = transcript_of(entry);
        std::cout << (what == "--digests" ? digest_line(entry, transcript) + "\n" : transcript.text);
    }
    if (!found && what != "--list") {
        std::cerr << "there is no entry '" << what << "'; --list shows their names\n";
    }
    return found || what == "--list" ? 0 : 2;
}

} // namespace

std::string shown(const Bytes &bytes) {
    constexpr std::size_t kInFull = 40;
    constexpr std::size_t kHead = 8;
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (std::size_t i = 0; i < (bytes.size() > kInFull ? kHead : bytes.size()); ++i) {
        text << std::setw(2) << +bytes[i];
    }
    if (bytes.size() > kInFull) {
        text << std::dec << "... " << bytes.size() << " bytes " << hash_of({bytes.begin(), bytes.end()});
    }
    return text.str();
}

SweepAnswer answer_of(gint32 status, const Bytes &data) {
    return {.text = std::to_string(status) + (data.empty() ? "" : " " + shown(data)),
            .known = kStatuses.contains(status),
            .outcome = std::to_string(status)};
}

SweepAnswer answer_of(const fake::Reply &reply) {
    const bool known = !reply.response.empty() && kCodes.contains(reply.response[0]);
    SweepAnswer answer = answer_of(reply.status, reply.response);
    answer.known = answer.known && known;
    answer.outcome += answer.text.substr(answer.outcome.size(), 3); // the code
    return answer;
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    return argc == 2 ? print(argv[1]) : RUN_ALL_TESTS();
}
