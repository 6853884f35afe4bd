// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Stands for one of OpenBMC's IPMI bridges: bridge ADDRESS [BUS_NAME]. Each line of standard input is a request as
// GVariant text, "(netfn, lun, cmd, [data], {options})"; requests do not wait for each other. Each answer is a line as
// it comes: the number of the request, the first one's kFirst, and what was answered as GVariant text.

#include "gio_holders.h"

#include <cstdio>
#include <iostream>
#include <string>

namespace {

using namespace asd_host; // NOLINT(google-build-using-namespace): the holders

constexpr guint32 kFirst = 1000; // the number is the message's; GLib gives its own messages those from 1 on

GDBusMessage *print_answer(GDBusConnection * /*bus*/, GDBusMessage *message, gboolean incoming, gpointer /*data*/) {
    const guint32 number = g_dbus_message_get_reply_serial(message);
    if (incoming != 0 && number >= kFirst) {
        const TextPtr text(g_variant_print(g_dbus_message_get_body(message), FALSE));
        std::printf("%u %s\n", number, text.get());
        (void)std::fflush(stdout);
    }
    return message;
}

} // namespace

int main(int argc, char **argv) {
    ErrorSlot error;
    const ConnectionPtr bus(g_dbus_connection_new_for_address_sync(
        argv[1],
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, error.out()));
    const VariantPtr owned(bus == nullptr || argc < 3
                               ? nullptr
                               : g_dbus_connection_call_sync(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                             "org.freedesktop.DBus", "RequestName",
                                                             g_variant_new("(su)", argv[2], 4U), nullptr,
                                                             G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
    if (bus == nullptr || (argc == 3 && owned == nullptr)) {
        std::cerr << error.text() << '\n';
        return 1;
    }
    (void)g_dbus_connection_add_filter(bus.get(), print_answer, nullptr, nullptr);
    std::cout << "ready" << std::endl;
    guint32 number = kFirst;
    for (std::string line; std::getline(std::cin, line); ++number) {
        const ObjectPtr<GDBusMessage> request(
            g_dbus_message_new_method_call("xyz.openbmc_project.Ipmi.Host", "/xyz/openbmc_project/Ipmi",
                                           "xyz.openbmc_project.Ipmi.Server", "execute"));
        g_dbus_message_set_body(
            request.get(), g_variant_parse(G_VARIANT_TYPE("(yyyaya{sv})"), line.c_str(), nullptr, nullptr, nullptr));
        g_dbus_message_set_serial(request.get(), number);
        (void)g_dbus_connection_send_message(bus.get(), request.get(), G_DBUS_SEND_MESSAGE_FLAGS_PRESERVE_SERIAL,
                                             nullptr, nullptr);
    }
}
