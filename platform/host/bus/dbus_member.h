// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A name on a shared bus: had, kept, and had again when the bus or the name has gone and come back. Used on the bus
// thread alone; nothing blocks.

#include "gio_holders.h"
#include "options.h"

#include <functional>
#include <string>

namespace asd_host {

// Nothing that waits to be sent or received waits any longer; the connection then reports its end.
void cut(GDBusConnection *connection);

class BusMember {
public:
    static constexpr unsigned kRetryMs = 5000;  // between attempts to reach the bus
    static constexpr unsigned kFreeMs = 30'000; // a name that was taken is asked for when it has been free that long

    struct Plan {
        Bus bus = Bus::kSession; // session or system
        std::string name;
        std::string duty; // what is served under the name, for the log
        // Puts what is served on a new connection, and has ask_for_name called when that is done. False: *mistake says
        // why it cannot.
        std::function<bool(const ConnectionPtr &connection, std::string *mistake)> prepare;
        std::function<void()> served = {}; // called whenever the name has been had
        bool needed_at_start = false;      // the first attempt decides: settled() and mistake() tell how it went
    };

    explicit BusMember(Plan plan) : plan_(std::move(plan)) {}
    ~BusMember();
    BusMember(const BusMember &) = delete;
    BusMember &operator=(const BusMember &) = delete;

    void start();

    // Asks the bus itself (arguments: floating or null). done gets the answer, or null and what is wrong; it is not
    // called when the connection has gone by then.
    using Answer = std::function<void(GVariant *reply, const std::string &mistake)>;
    void call_bus(const char *method, GVariant *arguments, const char *reply_type, Answer done);
    void ask_for_name();
    // What had to come before that has failed: the connection is given up, and tried again later.
    void give_up(const std::string &mistake);

    // The first attempt has come to its end; with an empty mistake the name is had.
    [[nodiscard]] bool settled() const { return settled_; }
    [[nodiscard]] const std::string &mistake() const { return mistake_; }

    // No attempt begins any more; sends what is on its way and closes.
    void leave();
    // The connection does not take what is on its way: it goes without.
    void cut_off();
    // After leave: nothing of it is under way, it may be destroyed.
    [[nodiscard]] bool gone() const { return underway_ == 0; }

private:
    enum class Trouble { kNone, kNoBus, kRefused, kTaken };

    struct Question { // to the bus
        BusMember *member;
        Answer done;
    };

    void connect();
    void take_name_answer(guint32 answer);
    void drop();
    void retry_after(unsigned milliseconds);
    void fail(Trouble trouble, const std::string &mistake);
    [[nodiscard]] const char *bus_word() const { return plan_.bus == Bus::kSession ? "session" : "system"; }
    [[nodiscard]] bool is_current(GObject *source) const;

    static void on_connected(GObject *source, GAsyncResult *result, gpointer self);
    static void on_answer(GObject *source, GAsyncResult *result, gpointer question);
    static void on_flushed(GObject *source, GAsyncResult *result, gpointer self);
    static void on_left(GObject *source, GAsyncResult *result, gpointer self);
    static void on_closed(GDBusConnection *connection, gboolean vanished, GError *error, gpointer self);
    static void on_owner_changed(GDBusConnection *connection, const gchar *sender, const gchar *path,
                                 const gchar *interface, const gchar *signal, GVariant *parameters, gpointer self);
    static gboolean on_limit(gpointer self);
    static gboolean on_retry(gpointer self);

    Plan plan_;
    ConnectionPtr connection_; // null: not connected
    ObjectPtr<GCancellable> cancel_;
    SourcePtr limit_;       // while the connection is made
    SourcePtr retry_;       // until the next attempt
    unsigned underway_ = 0; // operations of GIO that have yet to come back here
    bool serving_ = false;
    bool settled_ = false;
    bool leaving_ = false;
    std::string mistake_;
    Trouble told_ = Trouble::kNone; // what the log has said last
};

} // namespace asd_host
