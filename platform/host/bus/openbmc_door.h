// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The IPMI door for OpenBMC's bridges (KCS, SSIF, IPMB, LAN): xyz.openbmc_project.Ipmi.Host on a shared bus.
//
// Bridges handle a D-Bus error badly or not at all, so every request is answered with a completion code, and within
// kAnswerMs.

#include "call_pool.h"
#include "dbus_calls.h"
#include "dbus_member.h"
#include "ipmi_registry.h"
#include "loop_queue.h"
#include "openbmc_rules.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace asd_host {

// Who has a bridge's name on a connection to the bus. Any thread.
class BridgeNames {
public:
    // The bus says that the owner has changed; empty: nobody has the name any more.
    void heard(const std::string &name, const std::string &owner);
    // The bus was asked for the owner. What was heard is as new, or newer.
    void known(const std::string &name, const std::string &owner);
    // From now on all is heard.
    void all_known();
    // Who has several names is taken for the one that grants least.
    [[nodiscard]] Channel channel_of_sender(std::string_view sender) const;

    // Whether a call need not go through the bus thread: all are known, and no call before it is on its way there.
    // Otherwise it is on its way too, until it has come.
    [[nodiscard]] bool passes_by();
    void has_come();

private:
    mutable std::mutex mutex_; // guards the fields below
    std::map<std::string, std::string, std::less<>> owners_;
    std::set<std::string, std::less<>> heard_; // until all are known
    bool all_known_ = false;
    unsigned on_their_way_ = 0;
};

// Requests without their answers. Kept by the door and by each request that runs: one that hangs may outlive the door.
class OpenbmcRequests {
public:
    using Time = std::chrono::steady_clock::time_point;
    struct Pending {
        BusCall call;
        Channel channel = Channel::kSystem;
        bool command_exists = false;
        Time late_at;
    };
    using Map = std::map<std::uint64_t, Pending>; // by number, which they get in the order they come

    // Any thread. add says whether somebody has to begin to look for late ones. finish answers the request unless that
    // has been done: from the thread that carried it out, because GDBus takes answers from any, and the bus thread need
    // not be woken for it.
    [[nodiscard]] bool add(std::uint64_t number, Pending pending);
    void finish(std::uint64_t number, const IpmiResponse &response);
    // Takes out those that are late at that time.
    [[nodiscard]] Map take_late(Time now);
    // When the oldest one will be; empty: there is none, and nobody looks from now on.
    [[nodiscard]] std::optional<Time> next_late();

private:
    std::mutex mutex_; // guards the fields below
    Map pending_;
    bool looked_after_ = false;
};

// Where requests begin. Any thread.
class OpenbmcIntake {
public:
    static constexpr std::size_t kThreads = 8; // requests that run at once; as many as CallPool allows wait

    // look_for_late: as OpenbmcRequests::add says.
    OpenbmcIntake(const IpmiRegistry &registry, std::uint8_t session_floor, std::function<void()> look_for_late);
    [[nodiscard]] GDBusInterfaceInfo *interface() const;

    // A call of execute, its arguments' types checked; it is answered now or later.
    void execute(BusCall call, Channel channel);
    // Takes a message of a bus that is such a call. False: it is none, or the bus thread is to have it.
    [[nodiscard]] bool takes(GDBusConnection *connection, GDBusMessage *message, BridgeNames &names);

    CallPool pool{kThreads};
    const std::shared_ptr<OpenbmcRequests> requests = std::make_shared<OpenbmcRequests>();

private:
    void hand_over(const IpmiRequest &request, OpenbmcRequests::Pending pending);

    const IpmiRegistry &registry_;
    const std::uint8_t session_floor_;
    const std::function<void()> look_for_late_;
    const NodeInfoPtr description_;
    std::atomic<std::uint64_t> last_number_{0}; // relaxed: a name, no more
};

// On the bus thread, except stop.
class OpenbmcDoor {
public:
    static constexpr unsigned kAnswerMs = 4000; // some bridges and host drivers give up after five seconds

    // The registry outlives the requests; the queue is the bus thread's. session_floor: is_below_floor.
    OpenbmcDoor(Bus bus, const IpmiRegistry &registry, std::uint8_t session_floor,
                const std::shared_ptr<LoopQueue> &queue);

    // Begins to look for the bus; without it the door stays closed until there is one. False: no thread is left;
    // *mistake says so.
    [[nodiscard]] bool start(std::string *mistake);

    // Any thread: waits for requests that run; those that wait stay unanswered. False: one still runs after the limit.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);
    // After stop: answers what it has left, and closes.
    void leave();
    void cut_off() { member_.cut_off(); }
    [[nodiscard]] bool gone() const { return member_.gone(); }

private:
    // What hears a connection's messages, on GDBus's thread, until the connection has closed.
    struct Ear {
        OpenbmcDoor *door = nullptr;
        std::shared_ptr<BridgeNames> names;
    };

    [[nodiscard]] bool prepare(const ConnectionPtr &connection, std::string *mistake);
    void learn_channels(GVariant *names);
    void give_up(OpenbmcRequests::Map &&requests);
    void await_late();

    static void on_call(GDBusConnection *connection, const gchar *sender, const gchar *path, const gchar *interface,
                        const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation, gpointer self);
    static void on_deaf(gpointer ear);
    static GDBusMessage *on_message(GDBusConnection *connection, GDBusMessage *message, gboolean incoming,
                                    gpointer ear);
    static gboolean on_late(gpointer self);

    OpenbmcIntake intake_;
    std::list<Ear> ears_;
    std::shared_ptr<BridgeNames> names_ = std::make_shared<BridgeNames>(); // of the last connection
    BusMember member_;
    SourcePtr late_; // until the oldest request is late, or the one that was the oldest would have been; null: none was
};

} // namespace asd_host
