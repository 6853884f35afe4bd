// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The smallest service on GDBus that answers the methods which are compared, with bytes that it made before.
//
//   asd_bench_bus private SOCKET DATA    on a socket of its own
//   asd_bench_bus bus NAME DATA          on the session bus, by that name

#include "gio_holders.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gio/gio.h>

namespace {

using asd_shared::ErrorSlot;

constexpr int kWrongUsage = 2;
constexpr const char *kPath = "/empty";
constexpr const char *kInterfaces = R"xml(<node><interface name="empty.Empty">
  <method name="ReadAsdMemData"><arg type="ay" direction="out"/></method>
  <method name="execute"><arg type="y" direction="in"/><arg type="y" direction="in"/><arg type="y" direction="in"/>
    <arg type="ay" direction="in"/><arg type="a{sv}" direction="in"/><arg type="(yyyyay)" direction="out"/></method>
</interface></node>)xml";

std::vector<std::uint8_t> data; // every answer's

void answer(GDBusConnection * /*bus*/, const gchar * /*sender*/, const gchar * /*path*/, const gchar * /*interface*/,
            const gchar *method, GVariant * /*arguments*/, GDBusMethodInvocation *invocation, gpointer /*user_data*/) {
    GVariant *bytes = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data.data(), data.size(), 1);
    g_dbus_method_invocation_return_value(invocation, std::string_view(method) == "execute"
                                                          ? g_variant_new("((yyyy@ay))", 0x33, 0, 0x16, 0, bytes)
                                                          : g_variant_new("(@ay)", bytes));
}

constexpr GDBusInterfaceVTable kMethods = {
    .method_call = answer, .get_property = nullptr, .set_property = nullptr, .padding = {}};

void serve(GDBusConnection *bus) {
    const ErrorSlot error;
    static GDBusNodeInfo *const node = g_dbus_node_info_new_for_xml(kInterfaces, nullptr);
    (void)g_dbus_connection_register_object(bus, kPath, node->interfaces[0], &kMethods, nullptr, nullptr, nullptr);
}

gboolean take_client(GDBusServer * /*server*/, GDBusConnection *client, gpointer /*user_data*/) {
    serve(g_object_ref(client)); // for as long as this process lives
    return TRUE;
}

int stop(const ErrorSlot &error) {
    (void)std::fprintf(stderr, "asd_bench_bus: %s\n", error.text());
    return 1;
}

int run(const std::string &kind, const char *where) {
    ErrorSlot error;
    const asd_shared::LoopPtr loop(g_main_loop_new(nullptr, FALSE));
    asd_shared::ObjectPtr<GDBusServer> server;
    asd_shared::ConnectionPtr bus;
    if (kind == "private") {
        const std::string address = std::string("unix:path=") + where;
        const std::string guid = "0123456789abcdef0123456789abcdef";
        server.reset(g_dbus_server_new_sync(address.c_str(), G_DBUS_SERVER_FLAGS_NONE, guid.c_str(), nullptr, nullptr,
                                            error.out()));
        if (server == nullptr) {
            return stop(error);
        }
        (void)g_signal_connect(server.get(), "new-connection", G_CALLBACK(take_client), nullptr);
        g_dbus_server_start(server.get());
    } else {
        bus.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, error.out()));
        if (bus == nullptr) {
            return stop(error);
        }
        serve(bus.get());
        (void)g_bus_own_name_on_connection(bus.get(), where, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr,
                                           nullptr);
    }
    g_main_loop_run(loop.get());
    return 0;
}

} // namespace

int main(int count, char **given) {
    const std::span<char *> words(given, static_cast<std::size_t>(count));
    const std::string kind = words.size() == 4 ? words[1] : "";
    if (kind != "private" && kind != "bus") {
        (void)std::fprintf(stderr, "Usage: asd_bench_bus private SOCKET DATA\n       asd_bench_bus bus NAME DATA\n");
        return kWrongUsage;
    }
    data.assign(std::strtoul(words[3], nullptr, 10), 0x20);
    return run(kind, words[2]);
}
