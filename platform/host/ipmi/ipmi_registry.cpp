// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "ipmi_registry.h"

#include "caller.h"
#include "item_request.h"
#include "log.h"
#include "request_counts.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

namespace asd_host {
namespace {

constexpr std::uint8_t kHighestNetfn = 0x3F; // 6 bits; requests are even, their answers odd

std::uint32_t key_of(std::uint8_t netfn, std::uint8_t cmd) {
    return (std::uint32_t{netfn} << 8U) | cmd;
}

// Takes text off the front.
bool skip(std::string_view &rest, std::string_view text) {
    if (!rest.starts_with(text)) {
        return false;
    }
    rest.remove_prefix(text.size());
    return true;
}

// Takes a number of one to digits digits off the front.
bool take_number(std::string_view &rest, int base, std::size_t digits, unsigned *number) {
    const std::string_view field = rest.substr(0, digits);
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), *number, base);
    if (error != std::errc{}) {
        return false;
    }
    rest.remove_prefix(static_cast<std::size_t>(end - field.data()));
    return true;
}

bool take_term(std::string_view &rest, FilterTerm *term) {
    unsigned index = 0;
    unsigned value = 0;
    if (!skip(rest, "data[") || !take_number(rest, 10, 3, &index) || !skip(rest, "]=")) {
        return false;
    }
    const std::size_t before = rest.size();
    if (!take_number(rest, 16, 2, &value) || before - rest.size() != 2 || (!skip(rest, "h") && !skip(rest, "H"))) {
        return false;
    }
    *term = {.index = static_cast<std::uint8_t>(index), .value = static_cast<std::uint8_t>(value)};
    return index < kRequestLimit;
}

// Why a row cannot be served; null: it can.
const char *row_fault(const IPMI_CMD_S &row) {
    if (row.netfn > kHighestNetfn || row.netfn % 2 != 0) {
        return "the network function of a request is even and at most 0x3e";
    }
    if (row.ipmi_handler == nullptr) {
        return "it has no handler";
    }
    if (row.min_length > row.max_length) {
        return "its shortest length is above its longest";
    }
    return nullptr;
}

enum class Match { kNo, kTooShortToTell, kYes };

Match match(const std::vector<FilterTerm> &terms, std::span<const std::uint8_t> data) {
    Match result = Match::kYes;
    for (const FilterTerm &term : terms) {
        if (term.index >= data.size()) {
            result = Match::kTooShortToTell;
        } else if (data[term.index] != term.value) {
            return Match::kNo;
        }
    }
    return result;
}

IpmiResponse run_handler(const IPMI_CMD_S &row, const IpmiRequest &request) {
    IpmiResponse response;
    IPMI_MSG_S message{.response = &response, .length = static_cast<std::uint8_t>(request.data.size()), .data = {}};
    std::ranges::copy(request.data, message.data);
    const gint32 status = row.ipmi_handler(&message, row.user_data);
    if (response.empty()) {
        HOST_LOG(kLogError, "the handler of IPMI command 0x%02x/0x%02x sent no response (status %d)", row.netfn,
                 row.cmd, status);
        return {kUnspecifiedError};
    }
    return response;
}

} // namespace

std::optional<std::vector<FilterTerm>> parse_filter(std::string_view filter) {
    std::vector<FilterTerm> terms;
    while (!filter.empty()) {
        FilterTerm term{};
        if ((!terms.empty() && !skip(filter, ",")) || !take_term(filter, &term)) {
            return std::nullopt;
        }
        terms.push_back(term);
    }
    return terms;
}

bool IpmiRegistry::add(std::span<const IPMI_CMD_S> rows, ItemNamed item_named) {
    std::vector<Command> commands;
    for (const IPMI_CMD_S &row : rows) {
        auto terms = parse_filter(row.filter != nullptr ? row.filter : "");
        const char *fault = terms ? row_fault(row) : "its filter is not a list of data[i]=XXh";
        if (fault != nullptr) {
            HOST_LOG(kLogError, "row %td of the IPMI commands (0x%02x/0x%02x) cannot be used: %s", &row - rows.data(),
                     row.netfn, row.cmd, fault);
            return false;
        }
        const auto *name = static_cast<const char *>(row.user_data);
        const OBJ_HANDLE item = item_named == nullptr || name == nullptr ? 0 : item_named(name);
        commands.push_back({.row = &row, .number = 0, .item = item, .terms = std::move(*terms)});
    }
    for (Command &command : commands) {
        command.number = ++last_number_;
        commands_[key_of(command.row->netfn, command.row->cmd)].push_back(std::move(command));
    }
    return true;
}

// Privilege before length: who may not use a command learns nothing of its shape. OpenBMC's daemon answers in this
// order too.
IpmiRegistry::Choice IpmiRegistry::choose(const IpmiRequest &request) const {
    const auto found = commands_.find(key_of(request.netfn, request.cmd));
    if (found == commands_.end()) {
        return {};
    }
    bool too_short = false;
    bool matched = false;
    bool permitted = false;
    for (const Command &command : found->second) {
        const Match result = match(command.terms, request.data);
        too_short = too_short || result == Match::kTooShortToTell;
        if (result != Match::kYes) {
            continue;
        }
        matched = true;
        if (request.privilege < command.row->privilege) {
            continue;
        }
        permitted = true;
        if (request.data.size() >= command.row->min_length && request.data.size() <= command.row->max_length) {
            return {.row = command.row, .number = command.number, .item = command.item, .code = kCompleted};
        }
    }
    if (!matched) {
        return {.code = too_short ? kRequestLengthInvalid : kInvalidCommand};
    }
    return {.code = permitted ? kRequestLengthInvalid : kInsufficientPrivilege};
}

IpmiResponse IpmiRegistry::serve(const IpmiRequest &request) const {
    const auto began = std::chrono::steady_clock::now();
    IpmiResponse response = carry_out(request);
    const Caller *const caller = Caller::here();
    request_counts().note(caller == nullptr ? "none" : caller->door(), response.front(),
                          std::chrono::steady_clock::now() - began);
    return response;
}

IpmiResponse IpmiRegistry::carry_out(const IpmiRequest &request) const {
    if (request.data.size() > kRequestLimit) {
        return {kRequestLengthExceeded};
    }
    const Choice choice = choose(request);
    if (choice.row == nullptr) {
        return {choice.code};
    }
    ItemRequest scope(choice.item);
    if (!scope.has_turn()) {
        return {kNodeBusy};
    }
    IpmiResponse response = run_handler(*choice.row, request);
    scope.end();
    return response;
}

gint32 IpmiRegistry::row_number(const IpmiRequest &request) const {
    return choose(request).number;
}

bool IpmiRegistry::has_command(std::uint8_t netfn, std::uint8_t cmd) const {
    return commands_.contains(key_of(netfn, cmd));
}

IpmiRegistry &ipmi_registry() {
    static IpmiRegistry &registry = *new IpmiRegistry;
    return registry;
}

} // namespace asd_host
