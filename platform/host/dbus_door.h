// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The private D-Bus socket. Used on the bus thread alone.
//
// GIO's own server is not used for it: it makes connections on threads of its own, and those then report their end to
// the default main context, which nobody runs here.

#include "dbus_clients.h"
#include "gio_holders.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <list>
#include <string>

namespace asd_host {

class BusDoor {
public:
    static constexpr std::size_t kClients = 64; // with those that have not finished the handshake; others are closed

    BusDoor(BusClients &clients, GMainContext *context) : clients_(clients), context_(context) {}
    ~BusDoor();
    BusDoor(const BusDoor &) = delete;
    BusDoor &operator=(const BusDoor &) = delete;

    // Listens at path (mode 0660), replacing what a dead process left there. Root and the service's own user may
    // connect. False: *mistake says why, in a sentence.
    [[nodiscard]] bool open(const std::filesystem::path &path, std::string *mistake);

    // Stops accepting and removes the socket.
    void close();

private:
    // A client in the handshake.
    struct Greeting {
        BusDoor *door = nullptr;
        ObjectPtr<GCancellable> cancel;
        SourcePtr limit;
        void end_limit() const { g_source_destroy(limit.get()); }
    };

    [[nodiscard]] bool listen_at(const std::filesystem::path &path, GError **error);
    void greet(GSocketConnection *stream);
    void finish(std::list<Greeting>::iterator greeting, GAsyncResult *result);

    static gboolean on_incoming(GSocketService *service, GSocketConnection *stream, GObject *source, gpointer self);
    static void on_greeted(GObject *source, GAsyncResult *result, gpointer greeting);
    static gboolean on_limit(gpointer greeting);

    BusClients &clients_;
    GMainContext *context_;
    std::filesystem::path path_;
    ObjectPtr<GSocketService> service_;
    ObjectPtr<GDBusAuthObserver> observer_;
    TextPtr guid_;
    std::list<Greeting> greetings_;
};

} // namespace asd_host
