// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What stands between a client of the private socket and GDBus: the handshake, and every message both ways.
//
// GDBus trusts the bytes that it reads and queues without bound what nobody reads. So it gets whole messages with sound
// headers only, no more than it can answer at once, and all that it writes is taken at once; what a client does not
// take is kept here, and is bounded. Calls that the owner carries out itself do not go through GDBus, whose thread
// would be woken for the call and for its answer.

#include "fd.h"
#include "gio_holders.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <sys/socket.h>

namespace asd_host {

// Bytes that come in behind and go out in front.
class ByteQueue {
public:
    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return std::span(bytes_).subspan(gone_); }
    [[nodiscard]] std::size_t size() const { return bytes_.size() - gone_; }
    [[nodiscard]] bool empty() const { return size() == 0; }
    void append(std::span<const std::uint8_t> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
    void drop(std::size_t count);

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t gone_ = 0;
};

// Used on the bus thread alone.
class BusRelay : public std::enable_shared_from_this<BusRelay> {
public:
    static constexpr std::size_t kLongestMessage = 64 << 10; // of a client's
    static constexpr std::size_t kQueued = 8 << 20;          // bytes kept for a client; with more it is cut off
    static constexpr std::size_t kQuiet = 64 << 10;          // with more kept, further calls of the client wait
    static constexpr unsigned kCalls = 128;                  // unanswered at once; further ones wait
    static constexpr std::chrono::seconds kGreetingLimit{10};
    static constexpr std::chrono::seconds kMessageLimit{10}; // for the whole of a message
    static constexpr std::chrono::seconds kUnreadLimit{30};  // that a client may take nothing of what is kept for it

    using Clock = std::chrono::steady_clock;
    struct Events {
        // The handshake is done; GDBus is to serve the socket. False: it cannot.
        std::function<bool(BusRelay &relay, Fd socket)> greeted;
        // A sound call that overtakes none of GDBus's. True: it is carried out, and answer() gets its answer, now or
        // later. False: GDBus is to have it.
        std::function<bool(BusRelay &relay, GDBusMessage *call)> called;
        // The client has taken what was here; more may wait at GDBus's end.
        std::function<void(BusRelay &relay)> drained;
        // Nothing comes any more; to be forgotten.
        std::function<void(BusRelay &relay)> ended;
    };

    // The client's socket does not block; peer: as the kernel says; guid: of the server. The events outlive it.
    BusRelay(Fd client, const ucred &peer, const char *guid, const Events &events);
    void start();

    [[nodiscard]] const ucred &peer() const { return peer_; }
    [[nodiscard]] bool quiet() const;                          // everything that GDBus has written has been taken
    [[nodiscard]] bool idle() const { return calls_.empty(); } // it waits for nothing
    [[nodiscard]] bool greeting() const { return phase_ == Phase::kGreeting; }
    [[nodiscard]] Clock::time_point last_used() const { return last_used_; }

    // Sends the answer to a call that Events::called has taken.
    void answer(GDBusMessage *reply);

    // Cuts it off when one of the limits is over; to be called every second.
    void check_limits();
    // Ends it at once.
    void end();

    GDBusConnection *connection = nullptr; // the owner's note of what serves it

private:
    enum class Phase {
        kGreeting,
        kServing,
        kDraining, // GDBus has closed; what is kept is still sent
        kOver,
    };
    struct Call {
        bool wants_answer = true;
        bool forwarded = false; // to GDBus
        unsigned weight = 1;
    };

    void pump(bool client_ready, bool service_ready);
    void watch();
    void watch(SourcePtr *source, GIOCondition *watched, int fd, unsigned condition);
    void take_answers();
    void pass_answers();
    void pass_answer(std::uint32_t reply_serial, std::span<const std::uint8_t> message);
    void send_to_client();
    void read_client();
    void answer_greeting();
    [[nodiscard]] const char *greeting_reply(const std::string &line);
    [[nodiscard]] bool proves_user(const std::string &hex) const;
    void begin();
    void pass_calls();
    [[nodiscard]] bool pass_call(std::span<const std::uint8_t> message);
    void send_to_service();
    void refuse(const std::string &mistake);
    static gboolean on_ready(gint fd, GIOCondition condition, gpointer self);

    Fd client_;
    Fd service_; // GDBus has the other end
    ucred peer_;
    std::string guid_;
    const Events &events_;
    Phase phase_ = Phase::kGreeting;
    bool nul_seen_ = false;  // the greeting begins with a zero byte
    bool proven_ = false;    // it is the user that it says
    bool ended_ = false;     // the client sends nothing more
    bool deaf_ = false;      // the client takes nothing more
    bool held_back_ = false; // a whole call waits in in_
    unsigned refusals_ = 0;
    ByteQueue in_;                        // from the client
    ByteQueue forward_;                   // for GDBus
    ByteQueue answers_;                   // from GDBus
    ByteQueue out_;                       // for the client
    std::map<std::uint32_t, Call> calls_; // unanswered, by serial
    unsigned load_ = 0;                   // their weight
    unsigned forwarded_ = 0;              // those at GDBus
    std::uint32_t last_serial_ = 0;       // of our own answers, counted down: GDBus counts its messages up
    bool pumping_ = false;
    Clock::time_point last_used_ = Clock::now();
    Clock::time_point message_began_ = last_used_;
    Clock::time_point last_taken_ = last_used_;
    SourcePtr client_source_;
    SourcePtr service_source_;
    GIOCondition client_watched_{};
    GIOCondition service_watched_{};
};

} // namespace asd_host
