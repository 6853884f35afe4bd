// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Who is behind a request of an OpenBMC bridge, by its bus name and options.

#include "gio_holders.h"
#include "openbmc_rules.h"

#include <array>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace asd_host {
namespace {

TEST(OpenbmcRules, ChannelsAreSessionChannelsUnlessTheyAreTheBoardsOwn) {
    const std::array<std::pair<const char *, Channel>, 9> rows{{
        {".ipmi_kcs3", Channel::kSystem},
        {".ipmi_ssif", Channel::kSystem},
        {".Ipmb", Channel::kIpmb},
        {".Ipmb1", Channel::kSession},
        {".eth0", Channel::kSession},
        {".eth1_100", Channel::kSession},
        {".usb0", Channel::kSession},
        {".ipmi", Channel::kSession},
        {"", Channel::kSession},
    }};
    for (const auto &[name, channel] : rows) {
        EXPECT_EQ(channel_of("xyz.openbmc_project.Ipmi.Channel" + std::string(name)), channel) << name;
    }
    EXPECT_EQ(channel_of("xyz.openbmc_project.Ipmi.Host"), Channel::kSystem);
}

TEST(OpenbmcRules, ASessionSaysItsPrivilegeInFull) {
    struct Row {
        const char *privilege;
        const char *user;
        const char *session;
        std::uint8_t expected; // 0: refused
    };
    const std::array<Row, 18> rows{{
        {"<int32 1>", "<int32 3>", "<uint32 9>", 1},
        {"<int32 2>", "<int32 3>", "<uint32 9>", 2},
        {"<int32 3>", "<int32 3>", "<uint32 9>", 3},
        {"<int32 4>", "<int32 -1>", "<uint32 4294967295>", 4},
        {"<int32 5>", "<int32 0>", "<uint32 0>", 5},
        {"<int32 0>", "<int32 3>", "<uint32 9>", 0},
        {"<int32 6>", "<int32 3>", "<uint32 9>", 0},
        {"<int32 -1>", "<int32 3>", "<uint32 9>", 0},
        {"<int32 260>", "<int32 3>", "<uint32 9>", 0}, // 4 in its lowest byte
        {"<uint32 4>", "<int32 3>", "<uint32 9>", 0},
        {"<byte 4>", "<int32 3>", "<uint32 9>", 0},
        {"<'4'>", "<int32 3>", "<uint32 9>", 0},
        {"<<int32 4>>", "<int32 3>", "<uint32 9>", 0},
        {nullptr, "<int32 3>", "<uint32 9>", 0},
        {"<int32 4>", "<uint32 3>", "<uint32 9>", 0},
        {"<int32 4>", nullptr, "<uint32 9>", 0},
        {"<int32 4>", "<int32 3>", "<int32 9>", 0},
        {"<int32 4>", "<int32 3>", nullptr, 0},
    }};
    for (const Row &row : rows) {
        std::string text = "{'other': <'x'>";
        for (const auto &[key, value] : {std::pair{"privilege", row.privilege}, std::pair{"userId", row.user},
                                         std::pair{"currentSessionId", row.session}}) {
            text += value == nullptr ? "" : std::string(", '") + key + "': " + value;
        }
        SCOPED_TRACE(text + "}");
        const VariantPtr options(
            g_variant_parse(G_VARIANT_TYPE_VARDICT, (text + "}").c_str(), nullptr, nullptr, nullptr));
        ASSERT_NE(options, nullptr);
        EXPECT_EQ(requester_privilege(Channel::kSession, options.get()).value_or(0), row.expected);
        EXPECT_EQ(requester_privilege(Channel::kSystem, options.get()), 4);
        EXPECT_EQ(requester_privilege(Channel::kIpmb, options.get()), 4);
    }
}

} // namespace
} // namespace asd_host
