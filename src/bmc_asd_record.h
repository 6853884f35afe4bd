// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A record on its chip: what reads and writes pass on while they transfer it.

#include "bmc_asd.h"

// Bytes of a record with len data bytes; 0, for which no work buffer is given, when there cannot be so many.
[[nodiscard]] constexpr guint32 record_size(guint32 len) {
    return len <= G_MAXUINT32 - kChecksumSize ? len + kChecksumSize : 0;
}

struct ChipRecord {
    OBJ_HANDLE chip;
    guint32 len;                   // data bytes
    guint32 offset = 0;            // of the record in the chip
    guint32 retry = kRetryDefault; // failed transfers tolerated in a read, attempts of a write
    guint8 *bytes = nullptr;       // record_size(len) bytes: data, then checksum
};
