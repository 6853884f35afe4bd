// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// What a repair takes, writes and refuses, by what lies on the parts.

#include "board.h"
#include "host.h"
#include "host_test.h"
#include "item_reload.h"
#include "item_repair.h"
#include "metrics.h"
#include "module_registry.h"
#include "record_format.h"

#include <numeric>

namespace {

using namespace asd_host;
using namespace asd_test;
using enum RepairSource;

constexpr std::uint32_t kLength = 4;
int g_copies_taken = 2; // by the method that writes: it stops behind so many, and says whether it has stopped

// A record by its letter: blank, damaged, or whole, of that byte.
Bytes record_of(char letter, std::size_t length) {
    Bytes record(length + kChecksumSize, letter == '0' ? 0xFF : static_cast<std::uint8_t>(letter));
    if (letter != '0' && letter != '!') {
        const std::uint16_t sum = computed_checksum(record);
        record[length] = static_cast<std::uint8_t>(sum & 0xFFU);
        record[length + 1] = static_cast<std::uint8_t>(sum >> 8U);
    }
    return record;
}

void put(const std::string &chip, char letter, std::size_t length) {
    const OBJ_HANDLE handle = host()->objects.find(chip).value();
    const auto config = std::ranges::find(host()->enclosure.chips, chip, &ChipConfig::name);
    (void)host()->chips.at(handle).part->write(config->offset, record_of(letter, length), false); // one is dead
}

// As the module's: the copies, then the flag.
gint32 write_copies(const OBJ_HANDLE item, GSList * /*caller*/, GSList *input, GSList **output) {
    guint8 first = 0;
    g_variant_get_child(static_cast<GVariant *>(input->data), 0, "y", &first);
    const std::string name = *host()->objects.name_of(item);
    for (int copy = 0; copy < g_copies_taken; ++copy) {
        put(name + "ab"[copy], static_cast<char>(first), kLength);
    }
    if (g_copies_taken == 2 && name == "ASD52") {
        put("ASD53a", kStoredBoth, 1), put("ASD53b", kStoredBoth, 1);
    }
    *output = g_slist_append(*output, g_variant_new_int32(g_copies_taken == 0 ? kReadOnly : 0));
    return 0;
}

void start(const ScratchFolder &folder) {
    Options options;
    options.run_dir = folder.path() / "run";
    options.state_dir = folder.path() / "state";
    Enclosure enclosure;
    enclosure.role = Role::kMaster;
    enclosure.parts = {
        {.name = "a", .file = "a", .size = 256, .page_size = 16, .write_cycle_us = 0},
        {.name = "b", .file = "b", .size = 256, .page_size = 16, .write_cycle_us = 0},
        {.name = "dead", .kind = PartKind::kDevice, .file = folder.path() / "none", .size = 256, .page_size = 16}};
    std::uint32_t offset = 0;
    for (const char *item : {"ASD14", "ASD52", "ASD53", "ASD7", "ASD15"}) {
        const std::string name = item;
        ItemConfig config{.name = name, .length = name == "ASD53" ? 1U : kLength, .chips = {name + "a"}};
        enclosure.chips.push_back({.name = name + "a", .part = "a", .offset = offset});
        if (name != "ASD7") {
            enclosure.chips.push_back({.name = name + "b", .part = name == "ASD15" ? "dead" : "b", .offset = offset});
            config.chips.push_back(name + "b");
        }
        enclosure.items.push_back(config);
        offset += 16;
    }
    enclosure.items.push_back({.name = "empty", .length = 0, .chips = {"ASD7a"}});
    enclosure.items.push_back({.name = "endless", .length = 1U << 30U, .chips = {"ASD7a"}});
    enclosure.name = "q\"\\\n";
    BoardFacts &board = enclosure.board;
    board.management_module = board.manufacturing_build = board.equipment_frame = true;
    board.tarn_four_u_four_controller = board.two_u_expansion = true;
    ASSERT_EQ(host_start(options, enclosure), Texts{});
    ASSERT_EQ(host_start(options, enclosure), Texts{"the platform is running already"});
    EXPECT_EQ(BSP_IsSmmBoard() + BSP_IsManuVersion() + BSP_isEquipFrameBoard() + BSP_IsTarn4U4CBoard() +
                  BSP_Is2UExpBoard(),
              5);
    EXPECT_NE(metrics_text(*host()).find("q\\\"\\\\\\n"), std::string::npos) << metrics_text(*host());
    put("ASD14a", 'x', kLength);
    EXPECT_EQ(repair_item(host()->objects.find("ASD14").value(), kGood, false).status, kUnsupported) << "no method";
    EXPECT_EQ(reload_item(1), kBadArgument) << "no method";
    ASSERT_TRUE(module_registry().declare_class("AtomStorageData"));
    for (const char *method : {"WriteAtomStorageData", "EqWriteAtomStorageData"}) {
        ASSERT_TRUE(module_registry().declare_method("AtomStorageData", method, write_copies));
    }
}

const struct {
    const char *item, *copies, *flags; // a letter a copy
    RepairSource from;
    int taken;
    int written;
    RepairSource source;
    const char *refusal; // how it begins; empty: none
} kRows[] = {
    // clang-format off
    {"ASD14", "xx", "00", kGood,   2, 0, kGood,   ""},                 {"ASD14", "00", "00", kGood,   2, 0, kGood,   ""},
    {"ASD14", "x0", "00", kGood,   2, 2, kCopy0,  ""},                 {"ASD14", "!x", "00", kGood,   2, 1, kCopy1,  ""},
    {"ASD14", "!0", "00", kGood,   2, 0, kGood,   "neither copy can be taken"},
    {"ASD14", "xy", "00", kGood,   2, 0, kGood,   "both copies are good and differ"},
    {"ASD14", "xy", "00", kCopy1,  2, 1, kCopy1,  ""},                 {"ASD14", "x!", "00", kCopy1,  2, 0, kGood, "that copy cannot be taken: it is damaged"},
    {"ASD14", "x0", "00", kCopy1,  2, 0, kGood,   "that copy cannot be taken: it was never written"},
    {"ASD14", "x!", "00", kGood,   1, 2, kCopy0,  "a copy was not written: it holds something else"},
    {"ASD14", "!!", "00", kMemory, 2, 3, kMemory, ""},
    {"ASD7",  "!",  "00", kGood,   2, 0, kGood,   "its only copy cannot be taken: it is damaged"},
    {"ASD7",  "x",  "00", kCopy1,  2, 0, kGood,   "the item has no such copy"},
    {"ASD7",  "x",  "00", kMemory, 2, 0, kGood,   "there is no value in memory"},
    {"ASD15", "x",  "00", kGood,   2, 0, kGood,   "a copy cannot be reached: "},
    {"ASD52", "xy", "\2\1", kGood, 2, 6, kCopy0,  ""},                 {"ASD52", "xy", "\1\2", kGood, 2, 5, kCopy1,  ""},
    {"ASD52", "xy", "\2\2", kGood, 2, 0, kGood,   "both copies are good and differ"},
    {"ASD52", "xy", "\2!",  kGood, 2, 0, kGood,   "both copies are good and differ"},
    {"ASD52", "xx", "\1!",  kGood, 2, 4, kCopy0,  ""},                 {"ASD52", "xx", "\1\1", kGood, 2, 0, kGood,   ""},
    {"ASD52", "xx", "\2\1", kGood, 0, 4, kCopy0,  "the write was refused: "},
    {"ASD52", "xx", "\2\1", kGood, 1, 4, kCopy0,  "the check flag was not written"},
    // clang-format on
};

TEST(Repair, TakesWhatIsGoodAndNeverWritesOverTheOnlyOne) {
    const ScratchFolder folder;
    ASSERT_EQ(repair_item(1, kGood, true).status, kBadArgument) << "before the platform runs";
    log_set(-1, false);
    ASSERT_NO_FATAL_FAILURE(start(folder));
    const OBJ_HANDLE brand = host()->objects.find("ASD14").value();
    ASSERT_EQ(host()->objects.set(brand, "Value", Bytes(kLength, 'm')) +
                  host()->objects.set(brand, "Ready", std::uint8_t{1}),
              0);
    for (const auto &row : kRows) {
        SCOPED_TRACE(&row - &kRows[0]);
        const auto lay = [&row] {
            for (std::size_t copy = 0; row.copies[copy] != '\0'; ++copy) {
                put(std::string(row.item) + "ab"[copy], row.copies[copy], kLength);
            }
            put("ASD53a", row.flags[0], 1), put("ASD53b", row.flags[1], 1);
        };
        lay();
        g_copies_taken = row.taken;
        const OBJ_HANDLE item = host()->objects.find(row.item).value();
        for (const bool dry_run : {true, false}) {
            const Repair repair = repair_item(item, row.from, dry_run);
            const bool refused = *row.refusal != '\0' && (!dry_run || row.written == 0);
            EXPECT_EQ(repair.copies, row.written);
            EXPECT_EQ(repair.source, row.source);
            EXPECT_TRUE(refused ? repair.refusal.starts_with(row.refusal) : repair.refusal.empty()) << repair.refusal;
            EXPECT_EQ(repair.status != 0, refused);
        }
        if (*row.refusal == '\0') { // then there is nothing left to do
            EXPECT_EQ(repair_item(item, row.from, false).copies, 0);
        }
    }
    EXPECT_EQ(repaired_with(*host(), host()->objects.find("ASD53").value()), host()->objects.find("ASD52").value());
    EXPECT_EQ(repaired_with(*host(), brand), brand);
    for (const auto &[name, status] :
         {std::pair{"ASD14a", kNoObject}, {"empty", kBadArgument}, {"endless", kBadArgument}}) {
        EXPECT_EQ(repair_item(host()->objects.find(name).value(), kGood, false).status, status) << name;
    }
    for (const PropertyValue &value : {PropertyValue(Bytes(kLength + 1)), PropertyValue(std::uint8_t{1})}) {
        (void)host()->objects.set(brand, "Value", value); // a value of another type is not taken
        EXPECT_NE(repair_item(brand, kMemory, true).status, 0);
    }
    EXPECT_EQ(repaired_with(*host(), 0), 0);
    log_set(kLogError, false);
}

} // namespace
