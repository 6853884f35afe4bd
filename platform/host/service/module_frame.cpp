// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "module_frame.h"

#include "clock.h"
#include "dbus_service.h"
#include "doubts.h"
#include "dummy_door.h"
#include "host.h"
#include "host_door.h"
#include "inventory.h"
#include "ipmi_registry.h"
#include "json_document.h"
#include "late_load.h"
#include "log.h"
#include "manager_notice.h"
#include "module_registry.h"
#include "patient_writer.h"
#include "peer_link.h"
#include "peers.h"
#include "places.h"
#include "printable.h"
#include "process_start.h"
#include "standard_commands.h"
#include "status.h"
#include "tasks.h"
#include "vos.h"
#include "watchdog.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

namespace asd_host {
namespace {

constexpr std::chrono::seconds kDoorLimit{5}; // to finish what runs when the service ends
constexpr std::chrono::seconds kTaskLimit{5};
constexpr std::chrono::seconds kLateLoadLimit{1};  // it may be within a transfer of a bus that hangs
constexpr std::chrono::seconds kLastLinesLimit{1}; // to be taken, when the process ends
constexpr int kFailed = 1;                         // exit status: it ran, and a new start may mend it
constexpr int kRefused = 1;                        // exit status

// Prints each of them behind such a word, in a colour of SGR (ECMA-48, 8.3.117) on a terminal.
void say_each(const char *word, const char *colour, std::span<const std::string> sentences) {
    const std::string head =
        log_colour_wanted() ? std::string("\033[1;") + colour + "m" + word + ":\033[0m " : std::string(word) + ": ";
    for (const std::string &sentence : sentences) {
        log_plain(head + printable(sentence) + "\n");
    }
}

// Ends the process before anything runs.
[[noreturn]] void refuse(std::span<const std::string> mistakes, const std::string &outcome) {
    say_each("error", "31", mistakes);
    log_plain("asd: " + printable(outcome) + "\n");
    (void)log_flush(kLastLinesLimit); // who does not read them by then gets the status alone
    std::exit(kRefused);              // NOLINT(concurrency-mt-unsafe): no other thread exists
}

std::string count_of(std::size_t count, const char *thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

// "49 items, 75 copies on 15 parts"
std::string holdings_of(const Enclosure &enclosure) {
    const std::size_t copies = enclosure.chips.size();
    return count_of(enclosure.items.size(), "item") + ", " + std::to_string(copies) +
           (copies == 1 ? " copy" : " copies") + " on " + count_of(enclosure.parts.size(), "part");
}

[[noreturn]] void say_checked(const Options &options, const Enclosure &enclosure) {
    const std::vector<std::string> doubts = doubts_about(enclosure);
    say_each("warning", "33", doubts);
    (void)log_flush(kLastLinesLimit);
    (void)std::printf("%s: ok, %s%s\n", options.config.c_str(), holdings_of(enclosure).c_str(),
                      doubts.empty() ? "" : (", " + count_of(doubts.size(), "warning")).c_str());
    std::exit(options.strict && !doubts.empty() ? kRefused
                                                : 0); // NOLINT(concurrency-mt-unsafe): no other thread exists
}

Options options_or_end() {
    ParsedOptions parsed = parse_options(process_arguments());
    if (parsed.exit_status) {
        std::exit(*parsed.exit_status); // NOLINT(concurrency-mt-unsafe): no other thread exists
    }
    return std::move(parsed.options);
}

Enclosure enclosure_or_end(const Options &options) {
    LoadedEnclosure loaded = load_enclosure(options.config);
    if (!loaded.enclosure) {
        const std::size_t lines = loaded.mistakes.size();
        const bool all = lines <= JsonMistakes::kShown;
        refuse(loaded.mistakes, (all ? count_of(lines, "mistake") : "too many mistakes to show them all") + " in " +
                                    options.config.native() + "; nothing has been started");
    }
    return std::move(*loaded.enclosure);
}

OBJ_HANDLE item_named(const char *name) {
    const Host *const platform = host();
    return platform == nullptr ? 0 : platform->objects.find(name).value_or(0);
}

struct Doors {
    std::unique_ptr<StreamServer> ipmi;
    std::unique_ptr<StreamServer> link;
    std::unique_ptr<HostDoor> machine; // null unless wanted
    std::unique_ptr<DbusService> bus;
};

std::atomic<std::uint64_t> rounds{0}; // of the main thread's looking after things; relaxed: guards nothing

// The IPMI socket comes last: who has waited for it finds the others too. False: *mistake says why, and what was opened
// is closed.
bool open_doors(Host &platform, Doors *doors, std::string *mistake) {
    const std::filesystem::path folder = platform.options.slot_run_dir();
    Doors opened;
    opened.bus = DbusService::open(platform, module_registry(), ipmi_registry(), mistake);
    if (opened.bus == nullptr) {
        return false;
    }
    opened.link = open_peer_link(folder / kLinkSocket, ipmi_registry(), reload_for_peer, mistake);
    if (opened.link == nullptr) {
        return false;
    }
    if (platform.options.host_door) {
        opened.machine = HostDoor::open(folder / kHostSocket, ipmi_registry(), mistake);
        if (opened.machine == nullptr) {
            return false;
        }
    }
    opened.ipmi = open_dummy_door(folder / kIpmiSocket, ipmi_registry(), platform.enclosure.ipmi_privilege, mistake);
    if (opened.ipmi == nullptr) {
        return false;
    }
    *doors = std::move(opened);
    return true;
}

// Where the service is on D-Bus, in words.
std::string bus_of(const Host &platform, const std::filesystem::path &folder) {
    switch (platform.options.bus) {
    case Bus::kPrivate:
        return "unix:path=" + (folder / kBusSocket).native();
    case Bus::kSession:
        return "session bus";
    case Bus::kSystem:
        return "system bus";
    case Bus::kNone:
        break;
    }
    return "not served";
}

std::string greeting(const Host &platform) {
    std::error_code unknown; // the path as given will do
    std::filesystem::path folder = std::filesystem::absolute(platform.options.slot_run_dir(), unknown);
    if (unknown) {
        folder = platform.options.slot_run_dir();
    }
    const std::string slot = std::to_string(platform.options.slot);
    const std::string socket = (folder / kIpmiSocket).native();
    std::string text = "asd serves slot " + slot + " of \"" + printable(platform.enclosure.name) +
                       "\": " + holdings_of(platform.enclosure) + ".\n" + //
                       "  IPMI socket  " + socket + "\n" +                //
                       (platform.options.host_door ? "  host door    " + (folder / kHostSocket).native() + "\n" : "") +
                       "  D-Bus        " + bus_of(platform, folder) + "\n" + //
                       "  state        " + platform.options.state_dir.native() + "\n";
    if (isatty(STDOUT_FILENO) == 1) { // a log needs no lesson
        text += "\n"
                "In another terminal:\n"
                "\n"
                "  export IPMI_DUMMY_SOCK=" +
                socket +
                "\n"
                "  ipmitool -I dummy mc info\n"
                "  # store a brand, 32 bytes, and read it back\n"
                "  ipmitool -I dummy raw 0x32 0x17 0x00 0x00 0x80 0x00 0x14 \\\n"
                "      $(printf '%-32s' 'Example Brand' | od -An -v -tx1 | sed 's/ / 0x/g')\n"
                "  ipmitool -I dummy raw 0x32 0x16 0x00 0x00 0x80 0x00 0x14\n"
                "  # the operator's view\n"
                "  asdctl --run-dir " +
                folder.parent_path().native() + " --slot " + slot +
                " status\n"
                "\n"
                "Ctrl-C ends the service.\n";
    }
    return text;
}

// A standard output that takes nothing keeps nobody from being served. Never destroyed, as its kind wants it.
void greet(const Host &platform) {
    static PatientWriter &output =
        *new PatientWriter(STDOUT_FILENO, [](std::uint64_t /*dropped*/) { return std::string(); });
    output.put(greeting(platform));
}

// Until the service is to end; what has to be looked after meanwhile is done in between. The status to end with.
int await_end(Host &platform) {
    const sigset_t signals = end_signals();
    constexpr timespec kRound{.tv_sec = 1, .tv_nsec = 0};
    for (;;) {
        rounds.fetch_add(1, std::memory_order_relaxed);
        const int signal = sigtimedwait(&signals, nullptr, &kRound);
        if (signal >= 0) {
            HOST_LOG(kLogInformation, "%s received, the service ends", signal == SIGINT ? "SIGINT" : "SIGTERM");
            return 0;
        }
        log_settle();
        if (const std::string reason = host_watch(platform); !reason.empty()) {
            HOST_LOG(kLogError, "%s; the service ends, to be started anew", reason.c_str());
            return kFailed;
        }
    }
}

// Everything that has to move for the service to work.
std::vector<Pulse> look_around(const Doors &doors) {
    constexpr std::chrono::seconds kRoundBound{60}; // it looks at files, which a card or a network may hold
    std::vector<Pulse> pulses = tasks_at_work();
    pulses.push_back(
        {.name = "the main thread", .count = rounds.load(std::memory_order_relaxed), .bound = kRoundBound});
    pulses.push_back(doors.ipmi->pulse());
    pulses.push_back(doors.link->pulse());
    if (doors.machine != nullptr) {
        pulses.push_back(doors.machine->pulse());
    }
    if (std::optional<Pulse> bus = doors.bus->pulse()) {
        pulses.push_back(*std::move(bus));
    }
    return pulses;
}

// Stops the tasks. Should one not stop, the process ends at once: a normal end would destroy what that task uses.
void stop_tasks(bool doors_closed, int status) {
    const bool parked = tasks_park(kTaskLimit);
    if (parked && doors_closed) {
        return;
    }
    HOST_LOG(kLogError, "%s still busy; the service ends without waiting", parked ? "a client is" : "a task is");
    (void)log_flush(kLastLinesLimit);
    std::_Exit(status);
}

} // namespace
} // namespace asd_host

using asd_host::module_registry;

gint32 static_register_module(const gchar *module_name) {
    if (module_name == nullptr) {
        return asd_host::kBadArgument;
    }
    asd_host::Options options = asd_host::options_or_end();
    asd_host::Enclosure enclosure = asd_host::enclosure_or_end(options);
    if (options.check_config) {
        asd_host::say_checked(options, enclosure);
    }
    asd_host::log_set(options.log_level, asd_host::log_colour_wanted());
    asd_host::clock_set_scale(options.time_scale);
    const std::vector<std::string> mistakes = asd_host::host_start(std::move(options), std::move(enclosure));
    if (!mistakes.empty()) {
        asd_host::refuse(mistakes, "the service has not been started");
    }
    for (const auto rows : {asd_host::standard_commands(), asd_host::inventory_commands()}) {
        if (!asd_host::ipmi_registry().add(rows)) {
            return asd_host::kBadArgument;
        }
    }
    return 0;
}

// Loads what a module brings along in shared objects on other platforms; here it is linked in.
gint32 init_md_so(void) {
    return 0;
}

gint32 static_declaration_class(const gchar *class_name) {
    return class_name != nullptr && module_registry().declare_class(class_name) ? 0 : asd_host::kBadArgument;
}

gint32 static_declaration_class_method(const gchar *class_name, const gchar *method_name, DFL_METHOD_FUNC handler) {
    if (class_name == nullptr || method_name == nullptr || handler == nullptr) {
        return asd_host::kBadArgument;
    }
    return module_registry().declare_method(class_name, method_name, handler) ? 0 : asd_host::kBadArgument;
}

// Nothing on this platform reboots the controller through the module.
gint32 static_register_reboot_handler(REBOOT_HANDLER handler) {
    return handler == nullptr ? asd_host::kBadArgument : 0;
}

gint32 static_implementation_ipmicmd(guint32 row_count, const IPMI_CMD_S *rows) {
    if (rows == nullptr && row_count > 0) {
        return asd_host::kBadArgument;
    }
    return asd_host::ipmi_registry().add({rows, row_count}, asd_host::item_named) ? 0 : asd_host::kBadArgument;
}

gint32 static_register_debug_cmd(guint32 row_count, const DEBUG_CMD_S * /*rows*/) {
    return row_count == 0 ? 0 : asd_host::kUnsupported;
}

// Every object of the enclosure must be of a class that the module serves.
gint32 static_complete_module_register(void) {
    const asd_host::Host *platform = asd_host::host();
    if (platform == nullptr) {
        return asd_host::kUnsupported;
    }
    gint32 result = 0;
    for (OBJ_HANDLE handle = 1; platform->objects.class_of(handle) != nullptr; ++handle) {
        const std::string &class_name = *platform->objects.class_of(handle);
        if (!module_registry().has_class(class_name)) {
            HOST_LOG(asd_host::kLogError, "object %s: its class %s has not been declared",
                     platform->objects.name_of(handle)->c_str(), class_name.c_str());
            result = asd_host::kNoObject;
        }
    }
    return result;
}

gint32 static_module_init(gint32 /*argument*/, MODULE_CALLBACK init) {
    return init != nullptr ? init() : asd_host::kBadArgument;
}

gint32 static_module_start(MODULE_CALLBACK start, guint32 delay_ms) {
    if (start == nullptr) {
        return asd_host::kBadArgument;
    }
    if (delay_ms > 0) {
        vos_task_delay(delay_ms);
    }
    return start();
}

// Ends the process itself when a door cannot be opened, or when it had to stop serving: the module returns 0 after this
// call whatever it says.
gint32 static_start_rpc_service(void) {
    asd_host::Host *platform = asd_host::host();
    if (platform == nullptr) {
        return asd_host::kUnsupported;
    }
    asd_host::LateLoad late_load(*platform);
    late_load.start();
    asd_host::Doors doors;
    std::string mistake;
    if (!asd_host::open_doors(*platform, &doors, &mistake)) {
        asd_host::stop_tasks(true, asd_host::kRefused);
        const std::array mistakes{mistake};
        asd_host::refuse(mistakes, "the service has not been started");
    }
    asd_host::greet(*platform);
    asd_host::manager_notify("READY=1");
    platform->lookout.start();
    asd_host::Watchdog watchdog;
    if (const auto interval = asd_host::watchdog_interval()) {
        watchdog.start(
            *interval, [&doors] { return asd_host::look_around(doors); }, asd_host::manager_notify);
    }
    const int status = asd_host::await_end(*platform);
    watchdog
        .stop(); // it looks at the doors, which close now; how long the end may take is another of the manager's limits
    asd_host::manager_notify("STOPPING=1");
    // All at once, so that the slowest of them decides how long it takes.
    std::future<bool> bus_stop = std::async([&doors] { return doors.bus->stop(asd_host::kDoorLimit); });
    std::future<bool> machine_stop =
        std::async([&doors] { return doors.machine == nullptr || doors.machine->stop(asd_host::kDoorLimit); });
    doors.ipmi->begin_stop();
    doors.link->begin_stop();
    const bool load_ended = late_load.stop(asd_host::kLateLoadLimit);
    const bool looks_ended = platform->lookout.stop(asd_host::kLateLoadLimit);
    const bool ipmi_closed = doors.ipmi->stop(asd_host::kDoorLimit);
    const bool link_closed = doors.link->stop(asd_host::kDoorLimit);
    const bool machine_closed = machine_stop.get();
    const bool bus_closed = bus_stop.get();
    asd_host::stop_tasks(ipmi_closed && link_closed && machine_closed && bus_closed && load_ended && looks_ended,
                         status);
    (void)asd_host::log_flush(asd_host::kLastLinesLimit);
    if (status != 0) {
        std::exit(status); // NOLINT(concurrency-mt-unsafe): as the return from main does
    }
    return 0;
}
