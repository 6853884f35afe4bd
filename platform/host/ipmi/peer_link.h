// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The link between the controllers of an enclosure: a unix stream socket a slot, RUN_DIR/slotN/link.sock.
//
// A frame is a head of 8 bytes and a body, byte by byte:
//
//   byte 0-3  magic: 'A' 'S' 'D' 'L'
//   byte 4    version: 1
//   byte 5    kind: 1 request, 2 response, 3 reload
//   byte 6-7  length of the body, low byte first
//   request   network function, LUN, command, then 0 to 255 bytes of data
//   response  completion code, then 0 to 1024 bytes of data
//   reload    the name of an item, 1 to 255 bytes, that the sender has written and the master is to read again; a
//   response
//             follows as to a request
//
// A connection carries any number of requests, each answered in turn. Another head than this ends the connection.
//
// All controllers of an enclosure run as one user: requests come with every privilege, so each side of a connection
// makes sure that the other is a process of its own user.

#include "fd.h"
#include "ipmi_registry.h"
#include "stream_server.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

// Carries out a reload; returns the completion code to answer with.
using PeerReload = std::function<std::uint8_t(std::string_view item)>;

// Serves the requests of peers, as administrator, until the server is stopped; the registry outlives it. Processes of
// another user are no peers and cut. Null: *mistake says why.
[[nodiscard]] std::unique_ptr<StreamServer> open_peer_link(const std::filesystem::path &socket,
                                                           const IpmiRegistry &registry, PeerReload reload,
                                                           std::string *mistake);

// Sends a request to the peer that listens at socket and waits for its response; with response null, for nothing. 0,
// kPeerAbsent, kPeerFailed or kTimedOut; *response is set when it is 0. Blocks up to the limit. With kept, a connection
// in it is used, unless the peer has ended it, and the one that brought a response is left there for the next request.
[[nodiscard]] gint32 peer_request(const std::filesystem::path &socket, const IpmiRequest &request,
                                  std::chrono::nanoseconds limit, IpmiResponse *response, Fd *kept = nullptr);

enum class Reloaded {
    kByMaster,
    kNoMaster, // every controller has answered that it is not the master, and loads the item when it becomes one
    kUnknown,  // nobody has reloaded it, and one has not answered, or that it cannot
};
// Asks the controllers that listen at the sockets, all at once, to read the item from its chips again if they are the
// master. Blocks until the deadline at most.
[[nodiscard]] Reloaded peers_reload(const std::vector<std::filesystem::path> &sockets, std::string_view item,
                                    std::chrono::steady_clock::time_point deadline);

// How long peers may be waited for, so that all that hang together cost one pass of pushes less than two of the
// module's seconds and the next ones less than one. Any thread.
class PeerPatience {
public:
    using Time = std::chrono::steady_clock::time_point;

    // second: how long one of the module's seconds is.
    explicit PeerPatience(std::chrono::nanoseconds second) : second_(second) {}

    // How long a request to the slot may wait, where one to a peer that answers waits for wanted: a quarter of it when
    // the peer did not answer the last time, or another has just been waited for in vain. None: not at all, for the
    // peer did not answer within the last five seconds.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> limit(std::uint8_t slot, std::chrono::nanoseconds wanted,
                                                                Time now);
    void note(std::uint8_t slot, bool answered, Time now);

private:
    std::chrono::nanoseconds second_;
    std::mutex mutex_; // guards the fields below
    std::map<std::uint8_t, Time> silent_since_;
    std::optional<Time> last_silence_;
};

// The connections to the peers, a slot each, and which peers are absent, so that a pass of pushes neither connects nor
// looks for somebody item by item. Any thread.
class PeerLines {
public:
    using Time = std::chrono::steady_clock::time_point;

    // second: how long one of the module's seconds is.
    explicit PeerLines(std::chrono::nanoseconds second) : second_(second) {}

    // A controller listens at the slot's socket: a process of this process's user. One that does not is looked for
    // again after three quarters of a second; until then the answer is no. Blocks for nothing.
    [[nodiscard]] bool listens(std::uint8_t slot, const std::filesystem::path &socket, Time now);
    // As peer_request, on the slot's connection.
    [[nodiscard]] gint32 request(std::uint8_t slot, const std::filesystem::path &socket, const IpmiRequest &request,
                                 std::chrono::nanoseconds limit, IpmiResponse *response);

private:
    [[nodiscard]] Fd take(std::uint8_t slot);
    void put_back(std::uint8_t slot, Fd peer);

    std::chrono::nanoseconds second_;
    std::mutex mutex_; // guards the fields below
    std::map<std::uint8_t, Fd> kept_;
    std::map<std::uint8_t, Time> absent_until_;
};

} // namespace asd_host
