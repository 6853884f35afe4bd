// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "stream_server.h"

#include "log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace asd_host {

using std::chrono::milliseconds;

struct StreamShared {
    Fd listener;
    Fd stop_event; // readable from the moment the server stops
    std::string thread_name;
    StreamServer::Protocol protocol;

    std::mutex mutex; // guards the fields below
    std::condition_variable client_gone;
    std::set<int> clients; // open descriptors: closed only while they are taken out
    std::size_t served = 0;
    bool stopping = false;

    void end_connections() {
        const std::lock_guard lock(mutex);
        for (const int fd : clients) {
            (void)shutdown(fd, SHUT_RDWR); // the client may have gone
        }
    }
    [[nodiscard]] bool await_no_client(milliseconds limit) {
        std::unique_lock lock(mutex);
        return client_gone.wait_for(lock, limit, [this] { return clients.empty(); });
    }
};

namespace {

constexpr milliseconds kSilenceLimit{10000}; // of a client in the middle of a request, or not taking its answer
constexpr milliseconds kAcceptPause{100};    // when the machine is short of descriptors, memory or threads
constexpr milliseconds kForever{-1};
constexpr milliseconds kEndingLimit{1000}; // of a client in the middle of a request when the service ends
constexpr milliseconds kLeaveLimit{250};   // of one that has just been answered, to take its leave

std::optional<sockaddr_un> unix_address(const std::filesystem::path &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string &text = path.native();
    if (text.size() >= sizeof address.sun_path) {
        return std::nullopt;
    }
    std::ranges::copy(text, address.sun_path);
    return address;
}

// The interface of sockets: every address is passed as the common one.
const sockaddr *common(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
}

std::string error_text(int error) {
    return std::generic_category().message(error);
}

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
    std::array<pollfd, 1> fds{{{.fd = shared.stop_event.get(), .events = POLLIN, .revents = 0}}};
    (void)wait_readable(fds, static_cast<int>(kAcceptPause.count()));
}

void run_client(const std::shared_ptr<StreamShared> &shared, int fd) {
    (void)pthread_setname_np(pthread_self(), shared->thread_name.c_str());
    {
        StreamClient client(*shared, fd);
        shared->protocol(client);
    }
    const std::lock_guard lock(shared->mutex);
    shared->clients.erase(fd);
    (void)close(fd);
    shared->client_gone.notify_all();
}

// A client that has been accepted gets its thread, even if that takes a while: it waits for answers for ever.
void start_client(const std::shared_ptr<StreamShared> &shared, int fd) {
    const timeval limit{.tv_sec = kSilenceLimit.count() / 1000, .tv_usec = 0};
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    {
        const std::lock_guard lock(shared->mutex);
        shared->clients.insert(fd);
    }
    for (;;) {
        try {
            std::thread(run_client, shared, fd).detach();
            return;
        } catch (const std::system_error &failure) {
            HOST_LOG(kLogError, "no thread for a client: %s", failure.what());
        }
        std::this_thread::sleep_for(kAcceptPause);
    }
}

// False: the server stops.
bool await_client(StreamShared &shared) {
    std::unique_lock lock(shared.mutex);
    shared.client_gone.wait(lock,
                            [&shared] { return shared.stopping || shared.clients.size() < StreamServer::kClients; });
    lock.unlock();
    std::array<pollfd, 2> fds{{{.fd = shared.listener.get(), .events = POLLIN, .revents = 0},
                               {.fd = shared.stop_event.get(), .events = POLLIN, .revents = 0}}};
    (void)wait_readable(fds, static_cast<int>(kForever.count()));
    return fds[1].revents == 0;
}

// False: nobody is waiting, or the machine is short of something.
bool accept_client(const std::shared_ptr<StreamShared> &shared) {
    const int fd = accept4(shared->listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        start_client(shared, fd);
    }
    return fd >= 0;
}

void accept_clients(const std::shared_ptr<StreamShared> &shared) {
    (void)pthread_setname_np(pthread_self(), shared->thread_name.c_str());
    while (await_client(*shared)) {
        if (!accept_client(shared) && errno != EINTR && errno != ECONNABORTED && errno != EAGAIN) {
            HOST_LOG(kLogError, "a client cannot be accepted: %s", error_text(errno).c_str());
            pause_accepting(*shared);
        }
    }
    // Who has connected just before the end may have sent a request.
    for (std::size_t left = StreamServer::kClients; left > 0 && accept_client(shared); --left) {
    }
}

// Nobody can connect before listen(), so that the mode holds for the first client too. 0 or an errno value.
int listen_at(const sockaddr_un &address, Fd *listener) {
    *listener = Fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!*listener) {
        return errno;
    }
    if (unlink(address.sun_path) != 0 && errno != ENOENT) {
        return errno;
    }
    constexpr mode_t kOwnerAndGroup = 0660;
    const bool listening = bind(listener->get(), common(address), sizeof address) == 0 &&
                           chmod(address.sun_path, kOwnerAndGroup) == 0 && listen(listener->get(), SOMAXCONN) == 0;
    return listening ? 0 : errno;
}

} // namespace

StreamClient::~StreamClient() {
    if (admitted_) {
        const std::lock_guard lock(shared_.mutex);
        --shared_.served;
    }
}

// Waits for input; once the server stops, only ending_limit longer.
bool StreamClient::await_input(milliseconds limit, milliseconds ending_limit) {
    std::array<pollfd, 2> fds{{{.fd = fd_, .events = POLLIN, .revents = 0},
                               {.fd = shared_.stop_event.get(), .events = POLLIN, .revents = 0}}};
    (void)wait_readable(fds, static_cast<int>(limit.count()));
    if (fds[0].revents == 0 && fds[1].revents != 0) {
        (void)wait_readable(std::span(fds).first(1), static_cast<int>(ending_limit.count()));
    }
    return fds[0].revents != 0;
}

bool StreamClient::await_request() {
    if (!await_input(kForever, answered_ ? kLeaveLimit : milliseconds(0))) {
        // The service ends. What arrives from now on is refused, what has arrived just before is still answered.
        (void)shutdown(fd_, SHUT_RD);
    }
    answered_ = false;
    std::uint8_t first = 0;
    return recv(fd_, &first, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
}

bool StreamClient::read(std::span<std::uint8_t> out) {
    while (!out.empty()) {
        if (!await_input(kSilenceLimit, kEndingLimit)) {
            return false;
        }
        const ssize_t count = recv(fd_, out.data(), out.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        out = out.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

bool StreamClient::send(std::span<const std::uint8_t> data) {
    for (;;) {
        const ssize_t count = ::send(fd_, data.data(), data.size(), MSG_NOSIGNAL);
        if (count >= 0 || errno != EINTR) {
            answered_ = true;
            return count == static_cast<ssize_t>(data.size());
        }
    }
}

bool StreamClient::admitted() {
    const std::lock_guard lock(shared_.mutex);
    if (!admitted_ && shared_.served < StreamServer::kServedClients) {
        admitted_ = true;
        ++shared_.served;
    }
    return admitted_;
}

std::unique_ptr<StreamServer> StreamServer::open(const std::filesystem::path &path, std::string thread_name,
                                                 Protocol protocol, std::string *mistake) {
    const std::optional<sockaddr_un> address = unix_address(path);
    if (!address) {
        *mistake = "the socket's path is too long (at most 107 bytes): " + path.native();
        return nullptr;
    }
    auto shared = std::make_shared<StreamShared>();
    shared->thread_name = std::move(thread_name);
    shared->protocol = std::move(protocol);
    shared->stop_event = Fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const int error = shared->stop_event ? listen_at(*address, &shared->listener) : errno;
    if (error != 0) {
        *mistake = "cannot listen at " + path.native() + ": " + error_text(error);
        return nullptr;
    }
    std::unique_ptr<StreamServer> server(new StreamServer);
    server->path_ = path;
    server->shared_ = shared;
    try {
        server->acceptor_ = std::thread(accept_clients, shared);
    } catch (const std::system_error &failure) {
        *mistake = "no thread to serve " + path.native() + ": " + failure.what();
        return nullptr;
    }
    return server;
}

StreamServer::~StreamServer() {
    (void)stop(milliseconds(1000)); // a client's thread that is still busy keeps what it shares
}

bool StreamServer::stop(milliseconds limit) {
    if (shared_ == nullptr) {
        return true;
    }
    if (acceptor_.joinable()) {
        (void)unlink(path_.c_str()); // what remains is replaced by the next process
    }
    {
        const std::lock_guard lock(shared_->mutex);
        shared_->stopping = true;
        shared_->client_gone.notify_all();
    }
    const std::uint64_t one = 1;
    // Fails only when it is readable already.
    [[maybe_unused]] const ssize_t written = write(shared_->stop_event.get(), &one, sizeof one);
    if (acceptor_.joinable()) {
        acceptor_.join();
        shared_->listener.reset();
    }
    // Requests end by themselves, except for one whose handler hangs or whose answer nobody takes.
    if (shared_->await_no_client(limit * 3 / 4)) {
        return true;
    }
    shared_->end_connections();
    return shared_->await_no_client(limit / 4);
}

Fd unix_connect(const std::filesystem::path &path, int *error) {
    const std::optional<sockaddr_un> address = unix_address(path);
    if (!address) {
        *error = ENAMETOOLONG;
        return {};
    }
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd || connect(fd.get(), common(*address), sizeof *address) != 0) {
        *error = errno;
        return {};
    }
    *error = 0;
    return fd;
}

} // namespace asd_host
