// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Electronic keys and the bay configuration, which travel in frames.

#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using TransferTest = ModuleTest;

// The head of a request, its frame numbers and its data.
Bytes frame(guint16 total, guint16 current, const Bytes &data = {}, guint8 fru = 0) {
    const auto low = [](guint16 number) { return static_cast<guint8>(number & 0xFFU); };
    const auto high = [](guint16 number) { return static_cast<guint8>(number >> 8U); };
    return joined({fru, 0x10, 0x80, 0, 0x1B, low(total), high(total), low(current), high(current)}, data);
}

// ---- Electronic keys -----------------------------------------------------------------------------------------------

const Bytes kMirror = pattern(1024, 1);
const Bytes kStored = pattern(1024, 99);
const Bytes kBuffer = pattern(1024, 50);

void build_keys() {
    for (const std::string number : {"5", "7", "1001"}) {
        const std::string chip = "ASDDev" + number;
        fake::add_chip(chip, {.retry = 1, .lines = {}, .own_protection = number.size() > 1});
        fake::add_item("ASD" + number, {.length = 1024, .chips = {chip}, .ready = 1, .value = kMirror});
        fake::put_record(chip, kStored);
    }
    g_ekey_buffer.store(0, kBuffer);
}

// The answer to a read of frame 1 to 5.
Bytes read_answer(const Bytes &key, std::size_t number) {
    return joined({0}, number < 5 ? part_of(key, 228 * (number - 1), 228)
                                  : joined(part_of(key, 912, 112), Bytes(116, 0xFF)));
}

// The data of write frame 1 to 5.
Bytes write_frame(const Bytes &key, std::size_t number) {
    return part_of(key, 220 * (number - 1), number < 5 ? 220 : 144);
}

TEST_F(TransferTest, AKeyGoesInByFiveFramesAndComesBackByFive) {
    const struct {
        const char *item;
        const char *chip;
        IPMI_CMD_FUNC write;
        guint8 first; // byte of its key
    } rows[] = {{"ASD7", "ASDDev7", ipmi_cmd_set_ekey, 22}, {"ASD1001", "ASDDev1001", ipmi_cmd_set_power_ekey, 44}};
    build_keys();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.item);
        const Bytes key = pattern(1024, row.first);
        for (const guint16 number : std::initializer_list<guint16>{3, 1, 4, 2}) { // in any order
            EXPECT_EQ(fake::call(row.write, row.item, frame(5, number, write_frame(key, number))).response, Bytes{0});
        }
        EXPECT_EQ(fake::chip_bytes(row.chip, 64, 1026), fake::record(kStored)); // not before the fifth
        EXPECT_EQ(fake::call(row.write, row.item, frame(5, 5, write_frame(key, 5))).response, Bytes{0});
        EXPECT_EQ(fake::chip_bytes(row.chip, 64, 1026), fake::record(key));
        for (guint16 number = 1; number <= 5; ++number) {
            for (const IPMI_CMD_FUNC read : {ipmi_cmd_get_ekey_ep, ipmi_cmd_get_ekey}) {
                EXPECT_EQ(fake::call(read, row.item, frame(5, number)).response, read_answer(key, number));
            }
        }
    }
    // The fifth alone: the rest is what the last transfer left, and what a short request lacks is zeros.
    const Bytes left = part_of(fake::value("ASD1001"), 0, 880);
    EXPECT_EQ(fake::call(ipmi_cmd_set_ekey, "ASD5", frame(5, 5, pattern(100, 7))).response, Bytes{0});
    EXPECT_EQ(fake::value("ASD5"), joined(left, joined(pattern(100, 7), Bytes(44, 0))));
}

void build_bay() {
    build_item("ASD25", {.length = 2052, .chips = {"ASDDev25a"}}, {});
    fake::call(ASD_IpmiClearBayconfig, "ASD25", frame(0, 0)); // the buffer, too
    value_set("ASD25", pattern(2052))();                      // starts with "MNOP"
    fake::clear_journal();
}

// ---- The bay configuration file ------------------------------------------------------------------------------------

TEST_F(TransferTest, ABayFileGoesInByTenFramesAndComesBackByNine) {
    build_bay();
    const Bytes file = pattern(2052, 33);
    for (const guint16 number : std::initializer_list<guint16>{2, 1, 3, 4, 5, 6, 7, 8, 9, 10}) {
        EXPECT_EQ(fake::calls("dfl_block_write"), 0U);
        const Bytes data = part_of(file, 220U * (number - 1U), number < 10 ? 220 : 72);
        EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(10, number, data)).response, Bytes{0});
    }
    EXPECT_EQ(fake::chip_bytes("ASDDev25a", 64, 2054), fake::record(file));
    Bytes read = {33, 34, 35, 36};
    EXPECT_EQ(fake::call(ASD_IpmiGetBayconfigFileLen, "ASD25", Bytes(5)).response, joined({0}, read));
    for (guint16 number = 1; number <= 9; ++number) {
        const Bytes answer = fake::call(ASD_IpmiGetBayconfig, "ASD25", frame(9, number)).response;
        read = joined(read, part_of(answer, 1, number < 9 ? 228 : 224));
    }
    EXPECT_EQ(read, file);
    // A shorter file keeps what lay behind it; a short middle frame is padded with zeros; an erase takes it all.
    EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(2, 1, Bytes(50, 1))).response, Bytes{0});
    EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(2, 2, Bytes(5, 2))).response, Bytes{0});
    const Bytes mixed = joined(joined(Bytes(50, 1), Bytes(170, 0)), joined(Bytes(5, 2), part_of(file, 225, 1827)));
    EXPECT_EQ(fake::value("ASD25"), mixed);
    EXPECT_EQ(fake::call(ASD_IpmiClearBayconfig, "ASD25", Bytes(5)).response, Bytes{0});
    EXPECT_EQ(fake::value("ASD25"), Bytes(2052, 0xFF));
    EXPECT_EQ(fake::call(ASD_IpmiSetBayconfig, "ASD25", frame(1, 1, Bytes(50, 3))).response, Bytes{0});
    EXPECT_EQ(fake::value("ASD25"), joined(Bytes(50, 3), Bytes(2002, 0xFF)));
}

} // namespace
