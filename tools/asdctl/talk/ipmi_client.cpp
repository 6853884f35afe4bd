// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "ipmi_client.h"

#include "dummy_protocol.h"
#include "failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <glib.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace asdctl {

namespace {

constexpr std::int64_t kTimeoutUs = 5'000'000;
constexpr std::int32_t kResponseLimit = 1024; // what the protocol's clients take

Bytes request_bytes(std::uint8_t netfn, std::uint8_t cmd, BytesView data) {
    DummyRequest header{};
    header.netfn = netfn;
    header.cmd = cmd;
    header.data_len = static_cast<std::uint16_t>(data.size());
    const auto head = std::as_bytes(std::span(&header, 1));
    Bytes bytes;
    bytes.reserve(head.size() + data.size());
    std::ranges::transform(head, std::back_inserter(bytes),
                           [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

Failure no_answer(const std::string &socket) {
    return Failure(socket + ": the service did not answer within 5 seconds",
                   "It may still carry the request out; look before you repeat a write.");
}

} // namespace

IpmiClient::IpmiClient(const Context &context) : socket_(context.ipmi_socket().string()) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_.size() >= sizeof address.sun_path) {
        throw Failure(socket_ + ": longer than a socket's path can be", "Name a shorter folder with --run-dir.");
    }
    socket_.copy(address.sun_path, socket_.size());
    fd_ = Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd_) {
        throw Failure(std::string("a socket cannot be made: ") + g_strerror(errno));
    }
    timeval limit{}; // for connecting and sending
    limit.tv_sec = kTimeoutUs / 1'000'000;
    (void)::setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit); // without it they wait longer
    const auto *const name = static_cast<const sockaddr *>(static_cast<const void *>(&address));
    if (::connect(fd_.get(), name, sizeof address) != 0) {
        throw context.unreachable(socket_, g_strerror(errno));
    }
}

IpmiClient::~IpmiClient() {
    const Bytes bye = request_bytes(kByeNetfn, kByeCmd, {});
    (void)::send(fd_.get(), bye.data(), bye.size(), MSG_NOSIGNAL | MSG_DONTWAIT); // a courtesy; closing says the same
}

IpmiAnswer IpmiClient::request(std::uint8_t netfn, std::uint8_t cmd, BytesView data) {
    const std::int64_t deadline = g_get_monotonic_time() + kTimeoutUs;
    send(request_bytes(netfn, cmd, data));
    std::array<std::uint8_t, sizeof(DummyResponse)> bytes;
    receive(bytes, deadline);
    DummyResponse header;
    std::memcpy(&header, bytes.data(), bytes.size());
    if (header.netfn != (netfn | 1U) || header.cmd != cmd || header.data_len < 0 || header.data_len > kResponseLimit) {
        throw Failure(socket_ + ": what answers there does not speak the protocol of ipmitool's dummy interface",
                      "A 32-bit service and a 64-bit asdctl do not understand each other either.");
    }
    IpmiAnswer answer{.code = header.ccode, .data = Bytes(static_cast<std::size_t>(header.data_len))};
    receive(answer.data, deadline);
    return answer;
}

void IpmiClient::send(BytesView bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && errno == EAGAIN) {
            throw no_answer(socket_);
        }
        if (sent < 0) {
            throw Failure(socket_ + ": the request cannot be sent: " + g_strerror(errno));
        }
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
}

void IpmiClient::receive(std::span<std::uint8_t> bytes, std::int64_t deadline_us) const {
    while (!bytes.empty()) {
        const std::int64_t left_ms = (deadline_us - g_get_monotonic_time() + 999) / 1000;
        pollfd wanted{.fd = fd_.get(), .events = POLLIN, .revents = 0};
        const int ready = left_ms <= 0 ? 0 : ::poll(&wanted, 1, static_cast<int>(left_ms));
        if (ready == 0) {
            throw no_answer(socket_);
        }
        const ssize_t count = ready < 0 ? -1 : ::recv(fd_.get(), bytes.data(), bytes.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw Failure(socket_ + ": the answer cannot be read: " + g_strerror(errno));
        }
        if (count == 0) {
            throw Failure(socket_ + ": the service closed the connection instead of answering", "Its log says why.");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

} // namespace asdctl
