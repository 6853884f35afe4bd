// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Methods and properties on D-Bus: the remote-call service of this platform. What it offers is in docs/dbus.md.

#include "host.h"
#include "ipmi_registry.h"
#include "module_registry.h"
#include "stalls.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace asd_host {

struct BusShared; // what the service's threads share

class DbusService {
public:
    // Serves the platform's objects and the module's methods where options.bus says, and the IPMI commands to OpenBMC's
    // bridges where options.ipmi_host says, and the inventory where options.inventory says. The registries outlive the
    // process' calls. Null: *mistake says why, in a sentence; with Bus::kNone for all a service that does nothing.
    [[nodiscard]] static std::unique_ptr<DbusService> open(Host &platform, const ModuleRegistry &module,
                                                           const IpmiRegistry &commands, std::string *mistake);
    ~DbusService();
    DbusService(const DbusService &) = delete;
    DbusService &operator=(const DbusService &) = delete;

    // Lets calls that run be answered, refuses those that wait, and closes. False: a call still runs after the limit,
    // and keeps what it uses.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);

    // Whether the bus thread still takes work: the count moves each time that it has taken what the look before gave
    // it. Empty: not serving. One thread, and not during stop().
    [[nodiscard]] std::optional<Pulse> pulse();

private:
    DbusService() = default;
    Host *platform_ = nullptr;
    std::shared_ptr<BusShared> shared_; // null: not serving
    std::thread thread_;
};

} // namespace asd_host
