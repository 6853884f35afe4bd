// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Board support: facts and states of the board, CPLD registers and RAM, flash parameters.
// Any thread may call them. Operations that return gint32 return 0 on success, else a status with the output untouched,
// unless they answer a question (Is..., is..., bPcieorsas..., OnlineStatus: non-zero means yes, no failure). Those that
// reach the CPLD or the flash may block for their bus; facts do not block and never change.

#include "platform_types.h"

G_BEGIN_DECLS

typedef enum { BOARD_SLAVE = 0, BOARD_MASTER = 1, BOARD_MOS_ERROR = 2 } BOARD_MOS_E;

/* ---- Facts ---- */

gint32 BSP_IsSmmBoard(void);                  /* a management-module board, which keeps no items */
gint32 BSP_IsManuVersion(void);               /* a manufacturing build of the firmware */
gint32 BSP_Is4U4CBoard(void);                 /* a 4U four-controller board */
gint32 BSP_isEquipFrameBoard(void);           /* an equipment frame board */
gint32 BSP_IsTarn4U4CBoard(void);             /* a 4U four-controller board whose write-protect line is 39 */
gint32 BSP_Is2UExpBoard(void);                /* a 2U expansion board */
guint32 BSP_GetBpEepromCount(void);           /* EEPROMs on the backplane */
gint32 BSP_bPcieorsasModelValid(UINT8 model); /* 1: a code of a backplane model, anything else: not */

/* ---- States; asked for again and again, because they change ---- */

/* Sets *state, also when it reports a failure if it likes; the caller believes what it finds there. */
gint32 BSP_GetBoardMasterOrSlaveState(BOARD_MOS_E *state);
gint32 BSP_GetEquipMode(UINT8 *mode);            /* 1: equipment (manufacturing) mode */
gint32 BSP_GetBoardSlot(UINT8 *slot);            /* this controller's slot */
gint32 BSP_GetBoardOnlineStatus(UINT8 slot);     /* non-zero: a board sits in the slot */
gint32 BSP_IsCpldUpgrading(UINT8 *upgrading);    /* 1: an upgrade is running */
gint32 BSP_GetPowerStandByStatus(BOOL *standby); /* 1: the host's system power is in standby */

/* ---- CPLD ---- */

/* One bit of a register: bit is its number from 0, the least significant, not a mask; *value becomes 0 or 1. */
gint32 BSP_ReadCpldBit(UINT32 reg, UINT32 bit, UINT8 *value);

/* One byte of the CPLD's RAM, which survives a restart of the service. */
gint32 BSP_GetCpldRam(UINT32 address, UINT8 *value);
gint32 BSP_SetCpldRam(UINT32 address, UINT8 value);

/* Hand len bytes to a field of the CPLD's RAM: the frame's MAC (as its WWN; 6), the frame's model (16), the product
 * configuration (64). Where the fields are is the platform's. A peer's push may be of another length. */
gint32 BSP_SetWwn2CpldRam(const UINT8 *data, UINT32 len);
gint32 BSP_SetFrameModelToCpldRam(const UINT8 *data, UINT32 len);
gint32 BSP_SetProductCfgInfoToCpldRam(const UINT8 *data, UINT32 len);
gint32 BSP_SetPcieSasModelToCpldRam(UINT8 model); /* the backplane model's code, valid or not */

/* ---- Flash parameters: len bytes each, which survive a restart; a read of another length than was written fails ----
 */

gint32 BMC_FlashReadCfgPara(UINT32 parameter, UINT32 len, UINT8 *buffer);
gint32 BMC_FlashWriteCfgPara(UINT32 parameter, UINT32 len, const UINT8 *buffer);

/* ---- Others ---- */

UINT32 BSP_Diff_Uint32(UINT32 earlier, UINT32 later); /* later - earlier, modulo 2^32: right across a wrap */

/* CRC-8, polynomial 0x07, not reflected, no final XOR: start 0 over "123456789" gives 0xF4. */
UINT8 BSP_CalCrc8(UINT8 start, const UINT8 *data, UINT32 len);

/* The reboot handler that the module registers; called by the platform alone, when a reboot is asked for. */
gint32 BSP_RebootRequestProcess(void);

G_END_DECLS
