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

    explicit BusDoor(BusClients &clients) : clients_(clients) {}
    ~BusDoor();
    BusDoor(const BusDoor &) = delete;
    BusDoor &operator=(const BusDoor &) = delete;

    // Listens at path (mode 0660), replacing what a dead process left there. Root and the service's own user may
    // connect. False: *mistake says why, in a sentence.
    [[nodiscard]] bool open(const std::filesystem::path &path, std::string *mistake);

    // Stops accepting and removes the socket.
    void close();

private:
    // A client that has not finished the handshake.
    struct Greeting {
        BusDoor *door = nullptr;
        ObjectPtr<GSocketConnection> stream;
        ObjectPtr<GCancellable> cancel;
        SourcePtr limit;
        SourcePtr first_word;
    };

    [[nodiscard]] bool listen_at(const std::filesystem::path &path, GError **error);
    void await_first_word(GSocketConnection *stream);
    void start_handshake(Greeting &greeting);
    void drop(const Greeting *greeting);
    void serve(ConnectionPtr connection);

    static gboolean on_incoming(GSocketService *service, GSocketConnection *stream, GObject *source, gpointer self);
    static gboolean on_first_word(GSocket *socket, GIOCondition condition, gpointer greeting);
    static void on_greeted(GObject *source, GAsyncResult *result, gpointer greeting);
    static gboolean on_limit(gpointer greeting);

    BusClients &clients_;
    std::filesystem::path path_;
    ObjectPtr<GSocketService> service_;
    ObjectPtr<GDBusAuthObserver> observer_;
    TextPtr guid_;
    std::list<Greeting> greetings_;
};

} // namespace asd_host
