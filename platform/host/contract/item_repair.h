// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// An item's copies made equal and good again while the service runs.

#include "platform_types.h"

#include <cstdint>
#include <string>

namespace asd_host {

struct Host;

// What an item's copies are made from.
enum class RepairSource : std::uint8_t {
    kCopy0,  // its record on its first chip
    kCopy1,  // on its second chip
    kMemory, // the value in memory, for an item of which no copy is left
    kGood,   // the copy that is good; refused when both are and differ, and no check flag tells
};

struct Repair {
    RepairSource source = RepairSource::kGood; // what was taken; kGood: nothing was to be done
    std::uint8_t copies = 0; // bit 0: chip 0, bit 1: chip 1, kRepairedFlag: the check flag; those that were,
                             // or would be, written
    gint32 status = 0;       // 0; kNoObject; kNoRecord; of a transfer; of the module's write
    std::string refusal;     // why nothing was, or could be, done; empty with status 0
};

inline constexpr std::uint8_t kRepairedFlag = 4; // in Repair::copies

// The item that a repair of this one is about: the pair whose check flag it keeps, or itself.
[[nodiscard]] OBJ_HANDLE repaired_with(const Host &platform, OBJ_HANDLE item);

// Writes the copies that are not what the source holds, through the module's own methods, so that the check flag of a
// pair follows, and reads them back. A copy that holds the source's bytes is not written again, so the last good one is
// never at risk. Of two good copies that differ the one is kept that the check flags say was written alone. A flag that
// is damaged, or names one copy when both are equal, is written with them. Copies that were all never written are left
// so.
//
// dry_run: says what would be written, and writes nothing. Blocks for the transfers and takes no turn: the caller keeps
// other requests of the item away. Any thread.
[[nodiscard]] Repair repair_item(OBJ_HANDLE item, RepairSource from, bool dry_run);

} // namespace asd_host
