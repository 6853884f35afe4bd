// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_driver.h"

#include "dbus_objects.h"
#include "dbus_standard.h"

#include <vector>

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

// Empty: nobody has the name.
std::string owner_of(const DriverClient &client, const std::string &service_name, std::string_view name) {
    if (name == kDriverName || name == client.name) {
        return std::string(name);
    }
    const bool ours = name == kServiceName || name == service_name || name == kServiceUniqueName;
    return ours ? kServiceUniqueName : "";
}

GVariant *credentials_answer(const DriverClient &client, std::string_view method, const char *name) {
    const bool own = name == client.name;
    const guint32 uid = own ? client.uid : ::geteuid();
    const auto pid = static_cast<guint32>(own ? client.pid : ::getpid());
    if (method == "GetConnectionCredentials") {
        return credentials(uid, pid);
    }
    return g_variant_new("(u)", method == "GetConnectionUnixUser" ? uid : pid);
}

} // namespace

GVariant *driver_answer(const DriverClient &client, const std::string &service_name, std::string_view method,
                        const char *name) {
    if (method == "Hello") {
        return one_text(client.name);
    }
    if (method == "ListNames") {
        return texts({kDriverName, kServiceName, service_name, kServiceUniqueName, client.name});
    }
    if (method == "ListActivatableNames") {
        return texts({kDriverName});
    }
    if (method == "GetId") {
        return one_text(client.guid);
    }
    if (method == "AddMatch" || method == "RemoveMatch") {
        return g_variant_new_tuple(nullptr, 0); // every client gets every signal
    }
    const std::string owner = owner_of(client, service_name, name);
    if (method == "NameHasOwner") {
        return g_variant_new("(b)", owner.empty() ? FALSE : TRUE);
    }
    if (owner.empty()) {
        return nullptr;
    }
    return method == "GetNameOwner" ? one_text(owner) : credentials_answer(client, method, name);
}

} // namespace asd_host
