// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Records kept in EEPROM and mirrored elsewhere: backplane model, I/O card setting, product configuration.

#include "bmc_asd_common.h"
#include "bmc_asd_ipmi_getter.h"
#include "module_test.h"

namespace {

using BoardRecordsTest = ModuleTest;

const Bytes kGet = {0, 0, 0x80, 0, 0};

Bytes set_request(const Bytes &payload) {
    return joined(kGet, payload);
}

Arrange stored(const std::string &chip, const Bytes &data) {
    return [=] { fake::put_record(chip, data); };
}

// ---- Backplane model -----------------------------------------------------------------------------------------------

const Bytes kModel33 = {0x33, 0xA5, 0x5A, 0x84};
const Bytes kModel44 = {0x44, 0xA5, 0x5A, 0xF5}; // no valid code
const Bytes kModel55 = {0x55, 0xA5, 0x5A, 0x3C};
const Bytes kBad33 = {0x33, 0xA5, 0x5A, 0x85};
const std::string kBadCrc = "0  backboard_mode CalCrc8 from e2prom not fit(realcrc8=0x85,calccrc8=0x84)";

void build_model() {
    build_item("ASD_PCIEORSAS", {.length = 4, .chips = {"ModelA"}}, {kModel33});
    fake::world().board.four_u = 1;
}

const Bytes kCard = {0xAA, 1, 2, 3, 4, 5, 6, 0xF7};

void build_card() {
    build_item("ASD_IOCARD_PCIE4", {.length = 8, .chips = {"CardA"}}, {kCard});
}

Texts failed_read(const std::string &item) {
    return {"0 " + item + " read eeprom failed(ret=5)", "0 " + item + " read eeprom count 1 failed, ret=5"};
}

Texts failed_write(const std::string &item) {
    return {"0 asd_write_equip: " + item + " Write eeprom failed[5]!"};
}

Texts thrice(const Texts &one) {
    return with(with(one, one), one);
}

// Both records are read and written with three attempts. A read pauses after each failed attempt, beside the 100 ms of
// the failed transfer itself; a write between attempts.
TEST_F(BoardRecordsTest, EepromAttempts) {
    const Texts lookup = {"0 Call dfl_get_object_handle failed! result: 7."};
    const Texts got33 = {"1 Get backboard from e2prom 0x33 succeed."};
    const Texts set55 = {"1 Set backboard mode to e2prom 0x55 succeed."};
    const std::string bytes = "(0xaa 0x1 0x2 0x3 0x4 0x5 0x6 0xf7)";
    const Texts model_unread = {"0 ASD_PCIEORSAS: Read eeprom failed! result: 5."};
    const Texts card_unread = {"0 ASD_IOCARD_PCIE4: Read eeprom failed! result: 5."};
    const Texts card_unwritten = {"0 Set iocard pcie4 data to e2prom failed(Call asd_write to equip failed,ret =5)."};
    const std::string r = "read ModelA 64 6";
    const std::string w = "write ModelA 64 6";
    const std::string p = ", delay 100, ";
    const std::string card = " CardA 64 10";
    const auto watched = {std::string_view("dfl_block_read"), std::string_view("dfl_block_write"),
                          std::string_view("vos_task_delay")};
    Bytes data; // what was read
    const auto read_model = [&data] {
        data = {0xEE};
        return gint32{asd_get_backboard_mode_from_backboard(data.data())};
    };
    const auto write_model = [] { return gint32{asd_set_backboard_mode_to_backboard(0x55)}; };
    const auto read_card = [&data] {
        data = Bytes(8, 0xEE);
        return ASD_GetIocardPcie4FromEEP(data.data(), 8);
    };
    const auto write_card = [] { return ASD_SetIocardPcie4ToEEP(kCard.data(), 8); };
    const auto read = [&data] { return data; };
    const auto on_chip = [] { return fake::chip_bytes("ModelA", 64, 1); };
    // clang-format off
    run_operation(read_model, build_model, watched, {
        {"the markers do not count", stored("ModelA", {0x33, 0, 0, 0x5C}), 0, r, got33, {0x33}},
        {"one failure", fault("dfl_block_read", "", 5, 1), 0, r + p + "delay 100, " + r, with(failed_read("ASD_PCIEORSAS"), got33), {0x33}},
        {"dead", kDeadReads, 0xFF, r + p + "delay 100, " + r + p + "delay 100, " + r + p + "delay 100", with(thrice(failed_read("ASD_PCIEORSAS")), model_unread), {0xEE}},
        {"unknown", kUnknown, 0xFF, "", lookup, {0xEE}},
    }, read);
    run_operation(write_model, build_model, watched, {
        {"one failure", fault("dfl_block_write", "", 5, 1), 0, w + p + w, with(failed_write("ASD_PCIEORSAS"), set55), {0x55}},
        {"unknown", kUnknown, 0xFF, "", lookup, {0x33}},
    }, on_chip);
    run_operation(read_card, build_card, {"vos_task_delay"}, {
        {"read", kAsBuilt, 0, "", {"1 Get iocard pcie4 data" + bytes + " from e2prom succeed."}, kCard},
        {"dead", kDeadReads, -1, "delay 100, delay 100, delay 100, delay 100, delay 100, delay 100", with(thrice(failed_read("ASD_IOCARD_PCIE4")), card_unread), Bytes(8, 0xEE)},
        {"unknown", kUnknown, -1, "", lookup, Bytes(8, 0xEE)},
    }, read);
    run_operation(write_card, build_card, watched, {
        {"written", kAsBuilt, 0, "write" + card, {"1 Set iocard pcie4 data" + bytes + " to e2prom succeed."}},
        {"dead", kDeadWrites, -1, "write" + card + p + "write" + card + p + "write" + card, with(thrice(failed_write("ASD_IOCARD_PCIE4")), card_unwritten)},
        {"unknown", kUnknown, -1, "", lookup},
    });
    // clang-format on
    fake::clear_journal();
    EXPECT_EQ(asd_get_backboard_mode_from_backboard(nullptr), 0xFF);
    EXPECT_EQ(ASD_GetIocardPcie4FromEEP(data.data(), 7), -1);
    EXPECT_EQ(ASD_SetIocardPcie4ToEEP(kCard.data(), 9), -1);
    EXPECT_EQ(fake::logs(2), (Texts{"0 Input pointer is NULL!", "0 Input pointer or the len(7) is invalid.",
                                    "0 The len of iocard pcie data is invalid(9)."}));
}

TEST_F(BoardRecordsTest, ModelReconciliation) {
    const auto reconcile = [] {
        spare_backboard_pcieorsas_detect_process();
        EXPECT_FALSE(fake::world().board.pcie_model.has_value());
        return 0;
    };
    // The record on the chip, and the copy in flash; none: never written.
    const auto hold = [](const Bytes &record, const Bytes &flash, const Arrange &more = kAsBuilt) {
        return both(both(stored("ModelA", record), more), [=] { fake::world().board.flash[0x11] = flash; });
    };
    const auto eeprom = [] { return fake::chip_bytes("ModelA", 64, 4); };
    const auto flash_fails = fault("BMC_FlashWriteCfgPara", "17", -2);
    const std::string got = "1 Get backboard from e2prom 0x33 succeed.";
    const std::string no_flash = "0 Read pciesas model from local flash faild,local default=0x0";
    const std::string set55 = "1 Set backboard mode to e2prom 0x55 succeed.";
    const std::string default55 = "1 Refresh local pciesas model to default 0x55 ret=";
    // clang-format off
    run_operation(reconcile, build_model, {"BMC_FlashWriteCfgPara"}, {
        {"equal", hold(kModel33, {0x33}), 0, "", {got}, kModel33},
        {"EEPROM wins", hold(kModel33, {0x55}), 0, "flash 17 1 51", {got, "1 Refresh local pciesas model succeed(local=0x55 eep=0x33)"}, kModel33},
        {"flash not written", hold(kModel33, {0x55}, flash_fails), 0, "flash 17 1 51", {got, "0 Refresh local pciesas model failed(local=0x55 eep=0x33 ret=fffffffed)"}, kModel33},
        {"bad EEPROM, flash restores", hold(kBad33, {0x55}), 0, "", {kBadCrc, set55}, kModel55},
        {"no valid code, flash restores", hold(kModel44, {0x33}), 0, "", {"1 Get backboard from e2prom 0x44 succeed.", "1 Set backboard mode to e2prom 0x33 succeed."}, kModel33},
        {"validity other than 1", hold(kModel33, {0x33}, fault("BSP_bPcieorsasModelValid", "", 2)), 0, "flash 17 1 85", {got, set55, default55 + "0"}, kModel55},
        {"neither, nothing written", hold(kBad33, {}, both(flash_fails, kDeadWrites)), 0, "flash 17 1 85",
         with(with({no_flash, kBadCrc}, thrice(failed_write("ASD_PCIEORSAS"))), {"0 set backboard_mode to e2prom failed(Call asd_write to equip failed,ret =5).", default55 + "-2"}), kBad33},
        {"equipment frame", hold(kBad33, {0x44}, [] { fake::world().board.equip_frame = 1; }), 0, "", {"1 Equip frameboard is not supported"}, kBad33},
    }, eeprom);
    // clang-format on
}

TEST_F(BoardRecordsTest, ModelCommands) {
    const auto loaded = [](const Bytes &value) {
        return both(byte_set("ASD_PCIEORSAS", "Ready", 1), value_set("ASD_PCIEORSAS", value));
    };
    const Arrange other_board = [] { fake::world().board.four_u = 0; };
    const std::string read = "read ModelA 64 6";
    // clang-format off
    run_cases(ipmi_cmd_get_backboard_pcieorsas, "ASD_PCIEORSAS", build_model, {
        {"from the chip", kAsBuilt, kGet, {0, 0x33}, {}, read},
        {"from memory", loaded(kModel55), kGet, {0, 0x55}},
        {"other board", other_board, {}, {0xD6}},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 Get backboard model failed(get ipmi src data failed)"}},
        {"chip dead", kDeadReads, kGet, {0xCE}, with(failed_read("ASD_PCIEORSAS"), {"0 Call asd_get_value failed! result: 5."}), read},
        {"wrong CRC on the chip", stored("ModelA", kBad33), kGet, {0xE0}, {"0 Get backboard model failed(realcrc8=0x5a, calcrc8=0x84)"}, read},
    });
    const Bytes set = set_request({0x44});
    const std::string write = "write ModelA 64 6";
    run_cases(ipmi_cmd_set_backboard_pcieorsas, "ASD_PCIEORSAS", build_model, {
        {"other board", other_board, {}, {0xC1}},
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 Set backboard model failed(get ipmi src data failed)."}},
        {"unknown", kUnknown, set, {0xCE}, {"0 Set backboard model failed(Call dfl_get_object_handle failed, ret=7)."}},
        {"chip dead", kDeadWrites, set, {0xCE}, {"0 asd_write_equip: ASD_PCIEORSAS Write eeprom failed[5]!",
         "0 Set backboard model 0x44 failed(Call asd_write_equip failed,ret=5)."}, write},
        {"CPLD fails", fault("BSP_SetPcieSasModelToCpldRam"), set, {0x00}, {"1 Set backboard model 0x44 succeed."}, write},
        {"any code", kAsBuilt, set, {0x00}, {"1 Set backboard model 0x44 succeed."}, write},
    });
    // clang-format on
    EXPECT_EQ(fake::chip_bytes("ModelA", 64, 6), fake::record(kModel44)); // of the last row
    EXPECT_EQ(fake::world().board.pcie_model, 0x44);
    EXPECT_TRUE(fake::world().board.flash.empty());
}

// ---- I/O card setting ----------------------------------------------------------------------------------------------

TEST_F(BoardRecordsTest, CardSettings) {
    const int none = -1;
    // The record's first byte (none: the chip does not answer), flash parameters 0x13 and 0x14, CPLD byte 0xCFC1.
    const auto hold = [](int first, int flash13, int flash14, guint8 cpld) {
        return [=] {
            first < 0 ? kDeadReads()
                      : fake::put_record("CardA", joined({static_cast<guint8>(first)}, part_of(kCard, 1, 7)));
            for (const auto &[parameter, value] : {std::pair{0x13U, flash13}, {0x14U, flash14}}) {
                if (value >= 0) {
                    fake::world().board.flash[parameter] = {static_cast<guint8>(value)};
                }
            }
            fake::world().board.cpld_ram[0xCFC1] = cpld;
        };
    };
    std::size_t writes = 0;
    const auto init = [&writes] {
        ASD_InitIocardPcie4();
        writes = fake::calls("BMC_FlashWriteCfgPara");
        fake::clear_journal(); // of the record's own lines
        return 0;
    };
    // Afterwards: the record's first byte, both flash copies, both CPLD bytes, the writes to flash; 0xEE: never
    // written.
    const auto left = [&writes] {
        fake::Board &board = fake::world().board;
        const auto flash = [&board](guint32 at) {
            return board.flash.contains(at) ? board.flash[at][0] : guint8{0xEE};
        };
        EXPECT_EQ(fake::chip_bytes("CardA", 64, 10), fake::record(fake::chip_bytes("CardA", 64, 8)));
        return Bytes{fake::chip_bytes("CardA", 64, 1)[0],
                     flash(0x13),
                     flash(0x14),
                     board.cpld_ram[0xCFC1],
                     board.cpld_ram[0xCFC2],
                     static_cast<guint8>(writes)};
    };
    // clang-format off
    run_operation(init, build_card, {}, {
        {"all on", hold(0xAA, 0xAA, 0xAA, 0x55), 0, "", {}, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0}},
        {"controller: other value", hold(0xAA, 0x12, 0xAA, 0xAA), 0, "", {}, {0xAA, 0x12, 0xAA, 0x55, 0xAA, 0}},
        {"controller: equal, left alone", hold(0xAA, 0x12, 0xAA, 0x12), 0, "", {}, {0xAA, 0x12, 0xAA, 0x12, 0xAA, 0}},
        {"controller: flash unreadable", hold(0xAA, none, 0xAA, 0xAA), 0, "", {}, {0xAA, 0xEE, 0xAA, 0x55, 0xAA, 0}},
        {"card: flash follows, raw", hold(0x37, 0xAA, 0xAA, 0xAA), 0, "", {}, {0x37, 0xAA, 0x37, 0xAA, 0x55, 1}},
        {"card: flash never written", hold(0, 0xAA, none, 0xAA), 0, "", {}, {0, 0xAA, 0, 0xAA, 0x55, 1}},
        {"card: unset, flash on", hold(0xFE, 0xAA, 0xAA, 0xAA), 0, "", {}, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0}},
        {"card: unset, flash other", hold(0xFE, 0xAA, 0x37, 0xAA), 0, "", {}, {0x55, 0xAA, 0x37, 0xAA, 0x55, 0}},
        {"card: unset, flash unreadable", hold(0xFE, 0xAA, none, 0xAA), 0, "", {}, {0xFE, 0xAA, 0xEE, 0xAA, 0x55, 0}},
        {"chip dead: flash follows to 0", hold(none, 0xAA, 0xAA, 0xAA), 0, "", {}, {0xAA, 0xAA, 0, 0xAA, 0x55, 1}},
    }, left);
    // clang-format on
    fresh_world(); // without the right to write the record is left as it is
    hold(none, none, 0xAA, 0)();
    Bytes record = joined({0xFE}, Bytes(7));
    ASD_SetEepIocardPcie2Cpldram(record.data(), 8, 0);
    EXPECT_EQ(record, joined({0xFE}, Bytes(7)));
    EXPECT_EQ(steps({"BMC_FlashWriteCfgPara", "BSP_SetCpldRam"}), "CpldRam 53186 170");
}

// In a process of its own: failed reads are counted from the start.
void controller_reads_fail() {
    const auto writes_after = [](int failures) {
        for (int i = 0; i < failures; ++i) {
            ASD_SetCtrlIocardPcie2Cpldram();
        }
        return fake::calls("BMC_FlashWriteCfgPara");
    };
    fault("BMC_FlashReadCfgPara")();
    EXPECT_EQ(writes_after(9), 0U);
    EXPECT_EQ(writes_after(1), 1U);
    EXPECT_EQ(fake::world().board.flash[0x13], Bytes{0xFF});
    fake::lift_faults();
    fake::world().board.flash[0x13] = {0x55};
    ASD_SetCtrlIocardPcie2Cpldram();
    fault("BMC_FlashReadCfgPara")();
    EXPECT_EQ(writes_after(9), 1U); // from 0 after a good read
    EXPECT_EQ(writes_after(1), 2U);
}

TEST_F(BoardRecordsTest, TenFailedReadsResetTheControllersSetting) {
    IN_FRESH_PROCESS(controller_reads_fail);
}

// ---- Commands of the opaque records --------------------------------------------------------------------------------

TEST_F(BoardRecordsTest, CardSet) {
    const std::string failed = "0 Set backboard iocard pcie4.0 data failed(";
    const std::string done = "1 Set backboard iocard pcie4.0 data succeed(";
    const std::string write = "write CardA 64 10";
    // clang-format off
    run_cases(ASD_IPMI_SetIocardPCIE4, "ASD_IOCARD_PCIE4", build_card, {
        {"written", kAsBuilt, set_request(kCard), {0x00}, {done + "0xaa 0x1 0x2 0x3 0x4 0x5 0x6 0xf7)."}, write},
        {"no request data", kAsBuilt, {}, {0xCC}, {failed + "get ipmi src data failed)."}},
        {"unknown", kUnknown, set_request(pattern(7)), {0xCE}, {failed + "Call dfl_get_object_handle failed, ret=7)."}},
        {"12 bytes", kAsBuilt, set_request(pattern(7)), {0xC9}},
        {"chip dead", kDeadWrites, set_request(kCard), {0xCE}, with(failed_write("ASD_IOCARD_PCIE4"), {failed + "Call asd_write_equip failed,ret=5)."}), write},
    });
    // clang-format on
}

// The second chip alone is good.
void build_product() {
    const Texts chips = {"InfoA", "InfoB"};
    build_item("ASD_PRODUCT_CFGINFO", {.length = 64, .chips = chips, .value = pattern(64)}, {{}, pattern(64, 20)});
    build_item("ASD_PRODUCT_CFGINFO_VALID", {.length = 1, .chips = {"FlagA", "FlagB"}}, {{1}, {2}});
}

TEST_F(BoardRecordsTest, ProductInfoCommands) {
    const Arrange loaded = byte_set("ASD_PRODUCT_CFGINFO", "Ready", 1);
    const std::string item = "ASD_PRODUCT_CFGINFO";
    const std::string read = "read FlagA 64 3, read FlagB 64 3, read InfoB 64 66";
    const std::string chips = "write InfoA 64 66, write InfoB 64 66";
    const std::string write = chips + ", write FlagA 64 3, write FlagB 64 3";
    const Bytes request = set_request(pattern(64, 90));
    // clang-format off
    run_cases(Ipmi_cmdGetProductCfgInfo, "ASD_PRODUCT_CFGINFO", build_product, {
        {"from the good chip", kAsBuilt, kGet, joined({0}, pattern(64, 20)), {}, read},
        {"from memory, without request data", both(loaded, kDeadReads), {}, joined({0}, pattern(64))},
        {"unknown", kUnknown, kGet, {0xCC}, {"0 Get product cfg info failed(get ASD_PRODUCT_CFGINFO handle failed ret=7)"}},
        {"Ready unreadable", fault("dfl_get_property_ubyte", item + ".Ready"), kGet, {0xCE}},
        {"Value unreadable", both(loaded, unreadable(item + ".Value")), kGet, {0xCE},
         {"0 Get " + item + " value failed! ret: 7.", "0 Get product cfg info failed(Call asd_get_value failed ret=7)"}},
        {"chip dead", fault("dfl_block_read", "InfoB", 5), kGet, {0xCE},
         {"0 " + item + ")Only read 2nd EEPROM and read failed! check_flag: 1, ret: 5.", "0 Get product cfg info failed(Call asd_read_method failed ret=5)"}, read},
    });
    run_cases(Ipmi_cmdSetProductCfgInfo, "ASD_PRODUCT_CFGINFO", build_product, {
        {"no request data", kAsBuilt, {}, {0xCC}, {"0 Set product cfg info failed(get ipmi src data failed)"}},
        {"unknown", kUnknown, request, {0xCE}, {"0 Set product cfg info failed(get ASD_PRODUCT_CFGINFO handle failed ret=7)"}},
        {"chips dead", kDeadWrites, request, {0xCE}, {"1 asd_write_chip_check: Write 1st EEPROM failed! ret: 5.", "1 asd_write_chip_check: Write 2nd EEPROM failed! ret: 5.",
         "1 asd_write_method: Write eeprom failed! result: -1006.", "0 Set product cfg info failed(write failed ret=-1006)"}, chips},
        {"CPLD fails: the chips keep it", fault("BSP_SetProductCfgInfoToCpldRam"), request, {0xCE},
         {"0 Set product cfg info failed(write cpldram failed ret=7)"}, write},
        {"written", kAsBuilt, request, {0x00}, {"1 Set product cfg info succeed"}, write},
    });
    // clang-format on
    EXPECT_EQ(fake::world().board.product_info, pattern(64, 90)); // of the last row
    EXPECT_EQ(fake::chip_bytes("InfoB", 64, 66), fake::record(pattern(64, 90)));
}

} // namespace
