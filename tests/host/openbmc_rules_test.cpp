// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Who is behind a request of an OpenBMC bridge, by its bus name and options.

#include "gio_holders.h"
#include "host_test.h"
#include "openbmc_rules.h"

namespace asd_host {
namespace {

TEST(OpenbmcRules, ChannelsAreSessionChannelsUnlessTheyAreTheBoardsOwn) {
    const std::pair<const char *, Channel> rows[] = {
        // clang-format off
        {"Channel.ipmi_kcs3", Channel::kSystem}, {"Channel.ipmi_ssif", Channel::kSystem}, {"Host", Channel::kSystem},
        {"Channel.Ipmb", Channel::kIpmb},        {"Channel.Ipmb1", Channel::kSession},    {"Channel", Channel::kSession},
        {"Channel.eth0", Channel::kSession},     {"Channel.ipmi", Channel::kSession},
        // clang-format on
    };
    for (const auto &[name, channel] : rows) {
        EXPECT_EQ(channel_of("xyz.openbmc_project.Ipmi." + std::string(name)), channel) << name;
    }
}

TEST(OpenbmcRules, ASessionSaysItsPrivilegeInFull) {
    const char *const user = "<int32 3>";
    const char *const session = "<uint32 9>";
    const struct {
        const char *privilege, *user, *session;
        std::uint8_t expected; // 0: refused
    } rows[] = {
        // clang-format off
        {"<int32 1>", user, session, 1},  {"<int32 4>", "<int32 -1>", "<uint32 4294967295>", 4},
        {"<int32 5>", user, session, 5},  {"<int32 0>", user, session, 0},  {"<int32 6>", user, session, 0},
        {"<int32 260>", user, session, 0}, // 4 in its lowest byte
        {"<uint32 4>", user, session, 0}, {"<byte 4>", user, session, 0},   {nullptr, user, session, 0},
        {"<int32 4>", "<uint32 3>", session, 0},                            {"<int32 4>", nullptr, session, 0},
        {"<int32 4>", user, "<int32 9>", 0},                                {"<int32 4>", user, nullptr, 0},
        // clang-format on
    };
    for (const auto &row : rows) {
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
