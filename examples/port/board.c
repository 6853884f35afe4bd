// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// board.h, gpio.h and arith.h: one controller that is always master. CPLD RAM, flash and lines are memory.

#include "board.h"

#include "arith.h"
#include "gpio.h"
#include "port.h"

#include <pthread.h>
#include <string.h>

enum { kCpldRamSize = 0x10000, kFlashParameters = 256, kLines = 64, kRefused = -3 };

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // over the memory below
static guint8 cpld_ram[kCpldRamSize];
static guint8 flash[kFlashParameters]; // one byte a parameter is all the module keeps
static guint8 line_level[kLines];      // 1 + level of a line that was driven, 0 of others

// ---- Facts and states ----

gint32 BSP_IsSmmBoard(void) {
    return 0;
}
gint32 BSP_IsManuVersion(void) {
    return 0;
}
gint32 BSP_Is4U4CBoard(void) {
    return 0;
}
gint32 BSP_isEquipFrameBoard(void) {
    return 0;
}
gint32 BSP_IsTarn4U4CBoard(void) {
    return 0;
}
gint32 BSP_Is2UExpBoard(void) {
    return 0;
}
guint32 BSP_GetBpEepromCount(void) {
    return 1;
}

gint32 BSP_GetBoardMasterOrSlaveState(BOARD_MOS_E *state) {
    *state = BOARD_MASTER;
    return 0;
}

gint32 BSP_GetEquipMode(UINT8 *mode) {
    *mode = 0;
    return 0;
}

gint32 BSP_GetBoardSlot(UINT8 *slot) {
    *slot = 0;
    return 0;
}

gint32 BSP_GetBoardOnlineStatus(UINT8 slot) {
    return slot == 0;
}

gint32 BSP_ReadCpldBit(UINT32 reg, UINT32 bit, UINT8 *value) {
    (void)reg;
    (void)bit;
    *value = 0; // never idle
    return 0;
}

gint32 BSP_IsCpldUpgrading(UINT8 *upgrading) {
    *upgrading = 0;
    return 0;
}

gint32 BSP_GetPowerStandByStatus(BOOL *standby) {
    *standby = 0;
    return 0;
}

gint32 BSP_bPcieorsasModelValid(UINT8 model) {
    return model == 0x33 || model == 0x55 || model == 0xAA;
}

gint32 BSP_RebootRequestProcess(void) {
    return 0;
}

// ---- CPLD RAM ----

gint32 BSP_GetCpldRam(UINT32 address, UINT8 *value) {
    if (address >= kCpldRamSize) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    *value = cpld_ram[address];
    pthread_mutex_unlock(&lock);
    return 0;
}

static gint32 cpld_ram_set(UINT32 address, const UINT8 *data, UINT32 len) {
    if (address >= kCpldRamSize || len > kCpldRamSize - address) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    memcpy(cpld_ram + address, data, len);
    pthread_mutex_unlock(&lock);
    return 0;
}

gint32 BSP_SetCpldRam(UINT32 address, UINT8 value) {
    return cpld_ram_set(address, &value, 1);
}

// Where host firmware finds these records is the board's choice.
gint32 BSP_SetWwn2CpldRam(const UINT8 *data, UINT32 len) {
    return cpld_ram_set(0x100, data, len);
}
gint32 BSP_SetFrameModelToCpldRam(const UINT8 *data, UINT32 len) {
    return cpld_ram_set(0x200, data, len);
}
gint32 BSP_SetProductCfgInfoToCpldRam(const UINT8 *data, UINT32 len) {
    return cpld_ram_set(0x300, data, len);
}
gint32 BSP_SetPcieSasModelToCpldRam(UINT8 model) {
    return cpld_ram_set(0x400, &model, 1);
}

// ---- Flash parameters ----

gint32 BMC_FlashReadCfgPara(UINT32 parameter, UINT32 len, UINT8 *buffer) {
    if (parameter >= kFlashParameters || len != 1) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    *buffer = flash[parameter];
    pthread_mutex_unlock(&lock);
    return 0;
}

gint32 BMC_FlashWriteCfgPara(UINT32 parameter, UINT32 len, const UINT8 *buffer) {
    if (parameter >= kFlashParameters || len != 1) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    flash[parameter] = *buffer;
    pthread_mutex_unlock(&lock);
    return 0;
}

// ---- Write-protect lines ----

gint32 gpio_init(guint32 line, guint32 mode) {
    return line < kLines && mode == 1 ? 0 : kRefused;
}

gint32 gpio_write(guint32 line, guint32 level) {
    if (line >= kLines || level > 1) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    line_level[line] = (guint8)(1 + level);
    pthread_mutex_unlock(&lock);
    return 0;
}

gboolean port_lines_open(void) {
    gboolean driven = FALSE;
    gboolean closed = FALSE;
    pthread_mutex_lock(&lock);
    for (guint32 line = 0; line < kLines; ++line) {
        driven = driven || line_level[line] != 0;
        closed = closed || line_level[line] == 1;
    }
    pthread_mutex_unlock(&lock);
    return driven && !closed;
}

// ---- Arithmetic ----

UINT32 BSP_Diff_Uint32(UINT32 earlier, UINT32 later) {
    return later - earlier;
}

UINT8 BSP_CalCrc8(UINT8 start, const UINT8 *data, UINT32 len) {
    guint crc = start;
    for (UINT32 i = 0; i < len; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc << 1) ^ ((crc & 0x80) != 0 ? 0x107 : 0);
        }
    }
    return (UINT8)crc;
}

guint16 arith_make_crc_checksum(guint16 start, const guint8 *data, guint32 len) {
    guint crc = start;
    for (guint32 i = 0; i < len; ++i) {
        crc ^= (guint)data[i] << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x11021 : 0);
        }
    }
    return (guint16)~crc;
}
