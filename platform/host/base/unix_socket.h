// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Unix stream sockets: addresses, connecting, and who is at the other end.

#include "fd.h"

#include <filesystem>
#include <optional>

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

namespace asd_host {

// Empty: the path is longer than an address takes.
[[nodiscard]] std::optional<sockaddr_un> unix_address(const std::filesystem::path &path);

// The interface of sockets: every address is passed as the common one.
[[nodiscard]] inline const sockaddr *common(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
}

// Connects to path without blocking. The descriptor (non-blocking), or none and *error says why; EAGAIN: its queue is
// full.
[[nodiscard]] Fd unix_connect(const std::filesystem::path &path, int *error);

// The user that the process at the other end had when it connected or began to listen. Empty: the kernel does not say.
[[nodiscard]] std::optional<uid_t> unix_peer_user(int socket);

} // namespace asd_host
