// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Board support and flash parameters, as the enclosure file and the slot's state folder have them.

#include "board.h"

#include "host.h"
#include "log.h"
#include "peers.h"
#include "status.h"

#include <algorithm>

using asd_host::BoardFacts;
using asd_host::BoardState;
using asd_host::CpldField;
using asd_host::kBadArgument;
using asd_host::kUnsupported;

namespace {

constexpr UINT32 kRegisterBits = 32;

// Before the platform runs there is no board to ask about.
const BoardFacts &facts() {
    static const BoardFacts kNoBoard;
    const asd_host::Host *const platform = asd_host::host();
    return platform == nullptr ? kNoBoard : platform->enclosure.board;
}

// The board's states for one of its operations; null with *status: it fails, because its argument is null, there is no
// board yet, or it has been told to.
BoardState *board_for(const char *operation, const void *argument, gint32 *status) {
    asd_host::Host *const platform = asd_host::host();
    *status = argument == nullptr   ? kBadArgument
              : platform == nullptr ? kUnsupported
                                    : platform->board.fault(operation);
    return *status != 0 ? nullptr : &platform->board;
}

// A state that the operator sets while the service runs.
template <typename T>
[[nodiscard]] gint32 live_state(const char *operation, T BoardState::Live::*state, T *value) {
    gint32 status = 0;
    const BoardState *const states = board_for(operation, value, &status);
    if (states == nullptr) {
        return status;
    }
    *value = states->live().*state;
    return 0;
}

[[nodiscard]] gint32 set_cpld_field(const char *operation, CpldField field, const UINT8 *data, UINT32 len) {
    gint32 status = 0;
    BoardState *const states = board_for(operation, data, &status);
    return states == nullptr ? status : states->set_cpld_field(field, {data, len});
}

} // namespace

// --- facts ---

gint32 BSP_IsSmmBoard(void) {
    return facts().management_module ? 1 : 0;
}
gint32 BSP_IsManuVersion(void) {
    return facts().manufacturing_build ? 1 : 0;
}
gint32 BSP_Is4U4CBoard(void) {
    return facts().four_u_four_controller ? 1 : 0;
}
gint32 BSP_isEquipFrameBoard(void) {
    return facts().equipment_frame ? 1 : 0;
}
gint32 BSP_IsTarn4U4CBoard(void) {
    return facts().tarn_four_u_four_controller ? 1 : 0;
}
gint32 BSP_Is2UExpBoard(void) {
    return facts().two_u_expansion ? 1 : 0;
}
guint32 BSP_GetBpEepromCount(void) {
    return facts().backplane_eeproms;
}

gint32 BSP_bPcieorsasModelValid(UINT8 model) {
    const auto &models = facts().pcie_sas_models;
    return std::find(models.begin(), models.end(), model) != models.end() ? 1 : 0;
}

gint32 BSP_GetBoardSlot(UINT8 *slot) {
    gint32 status = 0;
    if (board_for(__func__, slot, &status) == nullptr) {
        return status;
    }
    *slot = asd_host::host()->options.slot;
    return 0;
}

// --- states ---

gint32 BSP_GetBoardMasterOrSlaveState(BOARD_MOS_E *state) {
    gint32 status = 0;
    BoardState *const states = board_for(__func__, state, &status);
    if (states == nullptr) {
        return status;
    }
    *state = states->role();
    return 0;
}

gint32 BSP_GetEquipMode(UINT8 *mode) {
    return live_state(__func__, &BoardState::Live::equipment_mode, mode);
}
gint32 BSP_IsCpldUpgrading(UINT8 *upgrading) {
    return live_state(__func__, &BoardState::Live::cpld_upgrading, upgrading);
}
gint32 BSP_GetPowerStandByStatus(BOOL *standby) {
    return live_state(__func__, &BoardState::Live::power_standby, standby);
}

gint32 BSP_GetBoardOnlineStatus(UINT8 slot) {
    return asd_host::peer_online(slot) ? 1 : 0;
}

gint32 BSP_RebootRequestProcess(void) {
    HOST_LOG(asd_host::kLogInformation, "A reboot is requested; every write that was answered is on its chip.");
    return 0;
}

// --- CPLD ---

gint32 BSP_ReadCpldBit(UINT32 reg, UINT32 bit, UINT8 *value) {
    if (bit >= kRegisterBits) {
        return kBadArgument;
    }
    gint32 status = 0;
    const BoardState *const states = board_for(__func__, value, &status);
    if (states == nullptr) {
        return status;
    }
    *value = static_cast<UINT8>(states->cpld_register(reg) >> bit & 1U);
    return 0;
}

gint32 BSP_GetCpldRam(UINT32 address, UINT8 *value) {
    gint32 status = 0;
    const BoardState *const states = board_for(__func__, value, &status);
    if (states == nullptr) {
        return status;
    }
    *value = states->cpld_ram_byte(address);
    return 0;
}

gint32 BSP_SetCpldRam(UINT32 address, UINT8 value) {
    gint32 status = 0;
    BoardState *const states = board_for(__func__, &value, &status);
    return states == nullptr ? status : states->cpld_ram.put(address, {&value, 1});
}

gint32 BSP_SetWwn2CpldRam(const UINT8 *data, UINT32 len) {
    return set_cpld_field(__func__, CpldField::kWwn, data, len);
}

gint32 BSP_SetFrameModelToCpldRam(const UINT8 *data, UINT32 len) {
    return set_cpld_field(__func__, CpldField::kFrameModel, data, len);
}

gint32 BSP_SetProductCfgInfoToCpldRam(const UINT8 *data, UINT32 len) {
    return set_cpld_field(__func__, CpldField::kProductConfiguration, data, len);
}

gint32 BSP_SetPcieSasModelToCpldRam(UINT8 model) {
    return set_cpld_field(__func__, CpldField::kPcieSasModel, &model, 1);
}

// --- flash parameters ---

gint32 BMC_FlashReadCfgPara(UINT32 parameter, UINT32 len, UINT8 *buffer) {
    gint32 status = 0;
    const BoardState *const states = board_for(__func__, buffer, &status);
    if (states == nullptr) {
        return status;
    }
    const auto stored = states->flash.get(parameter);
    if (!stored) {
        return asd_host::kNoProperty;
    }
    if (stored->size() != len) {
        return kBadArgument;
    }
    std::copy(stored->begin(), stored->end(), buffer);
    return 0;
}

gint32 BMC_FlashWriteCfgPara(UINT32 parameter, UINT32 len, const UINT8 *buffer) {
    if (len == 0) {
        return kBadArgument;
    }
    gint32 status = 0;
    BoardState *const states = board_for(__func__, buffer, &status);
    return states == nullptr ? status : states->flash.put(parameter, {buffer, len});
}

// --- ticks ---

// Right across a wrap of the counter too.
UINT32 BSP_Diff_Uint32(UINT32 earlier, UINT32 later) {
    return later - earlier;
}
