// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "service.h"

#include "host.h"
#include "log.h"
#include "places.h"
#include "process_start.h"
#include "unix_socket.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

int asd_module_main(int count, char **words); // the module's main under another name

namespace fuzz {
namespace {

using asd_test::eventually;

// The enclosure of the project, but nothing is waited for.
void write_enclosure(const std::filesystem::path &file) {
    std::ifstream project(ASD_ENCLOSURE);
    std::string text((std::istreambuf_iterator<char>(project)), {});
    constexpr std::string_view kCycle = "\"WriteCycleUs\": 5000";
    for (std::size_t at = 0; (at = text.find(kCycle, at)) != std::string::npos;) {
        text.replace(at, kCycle.size(), "\"WriteCycleUs\": 0");
    }
    std::ofstream(file) << text;
}

void serve(const std::filesystem::path &folder) {
    std::vector<std::string> words = {"asd",         "--config",       folder / "e.json", "--run-dir", folder / "run",
                                      "--state-dir", folder / "state", "--role",          "master",    "--host-door"};
    std::vector<char *> pointers;
    std::ranges::transform(words, std::back_inserter(pointers), [](std::string &word) { return word.data(); });
    // On this thread, so that the fuzzer's keeps its signals.
    asd_host::prepare_process(static_cast<int>(pointers.size()), pointers.data());
    (void)asd_module_main(0, nullptr);
}

} // namespace

Service::Service() {
    write_enclosure(folder_.path() / "e.json");
    main_ = std::thread([this] { serve(folder_.path()); });
    int error = 0;
    require(eventually([&] { return static_cast<bool>(asd_host::unix_connect(door(asd_host::kIpmiSocket), &error)); }),
            "the service does not start");
    asd_host::log_set(-1, false); // what is said of bad input is no news here
}

Service::~Service() {
    (void)::pthread_kill(main_.native_handle(), SIGTERM);
    main_.join();
}

const Service &Service::running() {
    static const Service service;
    return service;
}

std::filesystem::path Service::door(std::string_view socket) const {
    return folder_.path() / "run" / "slot0" / socket;
}

void Service::hear(std::string_view socket, std::string_view said) const {
    int error = 0;
    const asd_host::Fd client = asd_host::unix_connect(door(socket), &error);
    require(static_cast<bool>(client), "nobody listens at " + std::string(socket));
    // It may have been cut off before all is sent.
    [[maybe_unused]] const ssize_t sent = ::send(client.get(), said.data(), said.size(), MSG_NOSIGNAL);
    (void)::shutdown(client.get(), SHUT_WR); // the service sees the end all the same
    std::array<char, 65536> piece{};
    pollfd ready{.fd = client.get(), .events = POLLIN, .revents = 0};
    int there = 0;
    do {
        there = ::poll(&ready, 1, asd_test::kLimitMs);
        require(there != 0, "a client that has ended is not let go");
        // The fuzzer's own alarm may interrupt the wait.
    } while (there < 0 || ::recv(client.get(), piece.data(), piece.size(), 0) > 0);
}

void Service::require_protected() const {
    require(eventually([] {
                return std::ranges::all_of(asd_host::host()->lines.levels(),
                                           [](const auto &line) { return line.second == 0; });
            }),
            "a part stays unprotected");
}

} // namespace fuzz
