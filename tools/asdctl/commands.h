// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The commands, a file a family. Each adds its subcommands; parsing the command line leaves the one to run.

#include "context.h"

#include <functional>

#include <CLI/CLI.hpp>

namespace asdctl {

// Runs and returns the exit status; throws Failure.
using Command = std::function<int(const Context &)>;

void add_look_commands(CLI::App &app, Command &chosen);  // status, list, show
void add_item_commands(CLI::App &app, Command &chosen);  // get, read, set, clear, errcode
void add_ipmi_commands(CLI::App &app, Command &chosen);  // ipmi, ekey, baycfg
void add_board_commands(CLI::App &app, Command &chosen); // board

} // namespace asdctl
