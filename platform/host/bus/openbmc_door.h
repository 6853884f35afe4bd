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
#include "openbmc_rules.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace asd_host {

// Requests without their answers. Kept by the door and by each request that runs: one that hangs may outlive the door.
class OpenbmcRequests {
public:
    using Time = std::chrono::steady_clock::time_point;
    struct Pending {
        InvocationPtr invocation;
        Channel channel = Channel::kSystem;
        bool command_exists = false;
        Time late_at;
    };
    using Map = std::map<std::uint64_t, Pending>; // by number, which they get in the order they come

    // Any thread. finish answers the request unless that has been done: from the thread that carried it out, because
    // GDBus takes answers from any, and the bus thread need not be woken for it.
    void add(std::uint64_t number, Pending pending);
    void finish(std::uint64_t number, const IpmiResponse &response);
    // Takes out those that are late at that time.
    [[nodiscard]] Map take_late(Time now);
    [[nodiscard]] std::optional<Time> next_late() const;

private:
    mutable std::mutex mutex_; // guards pending_
    Map pending_;
};

// On the bus thread, except stop.
class OpenbmcDoor {
public:
    static constexpr unsigned kAnswerMs = 4000; // some bridges and host drivers give up after five seconds
    static constexpr std::size_t kThreads = 8;  // requests that run at once; as many as CallPool allows wait

    // The registry outlives the requests. session_floor: is_below_floor.
    OpenbmcDoor(Bus bus, const IpmiRegistry &registry, std::uint8_t session_floor);

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
    [[nodiscard]] bool prepare(const ConnectionPtr &connection, std::string *mistake);
    void learn_channels(GVariant *names);
    void note_channel(const std::string &name, const char *owner);
    [[nodiscard]] Channel channel_of_sender(std::string_view sender) const;

    void execute(const char *sender, InvocationPtr invocation);
    void hand_over(const IpmiRequest &request, OpenbmcRequests::Pending pending);
    void give_up(OpenbmcRequests::Map requests);
    void await_late();

    static void on_call(GDBusConnection *connection, const gchar *sender, const gchar *path, const gchar *interface,
                        const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation, gpointer self);
    static void on_owner_changed(GDBusConnection *connection, const gchar *sender, const gchar *path,
                                 const gchar *interface, const gchar *signal, GVariant *parameters, gpointer self);
    static gboolean on_late(gpointer self);

    const IpmiRegistry &registry_;
    const std::uint8_t session_floor_;
    CallPool pool_{kThreads};
    NodeInfoPtr description_;
    BusMember member_;
    std::map<std::string, std::string, std::less<>> channels_; // bus name of a bridge, its unique name
    std::uint64_t last_number_ = 0;
    std::shared_ptr<OpenbmcRequests> requests_ = std::make_shared<OpenbmcRequests>();
    SourcePtr late_; // until the oldest request is late, or the one that was the oldest would have been; null: none was
};

} // namespace asd_host
