// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// board: the board's states, which an operator can change while the service runs.

#include "commands.h"
#include "failure.h"
#include "service.h"
#include "texts.h"

#include <algorithm>
#include <array>
#include <utility>

namespace asdctl {

namespace {

Json board_json(const Snapshot &snapshot) {
    const Board &board = snapshot.board;
    Json lines = Json::object();
    for (const auto &[line, level] : board.write_protect_lines) {
        lines[std::to_string(line)] = level;
    }
    return {{"slot", snapshot.slot},
            {"role", board.role},
            {"backplane_eeproms", board.backplane_eeproms},
            {"kind", board.kinds},
            {"equipment_mode", board.equipment_mode},
            {"cpld_upgrading", board.cpld_upgrading},
            {"power_standby", board.power_standby},
            {"write_protect_lines", lines},
            {"faults", board.faults}};
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text.empty() ? "-" : text;
}

Cell switch_cell(int value) {
    if (value == 0) {
        return {"off", Tone::kPlain};
    }
    return {value == 1 ? "on" : "on (" + std::to_string(value) + ")", Tone::kCaution};
}

std::string board_text(const Screen &screen, const Snapshot &snapshot) {
    const Board &board = snapshot.board;
    std::vector<std::string> lines;
    for (const auto &[line, level] : board.write_protect_lines) {
        lines.push_back(std::to_string(line) + (level == 0 ? " protects" : " open for a write"));
    }
    Table table = Table::pairs();
    const auto add = [&table](const char *name, const Cell &cell) { table.add({Cell(name, Tone::kQuiet), cell}); };
    add("Slot", std::to_string(snapshot.slot));
    add("Role", {board.role, board.role == "error" ? Tone::kBad : Tone::kStrong});
    add("Kind", joined(board.kinds));
    add("Backplane EEPROMs", std::to_string(board.backplane_eeproms));
    add("Write-protect lines", joined(lines));
    add("Equipment mode", switch_cell(board.equipment_mode));
    add("CPLD upgrade", switch_cell(board.cpld_upgrading));
    add("Power stand-by", switch_cell(board.power_standby));
    const char *title = "Faults";
    for (const auto &[operation, status] : board.faults) {
        add(std::exchange(title, ""), {operation + " fails with " + status_text(status), Tone::kCaution});
    }
    if (board.faults.empty()) {
        add(title, std::string("none"));
    }
    return table.text(screen);
}

int run_show(const Context &context) {
    const Snapshot snapshot = Service(context).snapshot();
    return answer(context, board_json(snapshot), board_text(context.out, snapshot));
}

int report(const Context &context, const std::string &what, std::int64_t value) {
    return answer(context, {{"set", what}, {"value", value}}, what + ": " + std::to_string(value) + "\n");
}

// One state that is a number.
struct State {
    const char *name;
    const char *what;
    const char *property;
    const char *type;
};

// clang-format off
constexpr std::array kStates = {
    State{.name = "equipment-mode", .what = "Equipment mode: 1 on, 0 off",            .property = "EquipmentMode", .type = "y"},
    State{.name = "cpld-upgrading", .what = "A CPLD upgrade: 1 runs, 0 does not",     .property = "CpldUpgrading", .type = "y"},
    State{.name = "power-standby",  .what = "The system's power: 1 in stand-by, 0 on", .property = "PowerStandBy", .type = "i"},
};
// clang-format on

void add_state(CLI::App &set, Command &chosen, const State &state) {
    CLI::App *const command = add_command(set, state.name, state.what, std::string("board set ") + state.name + " 1");
    const auto value = std::make_shared<int>(0);
    command->add_option("VALUE", *value, "0 or 1")->required()->check(unsaid(CLI::Range(0, 1)));
    command->callback([&chosen, value, state] {
        chosen = [value, state](const Context &context) {
            Service(context).set_board(state.property, g_variant_new(state.type, *value));
            return report(context, state.name, *value);
        };
    });
}

struct CpldBit {
    std::uint32_t reg = 0;
    std::uint32_t bit = 0;
    std::uint8_t value = 0;
};

int run_cpld_bit(const Context &context, const CpldBit &options) {
    Service(context).set_cpld_bit(options.reg, options.bit, options.value);
    return report(context, "cpld-bit", options.value);
}

struct Fault {
    std::string operation;
    std::int32_t status = 0;
};

int run_fault(const Context &context, const Fault &options) {
    if (!std::ranges::all_of(options.operation, [](char c) { return g_ascii_isalnum(c) != 0 || c == '_'; })) {
        throw WrongUsage("the name of an operation has letters, digits and _ alone");
    }
    Service(context).set_fault(options.operation, options.status);
    return report(context, "fault " + options.operation, options.status);
}

} // namespace

void add_board_commands(CLI::App &app, Command &chosen) {
    CLI::App *const board = add_family(app, "board", "The board's states", "board show");
    add_command(*board, "show", "Show them", "board show")->callback([&chosen] { chosen = run_show; });
    CLI::App *const set = add_family(*board, "set", "Change one while the service runs", "board set equipment-mode 1");
    for (const State &state : kStates) {
        add_state(*set, chosen, state);
    }
    const auto [cpld_bit, bit] = add_command(*set, chosen, "cpld-bit", "One bit of a CPLD register",
                                             "board set cpld-bit 0x1F8 3 1", run_cpld_bit);
    cpld_bit->add_option("REGISTER", bit->reg, "0 to 0xFFF, such as 0x1F8")->required();
    cpld_bit->add_option("BIT", bit->bit, "0 to 31")->required()->check(unsaid(CLI::Range(0, 31)));
    cpld_bit->add_option("VALUE", bit->value, "0 or 1")->required()->check(unsaid(CLI::Range(0, 1)));
    const auto [set_fault, fault] = add_command(*set, chosen, "fault", "Let an operation of the board fail; 0 ends it",
                                                "board set fault BSP_GetEquipMode -5", run_fault);
    set_fault->add_option("OPERATION", fault->operation, "Such as BSP_GetBoardMasterOrSlaveState")->required();
    set_fault->add_option("STATUS", fault->status, "The status it fails with; 0: none")->required();
}

} // namespace asdctl
