// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// The sockets: ipmitool's dummy protocol and the link between controllers, with clients that misbehave.

#include "dummy_door.h"
#include "peer_link.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace asd_host {
namespace {

using Data = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

constexpr bool kWide = sizeof(void *) == 8;
constexpr std::size_t kAnswerHead = kWide ? 24 : 16;
constexpr int kLimitMs = 10000;

std::atomic<int> blocked = 0; // handlers that wait for the gate
std::atomic<bool> gate_open = false;

gint32 echo(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    Data response{kCompleted};
    const guint8 *data = get_ipmi_src_data(message);
    response.insert(response.end(), data, data + get_ipmi_src_data_len(message));
    return ipmi_send_response(message, static_cast<guint32>(std::uint64_t{response.size()}), response.data());
}

gint32 wait_for_gate(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    ++blocked;
    while (!gate_open) {
        std::this_thread::yield();
    }
    --blocked;
    return ipmi_send_simple_response(message, kCompleted);
}

gint32 longest_answer(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const Data response(kResponseLimit);
    return ipmi_send_response(message, kResponseLimit, response.data());
}

// clang-format off
constexpr std::array<IPMI_CMD_S, 4> kRows{{
    {.netfn = 0x32, .cmd = 1, .filter = "", .privilege = 0, .role_func = "", .max_length = 255, .min_length = 0, .ipmi_handler = echo, .user_data = nullptr},
    {.netfn = 0x32, .cmd = 2, .filter = "", .privilege = 0, .role_func = "", .max_length = 255, .min_length = 0, .ipmi_handler = wait_for_gate, .user_data = nullptr},
    {.netfn = 0x32, .cmd = 3, .filter = "", .privilege = 4, .role_func = "", .max_length = 255, .min_length = 0, .ipmi_handler = echo, .user_data = nullptr},
    {.netfn = 0x32, .cmd = 4, .filter = "", .privilege = 0, .role_func = "", .max_length = 255, .min_length = 0, .ipmi_handler = longest_answer, .user_data = nullptr},
}};
// clang-format on

bool eventually(const std::function<bool()> &condition) {
    const auto deadline = std::chrono::steady_clock::now() + milliseconds(kLimitMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// A request as ipmitool writes it, with a pointer that means nothing.
Data dummy_request(std::uint8_t netfn, std::uint8_t cmd, const Data &data, std::optional<std::uint16_t> length = {}) {
    const std::uint16_t stated = length.value_or(static_cast<std::uint16_t>(data.size()));
    Data bytes{netfn, 1, cmd, 0, 0, 0, 0xEE, 0xEE};
    std::memcpy(&bytes[4], &stated, sizeof stated);
    bytes.insert(bytes.end(), kWide ? 8 : 4, 0xEE);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

class Client {
public:
    explicit Client(const std::filesystem::path &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str()); // NOLINT(clang-analyzer-security.insecureAPI.strcpy): a short path
        EXPECT_EQ(connect(fd_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    void send(const Data &bytes) const {
        EXPECT_EQ(::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    // What one read returns: an answer must come whole. Empty: the connection ended; nothing: it did neither in time.
    [[nodiscard]] std::optional<Data> receive(int limit_ms = kLimitMs) const {
        pollfd poll_fd{.fd = fd_.get(), .events = POLLIN, .revents = 0};
        if (poll(&poll_fd, 1, limit_ms) != 1) {
            return std::nullopt;
        }
        Data bytes(4096);
        const ssize_t count = recv(fd_.get(), bytes.data(), bytes.size(), 0);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }
    // The completion code of an answer, its fields checked against the request's.
    [[nodiscard]] int code(std::uint8_t netfn, std::uint8_t cmd, const Data &payload = {}) const {
        const std::optional<Data> answer = receive();
        if (!answer || answer->size() != kAnswerHead + payload.size()) {
            ADD_FAILURE() << "an answer of " << (answer ? std::to_string(answer->size()) : "no") << " bytes";
            return -1;
        }
        std::int32_t length = -1;
        std::memcpy(&length, &(*answer)[8], sizeof length);
        EXPECT_EQ(length, static_cast<std::int32_t>(payload.size()));
        EXPECT_EQ(Data(answer->begin(), answer->begin() + 4), (Data{static_cast<std::uint8_t>(netfn | 1), cmd, 0, 1}));
        EXPECT_EQ(Data(answer->begin() + kAnswerHead, answer->end()), payload);
        return (*answer)[4];
    }
    void end_input() const { EXPECT_EQ(shutdown(fd_.get(), SHUT_WR), 0); }

private:
    Fd fd_;
};

class Sockets : public testing::Test {
protected:
    void SetUp() override {
        gate_open = false;
        std::string name = testing::TempDir() + "asdXXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
        ASSERT_TRUE(registry_.add(kRows));
        std::string mistake;
        door_ = open_dummy_door(folder_ / "ipmi.sock", registry_, 3, &mistake);
        link_ = open_peer_link(folder_ / "link.sock", registry_, &mistake);
        ASSERT_EQ(mistake, "");
    }
    void TearDown() override {
        gate_open = true;
        door_.reset();
        link_.reset();
        std::filesystem::remove_all(folder_);
    }
    [[nodiscard]] Client client() const { return Client(folder_ / "ipmi.sock"); }
    [[nodiscard]] gint32 ask(const IpmiRequest &request, IpmiResponse *response) const {
        return peer_request(folder_ / "link.sock", request, milliseconds(kLimitMs), response);
    }

    std::filesystem::path folder_;
    IpmiRegistry registry_;
    std::unique_ptr<StreamServer> door_;
    std::unique_ptr<StreamServer> link_;
};

using DummyDoor = Sockets;
using PeerLink = Sockets;

TEST_F(DummyDoor, AnswersEveryRequestInOnePiece) {
    struct Case {
        const char *name;
        std::uint8_t netfn;
        std::uint8_t cmd;
        Data data;
        int code;
        Data payload;
    };
    const Data longest(255, 0xA5);
    const std::vector<Case> cases = {
        {"no data", 0x32, 1, {}, 0x00, {}},
        {"some data", 0x32, 1, {1, 2, 3}, 0x00, {1, 2, 3}},
        {"longest request", 0x32, 1, longest, 0x00, longest},
        {"one byte over", 0x32, 1, Data(256), 0xC8, {}},
        {"the most a client can state", 0x32, 1, Data(65535), 0xC8, {}},
        {"longest answer", 0x32, 4, {}, 0x00, Data(1024)},
        {"unknown command", 0x2C, 0, {0}, 0xC1, {}},
        {"network function beyond 6 bits", 0x72, 1, {}, 0xC1, {}},
        {"privilege of the door too low", 0x32, 3, {}, 0xD4, {}},
        {"takes leave with data: no leave", 0x3F, 0xFF, {1}, 0xC1, {}},
    };
    const Client one = client(); // all on one connection: each request is taken off it whole
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        one.send(dummy_request(c.netfn, c.cmd, c.data));
        EXPECT_EQ(one.code(c.netfn, c.cmd, c.payload), c.code);
    }
    one.send(dummy_request(0x3F, 0xFF, {}));
    EXPECT_EQ(one.receive(), Data{}) << "leave is not answered";
}

TEST_F(DummyDoor, TakesRequestsInPiecesAndSeveralAtOnce) {
    const Client slow = client();
    for (const std::uint8_t byte : dummy_request(0x32, 1, {7, 8})) {
        slow.send({byte});
    }
    EXPECT_EQ(slow.code(0x32, 1, {7, 8}), 0);
    Data two = dummy_request(0x32, 1, {});
    const Data second = dummy_request(0x32, 9, {});
    two.insert(two.end(), second.begin(), second.end());
    slow.send(two);
    const std::optional<Data> first_answer = slow.receive();
    ASSERT_TRUE(first_answer && !first_answer->empty());
    if (first_answer->size() == kAnswerHead) { // the second may already have joined it
        EXPECT_EQ(slow.code(0x32, 9), 0xC1);
    } else {
        EXPECT_EQ(first_answer->size(), 2 * kAnswerHead);
    }
}

TEST_F(DummyDoor, EndsHalfRequestsAndGoesOnServing) {
    const Client half_head = client();
    half_head.send({0x32, 0, 1});
    half_head.end_input();
    EXPECT_EQ(half_head.receive(), Data{});
    const Client half_data = client();
    half_data.send(dummy_request(0x32, 1, {1, 2}, 3));
    half_data.end_input();
    EXPECT_EQ(half_data.code(0x32, 1), 0xC7) << "it may still listen";
    for (int i = 0; i < 50; ++i) {
        client().send(Data(static_cast<std::size_t>(i + 1), static_cast<std::uint8_t>(i * 7))); // and goes at once
    }
    const Client good = client();
    good.send(dummy_request(0x32, 1, {5}));
    EXPECT_EQ(good.code(0x32, 1, {5}), 0);
}

TEST_F(DummyDoor, ServesManyClientsAtOnceAndAnswersBusyBeyond) {
    std::vector<Client> clients;
    for (std::size_t i = 0; i < StreamServer::kServedClients; ++i) {
        clients.push_back(client());
        clients.back().send(dummy_request(0x32, 2, {}));
    }
    ASSERT_TRUE(eventually([] { return blocked == static_cast<int>(StreamServer::kServedClients); }));
    const Client late = client();
    late.send(dummy_request(0x32, 1, {9}));
    EXPECT_EQ(late.code(0x32, 1), 0xC0);
    gate_open = true;
    for (const Client &served : clients) {
        EXPECT_EQ(served.code(0x32, 2), 0x00);
    }
    clients.clear();
    EXPECT_TRUE(eventually([&late] {
        late.send(dummy_request(0x32, 9, {}));
        return late.code(0x32, 9) == 0xC1;
    })) << "a free place is taken";
}

TEST_F(DummyDoor, AnswersWhatHasArrivedBeforeItCloses) {
    const Client idle = client();
    const Client running = client();
    running.send(dummy_request(0x32, 2, {}));
    ASSERT_TRUE(eventually([] { return blocked == 1; }));
    const Client half = client();
    half.send({0x32});
    bool stopped = false;
    std::thread ender([&] { stopped = door_->stop(milliseconds(8000)); });
    EXPECT_EQ(idle.receive(), Data{});
    EXPECT_EQ(half.receive(), Data{});
    gate_open = true;
    EXPECT_EQ(running.code(0x32, 2), 0x00);
    running.send(dummy_request(0x3F, 0xFF, {})); // its leave is still taken
    ender.join();
    EXPECT_TRUE(stopped);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "ipmi.sock"));
}

TEST_F(DummyDoor, ReplacesAStaleSocketAndRefusesALongPath) {
    struct stat status {};
    ASSERT_EQ(stat((folder_ / "ipmi.sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
    const std::filesystem::path stale = folder_ / "stale.sock";
    std::ofstream(stale) << "left behind";
    std::string mistake;
    const auto server = open_dummy_door(stale, registry_, 4, &mistake);
    ASSERT_NE(server, nullptr) << mistake;
    EXPECT_EQ(open_dummy_door(folder_ / std::string(100, 'x'), registry_, 4, &mistake), nullptr);
    EXPECT_NE(mistake.find("too long"), std::string::npos);
    EXPECT_EQ(open_dummy_door(folder_ / "missing" / "s", registry_, 4, &mistake), nullptr);
    EXPECT_NE(mistake.find("No such file"), std::string::npos);
}

TEST_F(PeerLink, CarriesRequestsAsAdministrator) {
    IpmiResponse response;
    const Data longest(255, 0x5A);
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 3, .data = longest}, &response), 0);
    ASSERT_EQ(response.size(), 256U);
    EXPECT_EQ(response[0], 0x00);
    EXPECT_EQ(Data(response.begin() + 1, response.end()), longest);
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 4}, &response), 0);
    EXPECT_EQ(response.size(), kResponseLimit);
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 9}, &response), 0);
    EXPECT_EQ(response, IpmiResponse{0xC1});
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 1}, nullptr), 0) << "nobody waits for the response";
    EXPECT_TRUE(peer_listens(folder_ / "link.sock"));
    EXPECT_FALSE(peer_listens(folder_ / "other.sock"));
}

TEST_F(PeerLink, GarbageEndsOnlyItsOwnConnection) {
    const std::vector<Data> garbage = {{'A', 'S', 'D', 'X', 1, 1, 3, 0},
                                       {'A', 'S', 'D', 'L', 2, 1, 3, 0},
                                       {'A', 'S', 'D', 'L', 1, 2, 3, 0},
                                       {'A', 'S', 'D', 'L', 1, 1, 2, 0},
                                       {'A', 'S', 'D', 'L', 1, 1, 3, 1}};
    for (const Data &bytes : garbage) {
        const Client peer(folder_ / "link.sock");
        peer.send(bytes);
        EXPECT_EQ(peer.receive(), Data{});
    }
    IpmiResponse response;
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 1}, &response), 0);
}

TEST_F(PeerLink, PeersThatFailGiveAStatusInTime) {
    struct Case {
        const char *name;
        std::optional<Data> answer; // none: the peer hangs
        gint32 status;
    };
    const std::vector<Case> cases = {
        {"hangs", std::nullopt, -2006},
        {"dies without an answer", Data{}, kPeerFailed},
        {"dies in the head", Data{'A', 'S', 'D'}, kPeerFailed},
        {"dies in the body", Data{'A', 'S', 'D', 'L', 1, 2, 3, 0, 0}, kPeerFailed},
        {"answers garbage", Data(64, 'z'), kPeerFailed},
        {"answers with a request", Data{'A', 'S', 'D', 'L', 1, 1, 1, 0, 0}, kPeerFailed},
        {"answers nothing at all", Data{'A', 'S', 'D', 'L', 1, 2, 0, 0}, kPeerFailed},
        {"states an endless answer", Data{'A', 'S', 'D', 'L', 1, 2, 0xFF, 0xFF, 0}, kPeerFailed},
    };
    const std::filesystem::path socket = folder_ / "bad.sock";
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::atomic<bool> finished = false;
        std::string mistake;
        const auto bad = StreamServer::open(
            socket, "bad",
            [&](StreamClient &client) {
                std::array<std::uint8_t, 11> request{};
                (void)(client.await_request() && client.read(request));
                if (c.answer) {
                    (void)client.send(*c.answer);
                    return;
                }
                (void)eventually([&finished] { return finished.load(); });
            },
            &mistake);
        ASSERT_NE(bad, nullptr) << mistake;
        IpmiResponse response{0x77};
        const auto limit = milliseconds(c.answer ? kLimitMs : 100);
        EXPECT_EQ(peer_request(socket, {.netfn = 0x32, .cmd = 1}, limit, &response), c.status);
        EXPECT_EQ(response, IpmiResponse{0x77});
        finished = true;
    }
    IpmiResponse response;
    EXPECT_EQ(peer_request(socket, {.netfn = 0x32, .cmd = 1}, milliseconds(kLimitMs), &response), kPeerAbsent);
}

} // namespace
} // namespace asd_host
