// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "peer_link.h"

#include "caller.h"
#include "clock.h"
#include "fd.h"
#include "log.h"
#include "status.h"
#include "unix_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace asd_host {
namespace {

using Deadline = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

constexpr std::array<std::uint8_t, 5> kMagicAndVersion = {'A', 'S', 'D', 'L', 1};
constexpr std::size_t kHeadSize = 8;
constexpr std::size_t kRequestHeadSize = 3; // network function, LUN, command
constexpr std::size_t kLongestName = 255;
constexpr milliseconds kQueuePause{5}; // between attempts to enter a peer's full queue

enum Kind : std::uint8_t { kRequest = 1, kResponse = 2, kReload = 3 };
using Head = std::array<std::uint8_t, kHeadSize>;

Head head_of(Kind kind, std::size_t length) {
    Head head{};
    std::ranges::copy(kMagicAndVersion, head.begin());
    head[5] = kind;
    head[6] = static_cast<std::uint8_t>(length & 0xFFU);
    head[7] = static_cast<std::uint8_t>(length >> 8U & 0xFFU);
    return head;
}

// The body's length; none: this is no head of that kind.
std::optional<std::size_t> body_length(const Head &head, Kind kind, std::size_t least, std::size_t most) {
    const std::size_t length = head[6] + (std::size_t{head[7]} << 8U);
    if (!std::ranges::equal(kMagicAndVersion, std::span(head).first(kMagicAndVersion.size())) || head[5] != kind ||
        length < least || length > most) {
        return std::nullopt;
    }
    return length;
}

std::vector<std::uint8_t> response_frame(const IpmiResponse &response) {
    const Head head = head_of(kResponse, response.size());
    std::vector<std::uint8_t> frame(head.size() + response.size());
    std::ranges::copy(response, std::ranges::copy(head, frame.begin()).out);
    return frame;
}

std::vector<std::uint8_t> request_frame(const IpmiRequest &request) {
    const Head head = head_of(kRequest, kRequestHeadSize + request.data.size());
    std::vector<std::uint8_t> frame(head.begin(), head.end());
    frame.insert(frame.end(), {request.netfn, request.lun, request.cmd});
    frame.insert(frame.end(), request.data.begin(), request.data.end());
    return frame;
}

std::vector<std::uint8_t> reload_frame(std::string_view item) {
    const Head head = head_of(kReload, item.size());
    std::vector<std::uint8_t> frame(head.begin(), head.end());
    frame.insert(frame.end(), item.begin(), item.end());
    return frame;
}

// Serves one request of a peer. False: the connection is at its end.
bool serve_next(StreamClient &client, const IpmiRegistry &registry, const PeerReload &reload) {
    Head head{};
    if (!client.await_request() || !client.read(head)) {
        return false;
    }
    const bool is_reload = head[5] == kReload;
    const auto length = is_reload ? body_length(head, kReload, 1, kLongestName)
                                  : body_length(head, kRequest, kRequestHeadSize, kRequestHeadSize + kRequestLimit);
    if (!length) {
        return false;
    }
    std::array<std::uint8_t, kRequestHeadSize + kRequestLimit> bytes;
    const std::span<std::uint8_t> body = std::span(bytes).first(*length);
    if (!client.read(body)) {
        return false;
    }
    if (!client.admitted()) {
        return client.send(response_frame({kNodeBusy}));
    }
    if (is_reload) {
        return client.send(response_frame({reload(std::string(body.begin(), body.end()))}));
    }
    const IpmiRequest request{.netfn = body[0],
                              .lun = body[1],
                              .cmd = body[2],
                              .data = body.subspan(kRequestHeadSize),
                              .privilege = kAdministrator};
    const auto serve = [&] {
        const Caller caller("the link", [] { return std::string("another controller"); });
        return registry.serve(request);
    };
    return client.send(response_frame(serve()));
}

// Connects to a peer. The descriptor, or none and *error says why: EAGAIN, its queue is full; EACCES, it is no peer.
Fd peer_connect(const std::filesystem::path &socket, int *error) {
    static Seldom says_stranger;
    Fd peer = unix_connect(socket, error);
    if (!peer || unix_peer_user(peer.get()) == geteuid()) {
        return peer;
    }
    if (says_stranger.due()) {
        HOST_LOG(kLogError, "%s: a process of another user listens there; it is taken for no controller",
                 socket.c_str());
    }
    *error = EACCES;
    return {};
}

// A peer that is stopped keeps its queue, which may be full; room may come before the deadline.
gint32 connect_until(const std::filesystem::path &socket, Deadline deadline, Fd *peer) {
    for (;;) {
        int error = 0;
        *peer = peer_connect(socket, &error);
        if (*peer) {
            return 0;
        }
        if (error != EAGAIN) {
            return kPeerAbsent;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return kTimedOut;
        }
        std::this_thread::sleep_for(kQueuePause);
    }
}

// Waits for events on the peer's descriptor. 0, kTimedOut or kPeerFailed.
gint32 await(const Fd &peer, short events, Deadline deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd poll_fd{.fd = peer.get(), .events = events, .revents = 0};
        const int ready = poll(&poll_fd, 1, static_cast<int>(std::max<milliseconds::rep>(left.count(), 0)));
        if (ready > 0) {
            return 0;
        }
        if (ready == 0) {
            return kTimedOut;
        }
        if (errno != EINTR) {
            return kPeerFailed;
        }
    }
}

gint32 send_all(const Fd &peer, std::span<const std::uint8_t> data, Deadline deadline) {
    while (!data.empty()) {
        const ssize_t count = send(peer.get(), data.data(), data.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            data = data.subspan(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            if (const gint32 status = await(peer, POLLOUT, deadline); status != 0) {
                return status;
            }
        } else if (errno != EINTR) {
            return kPeerFailed;
        }
    }
    return 0;
}

// With *silent, that nothing of a response has come is told.
gint32 receive_response(const Fd &peer, Deadline deadline, IpmiResponse *response, bool *silent = nullptr) {
    std::array<std::uint8_t, kHeadSize + kResponseLimit> frame; // a peer sends one response and waits
    Head head{};
    std::size_t arrived = 0;
    std::size_t wanted = kHeadSize;
    while (arrived < wanted) {
        if (const gint32 status = await(peer, POLLIN, deadline); status != 0) {
            return status;
        }
        const ssize_t count = recv(peer.get(), frame.data() + arrived, frame.size() - arrived, 0);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (count <= 0) {
            if (silent != nullptr) {
                *silent = arrived == 0;
            }
            return kPeerFailed;
        }
        arrived += static_cast<std::size_t>(count);
        if (arrived < kHeadSize) {
            continue;
        }
        std::copy_n(frame.begin(), kHeadSize, head.begin());
        const auto length = body_length(head, kResponse, 1, kResponseLimit);
        if (!length) {
            return kPeerFailed;
        }
        wanted = kHeadSize + *length;
    }
    response->assign(frame.begin() + kHeadSize, frame.begin() + static_cast<std::ptrdiff_t>(wanted));
    return arrived == wanted ? 0 : kPeerFailed;
}

// The connection is not at its end, and nothing has come that nobody asked for.
bool is_quiet(const Fd &peer) {
    std::uint8_t first = 0;
    return peer && recv(peer.get(), &first, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

// Sends the wish to one peer. 0 and the connection, or why it has none.
gint32 ask_to_reload(const std::filesystem::path &socket, std::string_view item, Deadline deadline, Fd *peer) {
    int error = 0;
    *peer = peer_connect(socket, &error);
    if (!*peer) {
        return error == EAGAIN ? kTimedOut : kPeerAbsent;
    }
    return send_all(*peer, reload_frame(item), deadline);
}

// Waits for the peers' answers, whoever is first.
Reloaded await_reload(std::vector<Fd> peers, Deadline deadline) {
    Reloaded outcome = Reloaded::kNoMaster;
    while (!peers.empty()) {
        std::vector<pollfd> fds;
        fds.reserve(peers.size());
        for (const Fd &peer : peers) {
            fds.push_back({.fd = peer.get(), .events = POLLIN, .revents = 0});
        }
        const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
        const int ready = poll(fds.data(), fds.size(), static_cast<int>(std::max<milliseconds::rep>(left.count(), 0)));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        const auto answering = std::ranges::find_if(fds, [](const pollfd &fd) { return fd.revents != 0; });
        if (ready <= 0 || answering == fds.end()) {
            return Reloaded::kUnknown;
        }
        const auto peer = peers.begin() + (answering - fds.begin());
        IpmiResponse response;
        const gint32 status = receive_response(*peer, deadline, &response);
        if (status == 0 && response.front() == kCompleted) {
            return Reloaded::kByMaster;
        }
        if (status != 0 || response.front() != kNotInThisState) {
            outcome = Reloaded::kUnknown;
        }
        peers.erase(peer);
    }
    return outcome;
}

} // namespace

std::unique_ptr<StreamServer> open_peer_link(const std::filesystem::path &socket, const IpmiRegistry &registry,
                                             PeerReload reload, std::string *mistake) {
    const auto protocol = [&registry, reload = std::move(reload)](StreamClient &client) {
        while (serve_next(client, registry, reload)) {
        }
    };
    return StreamServer::open(socket, "asd-link", protocol, mistake, geteuid());
}

gint32 peer_request(const std::filesystem::path &socket, const IpmiRequest &request, std::chrono::nanoseconds limit,
                    IpmiResponse *response, Fd *kept) {
    const Deadline deadline = std::chrono::steady_clock::now() + limit;
    const std::vector<std::uint8_t> frame = request_frame(request);
    Fd peer = kept != nullptr ? std::exchange(*kept, Fd()) : Fd();
    if (peer && response != nullptr) {
        bool silent = false;
        gint32 status = send_all(peer, frame, deadline);
        silent = status == kPeerFailed;
        status = status == 0 ? receive_response(peer, deadline, response, &silent) : status;
        if (!silent) {
            *kept = status == 0 ? std::move(peer) : Fd();
            return status;
        }
    }
    // Also when the peer has ended a kept connection in the meantime: whoever listens there now is asked.
    if (const gint32 status = connect_until(socket, deadline, &peer); status != 0) {
        return status;
    }
    if (const gint32 status = send_all(peer, frame, deadline); status != 0 || response == nullptr) {
        return status;
    }
    const gint32 status = receive_response(peer, deadline, response);
    if (status == 0 && kept != nullptr) {
        *kept = std::move(peer);
    }
    return status;
}

Fd PeerLines::take(std::uint8_t slot) {
    const std::lock_guard lock(mutex_);
    return std::move(kept_[slot]);
}

void PeerLines::put_back(std::uint8_t slot, Fd peer) {
    const std::lock_guard lock(mutex_);
    kept_[slot] = std::move(peer);
}

bool PeerLines::listens(std::uint8_t slot, const std::filesystem::path &socket, Time now) {
    Fd peer = take(slot);
    if (is_quiet(peer)) {
        put_back(slot, std::move(peer));
        return true;
    }
    {
        const std::lock_guard lock(mutex_);
        const auto absent = absent_until_.find(slot);
        if (absent != absent_until_.end() && now < absent->second) {
            return false;
        }
    }
    int error = 0;
    peer = peer_connect(socket, &error);
    if (!peer && error != EAGAIN) {
        const std::lock_guard lock(mutex_);
        absent_until_[slot] = now + second_ * 3 / 4; // not as long as from one pass of pushes to the next
        return false;
    }
    put_back(slot, std::move(peer));
    return true;
}

gint32 PeerLines::request(std::uint8_t slot, const std::filesystem::path &socket, const IpmiRequest &request,
                          std::chrono::nanoseconds limit, IpmiResponse *response) {
    Fd peer = take(slot);
    const gint32 status = peer_request(socket, request, limit, response, &peer);
    put_back(slot, std::move(peer));
    return status;
}

Reloaded peers_reload(const std::vector<std::filesystem::path> &sockets, std::string_view item, Deadline deadline) {
    std::vector<Fd> asked;
    bool all_asked = true;
    for (const std::filesystem::path &socket : sockets) {
        Fd peer;
        const gint32 status = ask_to_reload(socket, item, deadline, &peer);
        if (status == 0) {
            asked.push_back(std::move(peer));
        }
        all_asked = all_asked && (status == 0 || status == kPeerAbsent);
    }
    const Reloaded outcome = await_reload(std::move(asked), deadline);
    return outcome == Reloaded::kNoMaster && !all_asked ? Reloaded::kUnknown : outcome;
}

std::optional<std::chrono::nanoseconds> PeerPatience::limit(std::uint8_t slot, std::chrono::nanoseconds wanted,
                                                            Time now) {
    constexpr int kPauseSeconds = 5; // without a request to a peer that does not answer
    constexpr int kPassSeconds = 2;  // within which the others are waited for less long
    const std::lock_guard lock(mutex_);
    const auto silent = silent_since_.find(slot);
    if (silent != silent_since_.end() && now < silent->second + kPauseSeconds * second_) {
        return std::nullopt;
    }
    const bool in_haste = last_silence_ && now < *last_silence_ + kPassSeconds * second_;
    return silent != silent_since_.end() || in_haste ? wanted / 4 : wanted;
}

void PeerPatience::note(std::uint8_t slot, bool answered, Time now) {
    const std::lock_guard lock(mutex_);
    if (answered) {
        silent_since_.erase(slot);
        return;
    }
    silent_since_[slot] = now;
    last_silence_ = now;
}

} // namespace asd_host
