// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include "log.h"
#include "printable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <set>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include <getopt.h>
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

template <typename Value>
using Names = std::span<const std::pair<std::string_view, Value>>;

constexpr std::array<std::pair<std::string_view, int>, 6> kLogLevels = {
    {{"error", 0}, {"information", 1}, {"debug", 2}, {"0", 0}, {"1", 1}, {"2", 2}}};
constexpr std::array<std::pair<std::string_view, Role>, 3> kRoles = {
    {{"auto", Role::kAuto}, {"master", Role::kMaster}, {"slave", Role::kSlave}}};
constexpr std::array<std::pair<std::string_view, Bus>, 4> kBuses = {
    {{"session", Bus::kSession}, {"system", Bus::kSystem}, {"none", Bus::kNone}, {"private", Bus::kPrivate}}};
constexpr auto kSharedBuses = std::span(kBuses).first<3>(); // where others have names, too

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

// A mistake in a folder's name; empty when it is sound.
std::string use_folder(const char *option, std::filesystem::path *folder) {
    std::error_code failed;
    const std::filesystem::path whole = std::filesystem::absolute(*folder, failed);
    if (failed) { // the working folder has been removed, or may not be entered
        return std::string(option) + ": " + folder->native() +
               " begins at the working folder, and that is not to be found (" + failed.message() +
               "); name the folder from / on, or start asd elsewhere";
    }
    *folder = whole.lexically_normal();
    return {};
}

// What no single option tells; empty when all is sound.
std::string mistake_in(Options *options) {
    if (options->strict && !options->check_config) {
        return "--strict is of use with --check-config alone";
    }
    std::string mistake = use_folder("--run-dir", &options->run_dir);
    if (mistake.empty()) {
        mistake = use_folder("--state-dir", &options->state_dir);
    }
    const std::string socket = (options->slot_run_dir() / kIpmiSocket).native();
    if (mistake.empty() && socket.size() > kLongestSocketPath) {
        return "--run-dir: the socket's path " + socket + " has " + std::to_string(socket.size()) +
               " bytes; a socket's path has at most " + std::to_string(kLongestSocketPath) + ", name a shorter folder";
    }
    return mistake;
}

ParsedOptions refuse(const std::string &mistake) {
    log_plain("asd: " + printable(mistake) + "\nTry 'asd --help'.\n");
    (void)log_flush(std::chrono::seconds(1)); // who does not read it by then gets the status alone
    return {.options = {}, .exit_status = kWrongUsage};
}

// ---- The options ----

// Takes an option's value. The mistake in it; empty: it is taken.
using Take = std::function<std::string(const char *text)>;

Take path_into(std::filesystem::path *path) {
    return [path](const char *text) {
        *path = text;
        return std::string(*text == '\0' ? "must not be empty" : "");
    };
}

template <typename Number>
Take number_into(Number *number, Number least, Number most) {
    return [=](const char *text) -> std::string {
        const char *const end = text + std::strlen(text);
        std::uint32_t value = 0;
        const auto [behind, failed] = std::from_chars(text, end, value);
        if (failed != std::errc() || behind != end || value < least || value > most) {
            return std::string("'") + text + "' is no whole number from " + std::to_string(least) + " to " +
                   std::to_string(most);
        }
        *number = static_cast<Number>(value);
        return {};
    };
}

template <typename Value, typename Into>
Take name_into(Into *into, Names<Value> names) {
    return [=](const char *text) -> std::string {
        std::string known;
        for (const auto &[name, value] : names) {
            if (name == text) {
                *into = value;
                return {};
            }
            known += (known.empty() ? "" : ", ") + std::string(name);
        }
        return std::string("'") + text + "' is none of " + known;
    };
}

Take flag_into(bool *flag) {
    return [flag](const char * /*text*/) {
        *flag = true;
        return std::string();
    };
}

struct Option {
    const char *name;
    const char *value; // how the help calls it; null: a flag
    std::string what;
    Take take;
};

struct Asked {
    bool help = false;
    bool version = false;
};

std::vector<Option> options_of(Options *options, Asked *asked) {
    return {
        {"config", "FILE", "The enclosure file (" + options->config.native() + ")", path_into(&options->config)},
        {"slot", "0..3", "This controller's slot (0)",
         number_into(&options->slot, std::uint8_t{0}, static_cast<std::uint8_t>(kSlots - 1))},
        {"run-dir", "DIR", "The enclosure's run folder: locks and sockets (" + options->run_dir.native() + ")",
         path_into(&options->run_dir)},
        {"state-dir", "DIR",
         "The enclosure's state folder: chip images, CPLD, flash (" + options->state_dir.native() + ")",
         path_into(&options->state_dir)},
        {"log-level", "LEVEL", "The highest level printed: error, information or debug, or 0 to 2 (information)",
         name_into(&options->log_level, Names<int>(kLogLevels))},
        {"time-scale", "1..100000", "Run that many times as fast (1)",
         number_into(&options->time_scale, std::uint32_t{1}, std::uint32_t{100000})},
        {"role", "ROLE", "auto, master or slave, instead of the enclosure file's Role",
         name_into(&options->role, Names<Role>(kRoles))},
        {"bus", "BUS",
         "Where D-Bus clients find the service: private (RUN_DIR/slotN/bus), session, system or none (private)",
         name_into(&options->bus, Names<Bus>(kBuses))},
        {"ipmi-host", "BUS",
         "Serve OpenBMC's IPMI bridges as xyz.openbmc_project.Ipmi.Host on a bus: session, system or none (none)",
         name_into(&options->ipmi_host, Names<Bus>(kSharedBuses))},
        {"inventory", "BUS",
         "Show the inventory as xyz.openbmc_project.Inventory objects on a bus: session, system or none (none)",
         name_into(&options->inventory, Names<Bus>(kSharedBuses))},
        {"host-door", nullptr,
         "Be the controller of a virtual machine: QEMU's ipmi-bmc-extern at RUN_DIR/slotN/host.sock",
         flag_into(&options->host_door)},
        {"check-config", nullptr, "Check the enclosure file, warn of what is doubtful, and end",
         flag_into(&options->check_config)},
        {"strict", nullptr, "With --check-config: end with 1 after a warning, too", flag_into(&options->strict)},
        {"version", nullptr, "Print the version and end", flag_into(&asked->version)},
        {"help", nullptr, "Print this help and end; -h, too", flag_into(&asked->help)},
    };
}

std::string help(std::span<const Option> options) {
    std::string text = "The storage service of a storage enclosure's management controller.\n"
                       "Usage: asd [OPTIONS]\n\nOptions:\n";
    for (const Option &option : options) {
        std::string left = std::string("  --") + option.name;
        left += option.value != nullptr ? std::string(" ") + option.value : "";
        left.resize(std::max<std::size_t>(left.size() + 1, 30), ' ');
        text += left + option.what + "\n";
    }
    return text + "\n" + kExamples + "\n";
}

// The first mistake of a command line; empty when there is none. GNU's rules: "--name value", "--name=value", a name as
// far as it is the only one that begins so.
std::string take_all(const std::vector<std::string> &arguments, std::span<const Option> options) {
    constexpr int kFirst = 256; // behind all letters: what getopt_long calls the first option
    std::vector<option> table;
    for (const Option &row : options) {
        const int value = row.value != nullptr ? required_argument : no_argument;
        table.push_back({row.name, value, nullptr, kFirst + static_cast<int>(table.size())});
    }
    table.push_back({});
    std::vector<std::string> words = {"asd"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> pointers(words.size() + 1); // a null pointer ends them
    std::ranges::transform(words, pointers.begin(), [](std::string &word) { return word.data(); });
    std::set<std::size_t> seen;
    ::optind = 0; // begins anew
    for (;;) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): before other threads exist
        const int found = ::getopt_long(static_cast<int>(words.size()), pointers.data(), "-:h", table.data(), nullptr);
        if (found == -1) {
            return ::optind < static_cast<int>(words.size())
                       ? "'" + words[static_cast<std::size_t>(::optind)] + "' is no option"
                       : "";
        }
        const std::string word = words[static_cast<std::size_t>(std::max(::optind - 1, 1))];
        if (found == ':') {
            return word + " needs a value";
        }
        if (found == 1 || found == '?') {
            return "'" + word + "' is no option" + (found == '?' && ::optopt >= kFirst ? " with a value" : "");
        }
        const std::size_t row = found == 'h' ? options.size() - 1 : static_cast<std::size_t>(found - kFirst);
        const Option &taken = options[row];
        if (taken.value != nullptr && !seen.insert(row).second) {
            return std::string("--") + taken.name + " is given twice";
        }
        if (const std::string mistake = taken.take(::optarg); !mistake.empty()) {
            return std::string("--") + taken.name + ": " + mistake;
        }
    }
}

} // namespace

ParsedOptions parse_options(const std::vector<std::string> &arguments) {
    Options options;
    options.config = "/etc/asd/enclosure.json";
    options.run_dir = default_run_dir();
    options.state_dir = default_state_dir();
    Asked asked;
    const std::vector<Option> known = options_of(&options, &asked);
    if (const std::string mistake = take_all(arguments, known); !mistake.empty()) {
        return refuse(mistake);
    }
    if (asked.help || asked.version) {
        std::cout << (asked.help ? help(known) : "asd " ASD_VERSION "\n") << std::flush;
        return {.options = {}, .exit_status = 0};
    }
    if (const std::string mistake = mistake_in(&options); !mistake.empty()) {
        return refuse(mistake);
    }
    options.run_dir_in_tmp = options.run_dir == run_dir_in_tmp();
    return {.options = std::move(options), .exit_status = std::nullopt};
}

} // namespace asd_host
