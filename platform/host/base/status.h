// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The statuses that the host's operations return besides 0.

#include <glib.h>

namespace asd_host {

inline constexpr gint32 kBadArgument = -2001;   // a null or out-of-range argument
inline constexpr gint32 kNoObject = -2002;      // no object of that name, handle, class or alias
inline constexpr gint32 kNoProperty = -2003;    // the object has no such property
inline constexpr gint32 kWrongType = -2004;     // the property holds, or the write offers, another type
inline constexpr gint32 kReadOnly = -2005;      // the property is configuration
inline constexpr gint32 kTimedOut = -2006;      // the time limit passed
inline constexpr gint32 kStorageFailed = -2007; // a state file could not be read or written
inline constexpr gint32 kUnsupported = -2008;   // not available on this platform
inline constexpr gint32 kLineFailed = -2009;    // a write-protect line could not be driven
inline constexpr gint32 kNoRecord = -2010;      // no chip of the item holds a record with a good checksum

// Statuses of chip transfers are positive: a class bit and an errno value. The module counts failures with the second
// bit against chips that it otherwise spares.
inline constexpr gint32 kTransferFailed = 0x10000; // the part answered, the bytes did not arrive or did not stay
inline constexpr gint32 kPartAbsent = 0x20000;     // the part does not answer at all

} // namespace asd_host
