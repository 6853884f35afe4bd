// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The link between the controllers of an enclosure: a unix stream socket a slot, RUN_DIR/slotN/link.sock.
//
// A frame is a head of 8 bytes and a body, byte by byte:
//
//   byte 0-3  magic: 'A' 'S' 'D' 'L'
//   byte 4    version: 1
//   byte 5    kind: 1 request, 2 response
//   byte 6-7  length of the body, low byte first
//   request   network function, LUN, command, then 0 to 255 bytes of data
//   response  completion code, then 0 to 1024 bytes of data
//
// A connection carries any number of requests, each answered in turn. Another head than this ends the connection.
//
// All controllers of an enclosure run as one user: requests come with every privilege, so each side of a connection
// makes sure that the other is a process of its own user.

#include "ipmi_registry.h"
#include "stream_server.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace asd_host {

// The statuses of ipmi_send_request besides those of status.h.
inline constexpr gint32 kPeerAbsent = -2010; // nobody listens in that slot, or somebody who is no peer
inline constexpr gint32 kPeerFailed = -2011; // the peer closed the connection or answered something that is no response

// Serves the requests of peers, as administrator, until the server is stopped; the registry outlives it. Processes of
// another user are no peers and cut. Null: *mistake says why.
[[nodiscard]] std::unique_ptr<StreamServer> open_peer_link(const std::filesystem::path &socket,
                                                           const IpmiRegistry &registry, std::string *mistake);

// Sends a request to the peer that listens at socket and waits for its response; with response null, for nothing. 0,
// kPeerAbsent, kPeerFailed or kTimedOut; *response is set when it is 0. Blocks up to the limit.
[[nodiscard]] gint32 peer_request(const std::filesystem::path &socket, const IpmiRequest &request,
                                  std::chrono::nanoseconds limit, IpmiResponse *response);

// A controller listens at socket: a process of this process's user.
[[nodiscard]] bool peer_listens(const std::filesystem::path &socket);

// This process's own slot, or a slot whose controller listens at its link.
[[nodiscard]] bool peer_online(std::uint8_t slot);

} // namespace asd_host
