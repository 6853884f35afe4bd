// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "sweep_world.h"

#include <algorithm>

const SweepItem &sweep_item(std::string_view name) {
    const auto found =
        std::ranges::find(kSweepItems, name, [](const SweepItem &item) { return std::string_view(item.name); });
    if (found == kSweepItems.end()) {
        std::abort(); // a mistake of the test
    }
    return *found;
}

guint8 sweep_number(std::string_view name) {
    return static_cast<guint8>(&sweep_item(name) - kSweepItems.data());
}

Bytes sweep_record(const SweepItem &item) {
    const std::string_view name = item.name;
    if (name == "ASD_PCIEORSAS") {
        return {0x33, 0xA5, 0x5A, 0x84};
    }
    if (name == "ASD_IOCARD_PCIE4") {
        return {0xAA, 1, 2, 3, 4, 5, 6, 7};
    }
    return item.length == 1 ? Bytes{1} : pattern(item.length, 10);
}

Bytes sweep_value(const SweepItem &item) {
    return item.length == 4 ? Bytes{0x55, 0xA5, 0x5A, 0x3C} : pattern(item.length, 100);
}

OBJ_HANDLE build_sweep_item(std::string_view name) {
    const SweepItem &item = sweep_item(name);
    if (item.check != nullptr) {
        (void)build_sweep_item(item.check);
    }
    Texts chips = {item.chip0};
    if (item.chip1 != nullptr) {
        chips.emplace_back(item.chip1);
    }
    const bool own_protection = name.starts_with("ASD_Buckle") || item.length == 1024;
    for (const std::string &chip : chips) {
        fake::add_chip(chip,
                       {.retry = 2,
                        .size = item.length + 200,
                        .lines = chip == "ASDDev7" || chip.starts_with("ASDDev100") || name.starts_with("ASD_Buckle")
                                     ? std::vector<guint32>{}
                                     : std::vector<guint32>{55, 56},
                        .own_protection = own_protection && chips.size() == 1 && chip != "ASDDev7",
                        .stg_is_wp = static_cast<guint8>(name == "ASD_Bucklecard0EepromSub" ? 0 : 1)});
        fake::put_record(chip, sweep_record(item));
    }
    return fake::add_item(item.name, {.length = item.length,
                                      .chips = chips,
                                      .num = sweep_number(name),
                                      .ready = 1,
                                      .need_sync = 1,
                                      .value = sweep_value(item)});
}

std::vector<Condition> conditions(const SweepItem &item) {
    const std::string name = item.name;
    const Texts chips = item.chip1 != nullptr ? Texts{item.chip0, item.chip1} : Texts{item.chip0};
    const auto each_chip = [=](const std::function<void(const std::string &)> &change) {
        return [=] { std::ranges::for_each(chips, change); };
    };
    const auto on_board = [](gint32 fake::Board::*fact, gint32 value) {
        return [=] { fake::world().board.*fact = value; };
    };
    const Arrange not_loaded = byte_set(name, "Ready", 0);
    const Arrange erased =
        each_chip([=](const std::string &chip) { fake::set_chip_bytes(chip, 64, Bytes(item.length + 2, 0xFF)); });
    const auto spoilt = [=](const char *chip) { return [=] { fake::set_chip_bytes(chip, 64, {0xA7}); }; };
    const auto dead = [](const char *chip) {
        return both(fault("dfl_block_read", chip, 6), fault("dfl_block_write", chip, 6));
    };
    const auto length = [=](guint32 bytes) { return number_set(name, "Length", bytes); };
    const auto chip_count = [=](guint32 count) { return number_set(name, "DevCount", count); };
    // clang-format off
    std::vector<Condition> all = {
        {"as built", kAsBuilt, true},
        {"not loaded", not_loaded, true},
        {"slave", on_slave},
        {"role unknown", [] { g_masterMode = BOARD_MOS_ERROR; }},
        {"Ready 200", byte_set(name, "Ready", 200)},
        {"not online", byte_set(name, "Online", 0)},
        {"Value erased", value_set(name, Bytes(item.length, 0xFF))},
        {"Value erased but for its last byte", value_set(name, joined(Bytes(item.length - 1, 0xFF), {0xFE}))},
        {"Value empty", value_set(name, {})},
        {"Value short", value_set(name, {0x4D})},
        {"Value long", value_set(name, pattern(item.length + 9))},
        {"erased, not loaded", both(erased, not_loaded)},
        {"chip 0 spoilt, not loaded", both(spoilt(item.chip0), not_loaded)},
        {"chip 0 dead, not loaded", both(dead(item.chip0), not_loaded), item.chip1 != nullptr},
        {"chip 0 dead, idle board", both(both(dead(item.chip0), not_loaded), [] { fake::world().board.cpld_bits[{0x1F8, 1}] = 1; })},
        {"one chip", chip_count(1)},
        {"three chips", chip_count(3)},
        {"other board", on_board(&fake::Board::four_u, 0)},
        {"equipment frame", on_board(&fake::Board::equip_frame, 1)},
        {"equipment frame, one chip, not loaded", both(both(on_board(&fake::Board::equip_frame, 1), not_loaded), chip_count(1))},
        {"other line", on_board(&fake::Board::tarn, 1)},
        {"one backplane EEPROM", [] { fake::world().board.backplane_eeproms = 1; }},
        {"manufacturing, chip 0 dead", both(on_board(&fake::Board::manufacturing, 1), dead(item.chip0))},
        {"Length 0", length(0)},
        {"Length 1, not loaded", both(length(1), not_loaded)},
        {"Length 3 more, not loaded", both(length(item.length + 3), not_loaded)},
        {"Length 8193", length(8193)},
        {"no RetryNumber, chip 0 dead", both(each_chip([](const std::string &chip) { fake::remove_property(chip, "RetryNumber"); }), both(dead(item.chip0), not_loaded))},
        {"RetryNumber 0", both(each_chip([](const std::string &chip) { number_set(chip, "RetryNumber", 0)(); }), not_loaded)},
    };
    if (item.chip1 != nullptr) {
        all.push_back({"chips differ", [=] { fake::put_record(item.chip1, pattern(item.length, 50)); }});
        all.push_back({"chip 1 spoilt, not loaded", both(spoilt(item.chip1), not_loaded)});
        all.push_back({"both spoilt, not loaded", both(both(spoilt(item.chip0), spoilt(item.chip1)), not_loaded)});
        all.push_back({"chip 1 dead, not loaded", both(dead(item.chip1), not_loaded)});
        all.push_back({"both dead, not loaded", both(both(dead(item.chip0), dead(item.chip1)), not_loaded)});
    }
    if (item.check != nullptr) {
        const SweepItem &check = sweep_item(item.check);
        const auto flags = [=](guint8 flag0, guint8 flag1) {
            return both([=] { fake::put_record(check.chip0, {flag0}); fake::put_record(check.chip1, {flag1}); }, not_loaded);
        };
        all.push_back({"flags 2 and 1", flags(2, 1), true});
        all.push_back({"flags 1 and 2", flags(1, 2), true});
        all.push_back({"flags dead", both(both(dead(check.chip0), dead(check.chip1)), not_loaded)});
        all.push_back({"flag 0 dead", both(dead(check.chip0), not_loaded)});
        all.push_back({"flag 0 spoilt", both(spoilt(check.chip0), not_loaded)});
    }
    // clang-format on
    return all;
}
