// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Pairs of chips with a check flag: the flag, reads and writes that follow it, and the repair.

#include "bmc_asd_read.h"
#include "bmc_asd_write.h"
#include "module_test.h"

#include <array>

namespace {

using PairTest = ModuleTest;

const Bytes kOld = pattern(8, 10);
const Bytes kOther = pattern(8, 50);
const Bytes kNew = pattern(8, 90);

constexpr guint8 kUnreadable = 0xAA; // a flag whose chip does not answer

void break_chip(const std::string &chip, const std::string &operation, gint32 status) {
    fake::inject({.operation = operation, .subject = chip, .status = status, .count = 0});
}

void put_flag(const std::string &chip, guint8 flag) {
    fake::put_record(chip, {flag});
    if (flag == kUnreadable) {
        break_chip(chip, "dfl_block_read", 5);
    }
}

// An item on two chips and its check object; chip 0 holds kOld, chip 1 kOther.
struct Pair {
    OBJ_HANDLE item = 0;
    OBJ_HANDLE check = 0;
};

Pair build_pair(const std::string &item = "ASD16", const std::string &check = "ASD17") {
    for (const std::string &name : {item, check}) {
        const std::string chip = name.starts_with("ASD_") ? name : "ASDDev" + name.substr(3);
        fake::add_chip(chip + "a", {.retry = 1, .part = "p0", .size = 512});
        fake::add_chip(chip + "b", {.retry = 1, .part = "p1", .size = 512});
        for (const char *side : {"a", "b"}) {
            fake::set_property(chip + side, "Offset", g_variant_new_uint32(name == item ? 100 : 200));
        }
    }
    const auto chips = [](const std::string &name) {
        const std::string chip = name.starts_with("ASD_") ? name : "ASDDev" + name.substr(3);
        return Texts{chip + "a", chip + "b"};
    };
    Pair pair{.item = fake::add_item(item, {.length = 8, .chips = chips(item)}),
              .check = fake::add_item(check, {.length = 1, .chips = chips(check)})};
    fake::put_record(chips(item)[0], kOld);
    fake::put_record(chips(item)[1], kOther);
    return pair;
}

TEST_F(PairTest, FlagTruthTable) {
    struct Row {
        guint8 chip0;
        guint8 chip1;
        guint8 flag;
    };
    constexpr guint8 kX = kUnreadable;
    const std::vector<Row> rows = {{0, 0, 2},  {0, 1, 2},  {0, 2, 1},  {0, kX, 2},    {1, 0, 2},   {1, 1, 2},
                                   {1, 2, 1},  {1, kX, 2}, {2, 0, 0},  {2, 1, 0},     {2, 2, 0},   {2, kX, 0},
                                   {kX, 0, 2}, {kX, 1, 2}, {kX, 2, 1}, {kX, kX, 255}, {3, 0xFF, 2}};
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.chip0) + ", " + std::to_string(row.chip1));
        fresh_world();
        const Pair pair = build_pair();
        put_flag("ASDDev17a", row.chip0);
        put_flag("ASDDev17b", row.chip1);
        guint8 flag = 99;
        EXPECT_EQ(asd_read_check_flag(pair.check, &flag), row.flag == 255 ? -1006 : 0);
        EXPECT_EQ(flag, row.flag);
        Texts logs;
        if (row.chip0 == kX) {
            logs.emplace_back("0 (ASD17)Read 1st EEPROM check_flag failed! ret: 5.");
        }
        if (row.chip1 == kX) {
            logs.emplace_back("0 (ASD17)Read 2st EEPROM check_flag failed! ret: 5.");
        }
        EXPECT_EQ(fake::logs(1), logs);
        EXPECT_EQ(fake::calls("dfl_block_read"), 2U); // the second is read whatever the first gave
    }
    fresh_world();
    const Pair pair = build_pair();
    break_chip("ASD17.AtomStorageDataDev0", "dfl_get_referenced_object", 7);
    break_chip("ASD17.AtomStorageDataDev1", "dfl_get_referenced_object", 8);
    guint8 flag = 99;
    EXPECT_EQ(asd_choose_object_read(pair.item, &flag), -1006);
    EXPECT_EQ(flag, 255);
    EXPECT_EQ(fake::logs(), (Texts{"0 asd_read_check_flag: (ASD17)Get check_flag PROPERTY_ASD_DEV0 failed! ret: 7.",
                                   "0 asd_read_check_flag: (ASD17)Get check_flag PROPERTY_ASD_DEV1 failed! ret: 8."}));
    EXPECT_EQ(asd_choose_object_read(pair.check, &flag), -1018);
    EXPECT_EQ(asd_read_check_flag(4711, &flag), -1);
    EXPECT_TRUE(fake::logged(0, "Get get objname failed."));
}

// A strict chip delivers its byte although the checksum is bad; it must not count.
TEST_F(PairTest, AFlagWithABadChecksumCountsAsNone) {
    const Pair pair = build_pair("ASD52", "ASD53");
    fake::set_chip_bytes("ASDDev53a", 200, {2, 0xBD, 0x00});
    fake::put_record("ASDDev53b", {1});
    guint8 flag = 99;
    EXPECT_EQ(asd_read_check_flag(pair.check, &flag), 0);
    EXPECT_EQ(flag, 2);
    EXPECT_TRUE(fake::logged(0, "(ASD53)Read 1st EEPROM check_flag failed! ret: 1."));
    fake::put_record("ASDDev53a", {2});
    EXPECT_EQ(asd_read_check_flag(pair.check, &flag), 0);
    EXPECT_EQ(flag, 0);
}

TEST_F(PairTest, CheckRead) {
    struct Row {
        const char *name;
        std::array<guint8, 2> flags;
        const char *broken; // a chip whose reads fail
        gint32 status;
        const Bytes *data;
        std::string chip_read;
        Texts logs;
    };
    const std::string read_a = "dfl_block_read ASDDev16a 100 10";
    const std::string read_b = "dfl_block_read ASDDev16b 100 10";
    // clang-format off
    const std::vector<Row> rows = {
        {"both good", {1, 1}, "", 0, &kOld, read_a, {"1 (ASD16)Read 1st EEPROM OK! check_flag: 2."}},
        {"chip 0 alone", {2, 1}, "", 0, &kOld, read_a, {}},
        {"chip 1 alone", {1, 2}, "", 0, &kOther, read_b, {}},
        {"stale flag on chip 0 goes first", {2, 2}, "", 0, &kOld, read_a, {}},
        {"both good, chip 0 dead: chip 1 does not stand in", {1, 1}, "ASDDev16a", 5, nullptr, read_a,
         {"0 (ASD16)Read 1st EEPROM failed! check_flag: 2, ret: 5."}},
        {"chip 0 alone, dead", {2, 1}, "ASDDev16a", 5, nullptr, read_a,
         {"0 (ASD16)Only read 1st EEPROM and read failed! check_flag: 0, ret: 5."}},
        {"chip 1 alone, dead", {1, 2}, "ASDDev16b", 5, nullptr, read_b,
         {"0 ASD16)Only read 2nd EEPROM and read failed! check_flag: 1, ret: 5."}},
        {"no flag", {kUnreadable, kUnreadable}, "", -1006, nullptr, "",
         {"0 (ASD17)Read 1st EEPROM check_flag failed! ret: 5.",
         "0 (ASD17)Read 2st EEPROM check_flag failed! ret: 5."}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        const Pair pair = build_pair();
        put_flag("ASDDev17a", row.flags[0]);
        put_flag("ASDDev17b", row.flags[1]);
        if (*row.broken != '\0') {
            break_chip(row.broken, "dfl_block_read", 5);
        }
        Bytes data(8, 0xEE);
        EXPECT_EQ(asd_read_chip_check(pair.item, data.data(), 8), row.status);
        EXPECT_EQ(data, row.data != nullptr ? *row.data : Bytes(8, 0xEE));
        EXPECT_EQ(fake::logs(), row.logs);
        Texts reads = fake::journal({"dfl_block_read"});
        EXPECT_EQ(reads.size() > 2 ? reads[2] : "", row.chip_read);
        EXPECT_LE(reads.size(), 3U);
    }
    for (const guint32 side : {0U, 1U}) {
        fresh_world();
        const Pair pair = build_pair();
        put_flag("ASDDev17a", side == 0 ? 2 : 1);
        put_flag("ASDDev17b", side == 0 ? 1 : 2);
        const std::string number = std::to_string(side);
        break_chip("ASD16.AtomStorageDataDev" + number, "dfl_get_referenced_object", 7);
        Bytes data(8);
        EXPECT_EQ(asd_read_chip_check(pair.item, data.data(), 8), 7);
        EXPECT_TRUE(fake::logged(0, "(ASD16)Get PROPERTY_ASD_DEV" + number + " failed! ret: 7."));
    }
}

TEST_F(PairTest, CheckWrite) {
    struct Row {
        const char *name;
        std::function<void()> arrange;
        gint32 status;
        std::array<guint8, 2> flags; // before: 7 on both
        std::array<const Bytes *, 2> chips;
        Texts logs;
    };
    const auto broken = [](std::initializer_list<const char *> chips) {
        return [chips = Texts(chips.begin(), chips.end())] {
            for (const std::string &chip : chips) {
                break_chip(chip, "dfl_block_write", 5);
            }
        };
    };
    const auto unresolved = [](const char *reference, gint32 status) {
        return [=] { break_chip(reference, "dfl_get_referenced_object", status); };
    };
    const std::string failed1 = "1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.";
    const std::string failed2 = "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 5.";
    const std::string only1 = "1 Only write 1st EEPROM and write OK! check_flag: 0.";
    // clang-format off
    const std::vector<Row> rows = {
        {"both", [] {}, 0, {1, 1}, {&kNew, &kNew}, {}},
        {"chip 1 dead", broken({"ASDDev16b"}), 0, {2, 7}, {&kNew, &kOther}, {failed2, only1}},
        {"chip 0 dead", broken({"ASDDev16a"}), 0, {7, 2}, {&kOld, &kNew}, {failed1}},
        {"both dead", broken({"ASDDev16a", "ASDDev16b"}), -1006, {7, 7}, {&kOld, &kOther}, {failed1, failed2}},
        {"chip 0 unknown", unresolved("ASD16.AtomStorageDataDev0", 8), 0, {7, 2}, {&kOld, &kNew},
         {"0 asd_write_chip_check: ASD16 Get PROPERTY_ASD_DEV0 failed! ret: 8."}},
        {"chip 1 unknown", unresolved("ASD16.AtomStorageDataDev1", 8), 0, {2, 7}, {&kNew, &kOther},
         {"0 asd_write_chip_check: ASD16 Get PROPERTY_ASD_DEV1 failed! ret: 8.", only1}},
        {"flag 0 dead", broken({"ASDDev17a"}), 5, {7, 7}, {&kNew, &kNew},
         {"0 ASD17 Write 1st EEPROM check_flag failed! check_flag: 2, ret: 5."}},
        {"flag 1 dead", broken({"ASDDev17b"}), 5, {1, 7}, {&kNew, &kNew},
         {"0 ASD17 Write 2nd EEPROM check_flag failed! check_flag: 2, ret: 5."}},
        {"chip 1 and flag 0 dead", broken({"ASDDev16b", "ASDDev17a"}), 5, {7, 7}, {&kNew, &kOther}, {failed2,
         "0 ASD17 Write 1st EEPROM check_flag failed! check_flag: 0, ret: 5."}},
        {"chip 0 and flag 1 dead", broken({"ASDDev16a", "ASDDev17b"}), 5, {7, 7}, {&kOld, &kNew}, {failed1,
         "0 ASD17 Write 2nd EEPROM check_flag failed! check_flag: 1, ret: 5."}},
        {"flag 0 unknown", unresolved("ASD17.AtomStorageDataDev0", 8), 0, {7, 1}, {&kNew, &kNew},
         {"0 ASD17 Get check_flag PROPERTY_ASD_DEV0 failed! ret: 8."}},
        {"flag 1 unknown", unresolved("ASD17.AtomStorageDataDev1", 8), 8, {1, 7}, {&kNew, &kNew},
         {"0 ASD17 Get check_flag PROPERTY_ASD_DEV1 failed! ret: 8."}},
        {"no check object", [] { break_chip("ASD17", "dfl_get_object_handle", 9); }, 9, {7, 7}, {&kNew, &kNew},
         {"0 Get ASD17 obj handle failed! ret: 9."}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        const Pair pair = build_pair();
        put_flag("ASDDev17a", 7);
        put_flag("ASDDev17b", 7);
        row.arrange();
        EXPECT_EQ(asd_write_chip_check(pair.item, kNew.data(), 8), row.status);
        EXPECT_EQ(fake::logs(), row.logs);
        EXPECT_EQ(fake::chip_bytes("ASDDev16a", 100, 10), fake::record(*row.chips[0]));
        EXPECT_EQ(fake::chip_bytes("ASDDev16b", 100, 10), fake::record(*row.chips[1]));
        EXPECT_EQ(fake::chip_bytes("ASDDev17a", 200, 3), fake::record({row.flags[0]}));
        EXPECT_EQ(fake::chip_bytes("ASDDev17b", 200, 3), fake::record({row.flags[1]}));
        expect_contract_kept();
    }
    EXPECT_EQ(fake::record({1}), (Bytes{1, 0xDE, 0xEF})); // a flag as it lies on the chip
    EXPECT_EQ(asd_write_chip_check(4711, kNew.data(), 8), -1);
    EXPECT_EQ(asd_write_check_flag(4711, 2), -1);
    EXPECT_EQ(fake::logs().back(), "0 Get objname failed.");
}

// "ASD10" is its own check object: the flag overwrites the head of the item's own record.
TEST_F(PairTest, AnItemThatIsItsOwnCheckObjectLosesItsHead) {
    for (const char *chip : {"ASDDev10a", "ASDDev10b"}) {
        fake::add_chip(chip);
    }
    const OBJ_HANDLE item = fake::add_item("ASD10", {.length = 6, .chips = {"ASDDev10a", "ASDDev10b"}});
    const Bytes mac = pattern(6);
    EXPECT_EQ(asd_write_chip_check(item, mac.data(), 6), 0);
    Bytes left = fake::record(mac);
    left[0] = 1;
    left[1] = 0xDE;
    left[2] = 0xEF;
    EXPECT_EQ(fake::chip_bytes("ASDDev10a", 64, 8), left);
}

TEST_F(PairTest, Repair) {
    struct Row {
        const char *name;
        std::array<bool, 2> bad; // checksum
        std::function<void()> arrange;
        gint32 status;
        Texts writes;
        std::array<const Bytes *, 2> good_after; // null: as it was
        Texts errors;
    };
    const std::string write_a = "dfl_block_write ASD_CCDBa 100 10";
    const std::string write_b = "dfl_block_write ASD_CCDBb 100 10";
    const std::string first = "Read 1st EEPROM failed! ret: ";
    const std::string second = "Read 2nd EEPROM failed! ret: ";
    const auto dead = [](const char *operation, const char *chip) { return [=] { break_chip(chip, operation, 5); }; };
    // clang-format off
    const std::vector<Row> rows = {
        {"both good, different", {false, false}, [] {}, 0, {}, {&kOld, &kOther}, {}},
        {"chip 0 bad", {true, false}, [] {}, 0, {write_a}, {&kOther, &kOther}, {first + "-1019.",
         "Read eeprom failed[-1019]!"}},
        {"chip 1 bad", {false, true}, [] {}, 0, {write_b}, {&kOld, &kOld}, {second + "-1019.",
         "Read eeprom failed[-1019]!"}},
        {"both bad", {true, true}, [] {}, 0, {}, {nullptr, nullptr}, {first + "-1019.", "Read eeprom failed[-1019]!",
         second + "-1019.", "Read eeprom failed[-1019]!"}},
        {"chip 0 dead", {false, false}, dead("dfl_block_read", "ASD_CCDBa"), 0, {}, {&kOld, &kOther}, {first + "5.",
         "Read eeprom failed[5]!"}},
        {"chip 0 bad, chip 1 dead", {true, false}, dead("dfl_block_read", "ASD_CCDBb"), 0, {}, {nullptr, &kOther},
         {first + "-1019.", "Read eeprom failed[-1019]!", second + "5.", "Read eeprom failed[5]!"}},
        {"chip 0 bad and read-only", {true, false}, dead("dfl_block_write", "ASD_CCDBa"), 5, {write_a}, {nullptr,
         &kOther}, {first + "-1019.", "Read eeprom failed[-1019]!", "Write 1st EEPROM failed! ret(5).",
         "ASD_CCDB eeprom0 write failed! ret(5)."}},
        {"chip 1 bad and read-only", {false, true}, dead("dfl_block_write", "ASD_CCDBb"), 5, {write_b}, {&kOld,
         nullptr}, {second + "-1019.", "Read eeprom failed[-1019]!", "Write 2nd EEPROM failed! ret(5).",
         "ASD_CCDB eeprom1 write failed! ret(5)."}},
        {"chip 0 unknown", {false, true}, dead("dfl_get_referenced_object", "ASD_CCDB.AtomStorageDataDev0"), 0, {},
         {&kOld, nullptr}, {"Get dev failed! ret: 5.", "Read eeprom failed[5]!", second + "-1019.",
         "Read eeprom failed[-1019]!"}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fresh_world();
        build_pair("ASD_CCDB", "ASD_CCDB_VALID");
        const std::array<std::string, 2> chips = {"ASD_CCDBa", "ASD_CCDBb"};
        std::array<Bytes, 2> before;
        for (std::size_t i = 0; i < 2; ++i) {
            if (row.bad[i]) {
                fake::set_chip_bytes(chips[i], 109, {0x00});
            }
            before[i] = fake::chip_bytes(chips[i], 100, 10);
        }
        row.arrange();
        EXPECT_EQ(asd_eeprom_check("ASD_CCDB"), row.status);
        EXPECT_EQ(fake::journal({"dfl_block_write"}), row.writes);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(fake::chip_bytes(chips[i], 100, 10),
                      row.good_after[i] != nullptr ? fake::record(*row.good_after[i]) : before[i]);
        }
        Texts errors = fake::log_texts(0);
        std::erase_if(errors, [](const std::string &text) { return text.starts_with("Read BackBoard ["); });
        EXPECT_EQ(errors, row.errors);
        expect_contract_kept();
    }
}

TEST_F(PairTest, RepairRefusals) {
    build_pair();
    EXPECT_EQ(asd_eeprom_check("ASD99"), fake::kNoObject);
    fake::inject({.operation = "dfl_get_property_value", .subject = "ASD16.Length", .status = 7});
    EXPECT_EQ(asd_eeprom_check("ASD16"), 0);
    fake::set_property("ASD16", "Length", g_variant_new_uint32(8193));
    EXPECT_EQ(asd_eeprom_check("ASD16"), -1);
    Bytes data(8);
    EXPECT_EQ(asd_check_read_chip_one(1000, data.data(), 8, 2), -1);
    EXPECT_EQ(fake::log_texts(0),
              (Texts{"ASD99 call dfl_get_object_handle failed! result: -3001.",
                     "Get PROPERTY_ASD_LENGTH failed! result: 7.", "ASD16 get length failed! result: 7.",
                     "ASD16 length(8193) exceed asd eep max size(8192).", "device id(2) is wrong!"}));
    EXPECT_EQ(fake::calls("dfl_block_read"), 0U);
}

void loggers_over_time() {
    struct Row {
        guint64 tick;
        bool logged;
    };
    const std::vector<Row> rows = {{0, false},       {600'000, false},   {600'001, true},
                                   {600'002, true},  {600'003, true},    {600'004, true},
                                   {600'005, false}, {1'200'004, false}, {1'200'005, true}};
    for (const auto &[tick, logged] : rows) {
        fake::clear_journal();
        fake::set_ticks(tick);
        AsdCheckFlagErrorlog("ASD_BBUSWITCH1", 1, 5);
        AsdChipCheckErrorLog("ASD_BBUSWITCH", 2, 2, 6);
        EXPECT_EQ(fake::log_texts(0), logged ? (Texts{"(ASD_BBUSWITCH1)Read 1nd EEPROM check_flag failed! ret: 5.",
                                                      "(ASD_BBUSWITCH)Read 2st EEPROM failed! check_flag: 2, ret: 6."})
                                             : Texts{})
            << "at tick " << tick;
    }
}

TEST_F(PairTest, TwoObjectsAreRationed) {
    IN_FRESH_PROCESS(loggers_over_time);
}

} // namespace
