// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The chips of power supplies, fan modules and buckle cards: guards, protection around each attempt, outcome.

#include "bmc_asd_write.h"
#include "module_test.h"

namespace {

using SpecialChipsTest = ModuleTest;

using ItemWrite = gint32 (*)(OBJ_HANDLE, const guint8 *, guint32);

// Four bytes to an item of six that is not even online. No path takes the EEPROM lock or drives the shared lines.
void run(ItemWrite write, const char *item, const char *chip, const std::vector<OperationCase> &rows) {
    OBJ_HANDLE handle = 0;
    const auto build = [&] {
        fake::add_chip(chip, {.retry = 2, .lines = {}, .stg_is_wp = 1});
        handle = fake::add_item(item, {.length = 6, .chips = {chip}, .online = 0});
    };
    const auto operation = [&] {
        const gint32 ret = write(handle, pattern(4).data(), 4);
        EXPECT_EQ(fake::calls("vos_thread_sem4_p") + fake::calls("gpio_write"), 0U);
        return ret;
    };
    run_operation(operation, build, {"dfl_set_property_value", "vos_task_delay", "dfl_block_write"}, rows);
}

const Arrange kOneFailure = fault("dfl_block_write", "", 5, 1);
const Arrange kNoChip = fault("dfl_get_referenced_object");
const std::string kNoCount = "0 Get PROPERTY_ASD_DEVCOUNT property failed! result: 7.";

TEST_F(SpecialChipsTest, PowerSupplies) {
    const std::string c = "ASDDev1000";
    const std::string attempt = c + ".StgWp 0x00 16, delay 10, write " + c + " 64 8, " + c + ".StgWp 0x01 16";
    const std::string good =
        ", " + c + ".Health 0x00 0, " + c + ".ErrorCode 0 0, ASD1000.Value ay[6] 0, ASD1000.Ready 0x01 0";
    const std::string bad = ", delay 200, " + c + ".Health 0x01 0, " + c + ".ErrorCode 5 0";
    const std::string retried = attempt + ", delay 200, ";
    const auto failed = [](const char *status, const Texts &lines) {
        return with(lines, {std::string("0 ASD1000 write power eeprom failed[") + status + "]!"});
    };
    const Texts dead_logs = failed("5", {"0 write power eeprom failed! result: 5."});
    // clang-format off
    run(asd_power_write, "ASD1000", "ASDDev1000", {
        {"written", kAsBuilt, 0, attempt + good},
        {"Length 1025", number_set("ASD1000", "Length", 1025), -1, "", {"0 ASD1000 length(1025) exceed asd ekey max len(1024)."}},
        {"Length 0", number_set("ASD1000", "Length", 0), -1, "", {"0 malloc fail"}},
        {"Length unreadable", unreadable("ASD1000.Length"), 7, "", {"0 Get PROPERTY_ASD_LENGTH failed! result: 7."}},
        {"no item name", fault("dfl_get_object_name", "ASD1000"), -1, "", {"0 Get objname failed."}},
        {"count unreadable", unreadable("ASD1000.DevCount"), -1, "", failed("-1", {kNoCount, "0 get eeprom count failed!"})},
        {"two chips", number_set("ASD1000", "DevCount", 2), -1008, "", failed("-1008", {"0 chip count(2) is wrong!"})},
        {"no chip", kNoChip, 7, "", failed("7", {"0 get dev failed, ret(7)"})},
        {"no chip name", fault("dfl_get_object_name", "ASDDev1000"), -1, "", failed("-1", {"0 get object name fail."})},
        {"Offset unreadable", unreadable("ASDDev1000.Offset"), -1, "", failed("-1", {"0 Get power eeprom offset failed! result: 7."})},
        {"one failure", kOneFailure, 0, retried + attempt + good},
        {"dead", kDeadWrites, 5, retried + attempt + bad, dead_logs},
        {"StgWp refused", fault("dfl_set_property_value", "ASDDev1000.StgWp"), 0, attempt + good},
    });
    // clang-format on
    fresh_world(); // whole on the chip, padded, and protected again; a budget of five attempts
    fake::add_chip("ASDDev1001", {.offset = 100, .retry = {}, .lines = {}, .own_protection = true});
    const OBJ_HANDLE item = fake::add_item("ASD1001", {.length = 1024, .chips = {"ASDDev1001"}});
    const Bytes image = joined(pattern(9), Bytes(1015, 0xFF));
    fake::inject({.operation = "dfl_block_write", .count = 4});
    EXPECT_EQ(asd_power_write(item, pattern(9).data(), 9), 0);
    EXPECT_EQ(fake::chip_bytes("ASDDev1001", 100, 1026), fake::record(image));
    EXPECT_EQ(fake::value("ASD1001"), image);
    EXPECT_EQ(fake::number("ASDDev1001", "StgWp"), 1);
}

TEST_F(SpecialChipsTest, Fans) {
    const std::string write = "write ASDDev3 64 6";
    const std::string good = ", ASDDev3.Health 0x00 0, ASDDev3.ErrorCode 0 0";
    const std::string dead =
        write + ", delay 200, " + write + ", delay 200, ASDDev3.Health 0x01 0, ASDDev3.ErrorCode 5 0";
    const std::string f = "0 asd_fan_write_chip: ";
    // clang-format off
    run(asd_fan_write_chip, "ASD3", "ASDDev3", {
        {"written, Value untouched", kAsBuilt, 0, write + good},
        {"count unreadable", unreadable("ASD3.DevCount"), -1, "", {kNoCount, f + "get eeprom count failed!(line:N)"}},
        {"two chips", number_set("ASD3", "DevCount", 2), -1008, "", {f + "chip count(2) is wrong!(line:N)"}},
        {"no chip", kNoChip, 7, "", {f + "get dev failed!(line:N) ret(7)"}},
        {"Offset unreadable", unreadable("ASDDev3.Offset"), -1, "", {"0 [ASDDev3] Get eeprom offset failed! result: 7.", "0 Get eeprom offset faild."}},
        {"one failure", kOneFailure, 0, write + ", delay 200, " + write + good},
        {"dead", kDeadWrites, 5, dead, {"0 write fan eeprom failed! result: 5."}},
    });
    // clang-format on
}

TEST_F(SpecialChipsTest, OnlyTheirOwnChipsAreTouched) {
    for (const std::string name : {"ASDDev0A", "ASDDev1001", "ASDDev10"}) { // a fan, a power supply, neither
        SCOPED_TRACE(name);
        fresh_world();
        const OBJ_HANDLE chip = fake::add_chip(name, {.lines = {}});
        const bool is_fan = name == "ASDDev0A";
        const bool is_power = name == "ASDDev1001";
        EXPECT_EQ(asd_fan_eeprom_write(chip, pattern(4).data(), 4, ASD_CHECKSUM_CRC16), is_fan ? 0 : -1);
        EXPECT_EQ(asd_power_eeprom_write(chip, pattern(4).data(), 4, ASD_CHECKSUM_CRC16), is_power ? 0 : -1);
        EXPECT_EQ(fake::chip_bytes(name, 64, 6), is_fan || is_power ? fake::record(pattern(4)) : Bytes(6, 0xFF));
        EXPECT_EQ(fake::logged("0 Please check whether this eeprom is in fan mode."), !is_fan);
        EXPECT_EQ(fake::logged("0 Please check whether this eeprom is in power."), !is_power);
    }
}

TEST_F(SpecialChipsTest, BuckleCards) {
    const std::string open = "Card.StgWp 0x00 16, delay 10, ";
    const std::string close = "Card.StgWp 0x01 16";
    const std::string write = "write Card 64 6, ";
    const std::string good = "Card.Health 0x00 0, Card.ErrorCode 0 0";
    const std::string bad = write + "delay 200, " + write + "delay 200, Card.Health 0x01 0, Card.ErrorCode 5 0, ";
    const Texts dead_log = {"0 Card: write failed(ret=5)"};
    const auto refused = [](guint32 nth) { return fault("dfl_set_property_value", "Card.StgWp", 7, nth); };
    const auto nameless = [](guint32 nth) { return fault("dfl_get_object_name", "Card", 7, nth); };
    const std::string f = "0 asd_bucklecard_eeprom_write";
    // clang-format off
    run(asd_bucklecard_writetype, "ASD_Card", "Card", {
        {"written, Value untouched", kAsBuilt, 0, open + write + good + ", " + close},
        {"StgIsWp 2", byte_set("Card", "StgIsWp", 2), 0, "delay 10, " + write + good},
        {"count unreadable", unreadable("ASD_Card.DevCount"), -1, "", {kNoCount, f + ": get eeprom count failed"}},
        {"two chips", number_set("ASD_Card", "DevCount", 2), -1, "", {f + " chip count(2) is invalid!"}},
        {"no chip", kNoChip, -1, "", {f + ": get dev obj failed(ret=7)"}},
        {"no chip name", nameless(1), -1, "", {"0 get object name failed."}},
        {"StgIsWp unreadable", unreadable("Card.StgIsWp"), -1, "", {"0 Card get eeprom is need protect value failed(ret=7)"}},
        {"not unprotected", refused(1), -1, "Card.StgWp 0x00 16", {"0 Card set eeprom wp 0 failed(ret=7)"}},
        {"name lost while writing", nameless(2), 0, open + close, {"0 get object name fail."}},
        {"Offset unreadable", unreadable("Card.Offset"), 0, open + close, {"0 [Card] Get eeprom offset failed! result: 7.", "0 Get eeprom offset faild."}},
        {"one failure", kOneFailure, 0, open + write + "delay 200, " + write + good + ", " + close},
        {"dead: the outcome of protecting counts", kDeadWrites, 0, open + bad + close, dead_log},
        {"dead and not protected", both(kDeadWrites, refused(2)), 7, open + bad + close, with(dead_log, {"0 Card set eeprom wp 1 failed(ret=7)"})},
    });
    // clang-format on
    EXPECT_EQ(asd_bucklecard_writetype(0, pattern(9).data(), 1), -1);
    EXPECT_TRUE(fake::logged("0 Write bucklecard type input data len is invalid"));
}

} // namespace
