// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The registered IPMI commands and the rules that bring a request to its handler.

#include "ipmi_stack.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace asd_host {

inline constexpr std::size_t kRequestLimit = 255;   // bytes of request data
inline constexpr std::size_t kResponseLimit = 1025; // completion code and 1024 bytes: what ipmitool's buffer holds
inline constexpr std::uint8_t kAdministrator = 4;   // privilege level: 1 callback, 2 user, 3 operator, 5 OEM

// Completion codes of the stack itself (IPMI 2.0, table 5-2).
enum CompletionCode : std::uint8_t {
    kCompleted = 0x00,
    kWriteProtected = 0x80, // of Write FRU Data
    kNodeBusy = 0xC0,
    kInvalidCommand = 0xC1,
    kTimeout = 0xC3,
    kReservationLost = 0xC5,
    kRequestLengthInvalid = 0xC7,
    kRequestLengthExceeded = 0xC8,
    kOutOfRange = 0xC9,
    kResponseTooLong = 0xCA,
    kDataAbsent = 0xCB,
    kInvalidField = 0xCC,
    kInsufficientPrivilege = 0xD4,
    kNotInThisState = 0xD5,
    kUnspecifiedError = 0xFF,
};

struct IpmiRequest {
    std::uint8_t netfn = 0;
    std::uint8_t lun = 0;
    std::uint8_t cmd = 0;
    std::span<const std::uint8_t> data{}; // over 255 bytes: answered 0xC8
    std::uint8_t privilege = 0;           // of the requester
};

// Completion code first.
using IpmiResponse = std::vector<std::uint8_t>;

// One "data[i]=XXh" of a filter.
struct FilterTerm {
    std::uint8_t index;
    std::uint8_t value;
    bool operator==(const FilterTerm &) const = default;
};
// The terms of a filter text; none for an empty one; nothing when it is not such a text.
[[nodiscard]] std::optional<std::vector<FilterTerm>> parse_filter(std::string_view filter);

class IpmiRegistry {
public:
    // The item of that name; 0: there is none.
    using ItemNamed = OBJ_HANDLE (*)(const char *name);

    // Takes the rows, which stay the caller's and outlive the registry; each filter is parsed once. A row whose user
    // data is an item's name is of that item; with item_named null none is. False: a row is unusable (the log says
    // which and why) and none is taken. Not while requests are served.
    [[nodiscard]] bool add(std::span<const IPMI_CMD_S> rows, ItemNamed item_named = nullptr);

    // Serves one request on the caller's thread and returns the answer, whatever the handler does: no row 0xC1 (0xC7
    // when the request is too short to tell), privilege too low 0xD4, length out of bounds 0xC7, a handler that sends
    // nothing 0xFF. Requests whose row names an item are carried out one after the other, reads too; 0xC0 when its turn
    // does not come within ItemTurn::kLimit. Counted in request_counts(). Any thread.
    [[nodiscard]] IpmiResponse serve(const IpmiRequest &request) const;

    // The number of the row that would serve the request, from 1 on; 0: none would.
    [[nodiscard]] gint32 row_number(const IpmiRequest &request) const;
    // A row has this command, whatever its filter says.
    [[nodiscard]] bool has_command(std::uint8_t netfn, std::uint8_t cmd) const;

private:
    struct Command {
        const IPMI_CMD_S *row;
        gint32 number;
        OBJ_HANDLE item; // 0: none
        std::vector<FilterTerm> terms;
    };
    struct Choice { // the row that serves a request, or the code to answer with
        const IPMI_CMD_S *row = nullptr;
        gint32 number = 0;
        OBJ_HANDLE item = 0;
        CompletionCode code = kInvalidCommand;
    };
    [[nodiscard]] Choice choose(const IpmiRequest &request) const;
    [[nodiscard]] IpmiResponse carry_out(const IpmiRequest &request) const;

    gint32 last_number_ = 0;
    std::unordered_map<std::uint32_t, std::vector<Command>>
        commands_; // by netfn << 8 | cmd; rows in order of registration
};

// The registry behind every door of this process; never destroyed.
[[nodiscard]] IpmiRegistry &ipmi_registry();

} // namespace asd_host

// A request while its handler runs. The bytes come last, so that a handler that reads past them leaves the object.
struct IPMI_MSG_S {
    asd_host::IpmiResponse *response; // empty until the handler answers
    std::uint8_t length;
    std::uint8_t data[asd_host::kRequestLimit];
};
