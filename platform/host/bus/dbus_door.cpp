// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_door.h"

#include "log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include <gio/gunixfdlist.h>
#include <gio/gunixsocketaddress.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr mode_t kOwnerAndGroup = 0660;
constexpr int kAtOnce = 16; // clients accepted before others have their turn

bool may_connect(const Fd &client, ucred *peer) {
    socklen_t size = sizeof *peer;
    if (::getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, peer, &size) != 0) {
        return false;
    }
    if (peer->uid == 0 || peer->uid == ::geteuid()) {
        return true;
    }
    HOST_LOG(kLogInformation, "user %u may not use the D-Bus socket", peer->uid);
    return false;
}

} // namespace

BusDoor::BusDoor(BusClients &clients)
    : clients_(clients), events_{
                             .greeted = [this](BusRelay &relay, Fd socket) { return serve(relay, std::move(socket)); },
                             .called = [this](BusRelay &relay, GDBusMessage *call) { return carry_out(relay, call); },
                             .drained = [this](BusRelay &relay) { clients_.taken(relay.connection); },
                             .ended =
                                 [this](BusRelay &relay) {
                                     relays_.remove_if([&relay](const auto &one) { return one.get() == &relay; });
                                 }} {}

bool BusDoor::open(const std::filesystem::path &path, std::string *mistake) {
    guid_.reset(g_dbus_generate_guid());
    ErrorSlot error;
    if (!listen_at(path, error.out())) {
        *mistake = "cannot listen at " + path.native() + ": " + error.text();
        return false;
    }
    path_ = path;
    listen();
    return true;
}

// Nobody can connect before listen(), so that the mode holds for the first client too.
bool BusDoor::listen_at(const std::filesystem::path &path, GError **error) {
    (void)::unlink(path.c_str()); // when it cannot go, bind says why
    const ObjectPtr<GSocketAddress> address(g_unix_socket_address_new(path.c_str()));
    ObjectPtr<GSocket> socket(
        g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, error));
    if (socket == nullptr || g_socket_bind(socket.get(), address.get(), FALSE, error) == 0) {
        return false;
    }
    if (::chmod(path.c_str(), kOwnerAndGroup) != 0) {
        const int reason = errno;
        g_set_error_literal(error, G_IO_ERROR, g_io_error_from_errno(reason), g_strerror(reason));
        return false;
    }
    g_socket_set_blocking(socket.get(), FALSE);
    g_socket_set_listen_backlog(socket.get(), SOMAXCONN);
    if (g_socket_listen(socket.get(), error) == 0) {
        return false;
    }
    socket_ = std::move(socket);
    return true;
}

void BusDoor::listen() {
    incoming_ = attached_fd(g_socket_get_fd(socket_.get()), G_IO_IN, on_incoming, this);
}

void BusDoor::close() {
    if (socket_ == nullptr) {
        return;
    }
    incoming_.reset();
    second_.reset();
    socket_.reset();
    (void)::unlink(path_.c_str()); // what remains is replaced by the next process
    for (const auto &relay : std::vector(relays_.begin(), relays_.end())) {
        if (relay->greeting()) {
            relay->end();
        }
    }
}

void BusDoor::cut_off() {
    for (const auto &relay : std::vector(relays_.begin(), relays_.end())) {
        relay->end();
    }
}

gboolean BusDoor::on_second(gpointer self) {
    auto *door = static_cast<BusDoor *>(self);
    for (const auto &relay : std::vector(door->relays_.begin(), door->relays_.end())) {
        relay->check_limits();
    }
    door->full_told_ = door->full_told_ && door->relays_.size() > kClients / 2;
    if (door->incoming_ == nullptr) {
        door->listen();
    }
    if (!door->relays_.empty()) {
        return G_SOURCE_CONTINUE;
    }
    door->second_.reset();
    return G_SOURCE_REMOVE;
}

// Until nobody is connected any more: a service that nobody asks is to sleep.
void BusDoor::count_seconds() {
    if (second_ == nullptr) {
        second_ = attached(g_timeout_source_new_seconds(1), on_second, this);
    }
}

// ---- Clients ----

gboolean BusDoor::on_incoming(gint /*fd*/, GIOCondition /*condition*/, gpointer self) {
    auto *door = static_cast<BusDoor *>(self);
    for (int i = 0; i < kAtOnce && door->accept_one(); ++i) {
    }
    return G_SOURCE_CONTINUE;
}

bool BusDoor::accept_one() {
    Fd client(::accept4(g_socket_get_fd(socket_.get()), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            pause(errno);
        } else if (errno == EAGAIN) {
            pause_told_ = false;
        }
        return false;
    }
    take(std::move(client));
    return true;
}

// Whoever waits makes the socket ready again and again: without the pause nothing else would run.
void BusDoor::pause(int reason) {
    incoming_.reset();
    count_seconds();
    if (!std::exchange(pause_told_, true)) {
        HOST_LOG(kLogError, "no D-Bus client can be taken: %s; tried again every second", std::strerror(reason));
    }
}

void BusDoor::take(Fd client) {
    ucred peer{};
    if (!may_connect(client, &peer)) {
        return;
    }
    if (relays_.size() >= kClients && !make_room()) {
        return;
    }
    relays_.push_back(std::make_shared<BusRelay>(std::move(client), peer, guid_.get(), events_));
    relays_.back()->start();
    count_seconds();
}

// False: nobody is idle.
bool BusDoor::make_room() {
    const auto later = [](const auto &one, const auto &other) {
        return std::pair(!one->idle(), one->last_used()) < std::pair(!other->idle(), other->last_used());
    };
    const std::shared_ptr<BusRelay> longest = *std::ranges::min_element(relays_, later);
    if (!std::exchange(full_told_, true)) {
        HOST_LOG(kLogInformation,
                 "%zu D-Bus clients are connected: a further one takes the place of the one that has been "
                 "idle longest, or is refused when none is idle",
                 kClients);
    }
    if (!longest->idle()) {
        return false;
    }
    longest->end();
    return true;
}

// A socket for GLib to use and to close. The number is one that GLib made itself: what watches our use of descriptors
// sees neither its opening nor its closing, and so nothing wrong in whoever gets the number next.
static GSocket *socket_for_glib(const Fd &socket, GError **error) {
    const ObjectPtr<GUnixFDList> list(g_unix_fd_list_new());
    const int index = g_unix_fd_list_append(list.get(), socket.get(), error); // a duplicate
    const int number = index < 0 ? -1 : g_unix_fd_list_get(list.get(), index, error);
    return number < 0 ? nullptr : g_socket_new_from_fd(number, error);
}

// The relay has done the handshake. Made on this thread, the connection reports its end to this thread too, and not
// before somebody listens for it.
bool BusDoor::serve(BusRelay &relay, Fd socket) {
    ErrorSlot error;
    const ObjectPtr<GSocket> inner(socket_for_glib(socket, error.out()));
    if (inner == nullptr) {
        HOST_LOG(kLogError, "a D-Bus client cannot be served: %s", error.text());
        return false;
    }
    const ObjectPtr<GSocketConnection> stream(g_socket_connection_factory_create_connection(inner.get()));
    ConnectionPtr connection(g_dbus_connection_new_sync(G_IO_STREAM(stream.get()), guid_.get(),
                                                        G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING, nullptr,
                                                        nullptr, error.out()));
    if (connection == nullptr) {
        HOST_LOG(kLogError, "a D-Bus client cannot be served: %s", error.text());
        return false;
    }
    GDBusConnection *raw = connection.get();
    std::string mistake;
    const BusClients::Peer peer{
        .uid = relay.peer().uid, .pid = relay.peer().pid, .has_taken_all = [weak = relay.weak_from_this()] {
            const auto there = weak.lock();
            return there == nullptr || there->quiet();
        }};
    if (!clients_.add(std::move(connection), BusClients::Kind::kClient, peer, &mistake)) {
        HOST_LOG(kLogError, "a D-Bus client cannot be served: %s", mistake.c_str());
        return false;
    }
    relay.connection = raw;
    g_dbus_connection_start_message_processing(raw);
    return true;
}

// A method goes to the pool from here and its answer back to the client: GDBus's thread would be woken for each. While
// changes are on their way through GDBus, the answer follows them.
bool BusDoor::carry_out(BusRelay &relay, GDBusMessage *call) {
    return clients_.call(relay.connection, call, [this, weak = relay.weak_from_this()](GDBusMessage *reply) {
        const auto there = weak.lock();
        if (there != nullptr && !clients_.tell(there->connection, reply)) {
            there->answer(reply);
        }
    });
}

} // namespace asd_host
