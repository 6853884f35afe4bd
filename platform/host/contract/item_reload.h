// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// An item's memory made equal to its chips while the service runs.

#include "platform_types.h"

namespace asd_host {

// Reads the item's record from its first chip, and from its second one when the first gives none with a good checksum,
// and hands the bytes to the module, which publishes them as the item's Value and makes the item ready: what the load
// on becoming master does, for one item whose record was written by somebody else or could not be read then. The chips'
// health and error codes are left alone.
//
// Blocks for the transfers and takes no turn: the caller keeps the item's writes away until this returns, or the memory
// may end as what the chips held before one of them. Any thread.
//
// 0: the memory holds what a chip holds. Otherwise it is as it was:
//   kBadArgument  no platform is running, or the module has no method to take the bytes
//   kNoObject, kNoProperty, kWrongType  the handle is no item, or its configuration lacks a length or a chip
//   kTransferFailed, kPartAbsent, with an errno value  no chip could be read; the last one's status
//   kNoRecord     a chip was read, none has a record with a good checksum (never written, or damaged)
//   else          the module's own refusal; -1007: the item is not online
[[nodiscard]] gint32 reload_item(OBJ_HANDLE item);

} // namespace asd_host
