// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// States of the board that change while the service runs, and its CPLD and flash.

#include "board.h"
#include "enclosure.h"
#include "state_store.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

namespace asd_host {

class MasterLock;

// What the CPLD keeps for other board software, each at its own place in its RAM.
enum class CpldField { kWwn, kFrameModel, kProductConfiguration, kPcieSasModel };

class BoardState {
public:
    BoardState();
    ~BoardState();

    // Opens CPLD and flash in the slot's state folder. The role comes from the options, else the enclosure.
    [[nodiscard]] bool open(const Options &options, const Enclosure &enclosure, std::string *mistake);

    // Master: fixed, or this process holds the enclosure's master lock (taken when it is free, kept until the process
    // dies). A lock file that has been removed or replaced meanwhile is made anew, and the role stays; when it can't
    // be, the role is given up. BOARD_MOS_ERROR: the lock can't be asked for; the log says why.
    [[nodiscard]] BOARD_MOS_E role();
    // How often role() has told of a master after something else, since the start; a fixed master has become it once.
    [[nodiscard]] std::uint64_t takeovers() const;

    // A register of the CPLD; 0 for one never written.
    [[nodiscard]] std::uint32_t cpld_register(std::uint32_t reg) const;
    static constexpr std::uint32_t kCpldRegisterCount = 0x1000; // registers 0 to 0xFFF
    // 0, kStorageFailed, or kBadArgument for a register that the CPLD does not have.
    [[nodiscard]] gint32 set_cpld_register(std::uint32_t reg, std::uint32_t value);
    // The register's other bits stay; for bits 0 to 31. The statuses of set_cpld_register.
    [[nodiscard]] gint32 set_cpld_bit(std::uint32_t reg, std::uint32_t bit, bool value);
    // A byte of the CPLD's RAM; 0 for one never written.
    [[nodiscard]] std::uint8_t cpld_ram_byte(std::uint32_t address) const;
    // Fills the field with data, and what data leaves of it with zeros, all in one durable change. 0, kStorageFailed,
    // or kBadArgument when data is empty or longer than the field.
    [[nodiscard]] gint32 set_cpld_field(CpldField field, std::span<const std::uint8_t> data);

    StateStore cpld_registers; // key: register; four bytes each, low byte first
    StateStore cpld_ram;       // key: address; one byte each
    StateStore flash;          // key: parameter

    // Settable while the service runs; guarded by mutex.
    struct Live {
        std::uint8_t equipment_mode = 0;
        std::uint8_t cpld_upgrading = 0;
        BOOL power_standby = 0;
    };
    [[nodiscard]] Live live() const;
    void set_live(const Live &live);

    // Makes the board operation of that name (board.h) fail with the status; 0 lets it work again. False: no operation
    // that can fail has that name.
    [[nodiscard]] bool set_fault(std::string_view operation, gint32 status);
    [[nodiscard]] gint32 fault(std::string_view operation) const; // 0: it works
    using Faults = std::map<std::string, gint32, std::less<>>;
    [[nodiscard]] Faults faults() const; // by operation; none is 0

private:
    [[nodiscard]] BOARD_MOS_E ask_for_role(); // with mutex_ held

    mutable std::mutex mutex_; // guards the fields below
    bool is_master_ = false;   // as told last; what cannot be asked for changes nothing
    std::uint64_t takeovers_ = 0;
    Live live_;
    Faults faults_;
    Role role_ = Role::kAuto;
    std::unique_ptr<MasterLock> master_lock_;
    std::mutex bit_mutex_; // held while one bit of a register changes
};

} // namespace asd_host
