// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The local IPMI door: the protocol of ipmitool's "dummy" interface on a unix socket (IPMI_DUMMY_SOCK).
//
// Requests and answers are C structs in this machine's own byte order and padding; a client has the same word size. A
// client waits for its answer without a limit and spins when the connection closes instead, so every request is
// answered.

#include "ipmi_registry.h"
#include "stream_server.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace asd_host {

// Serves requests with the given privilege (1 callback to 4 administrator) until the server is stopped; the registry
// outlives it. Null: *mistake says why.
[[nodiscard]] std::unique_ptr<StreamServer> open_dummy_door(const std::filesystem::path &socket,
                                                            const IpmiRegistry &registry, std::uint8_t privilege,
                                                            std::string *mistake);

} // namespace asd_host
