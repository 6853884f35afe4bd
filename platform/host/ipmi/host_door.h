// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The door for a host operating system: the controller's end of a virtual machine's system interface (vm_frame.h),
// whose driver in the guest sees a KCS.
//
// The machine's own patience ends four seconds after a request, and an answer that comes later can be taken for the
// next one's. So every request is answered, once, within kAnswerLimit. The machine's attention is never asked for:
// there is no message that could wait for it.

#include "ipmi_registry.h"
#include "stream_server.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

namespace asd_host {

struct HostDoorShared; // what the door and its client's thread share

class HostDoor {
public:
    static constexpr std::chrono::milliseconds kAnswerLimit{3000};

    // Serves one machine at a time, as administrator, until the door is stopped; the registry outlives it. A second
    // connection is closed when the first has not left within a second. Null: *mistake says why.
    [[nodiscard]] static std::unique_ptr<HostDoor> open(const std::filesystem::path &socket,
                                                        const IpmiRegistry &registry, std::string *mistake);

    // As the stream server's; after stop no request begins. False: one still runs after the limit.
    void begin_stop() { server_->begin_stop(); }
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);
    [[nodiscard]] Pulse pulse() const { return server_->pulse(); }

private:
    HostDoor() = default;
    std::shared_ptr<HostDoorShared> shared_;
    std::unique_ptr<StreamServer> server_;
};

} // namespace asd_host
