// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The connections on which the service's objects are: a shared bus, or each client of the private socket. Used on the
// bus thread alone.

#include "dbus_calls.h"
#include "dbus_objects.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace asd_host {

using PropertyNames = std::set<std::string, std::less<>>;

class BusClients {
public:
    BusClients(const BusObjects &objects, BusCalls &calls) : objects_(objects), calls_(calls) {}
    ~BusClients();
    BusClients(const BusClients &) = delete;
    BusClients &operator=(const BusClients &) = delete;

    enum class Kind {
        kBus,    // the connection to a shared bus
        kClient, // a client of the private socket; it finds a bus driver there too
    };
    // Who a client of the private socket is, and whether it has taken all that was written for it.
    struct Peer {
        uid_t uid = 0;
        pid_t pid = 0;
        std::function<bool()> has_taken_all = {};
    };
    // Puts the objects on the connection. False: *mistake says why.
    [[nodiscard]] bool add(ConnectionPtr connection, Kind kind, Peer peer, std::string *mistake);
    // A client of the private socket has taken what its relay had: when that was all that was written for it, what
    // changed meanwhile is told now.
    void taken(GDBusConnection *connection);

    // A call of a client of the private socket. True: it is one of an object's own methods and is carried out; send
    // gets its answer, now or later. False: GDBus is to have it, which has the words for what is wrong with it.
    [[nodiscard]] bool call(GDBusConnection *connection, GDBusMessage *message, BusCall::Send send);
    // Sends the answer behind the changes that are on their way to the client. False: none are.
    [[nodiscard]] bool tell(GDBusConnection *connection, GDBusMessage *answer) const;
    [[nodiscard]] std::size_t count() const { return clients_.size(); }

    // The service has its name on the shared bus: changes are told there from now on. The bus judges by the name who
    // may hear them.
    void announce();

    // Tells every connection the properties' present values, of confidential ones that they have changed; a client of
    // the private socket from its first call on, because those that take it for a bus end when anything comes before
    // the answer to Hello. What changes while a client does not read is put together: nobody's memory fills up, and the
    // client sees the last values.
    void changed(OBJ_HANDLE object, const PropertyNames &properties);

    // Sends what is on its way and closes, which count() tells.
    void close_all();
    // Ends connections whose clients do not take what is on its way.
    void cut_all();

private:
    struct Client {
        ConnectionPtr connection;
        Kind kind = Kind::kClient;
        std::string name; // its unique name on the private socket
        bool has_called = false;
        bool said_hello = false; // it takes the private socket for a bus
        Peer peer;
        bool sending = false; // changes are on their way
        bool written = false; // GDBus has written them
        SourcePtr unread;     // until a shared bus has taken them: when that has taken too long
        std::map<OBJ_HANDLE, PropertyNames> changes;
    };

    [[nodiscard]] bool register_objects(GDBusConnection *connection, Kind kind, GError **error);
    [[nodiscard]] bool register_folder(GDBusConnection *connection, std::string_view class_name, GError **error);
    void send_changes(Client &client);
    void finish_sending(Client &client);
    void send_change(const Client &client, OBJ_HANDLE object, const PropertyNames &properties) const;
    void properties_call(OBJ_HANDLE object, std::string_view method, GVariant *parameters, InvocationPtr invocation);
    [[nodiscard]] static std::function<std::string()> user_of(const Client &client, const gchar *sender);
    void driver_call(std::string_view method, GVariant *parameters, InvocationPtr invocation);

    // What GDBus calls.
    static void on_call(GDBusConnection *connection, const gchar *sender, const gchar *path, const gchar *interface,
                        const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation, gpointer self);
    static void on_driver_call(GDBusConnection *connection, const gchar *sender, const gchar *path,
                               const gchar *interface, const gchar *method, GVariant *parameters,
                               GDBusMethodInvocation *invocation, gpointer self);
    static gchar **on_enumerate(GDBusConnection *connection, const gchar *sender, const gchar *path, gpointer self);
    static GDBusInterfaceInfo **on_introspect(GDBusConnection *connection, const gchar *sender, const gchar *path,
                                              const gchar *node, gpointer self);
    static const GDBusInterfaceVTable *on_dispatch(GDBusConnection *connection, const gchar *sender, const gchar *path,
                                                   const gchar *interface, const gchar *node, gpointer *user_data,
                                                   gpointer self);
    static void on_sent(GObject *connection, GAsyncResult *result, gpointer self);
    static gboolean on_unread(gpointer connection);
    static void on_last_sent(GObject *connection, GAsyncResult *result, gpointer self);
    static void on_closed(GDBusConnection *connection, gboolean vanished, GError *error, gpointer self);

    const BusObjects &objects_;
    BusCalls &calls_;
    std::map<GDBusConnection *, Client> clients_;
    std::uint64_t last_name_ = 0;
};

} // namespace asd_host
