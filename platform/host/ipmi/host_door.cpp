// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "host_door.h"

#include "call_pool.h"
#include "caller.h"
#include "log.h"
#include "system_interface.h"
#include "vm_frame.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace asd_host {

struct HostDoorShared {
    explicit HostDoorShared(const IpmiRegistry &commands) : registry(commands) {}

    const IpmiRegistry &registry;
    std::string path;
    CallPool pool;
    std::atomic<std::uint64_t> last_number{0}; // of a request; relaxed: guards nothing
    Seldom says_second;
    Seldom says_version;

    std::mutex mutex; // guards the field below
    std::condition_variable left;
    bool taken = false; // a machine is connected
};

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kSuccessorWait{1000}; // of a machine whose successor is there already

// The one machine's place at the door.
class Place {
public:
    explicit Place(HostDoorShared &shared) : shared_(shared) {
        std::unique_lock lock(shared_.mutex);
        had_ = shared_.left.wait_for(lock, kSuccessorWait, [this] { return !shared_.taken; });
        shared_.taken = true;
    }
    ~Place() {
        const std::lock_guard lock(shared_.mutex);
        shared_.taken = !had_;
        shared_.left.notify_one();
    }
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;
    [[nodiscard]] bool had() const { return had_; }

private:
    HostDoorShared &shared_;
    bool had_ = false;
};

// A request on its way: who waits for it may be gone when it is done.
struct Errand {
    explicit Errand(const IpmiRequest &asked) : request(asked), data(asked.data.begin(), asked.data.end()) {
        request.data = data;
    }
    IpmiRequest request;
    std::vector<std::uint8_t> data;

    std::mutex mutex; // guards the field below
    std::condition_variable done;
    std::optional<IpmiResponse> response;
};

void carry_out(const IpmiRegistry &registry, Errand &errand) {
    IpmiResponse response;
    {
        const Caller caller("the host's IPMI", [] { return std::string("the host"); });
        response = registry.serve(errand.request);
    }
    const std::lock_guard lock(errand.mutex);
    errand.response = std::move(response);
    errand.done.notify_one();
}

// Requests that reach the same row keep their order, so that none overtakes one that has been answered too early.
// Busy: it is not carried out. Timeout: it has begun and goes on, only its answer has nowhere to go.
IpmiResponse serve(HostDoorShared &shared, const IpmiRequest &request) {
    const auto errand = std::make_shared<Errand>(request);
    const std::uint64_t number = shared.last_number.fetch_add(1, std::memory_order_relaxed) + 1;
    const auto work = [errand, &registry = shared.registry] { carry_out(registry, *errand); };
    if (shared.pool.run(shared.registry.row_number(request), work, number) != CallPool::Taken::kYes) {
        return {kNodeBusy};
    }
    std::unique_lock lock(errand->mutex);
    if (errand->done.wait_for(lock, HostDoor::kAnswerLimit, [&errand] { return errand->response.has_value(); })) {
        return std::move(*errand->response);
    }
    lock.unlock();
    const bool waiting = shared.pool.withdraw(number);
    HOST_LOG(waiting ? kLogDebug : kLogInformation, "a request of the host is answered before it is done: %s",
             waiting ? "C0, it is not carried out" : "C3, it goes on");
    return {waiting ? kNodeBusy : kTimeout};
}

// A machine, from its connection to its end.
class Machine {
public:
    Machine(StreamClient &client, HostDoorShared &shared) : client_(client), shared_(shared) {}

    // Takes the next frame and does what it wants. False: the connection is at its end.
    [[nodiscard]] bool serve_next() {
        if (!client_.await_request()) {
            return false;
        }
        for (std::array<std::uint8_t, 1> byte{}; client_.read(byte);) {
            if (const auto frame = reader_.take(byte.front())) {
                return frame->control ? obey(frame->bytes) : answer(*frame);
            }
            if (reader_.empty()) {
                return true; // what ended here was no frame; the next may be long in coming
            }
        }
        return false;
    }

private:
    [[nodiscard]] bool obey(std::span<const std::uint8_t> control) {
        const std::uint8_t value = control.size() > 1 ? control[1] : std::uint8_t{0};
        switch (control.front()) {
        case kVmVersion:
            if (value != kVmProtocol && shared_.says_version.due()) {
                HOST_LOG(kLogError, "%s: the machine speaks version %u of the protocol, the service version %u",
                         shared_.path.c_str(), unsigned{value}, unsigned{kVmProtocol});
            }
            return true;
        case kVmCapabilities:
            has_interrupts_ = (value & kVmHasInterrupts) != 0;
            return true;
        case kVmReset: {
            interface_.reset();
            const std::vector<std::uint8_t> news = interrupts();
            return news.empty() || client_.send(news);
        }
        default:
            return true; // what this service does not do, or does not know
        }
    }

    [[nodiscard]] bool answer(const VmFrame &frame) {
        const std::uint8_t netfn_lun = frame.bytes[1];
        const IpmiRequest request{.netfn = static_cast<std::uint8_t>(netfn_lun >> 2U),
                                  .lun = static_cast<std::uint8_t>(netfn_lun & 3U),
                                  .cmd = frame.bytes[2],
                                  .data = frame.bytes.subspan(VmFrameReader::kHead),
                                  .privilege = kAdministrator};
        IpmiResponse response = frame.cut ? IpmiResponse{kRequestLengthExceeded} : response_to(request);
        if (response.size() > 1 + kRequestLimit) {
            response = {kResponseTooLong};
        }
        std::vector<std::uint8_t> message = {frame.bytes[0], static_cast<std::uint8_t>(netfn_lun | 4U), request.cmd};
        message.insert(message.end(), response.begin(), response.end());
        // The machine knows whether to interrupt before it has what it would interrupt for.
        std::vector<std::uint8_t> wire = interrupts();
        const std::vector<std::uint8_t> answered = vm_message(message);
        wire.insert(wire.end(), answered.begin(), answered.end());
        return client_.send(wire);
    }

    [[nodiscard]] IpmiResponse response_to(const IpmiRequest &request) {
        std::optional<IpmiResponse> own = interface_.answer(request);
        return own ? std::move(*own) : serve(shared_, request);
    }

    // What tells the machine whether its host wants interrupts; empty: nothing new.
    [[nodiscard]] std::vector<std::uint8_t> interrupts() {
        const std::optional<bool> wanted = interface_.take_interrupts();
        if (!wanted || !has_interrupts_) {
            return {};
        }
        return vm_control(std::array<std::uint8_t, 1>{*wanted ? kVmInterruptsOn : kVmInterruptsOff});
    }

    StreamClient &client_;
    HostDoorShared &shared_;
    VmFrameReader reader_;
    SystemInterface interface_;
    bool has_interrupts_ = false;
};

void meet(StreamClient &client, HostDoorShared &shared) {
    const Place place(shared);
    if (!place.had()) {
        if (shared.says_second.due()) {
            HOST_LOG(kLogError, "%s: a second machine is turned away while one is connected", shared.path.c_str());
        }
        return;
    }
    Machine machine(client, shared);
    if (!client.send(vm_control(std::array{std::uint8_t{kVmVersion}, kVmProtocol}))) {
        return;
    }
    while (machine.serve_next()) {
    }
}

} // namespace

std::unique_ptr<HostDoor> HostDoor::open(const std::filesystem::path &socket, const IpmiRegistry &registry,
                                         std::string *mistake) {
    std::unique_ptr<HostDoor> door(new HostDoor);
    door->shared_ = std::make_shared<HostDoorShared>(registry);
    door->shared_->path = socket.native();
    if (!door->shared_->pool.start(mistake)) {
        return nullptr;
    }
    const auto protocol = [shared = door->shared_](StreamClient &client) { meet(client, *shared); };
    door->server_ = StreamServer::open(socket, "asd-host", protocol, mistake);
    return door->server_ != nullptr ? std::move(door) : nullptr;
}

bool HostDoor::stop(milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    const bool left = server_->stop(limit);
    const auto rest = std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
    return shared_->pool.stop(std::max(rest, milliseconds(0))) && left;
}

} // namespace asd_host
