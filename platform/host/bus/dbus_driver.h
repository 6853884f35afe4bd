// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What clients ask of a bus before they talk to a service: with it, tools that know only buses (busctl) work on the
// private socket.

#include <string>
#include <string_view>

#include <glib.h>
#include <sys/types.h>

namespace asd_host {

// A client of the private socket, as the driver knows it.
struct DriverClient {
    std::string name; // its unique one
    uid_t uid = 0;
    pid_t pid = 0;
    const char *guid = ""; // of its connection
};

// The answer to a call of the driver's interface, whose first argument is name where it has one; floating. Null: nobody
// has the name that the method asks about. service_name is the service's name with its slot.
[[nodiscard]] GVariant *driver_answer(const DriverClient &client, const std::string &service_name,
                                      std::string_view method, const char *name);

} // namespace asd_host
