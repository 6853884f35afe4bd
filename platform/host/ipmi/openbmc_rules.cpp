// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "openbmc_rules.h"

namespace asd_host {

namespace {

constexpr gint32 kLowestPrivilege = 1;
constexpr gint32 kHighestPrivilege = 5;
constexpr std::uint8_t kModuleNetfn = 0x32;

} // namespace

Channel channel_of(std::string_view bus_name) {
    if (!bus_name.starts_with(kChannelNames)) {
        return Channel::kSystem;
    }
    const std::string_view channel = bus_name.substr(kChannelNames.size());
    if (channel == ".Ipmb") {
        return Channel::kIpmb;
    }
    return channel.starts_with(".ipmi_") ? Channel::kSystem : Channel::kSession; // ipmi_kcs3, ipmi_ssif
}

std::optional<std::uint8_t> requester_privilege(Channel channel, GVariant *options) {
    if (channel != Channel::kSession) {
        return kAdministrator;
    }
    gint32 user = 0;
    gint32 privilege = 0;
    guint32 session = 0;
    if (g_variant_lookup(options, "userId", "i", &user) == 0 ||
        g_variant_lookup(options, "privilege", "i", &privilege) == 0 ||
        g_variant_lookup(options, "currentSessionId", "u", &session) == 0 || privilege < kLowestPrivilege ||
        privilege > kHighestPrivilege) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(privilege);
}

bool is_below_floor(Channel channel, const IpmiRequest &request, std::uint8_t floor) {
    return channel == Channel::kSession && request.netfn == kModuleNetfn && request.privilege < floor;
}

std::uint8_t code_for(Channel channel, std::uint8_t code, bool command_exists) {
    const bool remembered = channel == Channel::kIpmb && code == kInvalidCommand;
    return remembered && command_exists ? std::uint8_t{kInvalidField} : code;
}

} // namespace asd_host
