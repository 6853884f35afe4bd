// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The checksums that the contract offers.

#include "arith.h"
#include "board.h"
#include "record_format.h"

#include <boost/crc.hpp>

guint16 arith_make_crc_checksum(guint16 start, const guint8 *data, guint32 len) {
    return asd_shared::crc16({data, data == nullptr ? 0 : len}, start);
}

UINT8 BSP_CalCrc8(UINT8 start, const UINT8 *data, UINT32 len) {
    boost::crc_optimal<8, 0x07, 0x00, 0x00, false, false> crc(start);
    if (data != nullptr) {
        crc.process_bytes(data, len);
    }
    return crc.checksum();
}
