// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where the service is found, and what the options say that every command has.

#include "output.h"

#include <filesystem>
#include <optional>

namespace asdctl {

inline constexpr unsigned kSlots = 4; // of an enclosure, at most

enum class Bus { kPrivate, kSession, kSystem };

struct Context {
    std::filesystem::path run_dir;
    unsigned slot = 0;
    bool slot_given = false;
    Bus bus = Bus::kPrivate;
    bool json = false;
    Screen out; // standard output
    Screen err; // standard error

    [[nodiscard]] std::filesystem::path slot_dir() const { return run_dir / ("slot" + std::to_string(slot)); }
    [[nodiscard]] std::filesystem::path bus_socket() const { return slot_dir() / "bus"; }
    [[nodiscard]] std::filesystem::path ipmi_socket() const { return slot_dir() / "ipmi.sock"; }

    // What to do when nothing answers there.
    [[nodiscard]] std::string how_to_start() const;
};

// asd's own default: /run/asd for root, else $XDG_RUNTIME_DIR/asd, else /tmp/asd-UID.
[[nodiscard]] std::filesystem::path default_run_dir();

// Throws a Failure when the folder is the default one in /tmp, where anybody may have made it, and is not this user's
// alone: what answers there could be a stranger.
void check_default_run_dir(const std::filesystem::path &run_dir);

// The only slot with sockets in the run folder; 0 when it is not the only one.
[[nodiscard]] unsigned default_slot(const std::filesystem::path &run_dir);

} // namespace asdctl
