// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Statuses other than 0: the host's own, and in words also those that modules answer method calls with.

#include "bus_names.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace asd_shared {

inline constexpr std::int32_t kBadArgument = -2001;   // a null or out-of-range argument
inline constexpr std::int32_t kNoObject = -2002;      // no object of that name, handle, class or alias
inline constexpr std::int32_t kNoProperty = -2003;    // the object has no such property
inline constexpr std::int32_t kWrongType = -2004;     // the property holds, or the write offers, another type
inline constexpr std::int32_t kReadOnly = -2005;      // the property is configuration
inline constexpr std::int32_t kTimedOut = -2006;      // the time limit passed
inline constexpr std::int32_t kStorageFailed = -2007; // a state file could not be read or written
inline constexpr std::int32_t kUnsupported = -2008;   // not available on this platform
inline constexpr std::int32_t kLineFailed = -2009;    // a write-protect line could not be driven
inline constexpr std::int32_t kPeerAbsent = -2010;    // nobody listens in that slot, or somebody who is no peer
inline constexpr std::int32_t kPeerFailed = -2011;    // the peer closed the connection or answered no response
inline constexpr std::int32_t kNoRecord = -2012;      // no chip of the item holds a record with a good checksum

// Statuses of chip transfers are positive: a class bit and an errno value. The module counts failures with the second
// bit against chips that it otherwise spares.
inline constexpr std::int32_t kTransferFailed = 0x10000; // the part answered, the bytes did not arrive or did not stay
inline constexpr std::int32_t kPartAbsent = 0x20000;     // the part does not answer at all
inline constexpr std::int32_t kErrnoMask = 0xFFFF;

struct StatusWord {
    std::int32_t status;
    const char *error; // the D-Bus error that a call fails with
    std::string_view meaning;
};

// clang-format off
inline constexpr std::array kStatusWords = {
    StatusWord{.status = kNoRecord,      .error = kErrorStorage,   .meaning = "no copy has a good checksum"},
    StatusWord{.status = kPeerFailed,    .error = kErrorFailed,    .meaning = "the other controller broke off"},
    StatusWord{.status = kPeerAbsent,    .error = kErrorFailed,    .meaning = "the other controller does not answer"},
    StatusWord{.status = kLineFailed,    .error = kErrorFailed,    .meaning = "a write-protect line could not be driven"},
    StatusWord{.status = kUnsupported,   .error = kErrorFailed,    .meaning = "not available on this platform"},
    StatusWord{.status = kStorageFailed, .error = kErrorStorage,   .meaning = "a state file could not be read or written"},
    StatusWord{.status = kTimedOut,      .error = kErrorFailed,    .meaning = "the time limit passed"},
    StatusWord{.status = kReadOnly,      .error = kErrorFailed,    .meaning = "the property is configuration"},
    StatusWord{.status = kWrongType,     .error = kErrorArguments, .meaning = "the property has another type"},
    StatusWord{.status = kNoProperty,    .error = kErrorFailed,    .meaning = "the object has no such property"},
    StatusWord{.status = kNoObject,      .error = kErrorNoObject,  .meaning = "there is no such object"},
    StatusWord{.status = kBadArgument,   .error = kErrorArguments, .meaning = "an argument is missing or out of range"},
    StatusWord{.status = -1019,          .error = kErrorStorage,   .meaning = "the checksum was still wrong after three reads"},
    StatusWord{.status = -1018,          .error = kErrorFailed,    .meaning = "the item has no check object"},
    StatusWord{.status = -1017,          .error = kErrorNoObject,  .meaning = "no item has this name"},
    StatusWord{.status = -1016,          .error = kErrorStorage,   .meaning = "the two copies hold different data"},
    StatusWord{.status = -1014,          .error = kErrorArguments, .meaning = "an argument is missing, empty or of another type"},
    StatusWord{.status = -1012,          .error = kErrorFailed,    .meaning = "the item's value in memory could not be changed"},
    StatusWord{.status = -1008,          .error = kErrorFailed,    .meaning = "the item has neither one nor two copies"},
    StatusWord{.status = -1007,          .error = kErrorNotOnline, .meaning = "the item is not online"},
    StatusWord{.status = -1006,          .error = kErrorStorage,   .meaning = "neither of the two copies can be used"},
    StatusWord{.status = -1005,          .error = kErrorFailed,    .meaning = "the answer could not be built"},
    StatusWord{.status = -1001,          .error = kErrorFailed,    .meaning = "there is no data"},
    StatusWord{.status = -1,             .error = kErrorFailed,    .meaning = "the operation failed; the service's log says why"},
    StatusWord{.status = 0,              .error = nullptr,         .meaning = "no error"},
    StatusWord{.status = 1,              .error = kErrorStorage,   .meaning = "the record's checksum is wrong: never written, or damaged"},
};
// clang-format on
static_assert(std::ranges::adjacent_find(kStatusWords, std::ranges::greater_equal{}, &StatusWord::status) ==
              kStatusWords.end());

// Whether it is the status of a chip transfer.
[[nodiscard]] constexpr bool is_transfer_status(std::int32_t status) {
    return status > 0 && (status & (kTransferFailed | kPartAbsent)) != 0;
}

// "the part does not answer (No such file or directory)"; empty for a status that nobody has given a meaning.
[[nodiscard]] inline std::string status_meaning(std::int32_t status) {
    const auto *const word = std::ranges::find(kStatusWords, status, &StatusWord::status);
    if (word != kStatusWords.end()) {
        return std::string(word->meaning);
    }
    if (!is_transfer_status(status)) {
        return {};
    }
    const std::int32_t error = status & kErrnoMask;
    return ((status & kPartAbsent) != 0 ? "the part does not answer" : "the transfer to or from the part failed") +
           (error == 0 ? std::string() : " (" + std::generic_category().message(error) + ")");
}

// The D-Bus error that a call with this status fails with; the status is not 0.
[[nodiscard]] inline const char *status_error(std::int32_t status) {
    const auto *const word = std::ranges::find(kStatusWords, status, &StatusWord::status);
    if (word != kStatusWords.end()) {
        return word->error;
    }
    return is_transfer_status(status) ? kErrorStorage : kErrorFailed;
}

} // namespace asd_shared
