// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// board: the board's states, which an operator can change while the service runs.

#include "commands.h"
#include "failure.h"
#include "service.h"
#include "texts.h"

#include <algorithm>
#include <array>

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

int run_show(const Context &context) {
    const Snapshot snapshot = Service(context).snapshot();
    if (context.json) {
        print(board_json(snapshot));
        return kDone;
    }
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
    bool first = true;
    for (const auto &[operation, status] : board.faults) {
        table.add({{first ? "Faults" : "", Tone::kQuiet},
                   {operation + " fails with " + status_text(status), Tone::kCaution}});
        first = false;
    }
    if (first) {
        add("Faults", std::string("none"));
    }
    print(std::string_view(table.text(context.out)));
    return kDone;
}

int report(const Context &context, const std::string &what, const Json &value) {
    if (context.json) {
        print(Json{{"set", what}, {"value", value}});
        return kDone;
    }
    print(std::string_view(what + ": " + value.dump() + "\n"));
    return kDone;
}

// One state that is a number.
struct State {
    const char *name;
    const char *what;
    const char *property;
    int max;
};

constexpr std::array kStates = {
    State{.name = "equipment-mode", .what = "Equipment mode: 1 on, 0 off", .property = "EquipmentMode", .max = 255},
    State{.name = "cpld-upgrading",
          .what = "A CPLD upgrade: 1 runs, 0 does not",
          .property = "CpldUpgrading",
          .max = 255},
    State{.name = "power-standby",
          .what = "The system's power: 1 in stand-by, 0 on",
          .property = "PowerStandBy",
          .max = 255},
};

void add_state(CLI::App &set, Command &chosen, const State &state) {
    CLI::App *const command = add_command(set, state.name, state.what, std::string("board set ") + state.name + " 1");
    const auto value = std::make_shared<int>(0);
    command->add_option("VALUE", *value, "0 to " + std::to_string(state.max))
        ->required()
        ->check(CLI::Validator(CLI::Range(0, state.max)).description(""));
    command->callback([&chosen, value, state] {
        chosen = [value, state](const Context &context) {
            const bool whole = std::string_view(state.property) == "PowerStandBy"; // the only one of 32 bits
            Service(context).set_board(state.property, whole ? g_variant_new_int32(*value)
                                                             : g_variant_new_byte(static_cast<guchar>(*value)));
            return report(context, state.name, *value);
        };
    });
}

void add_cpld_bit(CLI::App &set, Command &chosen) {
    struct Options {
        std::uint32_t reg = 0;
        std::uint32_t bit = 0;
        int value = 0;
    };
    CLI::App *const command =
        add_command(set, "cpld-bit", "One bit of a CPLD register", "board set cpld-bit 0x1F8 3 1");
    const auto options = std::make_shared<Options>();
    command->add_option("REGISTER", options->reg, "0 to 0xFFF, such as 0x1F8")->required();
    command->add_option("BIT", options->bit, "0 to 31")
        ->required()
        ->check(CLI::Validator(CLI::Range(0, 31)).description(""));
    command->add_option("VALUE", options->value, "0 or 1")
        ->required()
        ->check(CLI::Validator(CLI::Range(0, 1)).description(""));
    command->callback([&chosen, options] {
        chosen = [options](const Context &context) {
            Service(context).set_cpld_bit(options->reg, options->bit, static_cast<std::uint8_t>(options->value));
            return report(context, "cpld-bit", options->value);
        };
    });
}

void add_fault(CLI::App &set, Command &chosen) {
    struct Options {
        std::string operation;
        std::int32_t status = 0;
    };
    CLI::App *const command = add_command(set, "fault", "Let an operation of the board fail; 0 ends it",
                                          "board set fault BSP_GetEquipMode -5");
    const auto options = std::make_shared<Options>();
    command->add_option("OPERATION", options->operation, "Such as BSP_GetBoardMasterOrSlaveState")->required();
    command->add_option("STATUS", options->status, "The status it fails with; 0: none")->required();
    command->callback([&chosen, options] {
        chosen = [options](const Context &context) {
            if (!std::ranges::all_of(options->operation, [](char c) { return g_ascii_isalnum(c) != 0 || c == '_'; })) {
                throw WrongUsage("the name of an operation has letters, digits and _ alone");
            }
            Service(context).set_fault(options->operation, options->status);
            return report(context, "fault " + options->operation, options->status);
        };
    });
}

} // namespace

void add_board_commands(CLI::App &app, Command &chosen) {
    CLI::App *const board = add_command(app, "board", "The board's states", "board show");
    board->require_subcommand(1);
    add_command(*board, "show", "Show them", "board show")->callback([&chosen] { chosen = run_show; });
    CLI::App *const set = add_command(*board, "set", "Change one while the service runs", "board set equipment-mode 1");
    set->require_subcommand(1);
    for (const State &state : kStates) {
        add_state(*set, chosen, state);
    }
    add_cpld_bit(*set, chosen);
    add_fault(*set, chosen);
}

} // namespace asdctl
