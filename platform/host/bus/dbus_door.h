// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The private D-Bus socket. Used on the bus thread alone.
//
// GIO's own server is not used for it: it makes connections on threads of its own, and those then report their end to
// the default main context, which nobody runs here.

#include "dbus_clients.h"
#include "dbus_relay.h"
#include "gio_holders.h"

#include <cstddef>
#include <filesystem>
#include <list>
#include <memory>
#include <string>

namespace asd_host {

class BusDoor {
public:
    // With those that have not finished the handshake. The one that has been idle longest makes room for a further one;
    // when all wait for answers, the further one is closed.
    static constexpr std::size_t kClients = 64;

    explicit BusDoor(BusClients &clients);
    BusDoor(const BusDoor &) = delete;
    BusDoor &operator=(const BusDoor &) = delete;

    // Listens at path (mode 0660), replacing what a dead process left there. Root and the service's own user may
    // connect. False: *mistake says why, in a sentence.
    [[nodiscard]] bool open(const std::filesystem::path &path, std::string *mistake);

    // Stops accepting and removes the socket; clients that have not finished the handshake are closed.
    void close();
    // Ends the clients that are left.
    void cut_off();
    [[nodiscard]] bool gone() const { return relays_.empty(); }

private:
    [[nodiscard]] bool listen_at(const std::filesystem::path &path, GError **error);
    void listen();
    void count_seconds();
    [[nodiscard]] bool accept_one();
    void pause(int reason);
    void take(Fd client);
    [[nodiscard]] bool make_room();
    [[nodiscard]] bool serve(BusRelay &relay, Fd socket);
    [[nodiscard]] bool carry_out(BusRelay &relay, GDBusMessage *call);

    static gboolean on_incoming(gint fd, GIOCondition condition, gpointer self);
    static gboolean on_second(gpointer self);

    BusClients &clients_;
    BusRelay::Events events_;
    std::filesystem::path path_;
    ObjectPtr<GSocket> socket_;
    SourcePtr incoming_; // null: closed, or it pauses
    SourcePtr second_;   // null: no client has limits to keep, and the door does not pause
    TextPtr guid_;
    std::list<std::shared_ptr<BusRelay>> relays_;
    bool full_told_ = false;
    bool pause_told_ = false;
};

} // namespace asd_host
