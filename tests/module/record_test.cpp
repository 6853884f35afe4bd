// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Records on chips: layout, reads and writes with checksum and retries.

#include "bmc_asd_read.h"
#include "bmc_asd_write.h"
#include "module_test.h"

namespace {

using RecordTest = ModuleTest;

const Bytes kData = {77, 78, 79, 80}; // checksum 0xE94E, 59726
const Bytes kGood = {77, 78, 79, 80, 0x4E, 0xE9};
const Bytes kBad = {77, 78, 79, 80, 0x4F, 0xE9}; // stored 59727
const Bytes kBlank = Bytes(6, 0xFF);             // checksum of its data 26160
const Bytes kUntouched = {0xEE, 0xEE, 0xEE, 0xEE};

void fail_read(guint32 nth, gint32 status, guint32 count = 1) {
    fake::inject({.operation = "dfl_block_read", .status = status, .nth = nth, .count = count});
}

// ---- Layout --------------------------------------------------------------------------------------------------------

TEST_F(RecordTest, RecordIsDataThenChecksumLowByteFirst) {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev99", {.offset = 1021});
    EXPECT_EQ(asd_eeprom_write(chip, kData.data(), 4, ASD_CHECKSUM_CRC32), 0); // the kind asked for changes nothing
    EXPECT_EQ(fake::chip_bytes("ASDDev99", 1020, 8), (Bytes{0xFF, 77, 78, 79, 80, 0x4E, 0xE9, 0xFF}));
    EXPECT_EQ(asd_eeprom_writecrc(kData.data(), 4, nullptr), -1);
}

TEST_F(RecordTest, OffsetIsNeededAndRetryNumberIsNot) {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev99", {.offset = 30, .retry = {}});
    guint32 retry = 0;
    guint32 offset = 0;
    EXPECT_EQ(asd_eeprom_getoffset(chip, &retry, &offset), 0);
    EXPECT_EQ(retry, 5U);
    EXPECT_EQ(offset, 30U);
    EXPECT_EQ(fake::logs(2), Texts{});

    Bytes data = kUntouched;
    fake::remove_property("ASDDev99", "Offset");
    EXPECT_EQ(asd_eeprom_read(chip, data.data(), 4), -1);
    EXPECT_EQ(asd_eeprom_check_read(chip, data.data(), 4), -1);
    EXPECT_EQ(asd_eeprom_write(chip, data.data(), 4, ASD_CHECKSUM_CRC16), -1);
    EXPECT_EQ(asd_eeprom_read(chip, nullptr, 4), -1);
    const std::string first = "0 [ASDDev99] Get eeprom offset failed! result: -3001.";
    const std::string second = "0 Get eeprom offset faild.";
    EXPECT_EQ(fake::logs(2), (Texts{first, second, first, second, first, second, "0 Input parameter error."}));
    EXPECT_EQ(fake::calls("dfl_block_read") + fake::calls("dfl_block_write"), 0U);
}

TEST_F(RecordTest, ALengthThatLeavesNoRoomForAChecksumIsRefused) {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev1000"); // of a power supply, so that its write goes that far
    const OBJ_HANDLE fan = fake::add_chip("ASDDev1");
    Bytes data = kUntouched;
    for (const guint32 len : {G_MAXUINT32, G_MAXUINT32 - 1}) {
        EXPECT_EQ(asd_eeprom_read(chip, data.data(), len), -1);
        EXPECT_EQ(asd_eeprom_check_read(chip, data.data(), len), -1);
        EXPECT_EQ(asd_eeprom_write(chip, data.data(), len, ASD_CHECKSUM_CRC16), -1);
        EXPECT_EQ(asd_eeprom_writecrc(data.data(), len, data.data()), -1);
        EXPECT_EQ(asd_power_eeprom_write(chip, data.data(), len, ASD_CHECKSUM_CRC16), -1);
        EXPECT_EQ(asd_fan_eeprom_write(fan, data.data(), len, ASD_CHECKSUM_CRC16), -1);
    }
    EXPECT_EQ(data, kUntouched);
    EXPECT_EQ(fake::calls("dfl_block_read") + fake::calls("dfl_block_write"), 0U);
}

// ---- Reads ---------------------------------------------------------------------------------------------------------

struct ReadRow {
    const char *name;
    const char *chip;
    Bytes content;
    Arrange arrange;
    gint32 status;
    std::size_t reads;
    Bytes delivered;
    Texts logs = {};
    gint32 error_code = 0;
};

void run_reads(const std::vector<ReadRow> &rows, gint32 (*read)(OBJ_HANDLE, guint8 *, guint32)) {
    for (const ReadRow &row : rows) {
        SCOPED_TRACE(std::string(row.chip) + ": " + row.name);
        fresh_world();
        const OBJ_HANDLE chip = fake::add_chip(row.chip);
        fake::set_chip_bytes(row.chip, 64, row.content);
        row.arrange();
        Bytes data = kUntouched;
        EXPECT_EQ(read(chip, data.data(), 4), row.status);
        EXPECT_EQ(fake::calls("dfl_block_read"), row.reads);
        EXPECT_EQ(fake::journal({"vos_task_delay"}), Texts(fake::world().fired, "vos_task_delay 100"));
        EXPECT_EQ(data, row.delivered);
        EXPECT_EQ(fake::number(row.chip, "ErrorCode"), row.error_code);
        EXPECT_EQ(fake::number(row.chip, "Health"), row.error_code != 0 ? 1 : 0);
        EXPECT_EQ(fake::logs(2), row.logs);
    }
}

TEST_F(RecordTest, Read) {
    const std::string accepted = " Read eeprom OK but CRC check failed.CrcRet[";
    const std::string gave_up = " eeprom ok but crc check failed(CrcRet=59726, CrcReal=59727)";
    // clang-format off
    run_reads({
        {"good", "ASDDev21a", kGood, kAsBuilt, 0, 1, kData},
        {"bad checksum", "ASDDev21a", kBad, kAsBuilt, 1, 3, kData, {"1 Read backBoard(ASDDev21a)" + gave_up}},
        {"bad checksum", "ASDDev25a", kBad, kAsBuilt, 1, 3, kData},
        {"bad checksum", "ASDDev10a", kBad, kAsBuilt, 0, 3, kData, {"1 Read backBoard(ASDDev10a)" + gave_up}},
        {"bad checksum", "ASDDev99", kBad, kAsBuilt, 0, 3, kData, {"1 Read backBoard(ASDDev99)" + gave_up}},
        {"erased", "ASDDev21a", kBlank, kAsBuilt, 1, 3, Bytes(4, 0xFF), {"1 Read backBoard(ASDDev21a) eeprom ok but crc check failed(CrcRet=26160, CrcReal=65535)"}},
        {"erased", "ASDDev10a", kBlank, kAsBuilt, 0, 1, Bytes(4, 0xFF), {"1 ASDDev10a" + accepted + "26160], CrcReal[65535]!"}},
        {"erased", "ASDDev99", kBlank, kAsBuilt, 0, 3, Bytes(4, 0xFF), {"1 Read backBoard(ASDDev99) eeprom ok but crc check failed(CrcRet=26160, CrcReal=65535)"}},
        {"dead bus", "ASDDev99", kGood, [] { fail_read(1, 5, 0); }, 5, 3, kUntouched, {}, 5},
        {"dead bus, no RetryNumber", "ASDDev99", kGood, [] { fake::remove_property("ASDDev99", "RetryNumber"); fail_read(1, 5, 0); }, 5, 5, kUntouched, {}, 5},
        {"two failures, then good", "ASDDev99", kGood, [] { fail_read(1, 5, 2); }, 0, 3, kData},
        {"one budget for all rounds", "ASDDev99", kBad, [] { fail_read(1, 5); fail_read(3, 5); fail_read(5, 6); }, 6, 5, kUntouched, {}, 6},
        {"bad checksum, then dead bus", "ASDDev21a", kBad, [] { fail_read(2, 4, 0); }, 5, 4, kUntouched, {}, 4},
        {"bad checksum, then dead bus", "ASDDev99", kBad, [] { fail_read(2, 4, 0); }, 4, 4, kUntouched, {}, 4},
        {"no attempts", "ASDDev99", kGood, number_set("ASDDev99", "RetryNumber", 0), 0, 0, Bytes(4, 0), {"1 Read backBoard(ASDDev99) eeprom ok but crc check failed(CrcRet=65535, CrcReal=0)"}},
    }, asd_eeprom_read);
    // clang-format on
}

// Which chips' checksum must hold, and which may be blank.
TEST_F(RecordTest, ChipsByName) {
    // clang-format off
    const Texts strict = {"ASDDev5a", "ASDDev5b", "ASDDev21a", "ASDDev21b", "ASDDev24a", "ASDDev25a", "ASDDev26a", "ASDDev27a",
                          "ASDDev52a", "ASDDev52b", "ASDDev53a", "ASDDev53b", "ASD_FrameLedRuleDeva", "ASD_FrameLedRuleDevb", "ASD_CCDBa", "ASD_CCDBb", "ASD_PRODUCT_CFGINFO_VALIDa", "ASD_PRODUCT_CFGINFO_VALIDb"};
    // clang-format on
    Bytes data = kUntouched;
    for (const std::string &name : strict) {
        EXPECT_EQ(asd_eeprom_read(fake::add_chip(name), data.data(), 4), 1) << name;
    }
    for (const char *number : {"10", "11", "13", "14", "15", "20"}) {
        for (const char *letter : {"a", "b"}) {
            fake::clear_journal();
            const std::string name = std::string("ASDDev") + number + letter;
            EXPECT_EQ(asd_eeprom_read(fake::add_chip(name), data.data(), 4), 0) << name;
            EXPECT_EQ(fake::calls("dfl_block_read"), 1U) << name;
        }
    }
}

TEST_F(RecordTest, CheckRead) {
    const std::string gave_up = " eeprom OK but CRC check failed.CrcRet[59726], CrcReal[59727]!";
    // clang-format off
    run_reads({
        {"good", "ASDDev21a", kGood, kAsBuilt, 0, 1, kData},
        {"bad checksum", "ASDDev21a", kBad, kAsBuilt, -1019, 3, kData, {"0 Read BackBoard [ASDDev21a]" + gave_up}},
        {"bad checksum", "ASDDev25a", kBad, kAsBuilt, -1019, 3, kData, {"0 Read BackBoard [ASDDev25a]" + gave_up}},
        {"bad checksum", "ASDDev10a", kBad, kAsBuilt, 0, 1, kData},
        {"dead bus", "ASDDev21a", kGood, [] { fail_read(1, 5, 0); }, 5, 3, kUntouched, {}, 5},
        {"bad checksum, then dead bus", "ASDDev21a", kBad, [] { fail_read(2, 4, 0); }, 4, 4, kUntouched, {}, 4},
    }, asd_eeprom_check_read);
    // clang-format on
}

TEST_F(RecordTest, AFlickeringReadIsReadAgain) {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev5a");
    fake::put_record("ASDDev5a", kData);
    fake::inject({.operation = "dfl_block_read", .flips_bit = true});
    Bytes data = kUntouched;
    EXPECT_EQ(asd_eeprom_read(chip, data.data(), 4), 0);
    EXPECT_EQ(data, kData);
    EXPECT_EQ(fake::calls("dfl_block_read"), 2U);
    // Each round leaves its result on the chip; health is settled once.
    EXPECT_EQ(fake::journal({"dfl_set_property_value"}),
              (Texts{"dfl_set_property_value ASDDev5a.ErrorCode 0 0", "dfl_set_property_value ASDDev5a.ErrorCode 0 0",
                     "dfl_set_property_value ASDDev5a.Health 0x00 0"}));
}

TEST_F(RecordTest, PowerThresholdFailuresAreLoggedOnceUntilAGoodRead) {
    fake::add_chip("ASDDevPowerThresholda");
    fake::put_record("ASDDevPowerThresholda", kData);
    const OBJ_HANDLE item = fake::add_item("ASD_PowerThreshold", {.length = 4, .chips = {"ASDDevPowerThresholda"}});
    Bytes data(4);
    for (int pass = 0; pass < 2; ++pass) {
        fake::clear_journal();
        kDeadReads();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(asd_read_method(item, data.data(), 4), 5);
        }
        fake::lift_faults();
        EXPECT_EQ(asd_read_method(item, data.data(), 4), 0);
        EXPECT_EQ(fake::logs(2), (Texts{"0 [ASDDevPowerThresholda] Read eeprom failed! result: 5.",
                                        "0 asd_read_method: (ASD_PowerThreshold)Read eeprom failed! result: 5."}));
    }
}

// ---- Writes --------------------------------------------------------------------------------------------------------

TEST_F(RecordTest, AWriteIsOneTransferBetweenOpenAndClosedLines) {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev14a");
    EXPECT_EQ(asd_eeprom_write(chip, kData.data(), 4, ASD_CHECKSUM_CRC16), 0);
    EXPECT_EQ(fake::chip_bytes("ASDDev14a", 64, 6), kGood);
    EXPECT_EQ(
        fake::journal({"vos_thread_sem4_p", "gpio_write", "dfl_block_write", "vos_thread_sem4_v",
                       "dfl_set_property_value", "vos_task_delay"}),
        (Texts{"vos_thread_sem4_p eeprom 2000", "gpio_write 55 1", "gpio_write 56 1", "dfl_block_write ASDDev14a 64 6",
               "gpio_write 55 0", "gpio_write 56 0", "vos_thread_sem4_v eeprom",
               "dfl_set_property_value ASDDev14a.Health 0x00 0", "dfl_set_property_value ASDDev14a.ErrorCode 0 0"}));
}

TEST_F(RecordTest, Write) {
    OBJ_HANDLE chip = 0;
    const auto write = [&chip] {
        const gint32 ret = asd_eeprom_write(chip, kData.data(), 4, ASD_CHECKSUM_CRC16);
        EXPECT_EQ(fake::number("ASDDev99", "Health"), ret != 0 ? 1 : 0);
        EXPECT_EQ(fake::number("ASDDev99", "ErrorCode"), ret);
        return ret;
    };
    const auto left = [] { // the record, and how often the lock was asked for
        return joined(fake::chip_bytes("ASDDev99", 64, 6), {static_cast<guint8>(fake::calls("vos_thread_sem4_p"))});
    };
    const auto after = [](const Bytes &record, guint8 locks) { return joined(record, {locks}); };
    const std::string one = "write ASDDev99 64 6";
    const std::string retried = one + ", delay 50, ";
    const std::string no_lock = "0 Get g_eeprom_lock failed!";
    const std::string no_line = "0 Gpio init or write failed! ret: 4.";
    // clang-format off
    run_operation(write, [&chip] { chip = fake::add_chip("ASDDev99"); }, {"dfl_block_write", "vos_task_delay"}, {
        {"two failures", [] { fake::inject({.operation = "dfl_block_write", .status = 5, .count = 2}); }, 0, retried + retried + one, {}, after(kGood, 3)},
        {"every attempt fails", kDeadWrites, 5, retried + retried + one, {}, after(kBlank, 3)},
        {"no RetryNumber", both([] { fake::remove_property("ASDDev99", "RetryNumber"); }, kDeadWrites), 5, retried + retried + retried + retried + one, {}, after(kBlank, 5)},
        {"no attempts", number_set("ASDDev99", "RetryNumber", 0), 0, "", {}, after(kBlank, 0)},
        {"lock taken by another once", fault("vos_thread_sem4_p", "", 3, 1), 0, one, {no_lock}, after(kGood, 2)},
        {"lock never free", locked("eeprom"), -1, "", Texts(3, no_lock), after(kBlank, 3)},
        {"line stuck low", fault("gpio_write", "", 4), fake::kRefused, retried + retried + one, Texts(6, no_line), after(kBlank, 3)},
    }, left, 1); // the tick is below the first quiet period: no failed write is logged yet
    // clang-format on
}

} // namespace
