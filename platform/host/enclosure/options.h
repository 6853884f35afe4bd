// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the command line of asd says.

#include "places.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace asd_host {

enum class Role {
    kAuto,   // compete for the enclosure's master lock
    kMaster, // fixed
    kSlave,  // fixed
};

// Where methods and properties are served on D-Bus.
enum class Bus {
    kPrivate, // on a socket of this controller's own
    kSession,
    kSystem,
    kNone,
};

struct Options {
    std::filesystem::path config;    // the enclosure file
    std::uint8_t slot = 0;           // this controller's slot, 0 to 3
    std::filesystem::path run_dir;   // the enclosure's run folder: locks, sockets, emulated lines
    bool run_dir_in_tmp = false;     // the default in /tmp, where anybody could have made it
    std::filesystem::path state_dir; // the enclosure's state folder: chip images, CPLD, flash
    int log_level = 1;               // highest level printed: 0 error, 1 information, 2 debug
    std::uint32_t time_scale = 1;    // waits are this many times shorter, ticks this many times faster; 1 to 100000
    std::optional<Role> role;        // overrides the enclosure file
    Bus bus = Bus::kPrivate;
    Bus ipmi_host = Bus::kNone; // the bus whose IPMI bridges are served: none, session or system
    Bus inventory = Bus::kNone; // the bus on which the standard inventory is: none, session or system
    bool host_door = false;     // a virtual machine finds its controller at host.sock of the slot's run folder
    bool check_config = false;  // check the enclosure file and end
    bool strict = false;        // what is doubtful in it counts as a mistake then

    // What only this controller uses: its sockets and its private chips, CPLD and flash.
    [[nodiscard]] std::filesystem::path slot_run_dir() const { return run_dir / slot_folder(slot); }
    [[nodiscard]] std::filesystem::path slot_state_dir() const { return state_dir / slot_folder(slot); }
};

// Parses a command line (without the program's name). On --help, --version or a mistake the text has been printed and
// the status to end the process with is in exit_status (0, 0 and 2); otherwise exit_status is empty.
struct ParsedOptions {
    Options options;
    std::optional<int> exit_status;
};
[[nodiscard]] ParsedOptions parse_options(const std::vector<std::string> &arguments);

} // namespace asd_host
