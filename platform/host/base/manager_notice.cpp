// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "manager_notice.h"

#include "fd.h"
#include "log.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

namespace asd_host {

void manager_notify(std::string_view state) {
    const char *variable = std::getenv("NOTIFY_SOCKET"); // NOLINT(concurrency-mt-unsafe): nobody sets variables
    const std::string_view name = variable == nullptr ? "" : variable;
    if (name.empty()) {
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof address.sun_path) {
        HOST_LOG(kLogError, "NOTIFY_SOCKET is too long for a socket: %s", variable);
        return;
    }
    std::copy(name.begin(), name.end(), address.sun_path);
    if (name.front() == '@') {
        address.sun_path[0] = '\0'; // a name in the kernel's abstract space
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    // A manager that takes nothing for so long does not keep the service from ending.
    constexpr timeval kLimit{.tv_sec = 5, .tv_usec = 0};
    if (socket) {
        (void)::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kLimit, sizeof kLimit);
    }
    const bool sent =
        socket && ::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr *>(&address), length) == static_cast<ssize_t>(state.size());
    if (!sent) {
        HOST_LOG(kLogError, "the service manager at %s could not be told %.*s: %s", variable,
                 static_cast<int>(state.size()), state.data(), std::strerror(errno));
    }
}

} // namespace asd_host
