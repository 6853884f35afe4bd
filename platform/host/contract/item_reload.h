// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// An item's memory made equal to its chips while the service runs.

#include "object_store.h"
#include "platform_types.h"

#include <cstddef>
#include <cstdint>

namespace asd_host {

struct Host;

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

// Length of the item's data, 1 to kLongestItem. 0, or kNoObject, kNoProperty, kWrongType, kBadArgument.
[[nodiscard]] gint32 item_length(const Host &platform, OBJ_HANDLE item, std::uint32_t *length);

// Reads the item's record on its chip 0 or 1 as it lies there, data and checksum, good or not. Blocks for the transfer.
// 0, or kNoProperty (there is no such chip, or it has no part), kWrongType, a status of the transfer.
[[nodiscard]] gint32 read_copy(const Host &platform, OBJ_HANDLE item, std::size_t copy, std::uint32_t length,
                               Bytes *record);

} // namespace asd_host
