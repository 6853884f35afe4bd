// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Stands for one of OpenBMC's IPMI bridges: bridge ADDRESS [BUS_NAME]. Each line of standard input is a request as
// GVariant text, "(netfn, lun, cmd, [data], {options})"; requests do not wait for each other. Each response is a line:
// the number of the request from 1 on, then the response's bytes in hex, or the error.

#include "gio_holders.h"

#include <cstdio>
#include <iostream>
#include <string>

namespace {

using namespace asd_host; // NOLINT(google-build-using-namespace): the holders

void print_reply(GObject *source, GAsyncResult *result, gpointer number) {
    ErrorSlot error;
    const VariantPtr reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
    std::printf("%d", GPOINTER_TO_INT(number));
    if (reply == nullptr) {
        std::printf(" %s\n", error.text());
    } else {
        guint8 head[4] = {};
        GVariant *data = nullptr;
        g_variant_get(reply.get(), "((yyyy@ay))", &head[0], &head[1], &head[2], &head[3], &data);
        const VariantPtr held(data);
        gsize size = 0;
        const auto *bytes = static_cast<const guint8 *>(g_variant_get_fixed_array(data, &size, 1));
        std::printf(" %02x %02x %02x %02x ", head[0], head[1], head[2], head[3]);
        for (gsize i = 0; i < size; ++i) {
            std::printf("%02x", bytes[i]);
        }
        std::printf("\n");
    }
    (void)std::fflush(stdout);
}

GDBusConnection *bus = nullptr;

gboolean send_request(GIOChannel *input, GIOCondition /*condition*/, gpointer /*data*/) {
    static int number = 0;
    gchar *line = nullptr;
    if (g_io_channel_read_line(input, &line, nullptr, nullptr, nullptr) != G_IO_STATUS_NORMAL) {
        std::exit(0); // NOLINT(concurrency-mt-unsafe): nothing of ours runs elsewhere
    }
    const TextPtr text(line);
    ErrorSlot error;
    GVariant *request = g_variant_parse(G_VARIANT_TYPE("(yyyaya{sv})"), line, nullptr, nullptr, error.out());
    if (request == nullptr) {
        std::cerr << error.text() << '\n';
        return G_SOURCE_REMOVE;
    }
    g_dbus_connection_call(bus, "xyz.openbmc_project.Ipmi.Host", "/xyz/openbmc_project/Ipmi",
                           "xyz.openbmc_project.Ipmi.Server", "execute", request, nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
                           nullptr, print_reply, GINT_TO_POINTER(++number));
    return G_SOURCE_CONTINUE;
}

} // namespace

int main(int argc, char **argv) {
    ErrorSlot error;
    const ConnectionPtr connection(g_dbus_connection_new_for_address_sync(
        argv[1],
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, error.out()));
    const VariantPtr owned(connection == nullptr || argc < 3
                               ? nullptr
                               : g_dbus_connection_call_sync(connection.get(), "org.freedesktop.DBus",
                                                             "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                                             "RequestName", g_variant_new("(su)", argv[2], 4U), nullptr,
                                                             G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
    if (connection == nullptr || (argc == 3 && owned == nullptr)) {
        std::cerr << error.text() << '\n';
        return 1;
    }
    bus = connection.get();
    std::cout << "ready" << std::endl;
    GIOChannel *input = g_io_channel_unix_new(0);
    (void)g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), send_request, nullptr);
    g_main_loop_run(LoopPtr(g_main_loop_new(nullptr, FALSE)).get());
    return 0;
}
