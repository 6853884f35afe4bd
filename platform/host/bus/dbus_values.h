// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a call on the bus comes back with, as plain data that may cross threads, and what statuses are called there.

#include "object_store.h"

#include <string>
#include <vector>

namespace asd_host {

inline constexpr const char *kErrorArguments = "org.asd.Error.InvalidArguments";
inline constexpr const char *kErrorNoObject = "org.asd.Error.NoSuchObject";
inline constexpr const char *kErrorNotOnline = "org.asd.Error.NotOnline";
inline constexpr const char *kErrorNotReady = "org.asd.Error.NotReady";
inline constexpr const char *kErrorStorage = "org.asd.Error.StorageFailed";
inline constexpr const char *kErrorFailed = "org.asd.Error.Failed";
inline constexpr const char *kErrorLimits = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char *kErrorMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char *kErrorNoName = "org.freedesktop.DBus.Error.NameHasNoOwner";

struct CallResult {
    std::vector<PropertyValue> outputs;
    const char *error = nullptr; // one of the names above; null: it succeeded
    std::string message;
};

[[nodiscard]] CallResult refusal(const char *error, std::string message);

// What a non-zero status of the module or the host is called, with its number and meaning.
[[nodiscard]] CallResult refusal_of(gint32 status);

} // namespace asd_host
