// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_member.h"

#include "clock.h"
#include "dbus_standard.h"
#include "log.h"

#include <chrono>
#include <memory>
#include <utility>

namespace asd_host {

namespace {

constexpr guint kConnectLimitS = 10;
constexpr gint kAskLimitMs = 10'000;
constexpr guint32 kDoNotQueue = 4; // flag of RequestName
constexpr guint32 kNowOwner = 1;   // its answers
constexpr guint32 kOwnerAlready = 4;

} // namespace

void cut(GDBusConnection *connection) {
    GIOStream *stream = g_dbus_connection_get_stream(connection);
    if (G_IS_SOCKET_CONNECTION(stream)) {
        (void)g_socket_shutdown(g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream)), TRUE, TRUE, nullptr);
    }
}

BusMember::~BusMember() {
    if (connection_ != nullptr) {
        g_signal_handlers_disconnect_by_data(connection_.get(), this);
    }
}

bool BusMember::is_current(GObject *source) const {
    return !leaving_ && connection_ != nullptr && source == G_OBJECT(connection_.get());
}

// ---- Connecting ----

void BusMember::start() {
    connect();
}

void BusMember::connect() {
    ErrorSlot error;
    const TextPtr address(g_dbus_address_get_for_bus_sync(
        plan_.bus == Bus::kSession ? G_BUS_TYPE_SESSION : G_BUS_TYPE_SYSTEM, nullptr, error.out()));
    if (address == nullptr) {
        fail(Trouble::kNoBus, std::string("cannot reach the ") + bus_word() + " bus: " + error.text());
        return;
    }
    constexpr auto kFlags =
        static_cast<GDBusConnectionFlags>(static_cast<unsigned>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT) |
                                          static_cast<unsigned>(G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION));
    cancel_.reset(g_cancellable_new());
    limit_ = attached(g_timeout_source_new_seconds(kConnectLimitS), on_limit, this);
    ++underway_;
    g_dbus_connection_new_for_address(address.get(), kFlags, nullptr, cancel_.get(), on_connected, this);
}

gboolean BusMember::on_limit(gpointer self) {
    g_cancellable_cancel(static_cast<BusMember *>(self)->cancel_.get()); // on_connected hears of it
    return G_SOURCE_REMOVE;
}

void BusMember::on_connected(GObject * /*source*/, GAsyncResult *result, gpointer self) {
    auto *member = static_cast<BusMember *>(self);
    --member->underway_;
    member->limit_.reset();
    ErrorSlot error;
    ConnectionPtr connection(g_dbus_connection_new_for_address_finish(result, error.out()));
    if (member->leaving_) {
        return;
    }
    if (connection == nullptr) {
        const char *reason = error.is_io(G_IO_ERROR_CANCELLED) ? "it does not answer" : error.text();
        member->fail(Trouble::kNoBus, std::string("cannot reach the ") + member->bus_word() + " bus: " + reason);
        return;
    }
    g_signal_connect(connection.get(), "closed", G_CALLBACK(on_closed), self);
    // From before the name is asked for: so its coming free is not missed.
    (void)g_dbus_connection_signal_subscribe(connection.get(), kDriverName, kDriverName, "NameOwnerChanged",
                                             kDriverPath, member->plan_.name.c_str(), G_DBUS_SIGNAL_FLAGS_NONE,
                                             on_owner_changed, self, nullptr);
    member->connection_ = std::move(connection);
    if (std::string mistake; !member->plan_.prepare(member->connection_, &mistake)) {
        member->give_up(mistake);
    }
}

void BusMember::drop() {
    serving_ = false;
    g_signal_handlers_disconnect_by_data(connection_.get(), this);
    g_dbus_connection_close(connection_.get(), nullptr, nullptr, nullptr);
    connection_.reset();
}

void BusMember::on_closed(GDBusConnection *connection, gboolean /*vanished*/, GError *error, gpointer self) {
    auto *member = static_cast<BusMember *>(self);
    if (!member->is_current(G_OBJECT(connection))) {
        return;
    }
    member->drop();
    member->fail(Trouble::kNoBus, std::string("the ") + member->bus_word() + " bus has closed the connection (" +
                                      (error != nullptr ? error->message : "no reason given") + ")");
}

void BusMember::give_up(const std::string &mistake) {
    drop();
    fail(Trouble::kRefused, mistake);
}

// ---- The bus itself ----

void BusMember::call_bus(const char *method, GVariant *arguments, const char *reply_type, Answer done) {
    auto question = std::make_unique<Question>(Question{.member = this, .done = std::move(done)});
    ++underway_;
    g_dbus_connection_call(connection_.get(), kDriverName, kDriverPath, kDriverName, method, arguments,
                           G_VARIANT_TYPE(reply_type), G_DBUS_CALL_FLAGS_NONE, kAskLimitMs, cancel_.get(), on_answer,
                           question.release());
}

void BusMember::on_answer(GObject *source, GAsyncResult *result, gpointer question) {
    const std::unique_ptr<Question> asked(static_cast<Question *>(question));
    --asked->member->underway_;
    ErrorSlot error;
    const VariantPtr reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
    if (asked->member->is_current(source)) {
        asked->done(reply.get(), reply == nullptr ? error.text() : "");
    }
}

// ---- The name ----

void BusMember::ask_for_name() {
    call_bus("RequestName", g_variant_new("(su)", plan_.name.c_str(), kDoNotQueue), "(u)",
             [this](GVariant *reply, const std::string &mistake) {
                 if (reply == nullptr) {
                     give_up("the name " + plan_.name + " cannot be had on the " + bus_word() + " bus: " + mistake);
                     return;
                 }
                 guint32 answer = 0;
                 g_variant_get(reply, "(u)", &answer);
                 take_name_answer(answer);
             });
}

void BusMember::take_name_answer(guint32 answer) {
    if (answer != kNowOwner && answer != kOwnerAlready) {
        fail(Trouble::kTaken, "the name " + plan_.name + " is taken on the " + bus_word() + " bus");
        return;
    }
    serving_ = true;
    settled_ = true;
    told_ = Trouble::kNone;
    retry_.reset();
    if (plan_.served) {
        plan_.served();
    }
    HOST_LOG(kLogInformation, "%s: served on the %s bus as %s", plan_.duty.c_str(), bus_word(), plan_.name.c_str());
}

// A name that comes free may belong to a service that is being restarted and would not find it free again.
void BusMember::on_owner_changed(GDBusConnection *connection, const gchar * /*sender*/, const gchar * /*path*/,
                                 const gchar * /*interface*/, const gchar * /*signal*/, GVariant *parameters,
                                 gpointer self) {
    auto *member = static_cast<BusMember *>(self);
    if (!member->is_current(G_OBJECT(connection)) || member->serving_) {
        return;
    }
    const gchar *owner = nullptr;
    g_variant_get(parameters, "(&s&s&s)", nullptr, nullptr, &owner);
    if (*owner != '\0') {
        member->retry_.reset();
        return;
    }
    member->retry_after(kFreeMs);
}

// ---- Attempts ----

void BusMember::retry_after(unsigned milliseconds) {
    const auto real = std::chrono::ceil<std::chrono::milliseconds>(clock_real(milliseconds));
    retry_ = attached(g_timeout_source_new(static_cast<guint>(real.count())), on_retry, this);
}

gboolean BusMember::on_retry(gpointer self) {
    auto *member = static_cast<BusMember *>(self);
    const SourcePtr done = std::move(member->retry_); // the next attempt may put another one there
    member->connection_ == nullptr ? member->connect() : member->ask_for_name();
    return G_SOURCE_REMOVE;
}

// The log has each trouble once, however many attempts fail.
void BusMember::fail(Trouble trouble, const std::string &mistake) {
    if (!settled_) {
        settled_ = true;
        mistake_ = mistake;
        if (plan_.needed_at_start) {
            return;
        }
    }
    if (trouble != told_) {
        told_ = trouble;
        HOST_LOG(kLogError, "%s; %s: not served until %s", mistake.c_str(), plan_.duty.c_str(),
                 (trouble == Trouble::kTaken ? "it has been free for " + std::to_string(kFreeMs / 1000) + " seconds"
                                             : "it can be had again")
                     .c_str());
    }
    if (trouble != Trouble::kTaken) { // a name's owner is watched
        retry_after(kRetryMs);
    }
}

// ---- The end ----

void BusMember::leave() {
    leaving_ = true;
    retry_.reset();
    limit_.reset();
    if (cancel_ != nullptr) {
        g_cancellable_cancel(cancel_.get());
    }
    if (connection_ != nullptr) {
        ++underway_;
        g_dbus_connection_flush(connection_.get(), nullptr, on_flushed, this);
    }
}

void BusMember::cut_off() {
    if (connection_ != nullptr) {
        cut(connection_.get());
    }
}

void BusMember::on_flushed(GObject *source, GAsyncResult *result, gpointer self) {
    (void)g_dbus_connection_flush_finish(G_DBUS_CONNECTION(source), result, nullptr); // a bus that has gone needs none
    g_dbus_connection_close(G_DBUS_CONNECTION(source), nullptr, on_left, self);
}

void BusMember::on_left(GObject *source, GAsyncResult *result, gpointer self) {
    (void)g_dbus_connection_close_finish(G_DBUS_CONNECTION(source), result, nullptr); // closed either way
    --static_cast<BusMember *>(self)->underway_;
}

} // namespace asd_host
