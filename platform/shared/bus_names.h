// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What D-Bus clients call the service, its objects and its errors: docs/dbus.md.

#include "names.h"

#include <string>

namespace asd_shared {

inline constexpr const char *kServiceName = "org.asd.Storage1"; // the interface of the service's own object, too
inline constexpr const char *kItemInterface = "org.asd.AtomStorageData1";
inline constexpr const char *kChipInterface = "org.asd.AtomStorageDataDev1";
inline constexpr const char *kBoardInterface = "org.asd.Board1";

inline constexpr const char *kRootPath = "/org/asd/Storage1";
inline constexpr const char *kBoardPath = "/org/asd/Storage1/Board";
inline constexpr const char *kItemClass = "AtomStorageData"; // items and chips are at kRootPath/CLASS/NAME
inline constexpr const char *kChipClass = "AtomStorageDataDev";

// On a shared bus.
[[nodiscard]] inline std::string bus_name(unsigned slot) {
    return kServiceName + (".Slot" + std::to_string(slot));
}

inline constexpr const char *kErrorArguments = "org.asd.Error.InvalidArguments";
inline constexpr const char *kErrorNoObject = "org.asd.Error.NoSuchObject";
inline constexpr const char *kErrorNotOnline = "org.asd.Error.NotOnline";
inline constexpr const char *kErrorNotReady = "org.asd.Error.NotReady";
inline constexpr const char *kErrorStorage = "org.asd.Error.StorageFailed";
inline constexpr const char *kErrorFailed = "org.asd.Error.Failed";
inline constexpr const char *kErrorLimits = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char *kErrorMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char *kErrorNoName = "org.freedesktop.DBus.Error.NameHasNoOwner";

} // namespace asd_shared
