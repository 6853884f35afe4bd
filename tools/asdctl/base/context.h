// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where the service is found, and what the options say that every command has.

#include "failure.h"
#include "output.h"
#include "places.h"

#include <filesystem>
#include <map>
#include <optional>

#include <sys/types.h>

namespace asdctl {

enum class Bus { kPrivate, kSession, kSystem };

// Which slots of a run folder are served, and by which processes: those that hold the slots' locks.
struct Serving {
    std::map<unsigned, pid_t> slots;
    std::optional<unsigned> master;
};

struct Context {
    std::filesystem::path run_dir;
    unsigned slot = 0;
    bool slot_given = false;
    Serving serving;
    std::optional<Bus> bus; // none: where the service is found
    bool json = false;
    Screen out; // standard output
    Screen err; // standard error

    [[nodiscard]] std::filesystem::path slot_dir() const { return run_dir / slot_folder(slot); }
    [[nodiscard]] std::filesystem::path bus_socket() const { return slot_dir() / kBusSocket; }
    [[nodiscard]] std::filesystem::path ipmi_socket() const { return slot_dir() / kIpmiSocket; }

    // Why nothing answers at a socket of the slot, or else at what is on a bus, and what to do about it. The error is
    // the kernel's or GLib's.
    [[nodiscard]] Failure unreachable(const std::filesystem::path &socket, const std::string &error) const;
    // What to do where a process is not there, or is another one's.
    [[nodiscard]] std::string how_to_start() const;
    // Who may ask.
    [[nodiscard]] std::string who_may() const;
};

// Prints what a command answers with, as JSON where that was asked for. Returns the status, which the command ends
// with.
[[nodiscard]] int answer(const Context &context, const Json &json, std::string_view text, int status = kDone);

// Throws a Failure when the folder is the default one in /tmp, where anybody may have made it, and is not this user's
// alone: what answers there could be a stranger.
void check_default_run_dir(const std::filesystem::path &run_dir);

[[nodiscard]] Serving serving_in(const std::filesystem::path &run_dir);

// The system's run folder where there is one, unless only this user's own is served.
[[nodiscard]] std::filesystem::path find_run_dir();

// The slot that is served, the master when several are; else the only one with sockets, else 0.
[[nodiscard]] unsigned find_slot(const std::filesystem::path &run_dir, const Serving &serving);

} // namespace asdctl
