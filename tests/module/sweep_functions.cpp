// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The sweep's functions: what other modules call, and the paths that several commands share.

#include "bmc_asd_common.h"
#include "bmc_asd_ipmi.h"
#include "bmc_asd_ipmi_getter.h"
#include "bmc_asd_objects.h"
#include "bmc_asd_read.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "sweep_world.h"

namespace {

using Operation = std::function<SweepAnswer()>;

Operation without_answer(const std::function<void()> &operation) {
    return [=] {
        operation();
        return SweepAnswer{};
    };
}

SweepCase disturbed(const std::string &name, const Arrange &build, const Operation &run) {
    return {.name = name, .build = build, .run = run, .disturbed = true};
}

// ---- Reads and writes of items -------------------------------------------------------------------------------------

using Read = std::function<gint32(OBJ_HANDLE object, guint8 *data, guint32 length)>;
using Write = std::function<gint32(OBJ_HANDLE object, const guint8 *data, guint32 length)>;

Operation reading(const std::string &object, guint32 length, const Read &read) {
    return [=] {
        Bytes data(length, 0xEE);
        const gint32 status = read(fake::handle_of(object), data.data(), length);
        return answer_of(status, data);
    };
}

Operation writing(const std::string &object, const Bytes &bytes, const Write &write) {
    return [=] { return answer_of(write(fake::handle_of(object), bytes.data(), static_cast<guint32>(bytes.size()))); };
}

SweepEntry item_entry(const std::string &function, const char *item, const Operation &run) {
    SweepEntry entry{.name = function + "-" + item, .cases = {}};
    for (const Condition &condition : conditions(sweep_item(item))) {
        const std::string_view in = condition.name;
        const bool flags = in.starts_with("flags") && function.ends_with("_method");
        const bool telling = in == "as built" || in.starts_with("chip 0 dead") || flags;
        const Arrange build = both([=] { (void)build_sweep_item(item); }, condition.arrange);
        entry.cases.push_back({condition.name, build, run, condition.disturbed && telling});
    }
    return entry;
}

template <typename Function>
auto with_byte(Function function, guint8 byte) {
    return [=](auto item, auto *data, auto length) { return function(item, data, length, byte); };
}

void add_items(SweepEntries *entries) {
    const auto flag = [](guint8 value) {
        return [=](auto item, auto *, auto) { return asd_write_check_flag(item, value); };
    };
    // clang-format off
    for (const auto &[name, read] : std::vector<std::pair<const char *, Read>>{
             {"asd_read_equip", asd_read_equip},
             {"asd_read_equip_one-0", with_byte(asd_read_equip_one, 0)}, {"asd_read_equip_one-1", with_byte(asd_read_equip_one, 1)},
             {"asd_read_method", asd_read_method},
             {"asd_read_one_chip", asd_read_one_chip},
             {"asd_check_read_chip_one-2", with_byte(asd_check_read_chip_one, 2)},
             {"asd_read_chip_dev0check-1", with_byte(asd_read_chip_dev0check, 1)},
             {"asd_read_chip_dev1check-0", with_byte(asd_read_chip_dev1check, 0)}, {"asd_read_chip_dev1check-2", with_byte(asd_read_chip_dev1check, 2)}}) {
        entries->push_back(item_entry(name, "ASD16", reading("ASD16", 8, read)));
    }
    for (const auto &[name, write] : std::vector<std::pair<const char *, Write>>{
             {"asd_write_equip", asd_write_equip},
             {"asd_write_equip_one-0", with_byte(asd_write_equip_one, 0)}, {"asd_write_equip_one-1", with_byte(asd_write_equip_one, 1)},
             {"asd_write_method", asd_write_method},
             {"Asd_WriteMemProperty", Asd_WriteMemProperty},
             {"asd_write_check_flag-0", flag(0)}, {"asd_write_check_flag-1", flag(1)}, {"asd_write_check_flag-3", flag(3)}}) {
        entries->push_back(item_entry(name, "ASD16", writing("ASD16", pattern(5, 90), write)));
    }
    entries->push_back(item_entry("asd_read_method", "ASD52", reading("ASD52", 8, asd_read_method)));
    entries->push_back(item_entry("asd_read_method", "ASD_PowerThreshold", reading("ASD_PowerThreshold", 16, asd_read_method)));
    entries->push_back(item_entry("asd_power_write", "ASD1000", writing("ASD1000", pattern(9, 90), asd_power_write)));
    entries->push_back(item_entry("asd_fan_write_chip", "ASD3", writing("ASD3", pattern(4, 90), asd_fan_write_chip)));
    // clang-format on
    for (const char *item : {"ASD52", "ASD16"}) {
        entries->push_back(item_entry("asd_eeprom_check", item, [=] { return answer_of(asd_eeprom_check(item)); }));
        for (SweepCase &row : entries->back().cases) {
            row.disturbed |= row.name.find("spoilt") != std::string::npos; // the mend itself fails
        }
    }
    for (const char *item : {"ASD14", "ASD26", "ASD7", "ASD_CCDB"}) {
        for (guint8 all = 0; all < 2; ++all) {
            const auto reload = [=] {
                guint8 flag_byte = all;
                return answer_of(process_each_asd_object(fake::handle_of(item), all != 0 ? &flag_byte : nullptr));
            };
            entries->push_back(item_entry("reload-" + std::to_string(all), item, reload));
        }
    }
}

// What depends on a chip's or an item's name.
void add_names(SweepEntries *entries) {
    SweepEntry chips{.name = "chips", .cases = {}};
    SweepEntry checks{.name = "asd_choose_object", .cases = {}};
    const auto kind = [](auto function) { return with_byte(function, ASD_CHECKSUM_CRC32); };
    for (const SweepItem &item : kSweepItems) {
        const std::string name = item.name;
        const Arrange build = [=] { (void)build_sweep_item(name); };
        const auto choose = [=] {
            OBJ_HANDLE check = 0;
            const gint32 status = asd_choose_object(fake::handle_of(name), &check);
            return SweepAnswer{std::to_string(status) + " " +
                               (check != 0 ? *fake::world().objects->name_of(check) : "none")};
        };
        checks.cases.push_back({name, build, choose});
        for (const char *chip : {item.chip0, item.chip1}) {
            if (chip == nullptr) {
                continue;
            }
            const auto holding = [=](const Bytes &bytes) {
                return both(build, [=] { fake::set_chip_bytes(chip, 64, bytes); });
            };
            const Arrange erased = holding(Bytes(item.length + 2, 0xFF));
            const Arrange dead = both(build, both(fault("dfl_block_read", "", 6), fault("dfl_block_write", "", 6)));
            const Arrange gone =
                both(build, both(fault("dfl_block_read", "", 0x20006), fault("dfl_block_write", "", 0x20006)));
            const Operation read = reading(chip, item.length, asd_eeprom_read);
            const Operation write = writing(chip, pattern(4, 90), kind(asd_eeprom_write));
            // clang-format off
            for (const SweepCase &row : std::vector<SweepCase>{
                     {"read", build, read}, {"read spoilt", holding({0xA7}), read}, {"read erased", erased, read}, {"read dead", dead, read}, {"read gone", gone, read},
                     {"checked spoilt", holding({0xA7}), reading(chip, item.length, asd_eeprom_check_read)},
                     {"write", build, write}, {"write dead", dead, write}, {"write gone", gone, write},
                     {"as a fan's", build, writing(chip, pattern(4, 90), kind(asd_fan_eeprom_write))},
                     {"as a power supply's", build, writing(chip, pattern(4, 90), kind(asd_power_eeprom_write))}}) {
                chips.cases.push_back({std::string(chip) + ": " + row.name, row.build, row.run});
            }
            // clang-format on
        }
    }
    entries->push_back(chips);
    entries->push_back(checks);
}

// ---- Board records -------------------------------------------------------------------------------------------------

void add_model(SweepEntries *entries) {
    SweepEntry entry{.name = "model", .cases = {}};
    const Arrange build = [] { (void)build_sweep_item("ASD_PCIEORSAS"); };
    const Operation get = [] {
        guint8 mode = 0xEE;
        const gint32 status = asd_get_backboard_mode_from_backboard(&mode);
        return answer_of(status, {mode});
    };
    const Operation detect = without_answer(spare_backboard_pcieorsas_detect_process);
    entry.cases = {disturbed("get", build, get),
                   disturbed("set", build, [] { return answer_of(asd_set_backboard_mode_to_backboard(0x55)); })};
    for (const Bytes &record : {Bytes{0x33, 0xA5, 0x5A, 0x84}, {0x33, 0xA5, 0x5A, 0x85}, {0x44, 0xA5, 0x5A, 0xF5}}) {
        for (const Bytes &flash : {Bytes{}, {0x33}, {0x44}, {0x55}}) {
            const auto hold = [=] {
                fake::put_record("ASD_PCIEORSASa", record);
                fake::world().board.flash[0x11] = flash;
            };
            const bool telling = flash == Bytes{0x55} || (flash.empty() && record[3] == 0x85);
            entry.cases.push_back(
                {"record " + shown(record) + ", flash " + shown(flash), both(build, hold), detect, telling});
        }
    }
    entries->push_back(entry);
}

void add_card(SweepEntries *entries) {
    SweepEntry entry{.name = "card", .cases = {}};
    constexpr const char *kItem = "ASD_IOCARD_PCIE4";
    const auto hold = [](guint8 first, const Bytes &controller, const Bytes &copy, guint8 cpld) {
        return [=] {
            (void)build_sweep_item(kItem);
            fake::put_record("ASD_IOCARD_PCIE4a", {first, 1, 2, 3, 4, 5, 6, 7});
            fake::world().board.flash = {{0x13, {0xAA}}};
            ASD_SetCtrlIocardPcie2Cpldram(); // a good read: none has failed since
            fake::world().board.flash = {{0x13, controller}, {0x14, copy}};
            fake::world().board.cpld_ram = {{0xCFC1, cpld}};
        };
    };
    const Operation init = without_answer(ASD_InitIocardPcie4);
    for (const guint8 first : Bytes{0xAA, 0x55, 0x37, 0x00, 0xFE}) {
        for (const Bytes &copy : {Bytes{}, {0xAA}, {0x37}}) {
            const std::string name = "record " + shown({first}) + ", copy " + shown(copy);
            entry.cases.push_back({name, hold(first, {0xAA}, copy, 0), init, first == 0xFE});
        }
    }
    for (const Bytes &controller : {Bytes{}, {0xAA}, {0x12}}) {
        for (const guint8 cpld : Bytes{0, 0xAA, 0x12}) {
            const std::string name = "controller " + shown(controller) + ", CPLD " + shown({cpld});
            entry.cases.push_back({name, hold(0xAA, controller, {0xAA}, cpld), init});
        }
    }
    const auto nine_failed = [] {
        for (int i = 0; i < 9; ++i) {
            ASD_SetCtrlIocardPcie2Cpldram();
        }
    };
    const Operation tenth = without_answer(ASD_SetCtrlIocardPcie2Cpldram);
    for (const guint32 length : {7U, 8U}) { // a master's record that is unset is completed when it is whole
        const auto follow = [=] { ASD_SetEepIocardPcie2Cpldram(Bytes{0xFE, 1, 2, 3, 4, 5, 6, 7}.data(), length, 1); };
        entry.cases.push_back(
            {"unset, of " + std::to_string(length), hold(0xFE, {0xAA}, {0x37}, 0), without_answer(follow)});
    }
    entry.cases.push_back({"the tenth failure", both(hold(0xAA, {}, {}, 0), nine_failed), tenth});
    for (const guint32 length : {7U, 8U, 9U}) {
        const auto set = [](auto, auto *data, auto bytes) { return ASD_SetIocardPcie4ToEEP(data, bytes); };
        const auto get = [](auto, auto *data, auto bytes) { return ASD_GetIocardPcie4FromEEP(data, bytes); };
        const auto push = [=] { ASD_SyncIocardPcie4(pattern(length, 0xFE).data(), length); };
        const Arrange build = hold(0xAA, {0xAA}, {0x55}, 0);
        const std::string bytes = std::to_string(length) + " bytes";
        entry.cases.push_back({bytes + " read", build, reading(kItem, length, get)});
        entry.cases.push_back({bytes + " written", build, writing(kItem, pattern(length), set)});
        entry.cases.push_back({bytes + " received", build, without_answer(push)});
    }
    entries->push_back(entry);
}

// ---- Customer block and node view ----------------------------------------------------------------------------------

void add_ccdb(SweepEntries *entries) {
    const Arrange known = [] {
        (void)build_sweep_item("ASD_CCDB");
        AsdSetGCcdbSetData(kPendingBlock.data());
        AsdSetGCcdbSetEn(0);
    };
    const Arrange forgotten = both(known, [] { // as from the start: nobody has read or set it
        fault("memcpy_s")();
        AsdSetGCcdbSetData(kPendingBlock.data());
        fake::lift_faults();
    });
    const Arrange offline = byte_set("ASD_CCDB", "Online", 0);
    const Arrange not_ready = byte_set("ASD_CCDB", "Ready", 0);
    const Operation read = [] { return answer_of(AsdReadCcdbDataFromRam()); };
    const Operation write = without_answer(AsdWriteCcdbDataToEeprom);
    const Operation update = [] { return answer_of(update_ccdb_data_of_ram(pattern(128).data())); };
    const auto set = [](const Bytes &block) {
        const Bytes request = joined({0, 0, 0x80, 0, 0x2C}, block);
        return [=] { return answer_of(fake::call(ipmi_cmd_set_ccdb, "ASD_CCDB", request)); };
    };
    SweepEntry entry{
        .name = "ccdb",
        .cases = {disturbed("read", known, read),
                  {"read, not online", both(known, offline), read},
                  {"read, not ready", both(known, not_ready), read},
                  {"read, Value short", both(known, value_set("ASD_CCDB", {1, 2, 3})), read},
                  disturbed("write", known, write),
                  disturbed("write of a block that nobody knows", forgotten, write),
                  {"the same, not ready", both(forgotten, not_ready), write},
                  {"the same, not online", both(forgotten, offline), write},
                  disturbed("update", known, update),
                  disturbed("keep", known, without_answer([] { AsdSetGCcdbSetData(kPendingBlock.data()); })),
                  {"set as it is", known, set(kPendingBlock)},
                  {"set with another last byte", known, set(joined(part_of(kPendingBlock, 0, 127), {0}))},
                  {"set to zeros when nobody knows it", forgotten, set(Bytes(128, 0))}}};
    for (int state = 0; state < 18; ++state) { // standby before, standby now, the request
        const auto arrange = [=] {
            fake::world().board.standby = state % 2;
            ASD_EEprom_MasterWriteCcdb(); // the state it remembers
            fake::world().board.standby = state / 2 % 3;
            AsdSetGCcdbSetEn(static_cast<guint8>(state / 6));
        };
        entry.cases.push_back({"check " + std::to_string(state), both(known, arrange),
                               without_answer(ASD_EEprom_MasterWriteCcdb), state == 8}); // into standby, requested
    }
    entries->push_back(entry);
}

void add_node_view(SweepEntries *entries) {
    SweepEntry entry{.name = "node-view", .cases = {}};
    const Arrange build = [] {
        (void)build_sweep_item("ASD_NODE_VIEW");
        AsdSetNodeviewFlag(0);
    };
    const auto set = [](const Bytes &view, gint32 length = 64) {
        return [=] { return answer_of(AsdSetNodevie2E2prom(fake::handle_of("ASD_NODE_VIEW"), view.data(), length)); };
    };
    for (const gint32 length : {-1, 0, 1, 63, 64, 65}) {
        entry.cases.push_back({"length " + std::to_string(length), build, set(pattern(66), length)});
    }
    const Operation view = set(pattern(64));
    const Operation other = set(joined(pattern(63), {0}));
    const auto add = [&](const char *name, const Arrange &arrange, const Operation &first, const Operation &second) {
        const auto run = [=] {
            const std::string answer = first().text;
            fake::lift_faults();
            fake::world().on_delay = {};
            return SweepAnswer{answer + ", then " + second().text};
        };
        entry.cases.push_back({name,
                               both(
                                   [=] {
                                       build();
                                       EXPECT_EQ(view().text, "0");
                                   },
                                   arrange),
                               run});
    };
    const Arrange role_lost = [] { // while the first chip is tried again
        fault("dfl_block_write", "ASD_NODE_VIEWa", 6, 1)();
        fake::world().on_delay = [] { AsdSetNodeviewFlag(0); };
    };
    add("the same, then another in its last byte", kAsBuilt, view, other);
    add(
        "the same once it is marked as set", [] { AsdSetNodeviewFlag(1); }, view, view);
    add("another after a time as slave that is marked as set",
        both(both(was(BOARD_MASTER), was(BOARD_SLAVE)), [] { AsdSetNodeviewFlag(1); }), other, other);
    add("after a time as slave", both(was(BOARD_MASTER), was(BOARD_SLAVE)), view, view);
    add("another fails, then the one before", kDeadWrites, other, view);
    add("another while the role is lost, then the same", role_lost, other, other);
    entries->push_back(entry);
}

// ---- Push ----------------------------------------------------------------------------------------------------------

void add_push(SweepEntries *entries) {
    const auto peers = [](std::optional<Bytes> answer) {
        return [=] {
            fake::world().board.slot = 1;
            fake::world().board.online = {0, 1, 2, 3, 4, 5};
            for (guint8 slot = 0; slot < 6; ++slot) {
                fake::world().peers[slot] = [=](const fake::SentRequest &) { return answer; };
            }
        };
    };
    SweepEntry entry{.name = "push", .cases = {}};
    const auto send = [](guint32 length) {
        return without_answer([=] { ASD_EEprom_Sync(pattern(250).data(), 42, length); });
    };
    for (const guint32 length : {0U, 6U, 128U, 129U, 250U}) {
        entry.cases.push_back({std::to_string(length) + " bytes", peers(Bytes{0}), send(length), length == 6});
    }
    entry.cases.push_back({"answered with a code", peers(Bytes{0xC9, 1}), send(6)});
    entry.cases.push_back({"answered with nothing", peers(Bytes{}), send(6)});
    entry.cases.push_back({"not answered", peers(std::nullopt), send(6)});
    entry.cases.push_back({"no such peers", [] { fake::world().board.online = {0, 3}; }, send(6)});
    const Operation item = [] { return answer_of(ASD_SyncEEpromToSlaveForeach(fake::handle_of("ASD10"), nullptr)); };
    entries->push_back(item_entry("push", "ASD10", item));
    for (SweepCase &row : entries->back().cases) {
        row.build = both(row.build, peers(Bytes{0}));
    }
    for (const guint32 length : {128U, 129U}) {
        const Arrange long_item = both([] { (void)build_sweep_item("ASD10"); }, number_set("ASD10", "Length", length));
        entries->back().cases.push_back({"Length " + std::to_string(length), both(long_item, peers(Bytes{0})), item});
    }
    entries->push_back(entry);
}

// ---- Small ones ----------------------------------------------------------------------------------------------------

void add_small(SweepEntries *entries) {
    SweepEntry entry{.name = "small", .cases = {}};
    const Arrange items = [] {
        for (const char *item : {"ASD14", "ASD26", "ASD1000", "ASD3"}) {
            (void)build_sweep_item(item);
        }
        ASD_SyncPcieOrSas(Bytes{0xAA}.data(), 1); // the code it remembers
    };
    const auto add = [&](const std::string &name, const auto &run) {
        if constexpr (std::is_void_v<decltype(run())>) {
            entry.cases.push_back({name, items, without_answer(run)});
        } else {
            entry.cases.push_back({name, items, [=] { return SweepAnswer{std::to_string(run())}; }});
        }
    };
    for (const guint8 length : Bytes{0, 1, 6, 228, 229, 230, 255}) {
        add("print " + std::to_string(length), [=] { Asd_PrintData(pattern(255, 'A').data(), length); });
        add("frame " + std::to_string(length), [=] { return ASD_RequestDataCheck(Bytes(255).data(), length); });
        const Bytes bytes = pattern(255, length);
        add("MAC of " + std::to_string(length), [=] { ASD_SyncASD10(bytes.data(), length); });
        add("model of " + std::to_string(length), [=] { ASD_SyncASD13(bytes.data(), length); });
        add("code of " + std::to_string(length), [=] { ASD_SyncPcieOrSas(Bytes(255, 0x33).data(), length); });
        add("info of " + std::to_string(length), [=] { ASD_SyncProCfgInfo(bytes.data(), length); });
        add("setting " + std::to_string(length), [=] { return gint32{ASD_JudgeValidIocardPcie4(length)}; });
    }
    for (const char *name : {"ASD_BBUSWITCH", "ASD_BBUSWITCH1", "ASDDev7", "ASD14"}) {
        add(std::string("flag failed: ") + name, [=] { AsdCheckFlagErrorlog(name, 1, 5); });
        add(std::string("read failed: ") + name, [=] { AsdChipCheckErrorLog(name, 2, 2, 6); });
        add(std::string("lines: ") + name, [=] {
            asd_write_enable(name);
            asd_write_disable(name);
        });
    }
    static Bytes data = pattern(8);
    static gsize size = 0;
    const auto item = [] { return fake::handle_of("ASD14"); };
    const auto chip = [] { return fake::handle_of("ASDDev14a"); };
    using Method = gint32 (*)(OBJ_HANDLE, GSList *, GSList *, GSList **);
    for (const auto &[name, method] : {std::pair<const char *, Method>("asd_write_data", asd_write_data),
                                       {"asd_eqwrite_data", asd_eqwrite_data},
                                       {"Asd_UpdateMemProperty", Asd_UpdateMemProperty},
                                       {"asd_read_data", asd_read_data},
                                       {"Asd_GetAsdMemData", Asd_GetAsdMemData}}) {
        for (const char *of : {"ASD14", "ASD26"}) { // two copies, one
            add(std::string("no list for the output of ") + name + ", " + of, [of, call = method] {
                GVariant *const bytes =
                    g_variant_ref_sink(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data.data(), 8, 1));
                GSList arguments{bytes, nullptr};
                const gint32 status = call(fake::handle_of(of), nullptr, &arguments, nullptr);
                g_variant_unref(bytes);
                return status;
            });
        }
        static GSList empty{nullptr, nullptr};
        for (GSList *const arguments : {static_cast<GSList *>(nullptr), &empty}) {
            add(std::string(arguments == nullptr ? "no list" : "an empty list") + " of arguments for " + name,
                [item, arguments, call = method] {
                    GSList *output = nullptr;
                    const gint32 status = call(item(), nullptr, arguments, &output);
                    g_slist_free_full(output, [](gpointer value) { g_variant_unref(static_cast<GVariant *>(value)); });
                    return status;
                });
        }
    }
    // clang-format off
    add("flag of no name failed", [] { AsdCheckFlagErrorlog(nullptr, 1, 5); });
    add("read of no name failed", [] { AsdChipCheckErrorLog(nullptr, 2, 2, 6); });
    add("special write of nothing", [=] { return asd_power_eeprom_write(fake::handle_of("ASDDev1000"), nullptr, 8, ASD_CHECKSUM_CRC16) + asd_fan_eeprom_write(fake::handle_of("ASDDev3"), nullptr, 8, ASD_CHECKSUM_CRC16); });
    add("no bytes are no F", [] { return ASD_CheckAsdDataIsFullF(nullptr, 3) + ASD_CheckAsdDataIsFullF(data.data(), 0); });
    add("no frame", [] { return ASD_RequestDataCheck(nullptr, 100); });
    add("no count", [=] { return asd_get_eeprom_count(item(), nullptr); });
    add("no length", [=] { return asd_get_length(item(), nullptr); });
    add("no name to choose", [] { return asd_choose_asd_dev(nullptr, 20); });
    add("no value", [=] { return asd_get_value("ASD14", 8, nullptr, &size) + asd_get_value(nullptr, 8, data.data(), &size) + asd_get_value("ASD14", 8, data.data(), nullptr); });
    add("publish nothing", [=] { return asd_update_property(item(), nullptr, 4); });
    add("set nothing", [=] { return asd_set_value2(item(), nullptr, 4, 0); });
    add("publish no bytes", [=] { return asd_update_property(item(), data.data(), 0); });
    add("no address", [=] { guint32 retry = 0; return asd_eeprom_getoffset(chip(), nullptr, nullptr) + asd_eeprom_getoffset(chip(), &retry, nullptr); });
    add("read to nowhere", [=] { return asd_eeprom_read(chip(), nullptr, 8) + asd_eeprom_check_read(chip(), nullptr, 8); });
    add("write of nothing", [=] { return asd_eeprom_write(chip(), nullptr, 8, ASD_CHECKSUM_CRC16) + asd_write_equip(item(), nullptr, 8) + asd_write_method(item(), nullptr, 8) + Asd_WriteMemProperty(item(), nullptr, 8); });
    add("a record to nowhere", [] { return asd_eeprom_writecrc(data.data(), 4, nullptr); });
    add("short card type", [=] { return asd_bucklecard_writetype(item(), data.data(), 1) + asd_bucklecard_writetype(item(), nullptr, 4); });
    add("nothing of the model, of the card or of the view", [=] { return gint32{asd_get_backboard_mode_from_backboard(nullptr)} + ASD_GetIocardPcie4FromEEP(nullptr, 8) + AsdSetNodevie2E2prom(item(), nullptr, 64); });
    for (const guint32 length : {G_MAXUINT32, G_MAXUINT32 - 1}) { // no room for a checksum
        add("too long a read", [=] { return asd_eeprom_read(chip(), data.data(), length) + asd_eeprom_check_read(chip(), data.data(), length); });
        add("too long a write", [=] { return asd_eeprom_write(chip(), data.data(), length, ASD_CHECKSUM_CRC16); });
        add("too long a key", [=] { return asd_power_eeprom_write(fake::handle_of("ASDDev1000"), data.data(), length, ASD_CHECKSUM_CRC16); });
        add("too long a fan's", [=] { return asd_fan_eeprom_write(fake::handle_of("ASDDev3"), data.data(), length, ASD_CHECKSUM_CRC16); });
        add("too long a record", [=] { return asd_eeprom_writecrc(data.data(), length, data.data()); });
    }
    // clang-format on
    const Operation choose = [] {
        std::array<gchar, 20> name{};
        return SweepAnswer{std::to_string(asd_choose_asd_dev(name.data(), name.size())) + " " + name.data()};
    };
    entry.cases.push_back(disturbed(
        "a buckle card's record", [] { (void)build_sweep_item("ASD_Bucklecard0Eeprom"); },
        writing("ASD_Bucklecard0Eeproma", pattern(4), with_byte(asd_bucklecard_eeprom_writedata, ASD_CHECKSUM_CRC32))));
    entry.cases.push_back({"the usual chip", items, choose});
    entry.cases.push_back(disturbed(
        "the chosen chip", [] { fake::world().board.equip_frame = 1; }, choose));
    entries->push_back(entry);
}

} // namespace

SweepEntries function_entries() {
    SweepEntries entries;
    for (const auto &add : {add_items, add_names, add_model, add_card, add_ccdb, add_node_view, add_push, add_small}) {
        add(&entries);
    }
    return entries;
}
