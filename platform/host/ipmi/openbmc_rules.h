// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Who is behind a request that an OpenBMC bridge hands over, and how a completion code reaches that bridge. Decisions
// on values alone.

#include "ipmi_registry.h"

#include <cstdint>
#include <optional>
#include <string_view>

#include <glib.h>

namespace asd_host {

// Bridges are known by their bus names below this one.
inline constexpr std::string_view kChannelNames = "xyz.openbmc_project.Ipmi.Channel";

enum class Channel {
    kSystem,  // the host of the board itself, and whoever has no channel name
    kIpmb,    // as kSystem, but remembers unknown commands
    kSession, // the network: each request has a session's privilege
};
// What a bus name below kChannelNames stands for. A name that is not known to be the board's own is a session channel,
// so that nobody is taken for an administrator by mistake.
[[nodiscard]] Channel channel_of(std::string_view bus_name);

// The requester's privilege, 1 callback to 5 OEM; nothing when a session channel's options (a{sv}) do not say it with
// userId and privilege as "i" and currentSessionId as "u". Other keys do not matter.
[[nodiscard]] std::optional<std::uint8_t> requester_privilege(Channel channel, GVariant *options);

// A session asks for a command of the module (network function 0x32) and has less than floor. Most of those rows ask
// for no privilege: they were made for the board's own channels, and the network is none of these.
[[nodiscard]] bool is_below_floor(Channel channel, const IpmiRequest &request, std::uint8_t floor);

// The code to answer with. The bridge of the IPMB keeps back every later request of a command that was answered with
// 0xC1: there, a command that exists is not answered with it.
[[nodiscard]] std::uint8_t code_for(Channel channel, std::uint8_t code, bool command_exists);

} // namespace asd_host
