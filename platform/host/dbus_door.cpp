// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_door.h"

#include "log.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <gio/gunixsocketaddress.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr guint kHandshakeLimitS = 10;
constexpr mode_t kOwnerAndGroup = 0660;

// On a thread of GIO's. The only mechanism that needs no files: who the peer is, as the kernel says.
gboolean allow_mechanism(GDBusAuthObserver * /*observer*/, const gchar *mechanism, gpointer /*data*/) {
    return std::strcmp(mechanism, "EXTERNAL") == 0 ? TRUE : FALSE;
}

bool may_connect(GSocket *socket) {
    ErrorSlot error;
    const ObjectPtr<GCredentials> peer(g_socket_get_credentials(socket, error.out()));
    const uid_t uid = peer == nullptr ? static_cast<uid_t>(-1) : g_credentials_get_unix_user(peer.get(), nullptr);
    if (uid == 0 || uid == ::geteuid()) {
        return true;
    }
    HOST_LOG(kLogInformation, "user %u may not use the D-Bus socket", static_cast<unsigned>(uid));
    return false;
}

// Messages tell who sent them from now on, as the handshake needs it.
void ask_for_credentials(GSocket *socket) {
    (void)g_socket_set_option(socket, SOL_SOCKET, SO_PASSCRED, 1, nullptr); // GIO asks again and reports it
}

} // namespace

BusDoor::~BusDoor() {
    close();
    for (const Greeting &greeting : greetings_) {
        g_cancellable_cancel(greeting.cancel.get());
    }
}

bool BusDoor::open(const std::filesystem::path &path, std::string *mistake) {
    guid_.reset(g_dbus_generate_guid());
    observer_.reset(g_dbus_auth_observer_new());
    g_signal_connect(observer_.get(), "allow-mechanism", G_CALLBACK(allow_mechanism), nullptr);
    service_.reset(g_socket_service_new());
    g_socket_service_stop(service_.get()); // until everything is ready
    ErrorSlot error;
    if (!listen_at(path, error.out())) {
        *mistake = "cannot listen at " + path.native() + ": " + error.text();
        return false;
    }
    path_ = path;
    g_signal_connect(service_.get(), "incoming", G_CALLBACK(on_incoming), this);
    g_socket_service_start(service_.get());
    return true;
}

// Nobody can connect before listen(), so that the mode holds for the first client too.
bool BusDoor::listen_at(const std::filesystem::path &path, GError **error) {
    (void)::unlink(path.c_str()); // when it cannot go, bind says why
    const ObjectPtr<GSocketAddress> address(g_unix_socket_address_new(path.c_str()));
    const ObjectPtr<GSocket> socket(
        g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, error));
    if (socket == nullptr || g_socket_bind(socket.get(), address.get(), FALSE, error) == 0) {
        return false;
    }
    if (::chmod(path.c_str(), kOwnerAndGroup) != 0) {
        const int reason = errno;
        g_set_error_literal(error, G_IO_ERROR, g_io_error_from_errno(reason), g_strerror(reason));
        return false;
    }
    ask_for_credentials(socket.get());
    g_socket_set_listen_backlog(socket.get(), SOMAXCONN);
    return g_socket_listen(socket.get(), error) != 0 &&
           g_socket_listener_add_socket(G_SOCKET_LISTENER(service_.get()), socket.get(), nullptr, error) != 0;
}

void BusDoor::close() {
    if (service_ == nullptr) {
        return;
    }
    g_signal_handlers_disconnect_by_data(service_.get(), this);
    g_socket_service_stop(service_.get());
    g_socket_listener_close(G_SOCKET_LISTENER(service_.get()));
    service_.reset();
    if (!path_.empty()) {
        (void)::unlink(path_.c_str()); // what remains is replaced by the next process
    }
}

gboolean BusDoor::on_incoming(GSocketService * /*service*/, GSocketConnection *stream, GObject * /*source*/,
                              gpointer self) {
    auto *door = static_cast<BusDoor *>(self);
    GSocket *socket = g_socket_connection_get_socket(stream);
    ask_for_credentials(socket);
    if (!may_connect(socket)) {
        return TRUE;
    }
    if (door->clients_.count() + door->greetings_.size() >= kClients) {
        HOST_LOG(kLogInformation, "a D-Bus client is refused: %zu are connected", kClients);
        return TRUE;
    }
    door->await_first_word(stream);
    return TRUE; // nobody else is to handle it
}

// A client that says nothing costs no thread.
void BusDoor::await_first_word(GSocketConnection *stream) {
    Greeting &greeting = greetings_.emplace_back();
    greeting.door = this;
    greeting.stream.reset(G_SOCKET_CONNECTION(g_object_ref(stream)));
    greeting.cancel.reset(g_cancellable_new());
    greeting.limit = attached(g_timeout_source_new_seconds(kHandshakeLimitS), on_limit, &greeting);
    greeting.first_word = attached(g_socket_create_source(g_socket_connection_get_socket(stream), G_IO_IN, nullptr),
                                   G_SOURCE_FUNC(on_first_word), &greeting);
}

gboolean BusDoor::on_first_word(GSocket * /*socket*/, GIOCondition /*condition*/, gpointer greeting) {
    auto *speaking = static_cast<Greeting *>(greeting);
    speaking->door->start_handshake(*speaking);
    return G_SOURCE_REMOVE;
}

// On a thread of GIO's, which waits for the client.
void BusDoor::start_handshake(Greeting &greeting) {
    constexpr auto kFlags =
        static_cast<GDBusConnectionFlags>(static_cast<unsigned>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER) |
                                          static_cast<unsigned>(G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING));
    const ObjectPtr<GSocketConnection> stream = std::move(greeting.stream);
    g_dbus_connection_new(G_IO_STREAM(stream.get()), guid_.get(), kFlags, observer_.get(), greeting.cancel.get(),
                          on_greeted, &greeting);
}

gboolean BusDoor::on_limit(gpointer greeting) {
    auto *late = static_cast<Greeting *>(greeting);
    if (late->stream != nullptr) {
        late->door->drop(late); // it has not said a word
        return G_SOURCE_REMOVE;
    }
    g_cancellable_cancel(late->cancel.get()); // ends the handshake
    return G_SOURCE_REMOVE;
}

void BusDoor::drop(const Greeting *greeting) {
    greetings_.remove_if([greeting](const Greeting &one) { return &one == greeting; });
}

void BusDoor::on_greeted(GObject * /*source*/, GAsyncResult *result, gpointer greeting) {
    BusDoor *door = static_cast<Greeting *>(greeting)->door;
    door->drop(static_cast<Greeting *>(greeting));
    ErrorSlot error;
    ConnectionPtr connection(g_dbus_connection_new_finish(result, error.out()));
    if (connection == nullptr) {
        HOST_LOG(kLogDebug, "a D-Bus client has not finished its handshake: %s", error.text());
        return;
    }
    door->serve(std::move(connection));
}

void BusDoor::serve(ConnectionPtr connection) {
    GDBusConnection *raw = connection.get();
    std::string mistake;
    if (!clients_.add(std::move(connection), BusClients::Kind::kClient, &mistake)) {
        HOST_LOG(kLogError, "a D-Bus client cannot be served: %s", mistake.c_str());
        return;
    }
    g_dbus_connection_start_message_processing(raw);
}

} // namespace asd_host
