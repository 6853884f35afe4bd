// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A listening unix stream socket with a thread for every client.

#include "atomic_file.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>

namespace asd_host {

struct StreamShared; // what a server and its clients' threads share

// One client, on that client's thread.
class StreamClient {
public:
    StreamClient(StreamShared &shared, int fd) : shared_(shared), fd_(fd) {}
    ~StreamClient();
    StreamClient(const StreamClient &) = delete;
    StreamClient &operator=(const StreamClient &) = delete;

    // Blocks until the next request begins to arrive. False: the client has gone, or the service is ending and nothing
    // is waiting for an answer.
    [[nodiscard]] bool await_request();

    // Fills all of out. False: the client has gone, or has sent nothing more for ten seconds.
    [[nodiscard]] bool read(std::span<std::uint8_t> out);

    // Sends all of it in one call: some clients cannot put a split answer together. False: it did not go out whole.
    [[nodiscard]] bool send(std::span<const std::uint8_t> data);

    // True once this client is one of the first kServedClients; another's place is taken when it has become free.
    [[nodiscard]] bool admitted();

private:
    [[nodiscard]] bool await_input(std::chrono::milliseconds limit, std::chrono::milliseconds ending_limit);

    StreamShared &shared_;
    int fd_;
    bool admitted_ = false;
    bool answered_ = false; // since the last await_request
};

class StreamServer {
public:
    static constexpr std::size_t kServedClients = 64;
    static constexpr std::size_t kClients = 256; // further ones wait in the kernel's queue

    // Serves a client until it returns; runs on that client's thread.
    using Protocol = std::function<void(StreamClient &)>;

    // Listens at path (mode 0660), replacing what a dead process left there. Null: *mistake says why, in a sentence.
    [[nodiscard]] static std::unique_ptr<StreamServer> open(const std::filesystem::path &path, std::string thread_name,
                                                            Protocol protocol, std::string *mistake);
    ~StreamServer();
    StreamServer(const StreamServer &) = delete;
    StreamServer &operator=(const StreamServer &) = delete;

    // Stops accepting, lets requests that have arrived be answered, ends the clients' threads and removes the socket.
    // False: a client's thread is still busy after the limit.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);

private:
    StreamServer() = default;
    std::filesystem::path path_;
    std::shared_ptr<StreamShared> shared_;
    std::thread acceptor_;
};

// Connects to path without blocking. The descriptor (non-blocking), or none and *error says why; EAGAIN: its queue is
// full.
[[nodiscard]] Fd unix_connect(const std::filesystem::path &path, int *error);

} // namespace asd_host
