// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Names that every bus has (D-Bus Specification, "Standard Interfaces" and "Message Bus Messages").

namespace asd_host {

inline constexpr const char *kDriverName = "org.freedesktop.DBus"; // the bus itself; its interface, too
inline constexpr const char *kDriverPath = "/org/freedesktop/DBus";
inline constexpr const char *kPropertiesInterface = "org.freedesktop.DBus.Properties";

} // namespace asd_host
