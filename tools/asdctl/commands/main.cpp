// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// asdctl, the operator's command line of a running asd.

#include "commands.h"
#include "failure.h"
#include "texts.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <iostream>

#include <unistd.h>

namespace asdctl {

namespace {

constexpr const char *kExamples = R"(Examples:
  asdctl status
  asdctl identity
  asdctl get serial
  asdctl set mac 02:00:5e:10:20:30
  asdctl list --not-ready
  asdctl set ASD14 --text ACME
  asdctl get ASD14 --text
  asdctl ipmi 32 16 00 00 80 00 14
  asdctl ekey put frameboard key.bin
  asdctl watch --for 60
  asdctl chip inspect --state-dir /var/lib/asd --config enclosure.json

'asdctl help COMMAND' tells of one. Options may stand before or behind the command. Exit status: 0 done, 1 refused or failed, 2 wrong usage.)";

// The options of every command, as given.
struct Given {
    std::string run_dir;
    unsigned slot = 0;
    std::string bus;
    bool json = false;
    bool no_colour = false;
};

void add_options(CLI::App &app, Given &given) {
    app.add_option("--run-dir", given.run_dir,
                   "The enclosure's run folder (/run/asd where there is one, else your own)")
        ->type_name("DIR");
    app.add_option("--slot", given.slot, "The controller's slot (the one that is served, of several the master)")
        ->type_name("0..3")
        ->check(unsaid(CLI::Range(0, 3)));
    app.add_option("--bus", given.bus, "Where the service is on D-Bus: private, session or system (where it is found)")
        ->type_name("BUS")
        ->check(unsaid(CLI::IsMember({"private", "session", "system"})));
    app.add_flag("--json", given.json, "Print JSON");
    app.add_flag("--no-colour,--no-color", given.no_colour, "Print without colours, also on a terminal");
    app.set_version_flag("--version", "asdctl " ASD_VERSION, "Print the version and end");
    app.set_help_flag("--help,-h", "Print this help and end");
}

Context context_of(const CLI::App &app, const Given &given) {
    Context context;
    context.run_dir =
        app.count("--run-dir") > 0 ? std::filesystem::absolute(given.run_dir).lexically_normal() : find_run_dir();
    context.serving = serving_in(context.run_dir);
    context.slot_given = app.count("--slot") > 0;
    context.slot = context.slot_given ? given.slot : find_slot(context.run_dir, context.serving);
    if (!given.bus.empty()) {
        context.bus = given.bus == "session" ? Bus::kSession : given.bus == "system" ? Bus::kSystem : Bus::kPrivate;
    }
    context.json = given.json;
    context.out = screen_of(STDOUT_FILENO, given.no_colour);
    context.err = screen_of(STDERR_FILENO, given.no_colour);
    return context;
}

int report(const Failure &failure, const Screen &screen) {
    std::cerr << painted(screen, Tone::kBad, "asdctl: ") << failure.what() << "\n";
    if (!failure.advice().empty()) {
        std::cerr << failure.advice() << "\n";
    }
    return failure.status();
}

// What is wrong with the arguments, and whose help says what would be right.
WrongUsage wrong_usage(const CLI::App &app, const CLI::ParseError &mistake) {
    std::string name = "asdctl";
    const CLI::App *deepest = &app;
    while (!deepest->get_subcommands().empty()) {
        deepest = deepest->get_subcommands().front();
        name += " " + deepest->get_name();
    }
    std::string what = mistake.what();
    std::string meant;
    const std::vector<std::string> left = app.remaining(true);
    if (deepest->get_require_subcommand_min() > 0 && mistake.get_name() == "RequiredError") {
        std::vector<std::string> commands;
        for (const CLI::App *command : deepest->get_subcommands([](const CLI::App *) { return true; })) {
            commands.push_back(command->get_name());
        }
        what = left.empty() ? "a command is missing" : "there is no command '" + left.front() + "'";
        meant = left.empty() ? "" : did_you_mean(left.front(), commands);
    } else if (const std::size_t word = what.find(": --"); what.find("not expected: --") != std::string::npos) {
        const std::string unknown = what.substr(word + 2, what.find_first_of(" =", word + 2) - word - 2);
        std::vector<std::string> options;
        for (const CLI::App *any = deepest; any != nullptr; any = any->get_parent()) {
            for (const CLI::Option *option : any->get_options()) {
                std::ranges::transform(option->get_lnames(), std::back_inserter(options),
                                       [](const std::string &option_name) { return "--" + option_name; });
            }
        }
        what = "there is no option '" + unknown + "'";
        meant = did_you_mean(unknown, options);
    }
    return WrongUsage(what, "Try '" + name + " --help'." + meant);
}

// "help set" asks for what "set --help" shows.
std::vector<std::string> words_of(int argc, char **argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    const std::array<std::string_view, 3> with_value = {"--run-dir", "--slot", "--bus"};
    auto command = words.begin();
    while (command != words.end() && command->starts_with("-")) {
        const bool value = std::ranges::find(with_value, *command) != with_value.end();
        command += value && command + 1 != words.end() ? 2 : 1;
    }
    if (command != words.end() && *command == "help") {
        words.erase(command);
        words.emplace_back("--help");
    }
    std::ranges::reverse(words); // as CLI11 takes them
    return words;
}

int run(int argc, char **argv) {
    CLI::App app("Shows and changes what a running asd keeps.", "asdctl");
    Given given;
    Command chosen;
    app.fallthrough();
    app.require_subcommand(1);
    for (const char *said : {"TEXT", "INT", "UINT", "REQUIRED"}) {
        app.get_formatter()->label(said, ""); // a value's name says what it is
    }
    add_options(app, given);
    add_look_commands(app, chosen);
    add_item_commands(app, chosen);
    add_ipmi_commands(app, chosen);
    add_board_commands(app, chosen);
    add_history_command(app, chosen);
    add_metrics_command(app, chosen);
    add_watch_command(app, chosen);
    add_chip_commands(app, chosen);
    add_backup_commands(app, chosen);
    add_repair_command(app, chosen);
    add_reload_command(app, chosen);
    add_report_command(app, chosen);
    app.footer(kExamples);
    try {
        app.parse(words_of(argc, argv));
    } catch (const CLI::Success &asked) {
        return app.exit(asked, std::cout, std::cerr); // prints the help or the version
    } catch (const CLI::ParseError &mistake) {
        return report(wrong_usage(app, mistake), screen_of(STDERR_FILENO, given.no_colour));
    }
    const Screen err = screen_of(STDERR_FILENO, given.no_colour);
    try {
        const Context context = context_of(app, given);
        check_default_run_dir(context.run_dir);
        return chosen(context);
    } catch (const Failure &failure) {
        return report(failure, err);
    } catch (const std::exception &error) { // out of memory, or our own mistake
        return report(Failure(error.what()), err);
    }
}

} // namespace

} // namespace asdctl

int main(int argc, char **argv) {
    (void)std::signal(SIGPIPE, SIG_IGN); // a reader that has left shows where it is written to
    return asdctl::run(argc, argv);
}
