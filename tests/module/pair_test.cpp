// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Pairs of chips with a check flag: the flag, reads and writes that follow it, and the repair.

#include "bmc_asd_read.h"
#include "bmc_asd_write.h"
#include "module_test.h"

#include <algorithm>
#include <array>

namespace {

using PairTest = ModuleTest;

const Bytes kOld = pattern(8, 10);
const Bytes kOther = pattern(8, 50);
const Bytes kNew = pattern(8, 90);

constexpr guint8 kX = 0xAA; // a flag whose chip does not answer

Arrange put_flags(guint8 flag0, guint8 flag1) {
    return [=] {
        for (const auto &[chip, flag] : {std::pair{"ASDDev17a", flag0}, {"ASDDev17b", flag1}}) {
            fake::put_record(chip, {flag});
            if (flag == kX) {
                fault("dfl_block_read", chip, 5)();
            }
        }
    };
}

Arrange dead(const char *operation, const Texts &chips) {
    return [=] {
        for (const std::string &chip : chips) {
            fault(operation, chip, 5)();
        }
    };
}

// An item on two chips and its check object; chip 0 holds kOld, chip 1 kOther.
OBJ_HANDLE build_pair(const std::string &item = "ASD16", const std::string &check = "ASD17") {
    const auto add = [](const std::string &name, guint32 length, guint32 offset) {
        const std::string chip = name.starts_with("ASD_") ? name : "ASDDev" + name.substr(3);
        fake::add_chip(chip + "a", {.offset = offset, .retry = 1, .part = "p0", .size = 512});
        fake::add_chip(chip + "b", {.offset = offset, .retry = 1, .part = "p1", .size = 512});
        return fake::add_item(name, {.length = length, .chips = {chip + "a", chip + "b"}});
    };
    add(check, 1, 200);
    const OBJ_HANDLE pair = add(item, 8, 100);
    std::ranges::copy(fake::record(kOld), fake::world().parts["p0"]->begin() + 100);
    std::ranges::copy(fake::record(kOther), fake::world().parts["p1"]->begin() + 100);
    return pair;
}

TEST_F(PairTest, FlagTruthTable) {
    const std::array<guint8, 3> rows[] = {{0, kX, 2}, {1, 1, 2},  {1, 2, 1},  {2, 1, 0},    {2, 2, 0},
                                          {2, kX, 0}, {kX, 1, 2}, {kX, 2, 1}, {3, 0xFF, 2}, {kX, kX, 255}};
    for (const auto &[flag0, flag1, expected] : rows) {
        SCOPED_TRACE(std::to_string(flag0) + ", " + std::to_string(flag1));
        fresh_world();
        build_pair();
        put_flags(flag0, flag1)();
        guint8 flag = 99;
        EXPECT_EQ(asd_read_check_flag(fake::handle_of("ASD17"), &flag), expected == 255 ? -1006 : 0);
        EXPECT_EQ(flag, expected);
        EXPECT_EQ(fake::calls("dfl_block_read"), 2U); // the second is read whatever the first gave
    }
}

TEST_F(PairTest, CheckWrite) {
    OBJ_HANDLE item = 0;
    const auto build = [&item] {
        item = build_pair();
        put_flags(7, 7)();
    };
    const auto write = [&item] { return asd_write_chip_check(item, kNew.data(), 8); };
    const auto left = [] { // the records of the chips, then of the flags
        return joined(joined(fake::chip_bytes("ASDDev16a", 100, 10), fake::chip_bytes("ASDDev16b", 100, 10)),
                      joined(fake::chip_bytes("ASDDev17a", 200, 3), fake::chip_bytes("ASDDev17b", 200, 3)));
    };
    const auto records = [](const Bytes &chip0, const Bytes &chip1, guint8 flag0, guint8 flag1) {
        return joined(joined(fake::record(chip0), fake::record(chip1)),
                      joined(fake::record({flag0}), fake::record({flag1})));
    };
    const auto broken = [](const Texts &chips) { return dead("dfl_block_write", chips); };
    run_operation(write, build,
                  {{"both", kAsBuilt, 0, records(kNew, kNew, 1, 1)},
                   {"chip 1 dead", broken({"ASDDev16b"}), 0, records(kNew, kOther, 2, 7)},
                   {"chip 0 dead", broken({"ASDDev16a"}), 0, records(kOld, kNew, 7, 2)},
                   {"both dead", broken({"ASDDev16a", "ASDDev16b"}), -1006, records(kOld, kOther, 7, 7)},
                   {"flag 0 dead", broken({"ASDDev17a"}), 5, records(kNew, kNew, 7, 7)},
                   {"flag 1 dead", broken({"ASDDev17b"}), 5, records(kNew, kNew, 1, 7)}},
                  left);
}

// "ASD10" is its own check object: the flag overwrites the head of the item's own record.
TEST_F(PairTest, AnItemThatIsItsOwnCheckObjectLosesItsHead) {
    fake::add_chip("ASDDev10a");
    const OBJ_HANDLE item = fake::add_item("ASD10", {.length = 6, .chips = {"ASDDev10a", "ASDDev10a"}});
    EXPECT_EQ(asd_write_chip_check(item, pattern(6).data(), 6), 0);
    const Bytes rest = part_of(fake::record(pattern(6)), 3, 5);
    EXPECT_EQ(fake::chip_bytes("ASDDev10a", 64, 8), joined({1, 0xDE, 0xEF}, rest));
}

TEST_F(PairTest, Repair) {
    const auto build = [] { build_pair("ASD_CCDB", "ASD_CCDB_VALID"); };
    const auto left = [] {
        return joined(fake::chip_bytes("ASD_CCDBa", 100, 10), fake::chip_bytes("ASD_CCDBb", 100, 10));
    };
    // Chips whose checksum is bad.
    const Arrange bad_a = [] { fake::set_chip_bytes("ASD_CCDBa", 109, {0}); };
    const Arrange bad_b = [] { fake::set_chip_bytes("ASD_CCDBb", 109, {0}); };
    const Bytes a = fake::record(kOld);
    const Bytes b = fake::record(kOther);
    const Bytes spoilt = joined(joined(part_of(a, 0, 9), {0}), joined(part_of(b, 0, 9), {0}));
    run_operation([] { return asd_eeprom_check("ASD_CCDB"); }, build,
                  {{"both good, different", kAsBuilt, 0, joined(a, b)},
                   {"chip 0 bad", bad_a, 0, joined(b, b)},
                   {"chip 1 bad", bad_b, 0, joined(a, a)},
                   {"both bad", both(bad_a, bad_b), 0, spoilt},
                   {"chip 0 dead", dead("dfl_block_read", {"ASD_CCDBa"}), 0, joined(a, b)}},
                  left);
}

} // namespace
