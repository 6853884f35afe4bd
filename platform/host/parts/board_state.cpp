// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "board_state.h"

#include "lock_file.h"
#include "log.h"
#include "places.h"
#include "status.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <glib.h>

namespace asd_host {

namespace {

struct FieldPlace {
    CpldField field;
    std::uint32_t address; // of its first byte in the CPLD's RAM
    std::uint32_t length;
};

// The bytes at 0xCFC1 and 0xCFC2 are the I/O cards'; the module addresses them itself.
// clang-format off
constexpr std::array<FieldPlace, 4> kFields = {{
    {.field = CpldField::kWwn,                  .address = 0xCE00, .length = 6},
    {.field = CpldField::kFrameModel,           .address = 0xCE10, .length = 16},
    {.field = CpldField::kProductConfiguration, .address = 0xCE40, .length = 64},
    {.field = CpldField::kPcieSasModel,         .address = 0xCE80, .length = 1},
}};
// clang-format on

constexpr bool fields_in_order() {
    for (std::size_t i = 0; i < kFields.size(); ++i) {
        const std::uint32_t end = kFields[i].address + kFields[i].length;
        const std::uint32_t limit = i + 1 < kFields.size() ? kFields[i + 1].address : 0xCFC1;
        if (kFields[i].field != static_cast<CpldField>(i) || end > limit) {
            return false;
        }
    }
    return true;
}
static_assert(fields_in_order(), "row i is field i, and no two fields share a byte");

// The board operations that return a status.
constexpr std::array<std::string_view, 14> kFaultableOperations = {
    "BMC_FlashReadCfgPara",
    "BMC_FlashWriteCfgPara",
    "BSP_GetBoardMasterOrSlaveState",
    "BSP_GetBoardSlot",
    "BSP_GetCpldRam",
    "BSP_GetEquipMode",
    "BSP_GetPowerStandByStatus",
    "BSP_IsCpldUpgrading",
    "BSP_ReadCpldBit",
    "BSP_SetCpldRam",
    "BSP_SetFrameModelToCpldRam",
    "BSP_SetPcieSasModelToCpldRam",
    "BSP_SetProductCfgInfoToCpldRam",
    "BSP_SetWwn2CpldRam",
};

} // namespace

// The locks whose holder is the enclosure's master; the kernel frees them when the process dies. The one in the run
// folder is the role. The one beside the shared chips is held with it, so that a run folder that somebody clears or
// replaces cannot make a second master before the first one has noticed.
class MasterLock {
public:
    MasterLock(const std::filesystem::path &run_dir, const std::filesystem::path &state_dir)
        : role_(run_dir / kMasterLock), chips_(state_dir / kRoleLock) {}

    // 0: this process holds it. EAGAIN: another does. Else why it can't be asked for.
    [[nodiscard]] int take() {
        int error = chips_.take();
        if (error == 0) {
            error = role_.take();
        }
        if (error != 0) {
            chips_.release();
            role_.release();
        }
        say(error);
        return error;
    }

    // The file that take() could not use.
    [[nodiscard]] const std::filesystem::path &path() const { return role_.path(); }

private:
    void say(int error) {
        const bool new_error = error != 0 && error != EAGAIN && error != said_;
        if (new_error) {
            HOST_LOG(kLogError, "%s or %s cannot be locked, so that this controller has no role: %s.",
                     role_.path().c_str(), chips_.path().c_str(), g_strerror(error));
        }
        if (const unsigned remade = role_.remade() + chips_.remade(); remade != remade_) {
            HOST_LOG(kLogError,
                     "The file of the master role, %s or %s, had been removed or replaced; it is made anew, "
                     "and the role stays here.",
                     role_.path().c_str(), chips_.path().c_str());
            remade_ = remade;
        }
        said_ = error;
    }

    LockFile role_;
    LockFile chips_;
    int said_ = 0;
    unsigned remade_ = 0;
};

BoardState::BoardState() = default;
BoardState::~BoardState() = default;

bool BoardState::open(const Options &options, const Enclosure &enclosure, std::string *mistake) {
    const std::filesystem::path folder = options.slot_state_dir();
    if (!cpld_registers.open(folder / kCpldRegisters, mistake) || !cpld_ram.open(folder / kCpldRam, mistake) ||
        !flash.open(folder / kFlashParameters, mistake)) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    role_ = options.role.value_or(enclosure.role);
    if (role_ != Role::kAuto) {
        return true;
    }
    master_lock_ = std::make_unique<MasterLock>(options.run_dir, options.state_dir);
    const int error = master_lock_->take();
    if (error != 0 && error != EAGAIN) {
        *mistake = master_lock_->path().string() + ": the lock of the master role cannot be used: " + g_strerror(error);
        return false;
    }
    return true;
}

BOARD_MOS_E BoardState::role() {
    const std::lock_guard lock(mutex_);
    const BOARD_MOS_E role = ask_for_role();
    if (role != BOARD_MOS_ERROR) {
        takeovers_ += role == BOARD_MASTER && !is_master_ ? 1 : 0;
        is_master_ = role == BOARD_MASTER;
    }
    return role;
}

std::uint64_t BoardState::takeovers() const {
    const std::lock_guard lock(mutex_);
    return takeovers_;
}

BOARD_MOS_E BoardState::ask_for_role() {
    if (role_ != Role::kAuto) {
        return role_ == Role::kMaster ? BOARD_MASTER : BOARD_SLAVE;
    }
    const int error = master_lock_ ? master_lock_->take() : ENOLCK;
    if (error == 0) {
        return BOARD_MASTER;
    }
    return error == EAGAIN ? BOARD_SLAVE : BOARD_MOS_ERROR;
}

std::uint32_t BoardState::cpld_register(std::uint32_t reg) const {
    std::uint32_t value = 0;
    unsigned shift = 0;
    for (const std::uint8_t byte : cpld_registers.get(reg).value_or(std::vector<std::uint8_t>())) {
        value |= shift < 32 ? std::uint32_t{byte} << shift : 0;
        shift += 8;
    }
    return value;
}

gint32 BoardState::set_cpld_register(std::uint32_t reg, std::uint32_t value) {
    if (reg >= kCpldRegisterCount) {
        return kBadArgument; // each one written stays in the state file for good
    }
    std::array<std::uint8_t, 4> bytes = {};
    for (std::uint8_t &byte : bytes) {
        byte = static_cast<std::uint8_t>(value & 0xFFU);
        value >>= 8U;
    }
    return cpld_registers.put(reg, bytes);
}

gint32 BoardState::set_cpld_bit(std::uint32_t reg, std::uint32_t bit, bool value) {
    const std::lock_guard lock(bit_mutex_);
    const std::uint32_t mask = std::uint32_t{1} << bit;
    const std::uint32_t others = cpld_register(reg) & ~mask;
    return set_cpld_register(reg, value ? others | mask : others);
}

std::uint8_t BoardState::cpld_ram_byte(std::uint32_t address) const {
    const auto stored = cpld_ram.get(address);
    return !stored || stored->empty() ? std::uint8_t{0} : stored->front();
}

gint32 BoardState::set_cpld_field(CpldField field, std::span<const std::uint8_t> data) {
    const FieldPlace &place = kFields[static_cast<std::size_t>(field)];
    if (data.empty() || data.size() > place.length) {
        return kBadArgument;
    }
    StateStore::Values bytes;
    for (std::uint32_t i = 0; i < place.length; ++i) {
        bytes[place.address + i] = {i < data.size() ? data[i] : std::uint8_t{0}};
    }
    return cpld_ram.put_all(bytes);
}

BoardState::Live BoardState::live() const {
    const std::lock_guard lock(mutex_);
    return live_;
}

void BoardState::set_live(const Live &live) {
    const std::lock_guard lock(mutex_);
    live_ = live;
}

bool BoardState::set_fault(std::string_view operation, gint32 status) {
    if (std::ranges::find(kFaultableOperations, operation) == kFaultableOperations.end()) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    if (status == 0) {
        faults_.erase(std::string(operation));
        return true;
    }
    faults_.insert_or_assign(std::string(operation), status);
    return true;
}

gint32 BoardState::fault(std::string_view operation) const {
    const std::lock_guard lock(mutex_);
    const auto found = faults_.find(operation);
    return found == faults_.end() ? 0 : found->second;
}

BoardState::Faults BoardState::faults() const {
    const std::lock_guard lock(mutex_);
    return faults_;
}

} // namespace asd_host
