// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_relay.h"

#include "bus_message.h"
#include "log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/ioctl.h>

namespace asd_host {

namespace {

constexpr std::size_t kPiece = 64 << 10;      // read at once
constexpr std::size_t kLongestLine = 1 << 10; // of the handshake
constexpr unsigned kRefusals = 8;             // of a handshake

// Reads once. False: the other side is gone.
bool read_piece(const Fd &fd, ByteQueue &into) {
    std::array<std::uint8_t, kPiece> piece; // not cleared: most messages have a few hundred bytes
    const ssize_t got = ::recv(fd.get(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (got > 0) {
        into.append(std::span(piece).first(static_cast<std::size_t>(got)));
        return true;
    }
    return got < 0 && (errno == EAGAIN || errno == EINTR);
}

// Sends what the socket takes. False: the other side is gone.
bool send_piece(const Fd &fd, ByteQueue &from) {
    const ssize_t sent = ::send(fd.get(), from.bytes().data(), from.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0) {
        from.drop(static_cast<std::size_t>(sent));
        return true;
    }
    return sent < 0 && (errno == EAGAIN || errno == EINTR);
}

using BlobPtr = std::unique_ptr<guchar, asd_shared::Releaser<g_free>>;

std::span<const std::uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

} // namespace

void ByteQueue::drop(std::size_t count) {
    gone_ += count;
    if (gone_ == bytes_.size()) {
        bytes_ = {}; // gives the memory of a long answer back
        gone_ = 0;
    } else if (gone_ > bytes_.size() / 2) {
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(gone_));
        gone_ = 0;
    }
}

BusRelay::BusRelay(Fd client, const ucred &peer, const char *guid, const Events &events)
    : client_(std::move(client)), peer_(peer), guid_(guid), events_(events) {}

void BusRelay::start() {
    watch();
}

bool BusRelay::quiet() const {
    int waiting = 0;
    return out_.empty() && answers_.empty() &&
           (!service_ || ::ioctl(service_.get(), FIONREAD, &waiting) != 0 || waiting == 0);
}

// ---- Events ----

gboolean BusRelay::on_ready(gint fd, GIOCondition condition, gpointer self) {
    auto *relay = static_cast<BusRelay *>(self);
    const bool readable = condition != G_IO_OUT; // or there is an end to be read
    const bool client = fd == relay->client_.get();
    relay->pump(client && readable, !client && readable);
    return G_SOURCE_CONTINUE;
}

// One piece each way: whatever is left makes the sockets ready again, and the other clients have their turn before.
void BusRelay::pump(bool client_ready, bool service_ready) {
    const auto self = shared_from_this(); // it is forgotten when it ends
    pumping_ = true;
    if (service_ready) {
        take_answers();
    }
    if (phase_ != Phase::kOver) {
        send_to_client();
    }
    if (phase_ != Phase::kOver && client_ready) {
        read_client();
    }
    if (phase_ == Phase::kGreeting) {
        answer_greeting();
    }
    if (phase_ == Phase::kServing) {
        pass_calls();
        send_to_service();
    }
    send_to_client();
    pumping_ = false;
    const bool heard_all = ended_ && !held_back_ && forward_.empty();
    if (phase_ == Phase::kOver || heard_all || (phase_ == Phase::kDraining && (deaf_ || out_.empty()))) {
        end();
        return;
    }
    if (out_.empty() && answers_.empty()) {
        events_.drained(*this);
    }
    watch();
}

void BusRelay::end() {
    phase_ = Phase::kOver;
    client_source_.reset();
    service_source_.reset();
    events_.ended(*this);
}

void BusRelay::watch(SourcePtr *source, GIOCondition *watched, int fd, unsigned condition) {
    const auto wanted = static_cast<GIOCondition>(condition);
    if (*watched == wanted) {
        return;
    }
    *watched = wanted;
    source->reset();
    if (condition != 0) {
        *source = attached_fd(fd, wanted, on_ready, this);
    }
}

void BusRelay::watch() {
    const auto flag = [](bool on, GIOCondition condition) { return on ? static_cast<unsigned>(condition) : 0U; };
    const bool hears = phase_ != Phase::kDraining && !ended_ && !held_back_;
    watch(&client_source_, &client_watched_, client_.get(), flag(hears, G_IO_IN) | flag(!out_.empty(), G_IO_OUT));
    watch(&service_source_, &service_watched_, service_.get(),
          flag(static_cast<bool>(service_), G_IO_IN) | flag(service_ && !forward_.empty(), G_IO_OUT));
}

void BusRelay::check_limits() {
    const auto now = Clock::now();
    const auto self = shared_from_this();
    const uid_t user = peer_.uid;
    if (phase_ == Phase::kGreeting && now - message_began_ > kGreetingLimit) {
        HOST_LOG(kLogDebug, "a D-Bus client of user %u has not finished its handshake in time", user);
    } else if (!out_.empty() && now - last_taken_ > kUnreadLimit) {
        HOST_LOG(kLogInformation, "a D-Bus client of user %u has not read for %d seconds: it is cut off", user,
                 static_cast<int>(kUnreadLimit.count()));
    } else if (phase_ == Phase::kServing && !in_.empty() && !held_back_ && now - message_began_ > kMessageLimit) {
        HOST_LOG(kLogInformation, "a D-Bus client of user %u has begun a message and not ended it: it is cut off",
                 user);
    } else {
        return;
    }
    end();
}

void BusRelay::refuse(const std::string &mistake) {
    HOST_LOG(kLogInformation, "a D-Bus client of user %u, process %d, is cut off: %s", peer_.uid, peer_.pid,
             mistake.c_str());
    phase_ = Phase::kOver;
}

// ---- To the client ----

void BusRelay::take_answers() {
    if (!service_) {
        return;
    }
    const bool there = read_piece(service_, answers_);
    pass_answers();
    if (phase_ == Phase::kServing && !there) {
        service_source_.reset();
        service_watched_ = {};
        service_ = Fd();
        phase_ = Phase::kDraining;
    }
}

void BusRelay::pass_answers() {
    for (;;) {
        const BusFrame frame = bus_frame(answers_.bytes(), kQueued);
        if (frame.mistake != nullptr || out_.size() + answers_.size() > kQueued) {
            refuse("more than " + std::to_string(kQueued) + " bytes wait for it");
            return;
        }
        if (frame.size == 0 || frame.size > answers_.size()) {
            return;
        }
        const auto message = answers_.bytes().first(frame.size);
        pass_answer(read_bus_message(message).reply_serial, message);
        answers_.drop(frame.size);
    }
}

void BusRelay::pass_answer(std::uint32_t reply_serial, std::span<const std::uint8_t> message) {
    const auto now = Clock::now();
    if (out_.empty()) {
        last_taken_ = now;
    }
    const auto call = calls_.find(reply_serial);
    const bool wanted = call == calls_.end() || call->second.wants_answer;
    if (wanted && !deaf_) {
        out_.append(message);
    }
    if (call != calls_.end()) {
        load_ -= call->second.weight;
        forwarded_ -= call->second.forwarded ? 1U : 0U;
        calls_.erase(call);
        last_used_ = now;
    }
}

void BusRelay::answer(GDBusMessage *reply) {
    if (phase_ != Phase::kServing) {
        return;
    }
    g_dbus_message_set_serial(reply, --last_serial_);
    ErrorSlot error;
    gsize size = 0;
    const BlobPtr blob(g_dbus_message_to_blob(reply, &size, G_DBUS_CAPABILITY_FLAGS_NONE, error.out()));
    if (blob == nullptr) {
        refuse(std::string("an answer cannot be sent: ") + error.text()); // longer than a message may be
    } else if (out_.size() + size > kQueued) {
        refuse("more than " + std::to_string(kQueued) + " bytes wait for it");
    } else {
        pass_answer(g_dbus_message_get_reply_serial(reply), {blob.get(), size});
    }
    if (!pumping_) {
        pump(false, false);
    }
}

void BusRelay::send_to_client() {
    if (out_.empty() || deaf_) {
        return;
    }
    const std::size_t before = out_.size();
    deaf_ = !send_piece(client_, out_);
    if (out_.size() < before) {
        last_taken_ = Clock::now();
    }
    if (deaf_) {
        out_ = {};
    }
}

// ---- From the client ----

void BusRelay::read_client() {
    if (!ended_ && !held_back_ && phase_ != Phase::kDraining) {
        if (in_.empty() && phase_ == Phase::kServing) {
            message_began_ = Clock::now();
        }
        ended_ = !read_piece(client_, in_);
    }
}

void BusRelay::answer_greeting() {
    if (!nul_seen_ && !in_.empty()) {
        nul_seen_ = in_.bytes()[0] == 0;
        in_.drop(1);
        if (!nul_seen_) {
            refuse("its handshake does not begin with a zero byte");
        }
    }
    while (phase_ == Phase::kGreeting) {
        const auto bytes = in_.bytes();
        const auto line_end = bytes_of("\r\n");
        const auto end = std::search(bytes.begin(), bytes.end(), line_end.begin(), line_end.end());
        if (end == bytes.end()) {
            if (bytes.size() > kLongestLine) {
                refuse("a line of its handshake is too long");
            }
            return;
        }
        const std::string line(bytes.begin(), end);
        in_.drop(line.size() + 2);
        if (proven_ && line == "BEGIN") {
            begin();
            return;
        }
        const std::string reply = greeting_reply(line);
        out_.append(bytes_of(reply + (reply == "OK" ? " " + guid_ : "") + "\r\n"));
        if (reply != "OK" && reply != "DATA" && ++refusals_ > kRefusals) {
            refuse("its handshake comes to no end");
        }
    }
}

// The only mechanism is the one that needs no files: who the peer is, as the kernel says.
const char *BusRelay::greeting_reply(const std::string &line) {
    constexpr std::string_view kExternal = "AUTH EXTERNAL";
    constexpr std::string_view kData = "DATA";
    const bool auth = line.starts_with("AUTH");
    if (proven_ && !auth && line != "CANCEL") {
        return "ERROR"; // NEGOTIATE_UNIX_FD too: no descriptors are passed here
    }
    proven_ = false;
    if (line == kExternal) {
        return "DATA";
    }
    const std::string_view prefix = auth ? kExternal : kData;
    if (!line.starts_with(prefix)) {
        return auth || line == "CANCEL" || line.starts_with("ERROR") ? "REJECTED EXTERNAL" : "ERROR";
    }
    proven_ = proves_user(line.substr(std::min(line.size(), prefix.size() + 1)));
    return proven_ ? "OK" : "REJECTED EXTERNAL";
}

// Its user's number as hexadecimal text, or nothing: then it is whom the kernel says.
bool BusRelay::proves_user(const std::string &hex) const {
    std::string expected;
    for (const char digit : std::to_string(peer_.uid)) {
        expected += std::string("3") + digit;
    }
    return hex.empty() || hex == expected;
}

void BusRelay::begin() {
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
        refuse(std::string("nothing can serve it: ") + std::strerror(errno));
        return;
    }
    service_ = Fd(ends[0]);
    phase_ = Phase::kServing;
    message_began_ = last_used_ = Clock::now();
    if (!events_.greeted(*this, Fd(ends[1]))) {
        phase_ = Phase::kOver;
    }
}

// What is left in in_ afterwards is the beginning of a message, or held back.
void BusRelay::pass_calls() {
    held_back_ = false;
    while (phase_ == Phase::kServing) {
        const BusFrame frame = bus_frame(in_.bytes(), kLongestMessage);
        if (frame.mistake != nullptr) {
            refuse(frame.mistake);
            return;
        }
        if (frame.size == 0 || frame.size > in_.size()) {
            return;
        }
        if (!forward_.empty() || out_.size() > kQuiet || !pass_call(in_.bytes().first(frame.size))) {
            held_back_ = phase_ == Phase::kServing;
            return;
        }
        in_.drop(frame.size);
        message_began_ = last_used_ = Clock::now();
        send_to_service();
    }
}

// False: it has to wait. Every call is answered here, so that those that want no answer are counted too; signals and
// answers are for nobody.
bool BusRelay::pass_call(std::span<const std::uint8_t> message) {
    const BusMessage read = read_bus_message(message);
    if (!read.mistake.empty() || calls_.contains(read.serial)) {
        refuse(read.mistake.empty() ? "a serial comes again before its answer" : read.mistake);
        return false;
    }
    if (read.type != BusMessage::Type::kCall) {
        return true;
    }
    // The longest answer by far: one at a time.
    const unsigned weight = read.member == "GetManagedObjects" ? kCalls : 1;
    if (load_ > 0 && load_ + weight > kCalls) {
        return false;
    }
    // GDBus writes a body that it cannot read into the log.
    std::vector<std::uint8_t> copy(message.begin(), message.end());
    ErrorSlot error;
    const ObjectPtr<GDBusMessage> decoded(
        g_dbus_message_new_from_blob(copy.data(), copy.size(), G_DBUS_CAPABILITY_FLAGS_NONE, error.out()));
    if (decoded == nullptr) {
        refuse(error.text());
        return false;
    }
    calls_[read.serial] = {.wants_answer = read.wants_answer, .weight = weight};
    load_ += weight;
    // None overtakes one that GDBus has, and what that one changes.
    if (forwarded_ == 0 && events_.called(*this, decoded.get())) {
        return true;
    }
    calls_[read.serial].forwarded = true;
    ++forwarded_;
    copy[kBusFlagsAt] = static_cast<std::uint8_t>(copy[kBusFlagsAt] & ~kBusNoAnswer);
    forward_.append(copy);
    return true;
}

void BusRelay::send_to_service() {
    if (!forward_.empty() && !send_piece(service_, forward_)) {
        forward_ = {}; // its end is seen when answers are taken
    }
}

} // namespace asd_host
