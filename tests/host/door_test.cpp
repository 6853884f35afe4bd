// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// The sockets: ipmitool's dummy protocol, the link between controllers and a virtual machine's, with clients that
// misbehave.

#include "dummy_door.h"
#include "host_door.h"
#include "host_test.h"
#include "item_turns.h"
#include "peer_link.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace asd_host {
namespace {

using namespace asd_test;

constexpr bool kWide = sizeof(void *) == 8;
constexpr std::size_t kAnswerHead = kWide ? 24 : 16;

std::atomic<int> blocked = 0; // handlers that wait for the gate
std::atomic<bool> gate_open = false;

gint32 wait_for_gate(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    ++blocked;
    (void)eventually([] { return gate_open.load(); });
    --blocked;
    return ipmi_send_simple_response(message, kCompleted);
}

gint32 longest_answer(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const Bytes response(kResponseLimit);
    return ipmi_send_response(message, kResponseLimit, response.data());
}

constexpr std::array kRows{ipmi_row(1, "", 0, 0, 255, ""), ipmi_row(2, "", 0, 0, 255, "", wait_for_gate),
                           ipmi_row(3, "", 4, 0, 255, ""), ipmi_row(4, "", 0, 0, 255, "", longest_answer)};

// A request as ipmitool writes it, with a pointer that means nothing.
Bytes dummy_request(std::uint8_t netfn, std::uint8_t cmd, const Bytes &data, std::optional<std::uint16_t> length = {}) {
    const std::uint16_t stated = length.value_or(static_cast<std::uint16_t>(data.size()));
    Bytes bytes{netfn, 1, cmd, 0, 0, 0, 0xEE, 0xEE};
    std::memcpy(&bytes[4], &stated, sizeof stated);
    bytes.insert(bytes.end(), kWide ? 8 : 4, 0xEE);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

class Client {
public:
    explicit Client(const fs::path &path) : Client() { connect(path); }
    Client() : fd_(unix_stream()) {}
    void connect(const fs::path &path) const { unix_connect_to(fd_, path); }
    void send(const Bytes &bytes) const { send_all(fd_, bytes); }
    void try_send(const Bytes &bytes) const { (void)::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    [[nodiscard]] bool answers_within(int limit_ms) const { return readable(fd_, limit_ms); }
    // True when the server ends the connection without a word.
    [[nodiscard]] bool ended() const { return readable(fd_) && take(1) == Bytes{}; }
    // True once the server has taken all that was sent.
    [[nodiscard]] bool taken() const {
        int waiting = 1;
        return ::ioctl(fd_.get(), SIOCOUTQ, &waiting) == 0 && waiting == 0;
    }
    // The completion code of an answer, which must come whole, its fields checked against the request's.
    [[nodiscard]] int code(std::uint8_t netfn, std::uint8_t cmd, const Bytes &payload = {}) const {
        const Bytes answer = take(kAnswerHead + payload.size());
        if (answer.size() != kAnswerHead + payload.size()) {
            ADD_FAILURE() << "an answer of " << answer.size() << " bytes";
            return -1;
        }
        std::int32_t length = -1;
        std::memcpy(&length, &answer[8], sizeof length);
        EXPECT_EQ(length, static_cast<std::int32_t>(payload.size()));
        EXPECT_EQ(Bytes(answer.begin(), answer.begin() + 4), (Bytes{static_cast<std::uint8_t>(netfn | 1), cmd, 0, 1}));
        EXPECT_EQ(Bytes(answer.begin() + kAnswerHead, answer.end()), payload);
        return answer[4];
    }
    // All of these bytes come next.
    void expect(const Bytes &bytes) const {
        Bytes got;
        while (got.size() < bytes.size() && readable(fd_)) {
            const Bytes piece = take(bytes.size() - got.size());
            if (piece.empty()) {
                break;
            }
            got.insert(got.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(got, bytes);
    }
    void end_input() const { EXPECT_EQ(shutdown(fd_.get(), SHUT_WR), 0); }

private:
    // What one read of at most that many bytes returns.
    [[nodiscard]] Bytes take(std::size_t most) const {
        EXPECT_TRUE(readable(fd_));
        Bytes bytes(most);
        const ssize_t count = recv(fd_.get(), bytes.data(), most, MSG_DONTWAIT);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }
    Fd fd_;
};

class Sockets : public testing::Test {
protected:
    void SetUp() override {
        gate_open = false;
        ASSERT_TRUE(registry_.add(kRows));
        std::string mistake;
        door_ = open_dummy_door(folder_ / "ipmi.sock", registry_, 3, &mistake);
        link_ = open_peer_link(
            folder_ / "link.sock", registry_, [](std::string_view) { return kCompleted; }, &mistake);
        ASSERT_EQ(mistake, "");
    }
    void TearDown() override {
        gate_open = true;
        door_.reset();
        link_.reset();
    }
    [[nodiscard]] Client client() const { return Client(folder_ / "ipmi.sock"); }
    [[nodiscard]] gint32 ask(const IpmiRequest &request, IpmiResponse *response) const {
        return peer_request(folder_ / "link.sock", request, milliseconds(kLimitMs), response);
    }

    ScratchFolder scratch_;
    const fs::path &folder_ = scratch_.path();
    IpmiRegistry registry_;
    std::unique_ptr<StreamServer> door_;
    std::unique_ptr<StreamServer> link_;
};

// Answers nothing and ends connections that it may serve after their first byte.
std::unique_ptr<StreamServer> open_server(const fs::path &path, std::optional<uid_t> only_user, std::string *mistake) {
    return StreamServer::open(
        path, "other", [](StreamClient &client) { (void)client.await_request(); }, mistake, only_user);
}

// Answers that request as it is told; one that hangs reads on until the other one has given up.
std::unique_ptr<StreamServer> open_peer(const fs::path &path, const Bytes &request,
                                        const std::optional<Bytes> &answer) {
    std::string mistake;
    auto peer = StreamServer::open(
        path, "peer",
        [request, answer](StreamClient &client) {
            Bytes asked(request.size());
            (void)(client.await_request() && client.read(asked));
            EXPECT_EQ(asked, request);
            (void)(answer ? client.send(*answer) : client.read(asked));
        },
        &mistake);
    EXPECT_NE(peer, nullptr) << mistake;
    return peer;
}

using DummyDoor = Sockets;
using PeerLink = Sockets;

TEST_F(DummyDoor, AnswersEveryRequestInOnePiece) {
    const Bytes longest(255, 0xA5);
    const struct {
        const char *name;
        std::uint8_t netfn, cmd;
        Bytes data;
        int code;
        Bytes payload;
    } rows[] = {
        {"no data", 0x32, 1, {}, 0x00, {}},
        {"longest request", 0x32, 1, longest, 0x00, longest},
        {"one byte over", 0x32, 1, Bytes(256), 0xC8, {}},
        {"the most a client can state", 0x32, 1, Bytes(65535), 0xC8, {}},
        {"longest answer", 0x32, 4, {}, 0x00, Bytes(1024)},
        {"privilege of the door too low", 0x32, 3, {}, 0xD4, {}},
        {"takes leave with data: no leave", 0x3F, 0xFF, {1}, 0xC1, {}},
    };
    const Client one = client(); // all on one connection: each request is taken off it whole
    for (const auto &c : rows) {
        SCOPED_TRACE(c.name);
        one.send(dummy_request(c.netfn, c.cmd, c.data));
        EXPECT_EQ(one.code(c.netfn, c.cmd, c.payload), c.code);
    }
    one.send(dummy_request(0x3F, 0xFF, {}));
    EXPECT_TRUE(one.ended()) << "leave is not answered";
}

TEST_F(DummyDoor, TakesPiecesAndSeveralAtOnceAndEndsHalfRequests) {
    const Client slow = client();
    for (const std::uint8_t byte : dummy_request(0x32, 1, {7, 8})) {
        slow.send({byte});
    }
    EXPECT_EQ(slow.code(0x32, 1, {7, 8}), 0x00);
    Bytes two = dummy_request(0x32, 1, {});
    std::ranges::copy(dummy_request(0x32, 9, {}), std::back_inserter(two));
    slow.send(two);
    EXPECT_EQ(slow.code(0x32, 1), 0x00);
    EXPECT_EQ(slow.code(0x32, 9), 0xC1);
    slow.send(dummy_request(0x32, 1, {1, 2}, 3));
    slow.end_input();
    EXPECT_EQ(slow.code(0x32, 1), 0xC7) << "it may still listen";
    for (int i = 0; i < 50; ++i) {
        client().send(dummy_request(0x32, 4, {})); // and goes without the answer
    }
    const Client good = client();
    good.send(dummy_request(0x32, 1, {5}));
    EXPECT_EQ(good.code(0x32, 1, {5}), 0x00);
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
    for (const Client &served : clients) { // who has been served keeps no place, but may have one again
        for (const Client *one : {&late, &served}) {
            one->send(dummy_request(0x32, 9, {}));
            EXPECT_EQ(one->code(0x32, 9), 0xC1);
        }
    }
}

TEST_F(DummyDoor, FullOfIdleAndSlowClientsItStillLetsOthersIn) {
    const Client running = client();
    running.send(dummy_request(0x32, 2, {}));
    ASSERT_TRUE(eventually([] { return blocked == 1; }));
    const Client asked = client();
    asked.send(dummy_request(0x32, 9, {}));
    EXPECT_EQ(asked.code(0x32, 9), 0xC1);
    const Client dripping = client();
    const Bytes dripped = dummy_request(0x32, 1, Bytes(200));
    for (std::size_t i = 0; i < 2; ++i) { // once the second is taken, the door knows of the first: it is not idle
        dripping.send({dripped[i]});
        ASSERT_TRUE(eventually([&] { return dripping.taken(); }));
    }
    std::vector<Client> idle;
    while (idle.size() < StreamServer::kClients - 3) {
        idle.push_back(client());
    }
    const Texts lines = logged([&] {
        for (int i = 0; i < 3; ++i) {
            const Client newcomer = client();
            newcomer.send(dummy_request(0x32, 1, {7}));
            EXPECT_EQ(newcomer.code(0x32, 1, {7}), 0x00) << i;
            idle.push_back(client());
        }
        EXPECT_TRUE(asked.ended()) << "idle longest";
    });
    EXPECT_EQ(std::ranges::count_if(lines, [](const std::string &line) { return line.find("is full") != line.npos; }),
              1);
    // A byte at a time, fast enough for any limit between two bytes.
    for (std::size_t i = 2; i < dripped.size() && !dripping.answers_within(100); ++i) {
        dripping.try_send({dripped[i]});
    }
    EXPECT_EQ(dripping.code(0x32, 1), 0xC7) << "ten seconds for a whole request";
    EXPECT_TRUE(dripping.ended());
    gate_open = true;
    EXPECT_EQ(running.code(0x32, 2), 0x00) << "a request under way is not cut";
}

TEST_F(DummyDoor, WithoutDescriptorsItWaitsAndSaysSoOnce) {
    const Client waiting; // a descriptor of its own, not connected yet
    without_descriptors([&] { waiting.connect(folder_ / "ipmi.sock"); },
                        [&] {
                            waiting.send(dummy_request(0x32, 1, {3}));
                            EXPECT_EQ(waiting.code(0x32, 1, {3}), 0x00);
                        });
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
    EXPECT_TRUE(idle.ended());
    EXPECT_TRUE(half.ended());
    gate_open = true;
    EXPECT_EQ(running.code(0x32, 2), 0x00);
    running.send(dummy_request(0x3F, 0xFF, {})); // its leave is still taken
    ender.join();
    EXPECT_TRUE(stopped);
    EXPECT_FALSE(fs::exists(folder_ / "ipmi.sock"));
}

TEST_F(DummyDoor, ReplacesAStaleSocketAndSaysWhyItCannotListen) {
    const fs::path stale = folder_ / "stale.sock";
    std::ofstream(stale) << "left behind";
    std::string mistake;
    const auto server = open_dummy_door(stale, registry_, 4, &mistake);
    ASSERT_NE(server, nullptr) << mistake;
    EXPECT_EQ(fs::status(stale).permissions(), fs::perms(0660));
    EXPECT_EQ(open_dummy_door(folder_ / "missing" / "s", registry_, 4, &mistake), nullptr);
    EXPECT_NE(mistake.find("No such file"), std::string::npos);
}

// A message on its way between a virtual machine and its controller.
Bytes vm(Bytes bytes) {
    int sum = 0;
    for (const std::uint8_t byte : bytes) {
        sum += byte;
    }
    bytes.push_back(static_cast<std::uint8_t>(-sum & 0xFF));
    Bytes wire;
    for (const std::uint8_t byte : bytes) {
        if (byte == 0xA0 || byte == 0xA1 || byte == 0xAA) {
            wire.insert(wire.end(), {0xAA, static_cast<std::uint8_t>(byte | 0x10)});
        } else {
            wire.push_back(byte);
        }
    }
    wire.push_back(0xA0);
    return wire;
}

Bytes joined(Bytes first, const Bytes &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class HostDoorTest : public Sockets {
protected:
    void SetUp() override {
        Sockets::SetUp();
        std::string mistake;
        host_ = HostDoor::open(folder_ / "host.sock", registry_, &mistake);
        ASSERT_NE(host_, nullptr) << mistake;
    }
    void TearDown() override {
        gate_open = true;
        host_.reset();
        Sockets::TearDown();
    }
    [[nodiscard]] Client machine() const {
        Client one(folder_ / "host.sock");
        one.expect(kGreeting);
        return one;
    }
    const Bytes kGreeting{0xFF, 0x01, 0xA1};
    std::unique_ptr<HostDoor> host_;
};

TEST_F(HostDoorTest, AnswersWhatAMachineAsksAndPassesOverWhatIsNoFrame) {
    const Bytes longest(255, 0xAA);
    const struct {
        const char *name;
        Bytes sent, answered;
    } rows[] = {
        {"bytes that end frames within one",
         {0xAA, 0xB0, 0xC8, 0x01, 0xAA, 0xB0, 0xAA, 0xB1, 0xAA, 0xBA, 0xAC, 0xA0},
         {0xAA, 0xB0, 0xCC, 0x01, 0x00, 0xAA, 0xB0, 0xAA, 0xB1, 0xAA, 0xBA, 0xA8, 0xA0}},
        {"longest", vm(joined({1, 0xC8, 1}, longest)), vm(joined({1, 0xCC, 1, 0}, longest))},
        {"one byte over", vm(joined({2, 0xC8, 1, 0}, longest)), vm({2, 0xCC, 1, 0xC8})},
        {"far over", vm(joined({3, 0xC8, 1}, Bytes(5000))), vm({3, 0xCC, 1, 0xC8})},
        {"an answer longer than any", vm({4, 0xC8, 4}), vm({4, 0xCC, 4, 0xCA})},
        {"a host is an administrator", vm({5, 0xC8, 3}), vm({5, 0xCC, 3, 0})},
        {"its LUN", vm({6, 0xCB, 9}), vm({6, 0xCF, 9, 0xC1})},
        {"too short, wrong sums, broken escapes, nothing, unknown controls",
         joined({0,    0,    0xA0, 1, 0xC8, 1,    1,    0xA0, 1,    0xC8, 1,    0xAA, 0xA0, 1,   0xAA,
                 0xAA, 0xB0, 0xA0, 1, 0xAA, 0x02, 0xA1, 0xA0, 0xA1, 0x77, 0xA1, 0xFF, 9,    0xA1},
                vm({7, 0xC8, 1})),
         vm({7, 0xCC, 1, 0})},
        {"no interrupts without the machine's word", vm({8, 0x18, 0x2E, 1}), vm({8, 0x1C, 0x2E, 0})},
        {"the machine can interrupt", joined({0x08, 0x3F, 0xA1}, vm({9, 0x18, 0x2F})), vm({9, 0x1C, 0x2F, 0, 1})},
        {"interrupts", vm({10, 0x18, 0x2E, 1}), joined({0x05, 0xA1}, vm({10, 0x1C, 0x2E, 0}))},
        {"an event buffer: there is none", vm({11, 0x18, 0x2E, 5}), vm({11, 0x1C, 0x2E, 0xCC})},
        {"reset", joined({0x04, 0xA1}, vm({12, 0x18, 0x2F})), joined({0x06, 0xA1}, vm({12, 0x1C, 0x2F, 0, 0}))},
        {"flags cleared", vm({13, 0x18, 0x30, 0xFF}), vm({13, 0x1C, 0x30, 0})},
        {"flags", vm({14, 0x18, 0x31}), vm({14, 0x1C, 0x31, 0, 0})},
        {"no message", vm({15, 0x18, 0x33}), vm({15, 0x1C, 0x33, 0x80})},
        {"no event", vm({16, 0x18, 0x35}), vm({16, 0x1C, 0x35, 0x80})},
        {"no other channel", vm({17, 0x18, 0x34, 0, 0x20}), vm({17, 0x1C, 0x34, 0xCC})},
        {"nor this one's", vm({18, 0x18, 0x42, 0x01}), vm({18, 0x1C, 0x42, 0xCC})},
        {"this channel", vm({19, 0x18, 0x42, 0x0E}),
         vm({19, 0x1C, 0x42, 0, 0x0F, 0x0C, 5, 0, 0xF2, 0x1B, 0, 0xFF, 0xFF})},
        {"a length", vm({20, 0x18, 0x42}), vm({20, 0x1C, 0x42, 0xC7})},
    };
    const Client one = machine();
    for (const auto &c : rows) {
        SCOPED_TRACE(c.name);
        one.send(c.sent);
        one.expect(c.answered);
    }
}

TEST_F(HostDoorTest, WhatHangsIsAnsweredOnceAndOneMachineIsServed) {
    const Client one = machine();
    one.send(vm({1, 0xC8, 2}));
    one.expect(vm({1, 0xCC, 2, 0xC3})); // after three seconds
    gate_open = true;
    ASSERT_TRUE(eventually([] { return blocked == 0; }));
    one.send(vm({2, 0xC8, 1, 7}));
    one.expect(vm({2, 0xCC, 1, 0, 7}));
    {
        const Client second(folder_ / "host.sock");
        EXPECT_TRUE(second.ended());
    }
    one.end_input();
    EXPECT_TRUE(one.ended());
    machine().send(vm({3, 0xC8, 1}));
    EXPECT_TRUE(host_->stop(milliseconds(8000)));
    EXPECT_FALSE(fs::exists(folder_ / "host.sock"));
}

TEST_F(PeerLink, CarriesRequestsAsAdministratorWhateverElseComes) {
    // No magic, another version, an answer, too short for a request, longer than any.
    for (const auto &[place, byte] : {std::pair{3, 'X'}, {4, '\2'}, {5, '\2'}, {6, '\2'}, {7, '\1'}}) {
        Bytes head{'A', 'S', 'D', 'L', 1, 1, 3, 0};
        head[static_cast<std::size_t>(place)] = static_cast<std::uint8_t>(byte);
        const Client peer(folder_ / "link.sock");
        peer.send(head);
        EXPECT_TRUE(peer.ended()) << "byte " << place;
    }
    IpmiResponse response;
    Bytes longest(255, 0x5A);
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 3, .data = longest}, &response), 0);
    longest.insert(longest.begin(), kCompleted);
    EXPECT_EQ(response, longest) << "echoed";
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 4}, &response), 0);
    EXPECT_EQ(response.size(), kResponseLimit);
    EXPECT_EQ(ask({.netfn = 0x32, .cmd = 1}, nullptr), 0) << "nobody waits for the response";
}

TEST_F(PeerLink, PeersThatFailGiveAStatusInTime) {
    const struct {
        const char *name;
        std::optional<Bytes> answer; // none: the peer hangs
        gint32 status;
    } rows[] = {
        {"hangs", std::nullopt, -2006},
        {"dies in the head", Bytes{'A', 'S', 'D'}, kPeerFailed},
        {"dies in the body", Bytes{'A', 'S', 'D', 'L', 1, 2, 3, 0, 0}, kPeerFailed},
        {"answers with a request", Bytes{'A', 'S', 'D', 'L', 1, 1, 1, 0, 0}, kPeerFailed},
        {"answers nothing at all", Bytes{'A', 'S', 'D', 'L', 1, 2, 0, 0}, kPeerFailed},
        {"states an endless answer", Bytes{'A', 'S', 'D', 'L', 1, 2, 0xFF, 0xFF, 0}, kPeerFailed},
    };
    const IpmiRequest request{.netfn = 0x32, .cmd = 1};
    for (const auto &c : rows) {
        SCOPED_TRACE(c.name);
        const auto bad = open_peer(folder_ / "bad.sock", {'A', 'S', 'D', 'L', 1, 1, 3, 0, 0x32, 0, 1}, c.answer);
        IpmiResponse response{0x77};
        const auto limit = milliseconds(c.answer ? kLimitMs : 100);
        EXPECT_EQ(peer_request(folder_ / "bad.sock", request, limit, &response), c.status);
        EXPECT_EQ(response, IpmiResponse{0x77});
    }
    IpmiResponse response;
    EXPECT_EQ(peer_request(folder_ / "bad.sock", request, milliseconds(kLimitMs), &response), kPeerAbsent);
}

TEST_F(PeerLink, ConnectionsAreKeptAndAbsenceIsRemembered) {
    const fs::path late = folder_ / "late.sock";
    PeerLines lines(std::chrono::seconds(1));
    PeerLines::Time now{};
    EXPECT_FALSE(lines.listens(1, late, now));
    for (int run = 0; run < 2; ++run) {
        std::string mistake;
        const auto peer = open_peer_link(late, registry_, {}, &mistake);
        ASSERT_NE(peer, nullptr) << mistake;
        EXPECT_EQ(lines.listens(1, late, now + milliseconds(700)), run > 0) << "it was there until now";
        now += milliseconds(800);
        EXPECT_TRUE(lines.listens(1, late, now));
        fs::remove(late); // nobody can connect any more
        for (int i = 0; i < 3; ++i) {
            IpmiResponse response;
            EXPECT_EQ(lines.request(1, late, {.netfn = 0x32, .cmd = 1}, milliseconds(kLimitMs), &response), 0);
            EXPECT_EQ(response, Bytes{0});
        }
    }
    EXPECT_FALSE(lines.listens(1, late, now)) << "it has gone";
}

TEST_F(PeerLink, ProcessesOfOtherUsersAreNoPeers) {
    EXPECT_EQ(fs::status(folder_ / "link.sock").permissions(), fs::perms(0600));
    std::string mistake;
    const auto others = open_server(folder_ / "others.sock", geteuid() + 1, &mistake);
    ASSERT_NE(others, nullptr) << mistake;
    const Texts lines = logged([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(Client(folder_ / "others.sock").ended()) << "we are not that user";
        }
    });
    EXPECT_EQ(lines.size(), 1U);
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can listen as somebody else";
    }
    fs::permissions(folder_, fs::perms(0777));
    ASSERT_EQ(seteuid(65534), 0); // who listens is who it was at that moment
    const auto strange = open_server(folder_ / "strange.sock", {}, &mistake);
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_NE(strange, nullptr) << mistake;
    EXPECT_FALSE(PeerLines(std::chrono::seconds(1)).listens(1, folder_ / "strange.sock", {}));
    IpmiResponse response;
    EXPECT_EQ(peer_request(folder_ / "strange.sock", {.netfn = 0x32, .cmd = 1}, milliseconds(kLimitMs), &response),
              kPeerAbsent);
}

TEST_F(PeerLink, TheMasterReloadsWhatAPeerHasWrittenOrTheWriterKnowsThatNobodyDid) {
    using Peer = std::optional<Bytes>; // how it answers; none: it hangs
    const auto answering = [](std::uint8_t code) { return Peer(Bytes{'A', 'S', 'D', 'L', 1, 2, 1, 0, code}); };
    const Peer master = answering(kCompleted), slave = answering(kNotInThisState);
    const Peer failing = answering(kUnspecifiedError), hanging, old{Bytes{}}; // that one does not know the request
    const struct {
        const char *name;
        std::vector<Peer> peers;
        Reloaded outcome;
    } rows[] = {
        {"nobody is there", {}, Reloaded::kNoMaster},
        {"slaves alone", {slave, slave}, Reloaded::kNoMaster},
        {"the master behind one that hangs", {hanging, old, slave, master}, Reloaded::kByMaster},
        {"the master cannot", {slave, failing}, Reloaded::kUnknown},
        {"an older release", {slave, old}, Reloaded::kUnknown},
        {"one hangs", {slave, hanging}, Reloaded::kUnknown},
    };
    for (const auto &c : rows) {
        SCOPED_TRACE(c.name);
        std::vector<std::unique_ptr<StreamServer>> servers;
        std::vector<fs::path> sockets{folder_ / "absent.sock"};
        for (const Peer &peer : c.peers) {
            sockets.push_back(folder_ / ("peer" + std::to_string(servers.size())));
            servers.push_back(
                open_peer(sockets.back(), {'A', 'S', 'D', 'L', 1, 3, 5, 0, 'A', 'S', 'D', '1', '4'}, peer));
        }
        const bool hangs = c.outcome == Reloaded::kUnknown && !c.peers.back();
        const auto deadline = std::chrono::steady_clock::now() + milliseconds(hangs ? 100 : kLimitMs);
        EXPECT_EQ(peers_reload(sockets, "ASD14", deadline), c.outcome);
    }
    EXPECT_EQ(peers_reload({folder_ / "link.sock"}, "ASD14", std::chrono::steady_clock::now() + milliseconds(kLimitMs)),
              Reloaded::kByMaster);
}

TEST(PeerPatience, PeersThatHangCostAPassLessThanTwoSeconds) {
    using std::chrono::seconds;
    constexpr int kItems = 5;
    PeerPatience patience(seconds(1));
    PeerPatience::Time now{};
    for (int pass = 0; pass < 20; ++pass) {
        const PeerPatience::Time began = now;
        for (int request = 0; request < kItems * 3; ++request) {
            const auto slot = static_cast<std::uint8_t>(1 + request % 3);
            if (const auto limit = patience.limit(slot, seconds(1), now)) {
                now += std::chrono::duration_cast<PeerPatience::Time::duration>(*limit);
                patience.note(slot, false, now);
            }
        }
        EXPECT_LE(now - began, milliseconds(pass == 0 ? 1500 : 750)) << pass;
        now += seconds(1);
    }
    now += seconds(5);
    EXPECT_EQ(patience.limit(1, seconds(1), now), milliseconds(250)) << "asked again";
    patience.note(1, true, now);
    now += seconds(2);
    EXPECT_EQ(patience.limit(1, seconds(1), now), seconds(1)) << "it answers: as before";
}

TEST(ItemTurns, OneAtATimeByItemAndWithinALimit) {
    ItemTurns turns;
    ASSERT_TRUE(turns.take(1, milliseconds(0)));
    EXPECT_FALSE(turns.take(1, milliseconds(1)));
    EXPECT_TRUE(turns.take(2, milliseconds(0)));
    std::atomic<int> had = 0;
    std::vector<std::thread> waiting;
    for (int i = 0; i < 8; ++i) {
        waiting.emplace_back([&] {
            EXPECT_TRUE(turns.take(1, milliseconds(kLimitMs)));
            EXPECT_EQ(++had, 1) << "alone";
            std::this_thread::yield();
            --had;
            turns.give_back(1);
        });
    }
    turns.give_back(1);
    for (std::thread &thread : waiting) {
        thread.join();
    }
    EXPECT_TRUE(turns.take(1, milliseconds(0)));
}

} // namespace
} // namespace asd_host
