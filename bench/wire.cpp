// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Sockets from outside: a server that does nothing but answer, and a client that asks any server again and again.
//
//   asd_bench_wire echo SOCKET DATA
//   asd_bench_wire put FILE OFFSET LENGTH TIMES
//   asd_bench_wire ask dummy|bus|serial SOCKET CLIENTS TIMES [ONCE... /] HEX...
//
// put writes other bytes to that place of a part's file each time, and reads them back.
// echo speaks the IPMI socket's protocol in three calls a request, a thread a client, and answers with DATA bytes.
// ask sends what is there before a "/" once for each client, and the others in turn, in all TIMES times ("200") or for
// as long ("500ms"); of serial, which is what emulators of a controller speak, SOCKET is a port on this machine; every
// answer is waited for. It prints one line of JSON: times of single requests in nanoseconds, and how many each client
// got.

#include "dummy_protocol.h"
#include "fd.h"
#include "unix_socket.h"

#include <algorithm>
#include <array>
#include <barrier>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using asd_shared::DummyRequest;
using asd_shared::DummyResponse;
using asd_shared::Fd;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr int kWrongUsage = 2;
constexpr std::size_t kSamples = 4'000'000; // of a client; more times are not kept

[[noreturn]] void stop(const std::string &why) {
    (void)std::fprintf(stderr, "asd_bench_wire: %s\n", why.c_str());
    std::_Exit(1);
}

bool receive(int socket, std::span<std::uint8_t> out) {
    return out.empty() || ::recv(socket, out.data(), out.size(), MSG_WAITALL) == static_cast<ssize_t>(out.size());
}

// ---- The plain server ----

// Header, data, answer.
void answer_requests(const Fd &client, std::size_t data) {
    Bytes answer(sizeof(DummyResponse) + data, 0x20);
    std::array<std::uint8_t, 65536> request_data;
    DummyRequest request{};
    std::array<std::uint8_t, sizeof request> head;
    while (receive(client.get(), head)) {
        std::memcpy(&request, head.data(), head.size());
        if (!receive(client.get(), std::span(request_data).first(request.data_len))) {
            return;
        }
        const DummyResponse response{.netfn = static_cast<std::uint8_t>(request.netfn | 1U),
                                     .cmd = request.cmd,
                                     .seq = 0,
                                     .lun = request.lun,
                                     .ccode = 0,
                                     .data_len = static_cast<std::int32_t>(data),
                                     .data = nullptr};
        std::memcpy(answer.data(), &response, sizeof response);
        if (::send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL) < 0) {
            return;
        }
    }
}

int echo(const char *path, std::size_t data) {
    const std::optional<sockaddr_un> address = asd_host::unix_address(path);
    const Fd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!address || ::bind(listener.get(), asd_host::common(*address), sizeof *address) != 0 ||
        ::listen(listener.get(), SOMAXCONN) != 0) {
        stop(std::string("cannot listen at ") + path + ": " + std::strerror(errno));
    }
    for (;;) {
        Fd client(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (client) {
            std::thread([client = std::move(client), data] { answer_requests(client, data); }).detach();
        }
    }
}

// ---- The client ----

enum class Protocol { kDummy, kBus, kSerial };

Bytes bytes_of(std::string_view hex) {
    Bytes bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::string_view pair = hex.substr(i * 2, 2);
        if (std::from_chars(pair.data(), pair.data() + pair.size(), bytes[i], 16).ptr != pair.data() + pair.size()) {
            stop("not hexadecimal: " + std::string(hex));
        }
    }
    return bytes;
}

std::uint32_t number_at(std::span<const std::uint8_t> bytes, std::size_t offset) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

std::string text_of(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

Fd connect_port(const char *port, int *error) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port, nullptr, 10)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_storage any{};
    std::memcpy(&any, &address, sizeof address);
    const int now = 1;
    Fd client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool connected =
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the interface of sockets
        ::connect(client.get(), reinterpret_cast<const sockaddr *>(&any), sizeof address) == 0 &&
        ::setsockopt(client.get(), IPPROTO_TCP, TCP_NODELAY, &now, sizeof now) == 0;
    *error = errno;
    return connected ? std::move(client) : Fd();
}

class Client {
public:
    Client(Protocol protocol, const char *path) : protocol_(protocol) {
        int error = 0;
        socket_ = protocol == Protocol::kSerial ? connect_port(path, &error) : asd_host::unix_connect(path, &error);
        if (!socket_ || ::fcntl(socket_.get(), F_SETFL, 0) != 0) {
            stop(std::string("cannot connect to ") + path + ": " + std::strerror(error));
        }
        if (protocol == Protocol::kBus) {
            authenticate();
        }
    }

    void ask(const Bytes &request) {
        if (::send(socket_.get(), request.data(), request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(request.size())) {
            stop(std::string("the request could not be sent: ") + std::strerror(errno));
        }
        if (protocol_ == Protocol::kDummy) {
            await_response();
        } else if (protocol_ == Protocol::kSerial) {
            await_message();
        } else {
            await_reply();
        }
    }

private:
    void authenticate() {
        std::string user;
        for (const char digit : std::to_string(::geteuid())) {
            user += "3";
            user += digit;
        }
        const std::string hello = std::string(1, '\0') + "AUTH EXTERNAL " + user + "\r\n";
        std::array<char, 256> said{};
        if (::send(socket_.get(), hello.data(), hello.size(), MSG_NOSIGNAL) < 0 ||
            ::recv(socket_.get(), said.data(), said.size(), 0) < 3 || std::memcmp(said.data(), "OK ", 3) != 0 ||
            ::send(socket_.get(), "BEGIN\r\n", 7, MSG_NOSIGNAL) < 0) {
            stop(std::string("the bus does not let this client in: ") + said.data());
        }
    }

    // What has come so far, until it is as much.
    void gather(std::size_t size) {
        while (held_ < size) {
            if (buffer_.size() < size) {
                buffer_.resize(size);
            }
            const ssize_t count = ::recv(socket_.get(), buffer_.data() + held_, buffer_.size() - held_, 0);
            if (count <= 0) {
                stop("the server has closed the connection");
            }
            held_ += static_cast<std::size_t>(count);
        }
    }
    void drop(std::size_t size) {
        std::memmove(buffer_.data(), buffer_.data() + size, held_ - size);
        held_ -= size;
    }

    void await_response() {
        DummyResponse head{};
        gather(sizeof head);
        std::memcpy(&head, buffer_.data(), sizeof head);
        gather(sizeof head + static_cast<std::size_t>(head.data_len));
        drop(sizeof head + static_cast<std::size_t>(head.data_len));
        if (head.ccode != 0) {
            stop("the answer is completion code " + std::to_string(head.ccode));
        }
    }

    // The first one of a connection comes behind what the emulator says by itself.
    void await_message() {
        constexpr std::uint8_t kEndOfMessage = 0xA0;
        do {
            gather(held_ + 1);
        } while (buffer_[held_ - 1] != kEndOfMessage);
        drop(held_);
    }

    // Signals may come before it (D-Bus, "Message Format": type, lengths of body and header fields).
    void await_reply() {
        constexpr std::size_t kHead = 16;
        constexpr std::uint8_t kReturn = 2;
        constexpr std::uint8_t kError = 3;
        for (std::uint8_t type = 0; type != kReturn;) {
            gather(kHead);
            const std::size_t fields = (number_at(buffer_, 12) + 7U) / 8U * 8U;
            const std::size_t size = kHead + fields + number_at(buffer_, 4);
            gather(size);
            type = buffer_[1];
            if (type == kError) {
                stop("the answer is an error: " +
                     text_of(std::span(buffer_).subspan(kHead + fields, size - kHead - fields)));
            }
            drop(size);
        }
    }

    Protocol protocol_;
    Fd socket_;
    Bytes buffer_ = Bytes(65536);
    std::size_t held_ = 0;
};

struct Plan {
    Protocol protocol = Protocol::kDummy;
    const char *path = nullptr;
    std::size_t clients = 1;
    std::size_t times = 0; // 0: as long as
    std::chrono::milliseconds as_long{0};
    std::vector<Bytes> once;
    std::vector<Bytes> requests; // in turn
};

using Times = std::vector<std::uint32_t>;

void run_client(const Plan &plan, std::barrier<> &start, Times *times) {
    Client client(plan.protocol, plan.path);
    for (const Bytes &request : plan.once) {
        client.ask(request);
    }
    std::size_t turn = 0;
    const auto ask_next = [&] { client.ask(plan.requests[turn++ % plan.requests.size()]); };
    ask_next(); // what is done with the first one alone is done
    times->reserve(plan.times == 0 ? kSamples / plan.clients : plan.times);
    start.arrive_and_wait();
    const auto end = Clock::now() + plan.as_long;
    for (auto before = Clock::now(); plan.times == 0 ? before < end : times->size() < plan.times;) {
        ask_next();
        const auto after = Clock::now();
        if (times->size() == times->capacity()) {
            break;
        }
        times->push_back(static_cast<std::uint32_t>(
            std::min<std::int64_t>((after - before) / std::chrono::nanoseconds(1), UINT32_MAX)));
        before = after;
    }
}

void report(const std::vector<Times> &all, std::chrono::nanoseconds wall) {
    Times together;
    std::vector<std::size_t> counts;
    for (const Times &times : all) {
        together.insert(together.end(), times.begin(), times.end());
        counts.push_back(times.size());
    }
    if (together.empty()) {
        stop("not one request was answered");
    }
    std::ranges::sort(together);
    std::ranges::sort(counts);
    (void)std::printf("{\"requests\": %zu, \"wall_ns\": %lld, \"median_ns\": %u, \"p99_ns\": %u, \"max_ns\": %u, "
                      "\"least\": %zu, \"middle\": %zu}\n",
                      together.size(), static_cast<long long>(wall.count()), together[together.size() / 2],
                      together[together.size() * 99 / 100], together.back(), counts.front(), counts[counts.size() / 2]);
}

int put(const char *path, off_t offset, std::size_t length, std::size_t times) {
    const Fd file(::open(path, O_RDWR | O_CLOEXEC));
    Times took;
    Bytes bytes(length);
    Bytes back(length);
    const auto began = Clock::now();
    while (took.size() < times) {
        std::ranges::fill(bytes, static_cast<std::uint8_t>(took.size() + 1));
        const auto before = Clock::now();
        const auto size = static_cast<ssize_t>(length);
        if (::pwrite(file.get(), bytes.data(), length, offset) != size ||
            ::pread(file.get(), back.data(), length, offset) != size || back != bytes) {
            stop(std::string("cannot write to ") + path + ": " + std::strerror(errno));
        }
        took.push_back(static_cast<std::uint32_t>((Clock::now() - before) / std::chrono::nanoseconds(1)));
    }
    report({took}, Clock::now() - began);
    return 0;
}

int ask(const Plan &plan) {
    std::vector<Times> all(plan.clients);
    std::barrier<> start(static_cast<std::ptrdiff_t>(plan.clients) + 1);
    std::vector<std::thread> threads;
    for (Times &times : all) {
        threads.emplace_back([&plan, &start, &times] { run_client(plan, start, &times); });
    }
    start.arrive_and_wait();
    const auto began = Clock::now();
    for (std::thread &thread : threads) {
        thread.join();
    }
    report(all, Clock::now() - began);
    return 0;
}

std::optional<Plan> plan_of(std::span<char *> words) {
    if (words.size() < 7) {
        return {};
    }
    Plan plan;
    const std::string_view protocol = words[2];
    plan.protocol = protocol == "bus" ? Protocol::kBus : protocol == "serial" ? Protocol::kSerial : Protocol::kDummy;
    plan.path = words[3];
    plan.clients = std::strtoul(words[4], nullptr, 10);
    const std::size_t number = std::strtoul(words[5], nullptr, 10);
    if (std::string_view(words[5]).ends_with("ms")) {
        plan.as_long = std::chrono::milliseconds(number);
    } else {
        plan.times = number;
    }
    for (const char *word : words.subspan(6)) {
        if (std::string_view(word) == "/") {
            plan.once = std::exchange(plan.requests, {});
        } else {
            plan.requests.push_back(bytes_of(word));
        }
    }
    return !plan.requests.empty() && plan.clients > 0 && number > 0 ? std::optional(plan) : std::nullopt;
}

} // namespace

int main(int count, char **given) {
    const std::span<char *> words(given, static_cast<std::size_t>(count));
    const std::string_view what = words.size() < 2 ? "" : words[1];
    if (what == "echo" && words.size() == 4) {
        return echo(words[2], std::strtoul(words[3], nullptr, 10));
    }
    if (what == "put" && words.size() == 6) {
        return put(words[2], std::strtol(words[3], nullptr, 0), std::strtoul(words[4], nullptr, 10),
                   std::strtoul(words[5], nullptr, 10));
    }
    if (what == "ask") {
        if (const std::optional<Plan> plan = plan_of(words)) {
            return ask(*plan);
        }
    }
    (void)std::fprintf(stderr,
                       "Usage: asd_bench_wire echo SOCKET DATA\n"
                       "       asd_bench_wire put FILE OFFSET LENGTH TIMES\n"
                       "       asd_bench_wire ask dummy|bus|serial SOCKET CLIENTS TIMES|MSms [ONCE... /] HEX...\n");
    return kWrongUsage;
}
