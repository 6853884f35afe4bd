// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "stream_server.h"

#include "fd.h"
#include "log.h"
#include "thread_start.h"
#include "unix_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include <glib.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What others know of a client: written by its own thread, without a lock, because that happens twice a request.
struct StreamPlace {
    static constexpr steady_clock::rep kBusy = steady_clock::duration::min().count();
    // Between two requests: since when. Set before the look at `stopping`, which the server sets before it looks here.
    std::atomic<steady_clock::rep> idle_since{kBusy};
    std::atomic<bool> answered{false}; // it has had an answer before

    void become_idle() { idle_since = steady_clock::now().time_since_epoch().count(); }
    [[nodiscard]] bool idle_at(steady_clock::time_point when) const {
        const steady_clock::rep since = idle_since;
        return since != kBusy && since <= when.time_since_epoch().count();
    }
};

struct StreamShared {
    Fd listener;
    Fd stop_event; // readable from the moment the server stops
    std::string path;
    std::string thread_name;
    StreamServer::Protocol protocol;
    std::optional<uid_t> only_user;
    milliseconds leave_limit{}; // of a client that has been answered, to take its leave when the server stops
    Seldom says_shortage;       // and the next one: the acceptor's
    Seldom says_stranger;
    std::atomic<std::uint64_t> rounds{0}; // the acceptor's; relaxed: guards nothing

    std::atomic<bool> stopping{false}; // set with the mutex held
    std::atomic<std::size_t> served{0};
    std::atomic<bool> said_busy{false}; // said again only after half of the places have been free

    std::mutex mutex; // guards the fields below
    std::condition_variable client_gone;
    std::map<int, StreamPlace> clients; // by open descriptor: closed only while they are taken out
    bool accepting = true;
    bool said_full = false; // as said_busy

    [[nodiscard]] StreamPlace &place_of(int fd) {
        const std::lock_guard lock(mutex);
        return clients.try_emplace(fd).first->second;
    }
    void end_connections() {
        const std::lock_guard lock(mutex);
        for (const auto &[fd, client] : clients) {
            (void)shutdown(fd, SHUT_RDWR); // the client may have gone
        }
    }
    [[nodiscard]] bool await_no_client(milliseconds limit) {
        std::unique_lock lock(mutex);
        return client_gone.wait_for(lock, limit, [this] { return !accepting && clients.empty(); });
    }
    void end_longest_idle();
    void end_idle();
};

namespace {

constexpr milliseconds kWholeLimit{10000}; // for all of a request to arrive, or for its answer to be taken
constexpr milliseconds kIdleGrace{1000};   // of a client between two requests when all places are taken
constexpr milliseconds kPlacePause{50};    // between looks for a client that has become idle for so long
constexpr milliseconds kAcceptPause{100};  // when the machine is short of descriptors, memory or threads
constexpr std::int64_t kSeldomMs = 60000;
constexpr milliseconds kForever{-1};
constexpr milliseconds kRound{5000};       // of the acceptor, when nobody comes
constexpr milliseconds kRoundBound{20000}; // the machine may be busy
constexpr milliseconds kEndingLimit{500};  // of a client in the middle of a request when the service ends
constexpr milliseconds kLeaveLimit{250};   // StreamShared's leave_limit, but for controllers: they take none

// Waits until a descriptor is ready or the time is over, across signals.
int wait_readable(std::span<pollfd> fds, int timeout_ms) {
    for (;;) {
        const int ready = poll(fds.data(), fds.size(), timeout_ms);
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
    }
}

// Waits a while, or until the server stops.
void pause_accepting(StreamShared &shared) {
    shared.rounds.fetch_add(1, std::memory_order_relaxed);
    std::array<pollfd, 1> fds{{{.fd = shared.stop_event.get(), .events = POLLIN, .revents = 0}}};
    (void)wait_readable(fds, static_cast<int>(kAcceptPause.count()));
}

void run_client(const std::shared_ptr<StreamShared> &shared, const std::shared_ptr<Fd> &connection) {
    (void)pthread_setname_np(pthread_self(), shared->thread_name.c_str());
    {
        StreamClient client(*shared, connection->get());
        shared->protocol(client);
    }
    const std::lock_guard lock(shared->mutex);
    shared->clients.erase(connection->get());
    connection->reset();
    shared->said_full = shared->said_full && shared->clients.size() > StreamServer::kClients / 2;
    shared->client_gone.notify_all();
}

// A client that has been accepted gets its thread, even if that takes a while: it waits for answers for ever. Only the
// end of the service ends its wait.
void start_client(const std::shared_ptr<StreamShared> &shared, Fd client) {
    shared->place_of(client.get()).become_idle();
    const auto connection = std::make_shared<Fd>(std::move(client));
    for (;;) {
        const int error = start_detached_thread([shared, connection] { run_client(shared, connection); });
        if (error == 0) {
            return;
        }
        if (shared->says_shortage.due()) {
            HOST_LOG(kLogError, "%s: no thread for a client: %s; it waits, and idle clients make room",
                     shared->path.c_str(), g_strerror(error));
        }
        {
            const std::lock_guard lock(shared->mutex);
            if (shared->stopping) {
                shared->clients.erase(connection->get());
                return;
            }
            shared->end_longest_idle();
        }
        pause_accepting(*shared);
    }
}

// Waits until somebody wants to connect. False: the server stops. Each round shows that clients are looked after.
bool await_client(StreamShared &shared) {
    std::array<pollfd, 2> fds{{{.fd = shared.listener.get(), .events = POLLIN, .revents = 0},
                               {.fd = shared.stop_event.get(), .events = POLLIN, .revents = 0}}};
    do {
        shared.rounds.fetch_add(1, std::memory_order_relaxed);
    } while (wait_readable(fds, static_cast<int>(kRound.count())) == 0);
    return fds[1].revents == 0;
}

// Makes room for one more client. False: the server stops.
bool await_place(StreamShared &shared) {
    std::unique_lock lock(shared.mutex);
    while (!shared.stopping && shared.clients.size() >= StreamServer::kClients) {
        if (!std::exchange(shared.said_full, true)) {
            lock.unlock();
            HOST_LOG(kLogError, "%s is full: %zu clients are connected; the one that is idle longest makes room",
                     shared.path.c_str(), StreamServer::kClients);
            lock.lock();
        }
        shared.end_longest_idle();
        shared.rounds.fetch_add(1, std::memory_order_relaxed);
        (void)shared.client_gone.wait_for(lock, kPlacePause);
    }
    return !shared.stopping;
}

// Closes a connection that may not be served. True: it was one.
bool refuse_stranger(StreamShared &shared, Fd *client) {
    if (!shared.only_user) {
        return false;
    }
    const std::optional<uid_t> user = unix_peer_user(client->get());
    if (user == shared.only_user) {
        return false;
    }
    client->reset();
    if (shared.says_stranger.due()) {
        HOST_LOG(kLogError, "%s: a connection of user %ld is closed: only processes of user %ld are served",
                 shared.path.c_str(), user ? static_cast<long>(*user) : -1L, static_cast<long>(*shared.only_user));
    }
    return true;
}

// 0, also when the client is not served, or an errno value: nobody is waiting, or the machine is short of something.
int accept_client(const std::shared_ptr<StreamShared> &shared) {
    Fd client(accept4(shared->listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) {
        return errno;
    }
    if (refuse_stranger(*shared, &client)) {
        return 0;
    }
    std::uint8_t first = 0;
    if (shared->stopping && recv(client.get(), &first, 1, MSG_PEEK | MSG_DONTWAIT) <= 0) {
        return 0; // it has asked for nothing: closed without a thread, of which a crowd would need hundreds
    }
    start_client(shared, std::move(client));
    return 0;
}

bool is_shortage(int error) {
    return error != 0 && error != EINTR && error != ECONNABORTED && error != EAGAIN;
}

void accept_clients(const std::shared_ptr<StreamShared> &shared) {
    (void)pthread_setname_np(pthread_self(), shared->thread_name.c_str());
    while (await_client(*shared) && await_place(*shared)) {
        const int error = accept_client(shared);
        if (!is_shortage(error)) {
            continue;
        }
        if (shared->says_shortage.due()) {
            HOST_LOG(kLogError, "%s: a client cannot be accepted: %s; it waits, and idle clients make room",
                     shared->path.c_str(), g_strerror(error));
        }
        {
            const std::lock_guard lock(shared->mutex);
            shared->end_longest_idle();
        }
        pause_accepting(*shared);
    }
    // Who has connected just before the end may have sent a request.
    for (std::size_t left = StreamServer::kClients; left > 0 && accept_client(shared) == 0; --left) {
    }
    shared->listener.reset();
    shared->end_idle();
}

// Nobody can connect before listen(), so that the mode holds for the first client too. 0 or an errno value.
int listen_at(const sockaddr_un &address, mode_t mode, Fd *listener) {
    *listener = Fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!*listener) {
        return errno;
    }
    if (unlink(address.sun_path) != 0 && errno != ENOENT) {
        return errno;
    }
    const bool listening = bind(listener->get(), common(address), sizeof address) == 0 &&
                           chmod(address.sun_path, mode) == 0 && listen(listener->get(), SOMAXCONN) == 0;
    if (listening) {
        return 0;
    }
    const int error = errno;
    (void)unlink(address.sun_path); // nobody would answer there
    return error;
}

} // namespace

bool Seldom::due() {
    const auto now = std::chrono::duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    std::int64_t next = next_ms_.load(std::memory_order_relaxed);
    return now >= next && next_ms_.compare_exchange_strong(next, now + kSeldomMs, std::memory_order_relaxed);
}

// Only its reading side: a request that has arrived at this moment is still answered. With the mutex held.
void StreamShared::end_longest_idle() {
    const auto latest = steady_clock::now() - kIdleGrace;
    auto longest = clients.end();
    steady_clock::rep since = 0;
    for (auto client = clients.begin(); client != clients.end(); ++client) {
        std::uint8_t first = 0;
        const steady_clock::rep its = client->second.idle_since;
        if (client->second.idle_at(latest) && (longest == clients.end() || its < since) &&
            recv(client->first, &first, 1, MSG_PEEK | MSG_DONTWAIT) < 0) {
            longest = client;
            since = its;
        }
    }
    // From here on it is on its way out, unless a request has come in the meantime.
    if (longest != clients.end() && longest->second.idle_since.compare_exchange_strong(since, StreamPlace::kBusy)) {
        (void)shutdown(longest->first, SHUT_RD);
    }
}

// The server stops: wakes those that wait for a request. Whoever begins to wait from now on sees that for himself.
void StreamShared::end_idle() {
    const auto now = steady_clock::now();
    std::unique_lock lock(mutex);
    const auto end_those = [&](bool answered) {
        for (const auto &[fd, place] : clients) {
            if (place.answered == answered && place.idle_at(now)) {
                (void)shutdown(fd, SHUT_RD);
            }
        }
    };
    accepting = false;
    client_gone.notify_all();
    end_those(false);
    (void)client_gone.wait_for(lock, leave_limit, [this] { return clients.empty(); });
    end_those(true);
}

StreamClient::StreamClient(StreamShared &shared, int fd) : shared_(shared), place_(shared.place_of(fd)), fd_(fd) {}

StreamClient::~StreamClient() {
    leave_place();
}

void StreamClient::leave_place() {
    if (std::exchange(admitted_, false) && --shared_.served <= StreamServer::kServedClients / 2 && shared_.said_busy) {
        shared_.said_busy = false;
    }
}

// Waits for input; once the server stops, only ending_limit longer.
bool StreamClient::await_input(milliseconds limit, milliseconds ending_limit) {
    std::array<pollfd, 2> fds{{{.fd = fd_, .events = POLLIN, .revents = 0},
                               {.fd = shared_.stop_event.get(), .events = POLLIN, .revents = 0}}};
    (void)wait_readable(fds, static_cast<int>(limit.count()));
    if (fds[1].revents != 0 && !ends_) {
        ends_ = steady_clock::now() + kEndingLimit;
    }
    if (fds[0].revents == 0 && fds[1].revents != 0) {
        (void)wait_readable(std::span(fds).first(1), static_cast<int>(ending_limit.count()));
    }
    return fds[0].revents != 0;
}

// Takes what has arrived, in one call, behind what has been used up. As recv returns.
ssize_t StreamClient::receive(int flags) {
    ssize_t count = 0;
    do {
        count = recv(fd_, buffer_.data(), buffer_.size(), flags);
    } while (count < 0 && errno == EINTR);
    arrived_ = std::span(buffer_).first(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return count;
}

// Waits for the first bytes of a request in recv itself. Who stops the server ends that wait; once it is stopping, the
// client looks after itself. A controller is waited for in poll: the kernel wakes a recv also when the other side has
// read the last answer, for nothing, and a controller that pushes is to cost an idle one no more than its requests.
bool StreamClient::await_arrival(bool answered) {
    place_.answered = answered;
    place_.become_idle();
    int flags = 0;
    if (shared_.stopping) {
        flags = MSG_DONTWAIT;
        if (!await_input(kForever, answered ? shared_.leave_limit : milliseconds(0))) {
            // What arrives from now on is refused, what has arrived just before is still answered.
            (void)shutdown(fd_, SHUT_RD);
        }
    } else if (shared_.only_user) {
        std::array<pollfd, 1> fds{{{.fd = fd_, .events = POLLIN, .revents = 0}}};
        (void)wait_readable(fds, static_cast<int>(kForever.count()));
    }
    const ssize_t count = receive(flags);
    place_.idle_since = StreamPlace::kBusy;
    return count > 0;
}

bool StreamClient::await_request() {
    leave_place();
    const bool answered = std::exchange(answered_, false);
    if (arrived_.empty() && !await_arrival(answered)) {
        return false;
    }
    const auto now = steady_clock::now();
    if (shared_.stopping && !ends_) {
        ends_ = now + kEndingLimit;
    }
    whole_by_ = now + kWholeLimit;
    return !ends_ || now <= *ends_; // else it has sent requests faster than they can be answered
}

bool StreamClient::read(std::span<std::uint8_t> out) {
    for (;;) {
        const std::size_t count = std::min(out.size(), arrived_.size());
        std::copy_n(arrived_.begin(), count, out.begin());
        arrived_ = arrived_.subspan(count);
        out = out.subspan(count);
        if (out.empty()) {
            return true;
        }
        const auto left = std::chrono::ceil<milliseconds>(whole_by_ - steady_clock::now());
        if (left <= milliseconds(0)) {
            return false;
        }
        // The rest of a request is there already, or on its way.
        const ssize_t more = receive(MSG_DONTWAIT);
        if (more == 0 || (more < 0 && (errno != EAGAIN || !await_input(left, std::min(left, kEndingLimit))))) {
            return false;
        }
    }
}

bool StreamClient::send(std::span<const std::uint8_t> data) {
    leave_place(); // whoever reads slowly does not keep others out
    const auto taken_by = steady_clock::now() + kWholeLimit;
    for (;;) {
        const ssize_t count = ::send(fd_, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count >= 0 || errno != EAGAIN || !await_room(taken_by)) {
            answered_ = true;
            return count == static_cast<ssize_t>(data.size());
        }
    }
}

// Waits until the client has taken something; once the server stops, only a moment longer.
bool StreamClient::await_room(steady_clock::time_point taken_by) {
    std::array<pollfd, 2> fds{{{.fd = fd_, .events = POLLOUT, .revents = 0},
                               {.fd = shared_.stop_event.get(), .events = POLLIN, .revents = 0}}};
    const auto left = std::chrono::ceil<milliseconds>(taken_by - steady_clock::now());
    (void)wait_readable(fds, static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (fds[0].revents == 0 && fds[1].revents != 0) {
        (void)wait_readable(std::span(fds).first(1), static_cast<int>(kLeaveLimit.count()));
    }
    return fds[0].revents != 0;
}

std::string StreamClient::user() const {
    const std::optional<uid_t> user = unix_peer_user(fd_);
    return user ? "uid " + std::to_string(*user) : "somebody who has left";
}

bool StreamClient::admitted() {
    std::size_t served = shared_.served;
    while (served < StreamServer::kServedClients) {
        if (shared_.served.compare_exchange_weak(served, served + 1)) {
            admitted_ = true;
            return true;
        }
    }
    if (!shared_.said_busy.exchange(true)) {
        HOST_LOG(kLogError, "%s: %zu requests are under way; further ones are answered busy", shared_.path.c_str(),
                 StreamServer::kServedClients);
    }
    return false;
}

std::unique_ptr<StreamServer> StreamServer::open(const std::filesystem::path &path, std::string thread_name,
                                                 Protocol protocol, std::string *mistake,
                                                 std::optional<uid_t> only_user) {
    constexpr mode_t kOwner = 0600;
    constexpr mode_t kOwnerAndGroup = 0660;
    const std::optional<sockaddr_un> address = unix_address(path);
    if (!address) {
        *mistake = "the socket's path is too long (at most 107 bytes): " + path.native();
        return nullptr;
    }
    auto shared = std::make_shared<StreamShared>();
    shared->path = path.native();
    shared->thread_name = std::move(thread_name);
    shared->protocol = std::move(protocol);
    shared->only_user = only_user;
    shared->leave_limit = only_user ? milliseconds(0) : kLeaveLimit;
    shared->stop_event = Fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const int error =
        shared->stop_event ? listen_at(*address, only_user ? kOwner : kOwnerAndGroup, &shared->listener) : errno;
    if (error != 0) {
        *mistake = "cannot listen at " + path.native() + ": " + g_strerror(error);
        return nullptr;
    }
    std::unique_ptr<StreamServer> server(new StreamServer);
    if (const int none = start_thread(&server->acceptor_, [shared] { accept_clients(shared); }); none != 0) {
        (void)unlink(address->sun_path);
        *mistake = "no thread to serve " + path.native() + ": " + g_strerror(none);
        return nullptr;
    }
    server->path_ = path;
    server->shared_ = std::move(shared);
    return server;
}

StreamServer::~StreamServer() {
    (void)stop(milliseconds(1000)); // a client's thread that is still busy keeps what it shares
}

void StreamServer::begin_stop() {
    if (shared_ == nullptr || !acceptor_.joinable() || shared_->stopping) {
        return;
    }
    (void)unlink(path_.c_str()); // what remains is replaced by the next process
    const std::lock_guard lock(shared_->mutex);
    shared_->stopping = true;
    shared_->client_gone.notify_all();
    const std::uint64_t one = 1;
    // Fails only when it is readable already.
    [[maybe_unused]] const ssize_t written = write(shared_->stop_event.get(), &one, sizeof one);
}

bool StreamServer::stop(milliseconds limit) {
    if (shared_ == nullptr) {
        return true;
    }
    begin_stop();
    // Requests end by themselves, except for one whose handler hangs or whose answer nobody takes.
    bool ended = shared_->await_no_client(limit * 3 / 4);
    if (!ended) {
        shared_->end_connections();
        ended = shared_->await_no_client(limit / 4);
    }
    if (acceptor_.joinable()) {
        acceptor_.join(); // at its last look at idle clients, a moment after it stopped accepting
    }
    return ended;
}

Pulse StreamServer::pulse() const {
    return {.name = path_.native(), .count = shared_->rounds.load(std::memory_order_relaxed), .bound = kRoundBound};
}

} // namespace asd_host
