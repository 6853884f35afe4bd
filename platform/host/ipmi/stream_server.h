// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A listening unix stream socket with a thread for every client.

#include "stalls.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include <sys/types.h>

namespace asd_host {

// What a client could make the log repeat is said at most once a minute. Any thread.
class Seldom {
public:
    [[nodiscard]] bool due();

private:
    std::atomic<std::int64_t> next_ms_{0}; // relaxed: guards nothing, and a line said twice does no harm
};

struct StreamShared; // what a server and its clients' threads share
struct StreamPlace;

// One client, on that client's thread. A request that has arrived in one piece costs a recv, and its answer a send.
class StreamClient {
public:
    StreamClient(StreamShared &shared, int fd);
    ~StreamClient();
    StreamClient(const StreamClient &) = delete;
    StreamClient &operator=(const StreamClient &) = delete;

    // Blocks until the next request begins to arrive. False: the client has gone, or the service is ending and nothing
    // is waiting for an answer.
    [[nodiscard]] bool await_request();

    // Fills all of out. False: the client has gone, or the request is not whole ten seconds after its first byte.
    [[nodiscard]] bool read(std::span<std::uint8_t> out);

    // Sends all of it in one call: some clients cannot put a split answer together. False: it did not go out whole.
    [[nodiscard]] bool send(std::span<const std::uint8_t> data);

    // Who it is, as the kernel says: "uid 0". Any time.
    [[nodiscard]] std::string user() const;

    // Takes one of the kServedClients places until the request is answered. False: they are all taken.
    [[nodiscard]] bool admitted();

private:
    static constexpr std::size_t kBufferSize = 1024; // several requests, and more than any that is carried out

    [[nodiscard]] bool await_arrival(bool answered);
    [[nodiscard]] ssize_t receive(int flags);
    [[nodiscard]] bool await_input(std::chrono::milliseconds limit, std::chrono::milliseconds ending_limit);
    [[nodiscard]] bool await_room(std::chrono::steady_clock::time_point taken_by);
    void leave_place();

    StreamShared &shared_;
    StreamPlace &place_;
    int fd_;
    std::array<std::uint8_t, kBufferSize> buffer_;
    std::span<const std::uint8_t> arrived_;                     // in the buffer, not yet read
    std::chrono::steady_clock::time_point whole_by_;            // the request that is being read
    std::optional<std::chrono::steady_clock::time_point> ends_; // requests are answered until then: the server stops
    bool admitted_ = false;
    bool answered_ = false; // since the last await_request
};

class StreamServer {
public:
    static constexpr std::size_t kServedClients = 64; // with a request under way
    // Connected; for a further one the connection that has been idle longest, and for a second at least, is closed.
    // While there is none, further ones wait in the kernel's queue.
    static constexpr std::size_t kClients = 256;

    // Serves a client until it returns; runs on that client's thread.
    using Protocol = std::function<void(StreamClient &)>;

    // Listens at path, replacing what a dead process left there. With only_user the mode is 0600 and connections from
    // processes of other users are closed unread; without, 0660: who may connect is the folder's and the group's
    // matter. Null: *mistake says why, in a sentence.
    [[nodiscard]] static std::unique_ptr<StreamServer> open(const std::filesystem::path &path, std::string thread_name,
                                                            Protocol protocol, std::string *mistake,
                                                            std::optional<uid_t> only_user = {});
    ~StreamServer();
    StreamServer(const StreamServer &) = delete;
    StreamServer &operator=(const StreamServer &) = delete;

    // Removes the socket and stops accepting. Requests that have arrived are still answered, within half a second.
    void begin_stop();
    // The same, and waits until the clients' threads have ended. False: one is still busy after the limit.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);

    // Whether clients are still being accepted, to look at every five seconds or less often: the count moves with each
    // client and with five seconds without one. Any thread.
    [[nodiscard]] Pulse pulse() const;

private:
    StreamServer() = default;
    std::filesystem::path path_;
    std::shared_ptr<StreamShared> shared_;
    std::thread acceptor_;
};

} // namespace asd_host
