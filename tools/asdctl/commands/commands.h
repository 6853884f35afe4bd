// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The commands, a file a family. Each adds its subcommands; parsing the command line leaves the one to run.

#include "bytes.h"
#include "context.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

namespace asdctl {

// Runs and returns the exit status; throws Failure.
using Command = std::function<int(const Context &)>;

// A command whose help ends with an example, without its "asdctl ".
inline CLI::App *add_command(CLI::App &app, const std::string &name, const std::string &what,
                             const std::string &example) {
    CLI::App *const command = app.add_subcommand(name, what);
    command->footer("Example:\n  asdctl " + example);
    return command;
}

// One that runs with options, which its arguments are to be bound to.
template <typename Options>
std::pair<CLI::App *, std::shared_ptr<Options>> add_command(CLI::App &app, Command &chosen, const std::string &name,
                                                            const std::string &what, const std::string &example,
                                                            int (*run)(const Context &, const Options &)) {
    CLI::App *const command = add_command(app, name, what, example);
    const auto options = std::make_shared<Options>();
    command->callback([&chosen, options, run] {
        chosen = [options, run](const Context &context) { return run(context, *options); };
    });
    return {command, options};
}

// One of which a subcommand is to be named.
inline CLI::App *add_family(CLI::App &app, const std::string &name, const std::string &what,
                            const std::string &example) {
    CLI::App *const family = add_command(app, name, what, example);
    family->require_subcommand(1);
    return family;
}

// A check that leaves the help as it is: there the value's name or description says it.
inline CLI::Validator unsaid(const CLI::Validator &check) {
    return CLI::Validator(check).description("");
}

struct Item;
struct Snapshot;
class Service;

// What status shows.
[[nodiscard]] std::string service_text(const Screen &screen, const Snapshot &snapshot);

// Writes a value of the item's length to its parts as 'set' does, and throws Failure unless every copy has it.
void store_item(const Context &context, Service &service, const Item &item, BytesView value);

void add_look_commands(CLI::App &app, Command &chosen);   // status, list, show
void add_item_commands(CLI::App &app, Command &chosen);   // get, read, set, clear, errcode
void add_ipmi_commands(CLI::App &app, Command &chosen);   // ipmi, ekey, baycfg
void add_board_commands(CLI::App &app, Command &chosen);  // board
void add_history_command(CLI::App &app, Command &chosen); // history
void add_metrics_command(CLI::App &app, Command &chosen); // metrics
void add_watch_command(CLI::App &app, Command &chosen);   // watch
void add_chip_commands(CLI::App &app, Command &chosen);   // chip
void add_map_command(CLI::App &chip, Command &chosen);    // chip map
void add_backup_commands(CLI::App &app, Command &chosen); // export, import
void add_repair_command(CLI::App &app, Command &chosen);  // repair
void add_reload_command(CLI::App &app, Command &chosen);  // reload
void add_report_command(CLI::App &app, Command &chosen);  // report

} // namespace asdctl
