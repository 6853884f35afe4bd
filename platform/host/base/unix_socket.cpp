// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "unix_socket.h"

#include <algorithm>
#include <cerrno>

namespace asd_host {

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

std::optional<uid_t> unix_peer_user(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return std::nullopt;
    }
    return peer.uid;
}

} // namespace asd_host
