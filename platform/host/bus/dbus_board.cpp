// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_board.h"

#include "property_variant.h"
#include "status.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

namespace asd_host {

namespace {

// ---- Properties ----

struct Kind {
    const char *name; // as in the enclosure file
    bool BoardFacts::*fact;
};

constexpr std::array<Kind, 6> kKinds = {{
    {.name = "ManagementModule", .fact = &BoardFacts::management_module},
    {.name = "ManufacturingBuild", .fact = &BoardFacts::manufacturing_build},
    {.name = "FourUFourController", .fact = &BoardFacts::four_u_four_controller},
    {.name = "EquipmentFrame", .fact = &BoardFacts::equipment_frame},
    {.name = "TarnFourUFourController", .fact = &BoardFacts::tarn_four_u_four_controller},
    {.name = "TwoUExpansion", .fact = &BoardFacts::two_u_expansion},
}};

GVariant *kinds(const BoardFacts &board) {
    GVariantBuilder names;
    g_variant_builder_init(&names, G_VARIANT_TYPE_STRING_ARRAY);
    for (const Kind &kind : kKinds) {
        if (board.*kind.fact) {
            g_variant_builder_add(&names, "s", kind.name);
        }
    }
    return g_variant_builder_end(&names);
}

GVariant *line_levels(const WriteProtectLines &lines) {
    GVariantBuilder levels;
    g_variant_builder_init(&levels, G_VARIANT_TYPE("a{uu}"));
    for (const auto &[line, level] : lines.levels()) {
        g_variant_builder_add(&levels, "{uu}", line, level);
    }
    return g_variant_builder_end(&levels);
}

GVariant *fault_statuses(const BoardState &board) {
    GVariantBuilder faults;
    g_variant_builder_init(&faults, G_VARIANT_TYPE("a{si}"));
    for (const auto &[operation, status] : board.faults()) {
        g_variant_builder_add(&faults, "{si}", operation.c_str(), status);
    }
    return g_variant_builder_end(&faults);
}

struct BoardProperty {
    std::string_view name;
    GVariant *(*get)(Host &);
    void (*set)(BoardState::Live &, GVariant *) = nullptr; // null: read only
};

// clang-format off
constexpr std::array<BoardProperty, 9> kBoardProperties = {{
    {.name = "Slot",              .get = [](Host &host) { return g_variant_new_byte(host.options.slot); }},
    {.name = "Role",              .get = [](Host &host) { return g_variant_new_string(role_name(host.board)); }},
    {.name = "BackplaneEeproms",  .get = [](Host &host) { return g_variant_new_uint32(host.enclosure.board.backplane_eeproms); }},
    {.name = "Kind",              .get = [](Host &host) { return kinds(host.enclosure.board); }},
    {.name = "WriteProtectLines", .get = [](Host &host) { return line_levels(host.lines); }},
    {.name = "Faults",            .get = [](Host &host) { return fault_statuses(host.board); }},
    {.name = "EquipmentMode",     .get = [](Host &host) { return g_variant_new_byte(host.board.live().equipment_mode); },
                                  .set = [](BoardState::Live &live, GVariant *value) { live.equipment_mode = g_variant_get_byte(value); }},
    {.name = "CpldUpgrading",     .get = [](Host &host) { return g_variant_new_byte(host.board.live().cpld_upgrading); },
                                  .set = [](BoardState::Live &live, GVariant *value) { live.cpld_upgrading = g_variant_get_byte(value); }},
    {.name = "PowerStandBy",      .get = [](Host &host) { return g_variant_new_int32(host.board.live().power_standby); },
                                  .set = [](BoardState::Live &live, GVariant *value) { live.power_standby = g_variant_get_int32(value); }},
}};
// clang-format on

const BoardProperty *property_named(std::string_view name) {
    const auto *found = std::ranges::find(kBoardProperties, name, &BoardProperty::name);
    return found == kBoardProperties.end() ? nullptr : found;
}

// ---- Methods ----

constexpr std::uint32_t kRegisterBits = 32;

CallResult done(gint32 status) {
    return status == 0 ? CallResult() : refusal_of(status);
}

CallResult one_byte(std::uint8_t value) {
    return {.outputs = {value}, .error = nullptr, .message = {}};
}

CallResult get_flash(const BoardState &board, std::uint32_t parameter) {
    const auto bytes = board.flash.get(parameter);
    if (!bytes) {
        return refusal(kErrorFailed, "flash parameter " + std::to_string(parameter) + " has never been written");
    }
    return {.outputs = {*bytes}, .error = nullptr, .message = {}};
}

// A bit of a register that the CPLD has, else a refusal.
std::optional<CallResult> no_such_bit(std::uint32_t reg, std::uint32_t bit) {
    if (reg >= BoardState::kCpldRegisterCount) {
        return refusal(kErrorArguments, "register " + std::to_string(reg) + ": the CPLD has registers 0 to " +
                                            std::to_string(BoardState::kCpldRegisterCount - 1));
    }
    if (bit >= kRegisterBits) {
        return refusal(kErrorArguments, "bit " + std::to_string(bit) + ": a register has bits 0 to 31");
    }
    return std::nullopt;
}

std::function<CallResult()> call_get_cpld_bit(Host &platform, GVariant *arguments) {
    std::uint32_t reg = 0;
    std::uint32_t bit = 0;
    g_variant_get(arguments, "(uu)", &reg, &bit);
    return [&board = platform.board, reg, bit] {
        const auto refused = no_such_bit(reg, bit);
        return refused ? *refused : one_byte(static_cast<std::uint8_t>(board.cpld_register(reg) >> bit & 1U));
    };
}

std::function<CallResult()> call_set_cpld_bit(Host &platform, GVariant *arguments) {
    std::uint32_t reg = 0;
    std::uint32_t bit = 0;
    std::uint8_t value = 0;
    g_variant_get(arguments, "(uuy)", &reg, &bit, &value);
    return [&board = platform.board, reg, bit, value] {
        if (const auto refused = no_such_bit(reg, bit)) {
            return *refused;
        }
        return value > 1 ? refusal(kErrorArguments, "a bit is 0 or 1") : done(board.set_cpld_bit(reg, bit, value == 1));
    };
}

std::function<CallResult()> call_get_cpld_ram(Host &platform, GVariant *arguments) {
    std::uint32_t address = 0;
    g_variant_get(arguments, "(u)", &address);
    return [&board = platform.board, address] { return one_byte(board.cpld_ram_byte(address)); };
}

std::function<CallResult()> call_get_flash(Host &platform, GVariant *arguments) {
    std::uint32_t parameter = 0;
    g_variant_get(arguments, "(u)", &parameter);
    return [&board = platform.board, parameter] { return get_flash(board, parameter); };
}

std::function<CallResult()> call_set_fault(Host &platform, GVariant *arguments) {
    const char *operation = nullptr;
    gint32 status = 0;
    g_variant_get(arguments, "(&si)", &operation, &status);
    return [&board = platform.board, name = std::string(operation), status] {
        return board.set_fault(name, status) ? CallResult()
                                             : refusal(kErrorArguments, name + " is no board operation that can fail");
    };
}

struct BoardMethod {
    std::string_view name;
    std::function<CallResult()> (*call)(Host &, GVariant *);
};

constexpr std::array<BoardMethod, 5> kMethods = {{
    {.name = "GetCpldBit", .call = call_get_cpld_bit},
    {.name = "SetCpldBit", .call = call_set_cpld_bit},
    {.name = "GetCpldRam", .call = call_get_cpld_ram},
    {.name = "GetFlash", .call = call_get_flash},
    {.name = "SetFault", .call = call_set_fault},
}};

} // namespace

const char *role_name(BoardState &board) {
    const bool hidden = board.fault("BSP_GetBoardMasterOrSlaveState") != 0;
    switch (hidden ? BOARD_MOS_ERROR : board.role()) {
    case BOARD_MASTER:
        return "master";
    case BOARD_SLAVE:
        return "slave";
    case BOARD_MOS_ERROR:
        break;
    }
    return "error";
}

GVariant *board_property(Host &platform, std::string_view name) {
    const BoardProperty *property = property_named(name);
    return property == nullptr ? nullptr : property->get(platform);
}

bool set_board_property(Host &platform, std::string_view name, GVariant *value) {
    const BoardProperty *property = property_named(name);
    if (property == nullptr || property->set == nullptr) {
        return false;
    }
    BoardState::Live live = platform.board.live();
    property->set(live, value);
    platform.board.set_live(live);
    return true;
}

std::function<CallResult()> board_call(Host &platform, std::string_view method, GVariant *arguments) {
    const auto *found = std::ranges::find(kMethods, method, &BoardMethod::name);
    return found == kMethods.end() ? nullptr : found->call(platform, arguments);
}

} // namespace asd_host
