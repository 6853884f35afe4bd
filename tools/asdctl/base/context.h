// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where the service is found, and what the options say that every command has.

#include "failure.h"
#include "output.h"
#include "places.h"

#include <filesystem>
#include <optional>

namespace asdctl {

enum class Bus { kPrivate, kSession, kSystem };

struct Context {
    std::filesystem::path run_dir;
    unsigned slot = 0;
    bool slot_given = false;
    Bus bus = Bus::kPrivate;
    bool json = false;
    Screen out; // standard output
    Screen err; // standard error

    [[nodiscard]] std::filesystem::path slot_dir() const { return run_dir / slot_folder(slot); }
    [[nodiscard]] std::filesystem::path bus_socket() const { return slot_dir() / kBusSocket; }
    [[nodiscard]] std::filesystem::path ipmi_socket() const { return slot_dir() / kIpmiSocket; }

    // What to do when nothing answers there.
    [[nodiscard]] std::string how_to_start() const;
};

// Prints what a command answers with, as JSON where that was asked for. Returns the status, which the command ends
// with.
[[nodiscard]] int answer(const Context &context, const Json &json, std::string_view text, int status = kDone);

// Throws a Failure when the folder is the default one in /tmp, where anybody may have made it, and is not this user's
// alone: what answers there could be a stranger.
void check_default_run_dir(const std::filesystem::path &run_dir);

// The only slot with sockets in the run folder; 0 when it is not the only one.
[[nodiscard]] unsigned default_slot(const std::filesystem::path &run_dir);

} // namespace asdctl
