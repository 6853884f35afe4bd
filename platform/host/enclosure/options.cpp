// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include "log.h"
#include "printable.h"

#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include <CLI/CLI.hpp>
#include <pwd.h>
#include <sys/un.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr int kWrongUsage = 2;
constexpr std::size_t kLongestSocketPath = sizeof(sockaddr_un::sun_path) - 1; // its end takes a byte

constexpr const char *kExamples = R"(Examples:
  asd --config config/enclosure.json --run-dir /tmp/asd/run --state-dir /tmp/asd/state
  asd --config config/enclosure.json --check-config
  asd --config config/repair.json --time-scale 1440    a day a minute
  IPMI_DUMMY_SOCK=RUN_DIR/slot0/ipmi.sock ipmitool -I dummy mc info)";

constexpr std::array<std::pair<std::string_view, int>, 3> kLogLevels = {
    {{"error", 0}, {"information", 1}, {"debug", 2}}};
constexpr std::array<std::pair<std::string_view, Role>, 3> kRoles = {
    {{"auto", Role::kAuto}, {"master", Role::kMaster}, {"slave", Role::kSlave}}};
constexpr std::array<std::pair<std::string_view, Bus>, 4> kBuses = {
    {{"private", Bus::kPrivate}, {"session", Bus::kSession}, {"system", Bus::kSystem}, {"none", Bus::kNone}}};

// An environment variable that holds an absolute path; empty otherwise.
std::filesystem::path path_from(const char *variable) {
    const char *value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): before other threads exist
    const std::filesystem::path path = value == nullptr ? "" : value;
    return path.is_absolute() ? path : std::filesystem::path();
}

std::filesystem::path home() {
    if (std::filesystem::path path = path_from("HOME"); !path.empty()) {
        return path;
    }
    const passwd *entry = ::getpwuid(::geteuid()); // NOLINT(concurrency-mt-unsafe): before other threads exist
    return entry == nullptr ? "/" : entry->pw_dir;
}

std::filesystem::path default_state_dir() {
    if (::geteuid() == 0) {
        return "/var/lib/asd";
    }
    const std::filesystem::path state = path_from("XDG_STATE_HOME");
    return (state.empty() ? home() / ".local/state" : state) / "asd";
}

// What the options would make of a command line that CLI11 accepts; empty when it is sound.
std::string mistake_in(const Options &options) {
    const std::string socket = (options.slot_run_dir() / kIpmiSocket).native();
    if (socket.size() > kLongestSocketPath) {
        return "--run-dir: the socket's path " + socket + " has " + std::to_string(socket.size()) +
               " bytes; a socket's path has at most " + std::to_string(kLongestSocketPath) + ", name a shorter folder";
    }
    return {};
}

ParsedOptions refuse(const std::string &mistake) {
    log_plain("asd: " + printable(mistake) + "\nTry 'asd --help'.\n");
    (void)log_flush(std::chrono::seconds(1)); // who does not read it by then gets the status alone
    return {.options = {}, .exit_status = kWrongUsage};
}

// The command line's values as CLI11 hands them over.
struct Given {
    std::string config = "/etc/asd/enclosure.json";
    std::string run_dir = default_run_dir().native();
    std::string state_dir = default_state_dir().native();
    int slot = 0;
    std::string log_level = "information";
    std::int64_t time_scale = 1;
    std::string role; // empty: not given
    std::string bus = "private";
    std::string ipmi_host = "none";
    std::string inventory = "none";
    bool host_door = false;
    bool check_config = false;
    bool strict = false;
};

void add_options(CLI::App &app, Given &given) {
    const auto filled = [](const std::string &text) { return std::string(text.empty() ? "must not be empty" : ""); };
    // A value's own name instead of CLI11's description of type and range.
    const auto add = [&app](const char *name, auto &value, const char *value_name, const std::string &what,
                            const CLI::Validator &check) {
        app.add_option(name, value, what)->type_name(value_name)->check(CLI::Validator(check).description(""));
    };
    add("--config", given.config, "FILE", "The enclosure file (" + given.config + ")", {filled, ""});
    add("--slot", given.slot, "0..3", "This controller's slot (0)", CLI::Range(0, int{kSlots} - 1));
    add("--run-dir", given.run_dir, "DIR", "The enclosure's run folder: locks and sockets (" + given.run_dir + ")",
        {filled, ""});
    add("--state-dir", given.state_dir, "DIR",
        "The enclosure's state folder: chip images, CPLD, flash (" + given.state_dir + ")", {filled, ""});
    add("--log-level", given.log_level, "LEVEL",
        "The highest level printed: error, information or debug, or 0 to 2 (information)",
        CLI::IsMember({"error", "information", "debug", "0", "1", "2"}));
    add("--time-scale", given.time_scale, "1..100000", "Run that many times as fast (1)",
        CLI::Range(std::int64_t{1}, std::int64_t{100000}));
    add("--role", given.role, "ROLE", "auto, master or slave, instead of the enclosure file's Role",
        CLI::IsMember({"auto", "master", "slave"}));
    add("--bus", given.bus, "BUS",
        "Where D-Bus clients find the service: private (RUN_DIR/slotN/bus), session, system or none (private)",
        CLI::IsMember({"private", "session", "system", "none"}));
    add("--ipmi-host", given.ipmi_host, "BUS",
        "Serve OpenBMC's IPMI bridges as xyz.openbmc_project.Ipmi.Host on a bus: session, system or none (none)",
        CLI::IsMember({"session", "system", "none"}));
    add("--inventory", given.inventory, "BUS",
        "Show the inventory as xyz.openbmc_project.Inventory objects on a bus: session, system or none (none)",
        CLI::IsMember({"session", "system", "none"}));
    app.add_flag("--host-door", given.host_door,
                 "Be the controller of a virtual machine: QEMU's ipmi-bmc-extern at RUN_DIR/slotN/host.sock");
    CLI::Option *const check = app.add_flag("--check-config", given.check_config,
                                            "Check the enclosure file, warn of what is doubtful, and end");
    app.add_flag("--strict", given.strict, "With --check-config: end with 1 after a warning, too")->needs(check);
    app.set_version_flag("--version", "asd " ASD_VERSION, "Print the version and end");
    app.set_help_flag("--help,-h", "Print this help and end");
    app.footer(kExamples);
}

template <typename Value, std::size_t kCount>
std::optional<Value> named(const std::array<std::pair<std::string_view, Value>, kCount> &table, std::string_view name) {
    for (const auto &[text, value] : table) {
        if (text == name) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace

ParsedOptions parse_options(const std::vector<std::string> &arguments) {
    CLI::App app("The storage service of a storage enclosure's management controller.", "asd");
    Given given;
    add_options(app, given);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend())); // CLI11 takes them from the back
    } catch (const CLI::Success &asked) {
        (void)app.exit(asked, std::cout, std::cerr); // prints the help or the version; always 0
        return {.options = {}, .exit_status = 0};
    } catch (const CLI::ParseError &error) {
        return refuse(error.what());
    }
    Options options;
    options.config = given.config;
    options.slot = static_cast<std::uint8_t>(given.slot);
    for (const auto &[option, text, folder] : {std::tuple("--run-dir", &given.run_dir, &options.run_dir),
                                               std::tuple("--state-dir", &given.state_dir, &options.state_dir)}) {
        std::error_code failed;
        *folder = std::filesystem::absolute(*text, failed).lexically_normal();
        if (failed) { // the working folder has been removed, or may not be entered
            return refuse(std::string(option) + ": " + *text +
                          " begins at the working folder, and that is not to be found (" + failed.message() +
                          "); name the folder from / on, or start asd elsewhere");
        }
    }
    options.run_dir_in_tmp = options.run_dir == run_dir_in_tmp();
    options.log_level = named(kLogLevels, given.log_level).value_or(given.log_level.front() - '0');
    options.time_scale = static_cast<std::uint32_t>(given.time_scale);
    options.role = named(kRoles, given.role);
    options.bus = named(kBuses, given.bus).value_or(options.bus);
    options.ipmi_host = named(kBuses, given.ipmi_host).value_or(options.ipmi_host);
    options.inventory = named(kBuses, given.inventory).value_or(options.inventory);
    options.host_door = given.host_door;
    options.check_config = given.check_config;
    options.strict = given.strict;
    if (const std::string mistake = mistake_in(options); !mistake.empty()) {
        return refuse(mistake);
    }
    return {.options = std::move(options), .exit_status = std::nullopt};
}

} // namespace asd_host
