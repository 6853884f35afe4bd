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

// ---- Reads ---------------------------------------------------------------------------------------------------------

TEST_F(RecordTest, Read) {
    const std::string accepted = " Read eeprom OK but CRC check failed.CrcRet[";
    const std::string gave_up = " eeprom ok but crc check failed(CrcRet=59726, CrcReal=59727)";
    const struct {
        const char *name;
        const char *chip;
        Bytes content;
        Arrange arrange;
        gint32 status;
        std::size_t reads;
        Bytes delivered;
        Texts logs = {};
        gint32 error_code = 0;
    } rows[] = {
        // clang-format off
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
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.chip) + ": " + row.name);
        fresh_world();
        const OBJ_HANDLE chip = fake::add_chip(row.chip);
        fake::set_chip_bytes(row.chip, 64, row.content);
        row.arrange();
        Bytes data = kUntouched;
        EXPECT_EQ(asd_eeprom_read(chip, data.data(), 4), row.status);
        EXPECT_EQ(fake::calls("dfl_block_read"), row.reads);
        EXPECT_EQ(fake::journal({"vos_task_delay"}), Texts(fake::world().fired, "vos_task_delay 100"));
        EXPECT_EQ(data, row.delivered);
        EXPECT_EQ(fake::number(row.chip, "ErrorCode"), row.error_code);
        EXPECT_EQ(fake::number(row.chip, "Health"), row.error_code != 0 ? 1 : 0);
        EXPECT_EQ(fake::logs(2), row.logs);
    }
}

TEST_F(RecordTest, PowerThresholdFailuresAreLoggedOnceUntilAGoodRead) {
    const OBJ_HANDLE item =
        build_item("ASD_PowerThreshold", {.length = 4, .chips = {"ASDDevPowerThresholda"}}, {kData});
    Bytes data(4);
    for (int pass = 0; pass < 2; ++pass) {
        fake::clear_journal();
        kDeadReads();
        EXPECT_EQ(asd_read_method(item, data.data(), 4), 5);
        EXPECT_EQ(asd_read_method(item, data.data(), 4), 5);
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

} // namespace
