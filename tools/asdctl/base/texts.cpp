// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "texts.h"

#include <algorithm>
#include <array>
#include <functional>
#include <string_view>

#include <glib.h>

namespace asdctl {

namespace {

struct StatusRow {
    std::int32_t status;
    std::string_view text;
};

// clang-format off
constexpr std::array kStatuses = {
    StatusRow{.status = -2008, .text = "not available on this platform"},
    StatusRow{.status = -2007, .text = "a state file could not be read or written"},
    StatusRow{.status = -2006, .text = "a time limit passed"},
    StatusRow{.status = -2005, .text = "the property is configuration"},
    StatusRow{.status = -2004, .text = "the property has another type"},
    StatusRow{.status = -2003, .text = "the object has no such property"},
    StatusRow{.status = -2002, .text = "there is no such object"},
    StatusRow{.status = -2001, .text = "an argument is missing or out of range"},
    StatusRow{.status = -1019, .text = "the checksum was still wrong after three reads"},
    StatusRow{.status = -1018, .text = "the item has no check object"},
    StatusRow{.status = -1017, .text = "no item of that name"},
    StatusRow{.status = -1016, .text = "the two chips hold different data"},
    StatusRow{.status = -1014, .text = "the method's arguments cannot be used"},
    StatusRow{.status = -1012, .text = "the copy in memory could not be written"},
    StatusRow{.status = -1008, .text = "the item has neither one nor two chips"},
    StatusRow{.status = -1007, .text = "the item is not online"},
    StatusRow{.status = -1006, .text = "neither of the two chips can be used"},
    StatusRow{.status = -1005, .text = "the bytes could not be handed over"},
    StatusRow{.status = -1001, .text = "there are no bytes to publish"},
    StatusRow{.status =    -1, .text = "refused, or out of memory; the service's log says why"},
    StatusRow{.status =     0, .text = "no error"},
    StatusRow{.status =     1, .text = "the record's checksum is wrong: never written, or damaged"},
};
// clang-format on
static_assert(std::ranges::adjacent_find(kStatuses, std::ranges::greater_equal{}, &StatusRow::status) ==
              kStatuses.end());

struct CompletionRow {
    std::uint8_t code;
    std::string_view name;
};

// clang-format off
constexpr std::array kCompletions = {
    CompletionRow{.code = 0x00, .name = "completed normally"},
    CompletionRow{.code = 0xC0, .name = "node busy"},
    CompletionRow{.code = 0xC1, .name = "invalid command"},
    CompletionRow{.code = 0xC2, .name = "command invalid for this LUN"},
    CompletionRow{.code = 0xC3, .name = "timeout while processing the command"},
    CompletionRow{.code = 0xC4, .name = "out of space"},
    CompletionRow{.code = 0xC5, .name = "reservation cancelled or invalid"},
    CompletionRow{.code = 0xC6, .name = "request data truncated"},
    CompletionRow{.code = 0xC7, .name = "request data length invalid"},
    CompletionRow{.code = 0xC8, .name = "request data field length limit exceeded"},
    CompletionRow{.code = 0xC9, .name = "parameter out of range"},
    CompletionRow{.code = 0xCA, .name = "cannot return number of requested data bytes"},
    CompletionRow{.code = 0xCB, .name = "requested sensor, data or record not present"},
    CompletionRow{.code = 0xCC, .name = "invalid data field in request"},
    CompletionRow{.code = 0xCD, .name = "command illegal for this sensor or record type"},
    CompletionRow{.code = 0xCE, .name = "command response could not be provided"},
    CompletionRow{.code = 0xCF, .name = "cannot execute duplicated request"},
    CompletionRow{.code = 0xD0, .name = "SDR repository in update mode"},
    CompletionRow{.code = 0xD1, .name = "device in firmware update mode"},
    CompletionRow{.code = 0xD2, .name = "initialization in progress"},
    CompletionRow{.code = 0xD3, .name = "destination unavailable"},
    CompletionRow{.code = 0xD4, .name = "insufficient privilege level"},
    CompletionRow{.code = 0xD5, .name = "not supported in present state"},
    CompletionRow{.code = 0xD6, .name = "sub-function disabled or unavailable"},
    CompletionRow{.code = 0xFF, .name = "unspecified error"},
};
// clang-format on
static_assert(std::ranges::adjacent_find(kCompletions, std::ranges::greater_equal{}, &CompletionRow::code) ==
              kCompletions.end());

// Statuses of chip transfers are positive: a class bit and an errno value.
constexpr std::int32_t kTransferFailed = 0x10000;
constexpr std::int32_t kPartAbsent = 0x20000;
constexpr std::int32_t kErrno = 0xFFFF;

std::string status_meaning(std::int32_t status) {
    const auto *const row = std::ranges::find(kStatuses, status, &StatusRow::status);
    if (row != kStatuses.end()) {
        return std::string(row->text);
    }
    const std::int32_t error = status & kErrno;
    const std::string reason = error == 0 ? "" : std::string(" (") + g_strerror(error) + ")";
    if (status == (kTransferFailed | error)) {
        return "the transfer to or from the part failed" + reason;
    }
    if (status == (kPartAbsent | error)) {
        return "the part does not answer" + reason;
    }
    return {};
}

} // namespace

std::string status_text(std::int32_t status) {
    return std::to_string(status) + ": " + status_meaning(status);
}

std::string completion_name(std::uint8_t code) {
    const auto *const row = std::ranges::find(kCompletions, code, &CompletionRow::code);
    if (row != kCompletions.end()) {
        return std::string(row->name);
    }
    if (code >= 0x80 && code <= 0xBE) {
        return "particular to the command";
    }
    return code >= 0x01 && code <= 0x7E ? "particular to the device" : "reserved";
}

std::string completion_text(std::uint8_t code) {
    return "completion code " + hex_byte(code) + " (" + completion_name(code) + ")";
}

std::string hex_byte(std::uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    return {'0', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
}

} // namespace asdctl
