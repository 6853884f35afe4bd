// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Messages about failures that repeat: how many are printed, and after what quiet time again.

#include "bmc_asd_common.h"
#include "bmc_asd_read.h"
#include "bmc_asd_write.h"
#include "module_test.h"

namespace {

using RateLimitsTest = ModuleTest;

void failures_over_time() {
    const OBJ_HANDLE chip = fake::add_chip("ASDDev99", {.retry = 1});
    kDeadWrites();
    fault("BSP_SetWwn2CpldRam")();
    fake::world().board.online = {2};
    fake::world().peers[2] = [](const fake::SentRequest &) { return Bytes{0xC9}; };
    const Bytes data = pattern(6);
    const struct {
        std::function<void()> fail;
        std::string log;
        guint64 quiet_ms;
        std::size_t allowance;
    } rows[] = {
        // clang-format off
        {[&] { (void)asd_eeprom_write(chip, data.data(), 6, ASD_CHECKSUM_CRC16); }, "0 [ASDDev99] Write eeprom failed! result: 5.", 300000, 3},
        {[] { AsdCheckFlagErrorlog("ASD_BBUSWITCH1", 1, 5); }, "0 (ASD_BBUSWITCH1)Read 1nd EEPROM check_flag failed! ret: 5.", 600000, 4},
        {[] { AsdChipCheckErrorLog("ASD_BBUSWITCH", 2, 2, 6); }, "0 (ASD_BBUSWITCH)Read 2st EEPROM failed! check_flag: 2, ret: 6.", 600000, 4},
        {[&] { ASD_EEprom_Sync(data.data(), 42, 6); }, "1 Sync asd(id=42) data to slot2 failed(ret=201)", 600000, 2},
        {[&] { ASD_SyncASD10(data.data(), 6); }, "1 Proc master sync framemac(0x4d0x4e0x4f0x500x510x52) failed(ret=7)", 300000, 3},
        {[&] { ASD_SyncIocardPcie4(data.data(), 6); }, "0 The len(6) of sync pcie speed limit data is invalid.", 3600000, 10},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.log);
        const auto printed_at = [&](guint64 tick) { // of twenty failures
            fake::clear_journal();
            fake::world().ticks = tick;
            for (int i = 0; i < 20; ++i) {
                row.fail();
            }
            const Texts logs = fake::logs(1);
            EXPECT_EQ(logs, Texts(logs.size(), row.log));
            return logs.size();
        };
        EXPECT_EQ(printed_at(row.quiet_ms), 0U); // none so far, but not quiet for long enough since the start
        for (const guint64 tick : {row.quiet_ms + 1, (guint64{1} << 32U) - 5}) { // then across the counter's wrap
            EXPECT_EQ(printed_at(tick), row.allowance);
            EXPECT_EQ(printed_at(tick + row.quiet_ms), 0U);
            EXPECT_EQ(printed_at(tick + row.quiet_ms + 1), row.allowance);
        }
    }
}

TEST_F(RateLimitsTest, PrintsAFewThenKeepsQuiet) {
    in_fresh_process(failures_over_time);
}

} // namespace
