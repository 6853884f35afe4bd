// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_clients.h"

#include "dbus_driver.h"
#include "dbus_member.h"
#include "dbus_standard.h"
#include "log.h"

#include <cstring>
#include <utility>

namespace asd_host {

namespace {

// A shared bus that has not taken a change after that time is left: it ties up a thread of GIO's.
constexpr guint kUnreadLimitS = 30;
constexpr int kUserLimitMs = 1000; // for the bus to say who a client is

// GDBus refuses arguments of a wrong type by itself, on its own thread; clients are to see one name for that.
GDBusMessage *name_refusals(GDBusConnection * /*connection*/, GDBusMessage *message, gboolean incoming,
                            gpointer /*data*/) {
    const gchar *error = incoming != 0 ? nullptr : g_dbus_message_get_error_name(message);
    if (error == nullptr || std::strcmp(error, "org.freedesktop.DBus.Error.InvalidArgs") != 0) {
        return message;
    }
    GDBusMessage *renamed = g_dbus_message_copy(message, nullptr);
    if (renamed == nullptr) {
        return message; // no descriptor could be copied: there are none
    }
    g_dbus_message_set_error_name(renamed, kErrorArguments);
    g_object_unref(message);
    return renamed;
}

// GDBus passes the folder's path or that of an object in it.
std::string_view class_of_folder(std::string_view path) {
    const std::string_view below = path.substr(std::string_view(kRootPath).size() + 1);
    return below.substr(0, below.find('/'));
}

} // namespace

// ---- Connections ----

bool BusClients::add(ConnectionPtr connection, Kind kind, Peer peer, std::string *mistake) {
    GDBusConnection *raw = connection.get();
    ErrorSlot error;
    if (!register_objects(raw, kind, error.out())) {
        *mistake = std::string("the objects cannot be put on the bus: ") + error.text();
        return false;
    }
    (void)g_dbus_connection_add_filter(raw, name_refusals, nullptr, nullptr); // stays as long as the connection
    g_signal_connect(raw, "closed", G_CALLBACK(on_closed), this);
    Client client;
    client.connection = std::move(connection);
    client.kind = kind;
    client.peer = std::move(peer);
    client.name = ":1." + std::to_string(++last_name_);
    clients_.emplace(raw, std::move(client));
    return true;
}

void BusClients::announce() {
    for (auto &[connection, client] : clients_) {
        client.has_called = true;
    }
}

BusClients::~BusClients() {
    for (const auto &[connection, client] : clients_) {
        g_signal_handlers_disconnect_by_data(connection, this);
    }
}

bool BusClients::register_objects(GDBusConnection *connection, Kind kind, GError **error) {
    static constexpr GDBusInterfaceVTable kCalls = {
        .method_call = on_call, .get_property = nullptr, .set_property = nullptr, .padding = {}};
    static constexpr GDBusInterfaceVTable kDriver = {
        .method_call = on_driver_call, .get_property = nullptr, .set_property = nullptr, .padding = {}};
    const auto put = [&](const char *path, GDBusInterfaceInfo *interface, const GDBusInterfaceVTable *calls) {
        return g_dbus_connection_register_object(connection, path, interface, calls, this, nullptr, error) != 0;
    };
    if (kind == Kind::kClient && !put(kDriverPath, objects_.bus_driver(), &kDriver)) {
        return false;
    }
    if (!put(kRootPath, objects_.interface_of(kRootObject), &kCalls) ||
        !put(kRootPath, objects_.object_manager(), &kCalls) ||
        !put(kBoardPath, objects_.interface_of(kBoardObject), &kCalls)) {
        return false;
    }
    for (const std::string_view class_name : kBusClasses) {
        if (!register_folder(connection, class_name, error)) {
            return false;
        }
    }
    return true;
}

// A folder answers for every name below it, so that a wrong name is refused in words.
bool BusClients::register_folder(GDBusConnection *connection, std::string_view class_name, GError **error) {
    static constexpr GDBusSubtreeVTable kFolder = {
        .enumerate = on_enumerate, .introspect = on_introspect, .dispatch = on_dispatch, .padding = {}};
    const std::string path = std::string(kRootPath) + "/" + std::string(class_name);
    return g_dbus_connection_register_subtree(connection, path.c_str(), &kFolder,
                                              G_DBUS_SUBTREE_FLAGS_DISPATCH_TO_UNENUMERATED_NODES, this, nullptr,
                                              error) != 0;
}

void BusClients::close_all() {
    for (const auto &[connection, client] : clients_) {
        g_dbus_connection_flush(connection, nullptr, on_last_sent, this);
    }
}

void BusClients::cut_all() {
    for (const auto &[connection, client] : clients_) {
        cut(connection);
    }
}

void BusClients::on_last_sent(GObject *connection, GAsyncResult *result, gpointer /*self*/) {
    auto *closing = G_DBUS_CONNECTION(connection);
    (void)g_dbus_connection_flush_finish(closing, result, nullptr); // a client that has gone needs no answers
    g_dbus_connection_close(closing, nullptr, nullptr, nullptr);
}

void BusClients::on_closed(GDBusConnection *connection, gboolean /*vanished*/, GError * /*error*/, gpointer self) {
    static_cast<BusClients *>(self)->clients_.erase(connection);
}

// ---- Folders of objects ----

gchar **BusClients::on_enumerate(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar *path,
                                 gpointer self) {
    const auto *clients = static_cast<const BusClients *>(self);
    GStrvBuilder *names = g_strv_builder_new();
    for (const std::string &name : clients->objects_.names_below(class_of_folder(path))) {
        g_strv_builder_add(names, name.c_str());
    }
    gchar **list = g_strv_builder_end(names);
    g_strv_builder_unref(names);
    return list;
}

GDBusInterfaceInfo **BusClients::on_introspect(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                                               const gchar *path, const gchar *node, gpointer self) {
    const auto *clients = static_cast<const BusClients *>(self);
    auto **list = g_new0(GDBusInterfaceInfo *, 2);
    if (node != nullptr) {
        list[0] = g_dbus_interface_info_ref(clients->objects_.interface_below(class_of_folder(path)));
    }
    return list;
}

const GDBusInterfaceVTable *BusClients::on_dispatch(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                                                    const gchar * /*path*/, const gchar * /*interface*/,
                                                    const gchar *node, gpointer *user_data, gpointer self) {
    static constexpr GDBusInterfaceVTable kCalls = {
        .method_call = on_call, .get_property = nullptr, .set_property = nullptr, .padding = {}};
    *user_data = self;
    return node == nullptr ? nullptr : &kCalls;
}

// ---- Calls ----

// A client of a shared bus is known there by its name alone: the bus is asked when there is something to tell.
std::function<std::string()> BusClients::user_of(const Client &client, const gchar *sender) {
    if (client.kind == Kind::kClient) {
        return [user = client.peer.uid] { return "uid " + std::to_string(user); };
    }
    ConnectionPtr held(G_DBUS_CONNECTION(g_object_ref(client.connection.get())));
    return [connection = std::shared_ptr<GDBusConnection>(held.release(), g_object_unref),
            name = std::string(sender == nullptr ? "" : sender)] {
        const VariantPtr reply(g_dbus_connection_call_sync(connection.get(), kDriverName, "/org/freedesktop/DBus",
                                                           kDriverName, "GetConnectionUnixUser",
                                                           g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(u)"),
                                                           G_DBUS_CALL_FLAGS_NONE, kUserLimitMs, nullptr, nullptr));
        guint32 user = 0;
        if (reply == nullptr) {
            return name;
        }
        g_variant_get(reply.get(), "(u)", &user);
        return "uid " + std::to_string(user);
    };
}

void BusClients::on_call(GDBusConnection *connection, const gchar *sender, const gchar *path, const gchar *interface,
                         const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation, gpointer self) {
    auto *clients = static_cast<BusClients *>(self);
    InvocationPtr held(invocation);
    std::function<std::string()> user = [] { return std::string("somebody who has left"); };
    if (const auto client = clients->clients_.find(connection); client != clients->clients_.end()) {
        client->second.has_called = true;
        user = user_of(client->second, sender);
    }
    const std::optional<OBJ_HANDLE> object = clients->objects_.at(path);
    if (!object) {
        answer_error(std::move(held), kErrorNoObject, std::string("there is no object ") + path);
        return;
    }
    if (std::strcmp(interface, kPropertiesInterface) == 0) {
        clients->properties_call(*object, method, parameters, std::move(held));
        return;
    }
    if (*object == kRootObject &&
        std::strcmp(interface, kServiceName) != 0) { // of the object manager's, the only method
        answer(std::move(held), clients->objects_.managed_objects());
        return;
    }
    clients->calls_.call(*object, BusCall(std::move(held)), std::move(user));
}

bool BusClients::call(GDBusConnection *connection, GDBusMessage *message, BusCall::Send send) {
    const auto client = clients_.find(connection);
    const std::optional<OBJ_HANDLE> object = objects_.at(g_dbus_message_get_path(message));
    const char *interface = g_dbus_message_get_interface(message);
    if (client == clients_.end() || !object || interface == nullptr) {
        return false;
    }
    GDBusInterfaceInfo *own = objects_.interface_of(*object);
    const GDBusMethodInfo *method = std::strcmp(interface, own->name) != 0
                                        ? nullptr
                                        : g_dbus_interface_info_lookup_method(own, g_dbus_message_get_member(message));
    if (method == nullptr || !BusCall::fits(method, message)) {
        return false;
    }
    client->second.has_called = true;
    calls_.call(*object, BusCall(message, method, std::move(send)),
                user_of(client->second, g_dbus_message_get_sender(message)));
    return true;
}

bool BusClients::tell(GDBusConnection *connection, GDBusMessage *answer) const {
    const auto client = clients_.find(connection);
    if (client == clients_.end() || !client->second.sending) {
        return false;
    }
    (void)g_dbus_connection_send_message(connection, answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                         nullptr); // fails when the client has gone
    return true;
}

// GDBus has checked that the property exists and that its access and type allow the call.
void BusClients::properties_call(OBJ_HANDLE object, std::string_view method, GVariant *parameters,
                                 InvocationPtr invocation) {
    const char *interface = nullptr;
    g_variant_get_child(parameters, 0, "&s", &interface);
    if (method == "GetAll") {
        const bool own = std::strcmp(interface, objects_.interface_of(object)->name) == 0;
        answer(std::move(invocation),
               own ? g_variant_new("(@a{sv})", objects_.properties(object)) : g_variant_new("(a{sv})", nullptr));
        return;
    }
    const char *name = nullptr;
    g_variant_get_child(parameters, 1, "&s", &name);
    if (method == "Get") {
        GVariant *held = objects_.property(object, name);
        if (held == nullptr) {
            answer_error(std::move(invocation), kErrorFailed, std::string(name) + " has no value");
            return;
        }
        answer(std::move(invocation), g_variant_new("(v)", held));
        return;
    }
    GVariant *value = nullptr;
    g_variant_get_child(parameters, 2, "v", &value);
    const VariantPtr held(value);
    if (!objects_.set_property(object, name, value)) {
        answer_error(std::move(invocation), kErrorFailed, std::string(name) + " cannot be set");
        return;
    }
    answer(std::move(invocation), nullptr);
    changed(object, {name});
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
    Client &client = found->second;
    client.has_called = true; // the answer goes out before the next change
    client.said_hello = client.said_hello || method == "Hello";
    GVariant *values = driver_answer({.name = client.name,
                                      .uid = client.peer.uid,
                                      .pid = client.peer.pid,
                                      .guid = g_dbus_connection_get_guid(client.connection.get())},
                                     bus_name(objects_.platform().options.slot), method, name);
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

// ---- Changes ----

void BusClients::changed(OBJ_HANDLE object, const PropertyNames &properties) {
    for (auto &[connection, client] : clients_) {
        if (!client.has_called) {
            continue;
        }
        client.changes[object].insert(properties.begin(), properties.end());
        if (!client.sending) {
            send_changes(client);
        }
    }
}

void BusClients::send_changes(Client &client) {
    for (const auto &[object, properties] : std::exchange(client.changes, {})) {
        send_change(client, object, properties);
    }
    client.sending = true;
    client.written = false;
    if (client.kind == Kind::kBus) { // the relay of a client has a limit of its own
        client.unread = attached(g_timeout_source_new_seconds(kUnreadLimitS), on_unread, client.connection.get());
    }
    g_dbus_connection_flush(client.connection.get(), nullptr, on_sent, this);
}

gboolean BusClients::on_unread(gpointer connection) {
    HOST_LOG(kLogInformation, "the bus has not read for %u seconds: the connection is cut off", kUnreadLimitS);
    cut(static_cast<GDBusConnection *>(connection));
    return G_SOURCE_REMOVE;
}

void BusClients::on_sent(GObject *connection, GAsyncResult *result, gpointer self) {
    auto *clients = static_cast<BusClients *>(self);
    auto *sent = G_DBUS_CONNECTION(connection);
    (void)g_dbus_connection_flush_finish(sent, result,
                                         nullptr); // a client that has gone is taken out when it is closed
    const auto found = clients->clients_.find(sent);
    if (found != clients->clients_.end()) {
        found->second.written = true;
        clients->finish_sending(found->second);
    }
}

void BusClients::taken(GDBusConnection *connection) {
    if (const auto found = clients_.find(connection); found != clients_.end()) {
        finish_sending(found->second);
    }
}

void BusClients::finish_sending(Client &client) {
    if (!client.sending || !client.written || (client.peer.has_taken_all && !client.peer.has_taken_all())) {
        return;
    }
    client.sending = false;
    client.unread.reset();
    if (!client.changes.empty()) {
        send_changes(client);
    }
}

void BusClients::send_change(const Client &client, OBJ_HANDLE object, const PropertyNames &properties) const {
    GVariantBuilder values;
    GVariantBuilder unsaid; // changed, but who wants to know the value must ask for it
    g_variant_builder_init(&values, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_init(&unsaid, G_VARIANT_TYPE_STRING_ARRAY);
    for (const std::string &name : properties) {
        if (objects_.is_confidential(object, name)) {
            g_variant_builder_add(&unsaid, "s", name.c_str());
        } else if (GVariant *value = objects_.property(object, name); value != nullptr) {
            g_variant_builder_add(&values, "{sv}", name.c_str(), value);
        }
    }
    const ObjectPtr<GDBusMessage> signal(
        g_dbus_message_new_signal(objects_.path_of(object).c_str(), kPropertiesInterface, "PropertiesChanged"));
    if (client.kind == Kind::kClient && client.said_hello) {
        g_dbus_message_set_sender(signal.get(), kServiceUniqueName); // a bus would put it there
    }
    g_dbus_message_set_body(signal.get(),
                            g_variant_new("(sa{sv}as)", objects_.interface_of(object)->name, &values, &unsaid));
    (void)g_dbus_connection_send_message(client.connection.get(), signal.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                         nullptr); // fails when the client has gone
}

} // namespace asd_host
