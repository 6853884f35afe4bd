// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_values.h"

#include "status.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

namespace asd_host {

namespace {

struct StatusWord {
    gint32 status;
    const char *error;
    const char *meaning;
};

// The statuses that modules answer method calls with, and the host's own (status.h).
// clang-format off
constexpr std::array<StatusWord, 20> kStatusWords = {{
    {.status = kUnsupported,   .error = kErrorFailed,    .meaning = "not available on this platform"},
    {.status = kStorageFailed, .error = kErrorStorage,   .meaning = "a state file could not be read or written"},
    {.status = kTimedOut,      .error = kErrorFailed,    .meaning = "the time limit passed"},
    {.status = kReadOnly,      .error = kErrorFailed,    .meaning = "the property is configuration"},
    {.status = kWrongType,     .error = kErrorArguments, .meaning = "the property has another type"},
    {.status = kNoProperty,    .error = kErrorFailed,    .meaning = "the object has no such property"},
    {.status = kNoObject,      .error = kErrorNoObject,  .meaning = "there is no such object"},
    {.status = kBadArgument,   .error = kErrorArguments, .meaning = "an argument is out of range"},
    {.status = -1019,          .error = kErrorStorage,   .meaning = "the checksum was bad three times"},
    {.status = -1018,          .error = kErrorFailed,    .meaning = "the item has no check object"},
    {.status = -1017,          .error = kErrorNoObject,  .meaning = "the item's name is unknown"},
    {.status = -1016,          .error = kErrorStorage,   .meaning = "the two chips hold different data"},
    {.status = -1014,          .error = kErrorArguments, .meaning = "an argument is missing, empty or of another type"},
    {.status = -1012,          .error = kErrorFailed,    .meaning = "the item's value could not be changed"},
    {.status = -1008,          .error = kErrorFailed,    .meaning = "the item has neither one nor two chips"},
    {.status = -1007,          .error = kErrorNotOnline, .meaning = "the item is not online"},
    {.status = -1006,          .error = kErrorStorage,   .meaning = "neither chip is usable"},
    {.status = -1005,          .error = kErrorFailed,    .meaning = "the answer could not be built"},
    {.status = -1001,          .error = kErrorFailed,    .meaning = "there is no data"},
    {.status = -1,             .error = kErrorFailed,    .meaning = "the operation failed"},
}};
// clang-format on
static_assert(std::ranges::adjacent_find(kStatusWords, std::ranges::greater_equal{}, &StatusWord::status) ==
              kStatusWords.end());

constexpr gint32 kErrnoMask = 0xFFFF;

std::string transfer_failure(gint32 status) {
    const char *what = (status & kPartAbsent) != 0 ? "the part does not answer" : "the transfer failed";
    return what + (": " + std::generic_category().message(status & kErrnoMask));
}

} // namespace

CallResult refusal(const char *error, std::string message) {
    return {.outputs = {}, .error = error, .message = std::move(message)};
}

CallResult refusal_of(gint32 status) {
    const std::string number = "status " + std::to_string(status);
    if (status > 0 && (status & (kTransferFailed | kPartAbsent)) != 0) {
        return refusal(kErrorStorage, number + ": " + transfer_failure(status));
    }
    const auto *word = std::ranges::lower_bound(kStatusWords, status, {}, &StatusWord::status);
    if (word == kStatusWords.end() || word->status != status) {
        return refusal(kErrorFailed, number);
    }
    return refusal(word->error, number + ": " + word->meaning);
}

} // namespace asd_host
