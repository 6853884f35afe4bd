// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The checksum of chip records. Any thread; no failure.

#include "platform_types.h"

G_BEGIN_DECLS

/* CRC-16, polynomial 0x1021, not reflected, register starting at start, result inverted: start 0 over "123456789"
 * gives 0xCE3C. Neither an all-0x00 nor an all-0xFF record is valid at any length from 1 to 8192. */
guint16 arith_make_crc_checksum(guint16 start, const guint8 *data, guint32 len);

G_END_DECLS
