// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What clients ask of a bus before they talk to a service: with it, tools that know only buses (busctl) work on the
// private socket.

#include "dbus_clients.h"
#include "dbus_standard.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <unistd.h>

namespace asd_host {

namespace {

GVariant *one_text(const std::string &text) {
    return g_variant_new("(s)", text.c_str());
}

GVariant *texts(const std::vector<std::string> &list) {
    GVariantBuilder values;
    g_variant_builder_init(&values, G_VARIANT_TYPE_STRING_ARRAY);
    for (const std::string &text : list) {
        g_variant_builder_add(&values, "s", text.c_str());
    }
    return g_variant_new("(as)", &values);
}

GVariant *credentials(guint32 uid, guint32 pid) {
    GVariantBuilder values;
    g_variant_builder_init(&values, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&values, "{sv}", "UnixUserID", g_variant_new_uint32(uid));
    g_variant_builder_add(&values, "{sv}", "ProcessID", g_variant_new_uint32(pid));
    return g_variant_new("(a{sv})", &values);
}

} // namespace

std::string BusClients::service_name() const {
    return bus_name(objects_.platform().options.slot);
}

// Empty: nobody has the name.
std::string BusClients::owner_of(const Client &client, std::string_view name) const {
    if (name == kDriverName || name == client.name) {
        return std::string(name);
    }
    const bool ours = name == kServiceName || name == service_name() || name == kServiceUniqueName;
    return ours ? kServiceUniqueName : "";
}

// Null: nobody has the name.
GVariant *BusClients::credentials_answer(const Client &client, std::string_view method, const char *name) const {
    if (owner_of(client, name).empty()) {
        return nullptr;
    }
    guint32 uid = ::geteuid();
    auto pid = static_cast<guint32>(::getpid());
    if (name == client.name) {
        uid = client.peer.uid;
        pid = static_cast<guint32>(client.peer.pid);
    }
    if (method == "GetConnectionCredentials") {
        return credentials(uid, pid);
    }
    return g_variant_new("(u)", method == "GetConnectionUnixUser" ? uid : pid);
}

// Null: nobody has the name that the method asks about.
GVariant *BusClients::driver_answer(Client &client, std::string_view method, const char *name) const {
    if (method == "Hello") {
        client.said_hello = true;
        return one_text(client.name);
    }
    if (method == "ListNames") {
        return texts({kDriverName, kServiceName, service_name(), kServiceUniqueName, client.name});
    }
    if (method == "ListActivatableNames") {
        return texts({kDriverName});
    }
    if (method == "NameHasOwner") {
        return g_variant_new("(b)", owner_of(client, name).empty() ? FALSE : TRUE);
    }
    if (method == "GetNameOwner") {
        const std::string owner = owner_of(client, name);
        return owner.empty() ? nullptr : one_text(owner);
    }
    if (method == "GetId") {
        return one_text(g_dbus_connection_get_guid(client.connection.get()));
    }
    if (method == "AddMatch" || method == "RemoveMatch") {
        return g_variant_new_tuple(nullptr, 0); // every client gets every signal
    }
    return credentials_answer(client, method, name);
}

void BusClients::driver_call(std::string_view method, GVariant *parameters, InvocationPtr invocation) {
    const auto found = clients_.find(g_dbus_method_invocation_get_connection(invocation.get()));
    if (found == clients_.end()) {
        answer_error(std::move(invocation), kErrorFailed, "the connection is closed");
        return;
    }
    const char *name = "";
    if (g_variant_n_children(parameters) > 0) {
        g_variant_get_child(parameters, 0, "&s", &name);
    }
    found->second.has_called = true; // the answer goes out before the next change
    GVariant *values = driver_answer(found->second, method, name);
    if (values == nullptr) {
        answer_error(std::move(invocation), kErrorNoName, std::string("nobody has the name ") + name);
        return;
    }
    answer(std::move(invocation), values);
}

void BusClients::on_driver_call(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar * /*path*/,
                                const gchar * /*interface*/, const gchar *method, GVariant *parameters,
                                GDBusMethodInvocation *invocation, gpointer self) {
    static_cast<BusClients *>(self)->driver_call(method, parameters, InvocationPtr(invocation));
}

} // namespace asd_host
