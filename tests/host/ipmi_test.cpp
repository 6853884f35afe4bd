// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Which request reaches which handler, what is answered when none does, and whose privilege a bridge's request has.

#include "fru_image.h"
#include "gio_holders.h"
#include "host_test.h"
#include "openbmc_rules.h"

namespace asd_host {
namespace {

using namespace asd_test;

gint32 answer_twice(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    EXPECT_EQ(ipmi_send_simple_response(message, 0xCE), 0);
    EXPECT_NE(ipmi_send_simple_response(message, 0x00), 0);
    return 0;
}

gint32 refuse_bad_answers(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const Bytes bytes(2000);
    EXPECT_NE(ipmi_send_response(message, 2000, bytes.data()), 0);
    EXPECT_NE(ipmi_send_response(message, 0, bytes.data()), 0);
    EXPECT_NE(ipmi_send_response(message, 1, nullptr), 0);
    return ipmi_send_simple_response(message, 0x00);
}

// clang-format off
constexpr std::array kRows{
    ipmi_row(0x12, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1bh", 0, 9, 9,   "A"),
    ipmi_row(0x12, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1Ch", 0, 9, 9,   "B"),
    ipmi_row(0x13, "data[1]=00h",                                     0, 1, 229, "C"),
    ipmi_row(0x14, "data[1]=02h",                                     4, 3, 255, "D"),
    ipmi_row(0x15, "",                                                0, 0, 2,   "E"),
    ipmi_row(0x15, "data[0]=07h",                                     0, 4, 5,   "F"),
    ipmi_row(0x15, nullptr,                                           4, 8, 8,   "G"),
    ipmi_row(0x20, "", 0, 0, 255, nullptr, [](auto... /*unused*/) { return -1; }),
    ipmi_row(0x21, "", 0, 0, 255, nullptr, answer_twice),
    ipmi_row(0x22, "", 0, 0, 255, nullptr, refuse_bad_answers),
};
// clang-format on

TEST(IpmiRegistry, BringsARequestToItsRowOrAnswersWhyNot) {
    IpmiRegistry registry;
    ASSERT_TRUE(registry.add(kRows));
    const struct {
        const char *name;
        std::uint8_t netfn, cmd, privilege;
        Bytes data;
        std::uint8_t code;
        const char *text; // of the row that must have served it
    } rows[] = {
        {"first of two that share a command", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1B, 1, 2, 3, 4}, 0x00, "A"},
        {"second of two, upper-case digits", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1C, 1, 2, 3, 4}, 0x00, "B"},
        {"too short to tell", 0x32, 0x12, 0, {0, 0, 0x80, 9}, 0xC7, ""},
        {"too short, but wrong already", 0x32, 0x12, 0, {0, 1}, 0xC1, ""},
        {"matches, one too short", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1B, 1, 2, 3}, 0xC7, ""},
        {"longest", 0x32, 0x13, 0, Bytes(229), 0x00, "C"},
        {"over the longest", 0x32, 0x13, 0, Bytes(230), 0xC7, ""},
        {"privilege is judged before length", 0x32, 0x14, 3, {0, 2}, 0xD4, ""},
        {"whole filter space, shortest", 0x32, 0x15, 0, {}, 0x00, "E"},
        {"length picks among rows that match", 0x32, 0x15, 0, {7, 1, 2, 3}, 0x00, "F"},
        {"length fits a row of higher privilege only", 0x32, 0x15, 0, Bytes(8), 0xC7, ""},
        {"the same with that privilege", 0x32, 0x15, 4, Bytes(8), 0x00, "G"},
        {"network function beyond 6 bits", 0xB2, 0x12, 4, Bytes(9), 0xC1, ""},
        {"request over 255 bytes", 0x32, 0x20, 0, Bytes(256), 0xC8, ""},
        {"handler that says nothing", 0x32, 0x20, 0, {1}, 0xFF, ""},
        {"the first of two responses counts", 0x32, 0x21, 0, {1}, 0xCE, ""},
        {"responses that cannot be sent do not count", 0x32, 0x22, 0, {1}, 0x00, ""},
    };
    for (const auto &c : rows) {
        SCOPED_TRACE(c.name);
        Bytes expected{c.code};
        if (*c.text != '\0') {
            expected.push_back(static_cast<std::uint8_t>(*c.text));
            expected.insert(expected.end(), c.data.begin(), c.data.end());
        }
        EXPECT_EQ(registry.serve({.netfn = c.netfn, .lun = 0, .cmd = c.cmd, .data = c.data, .privilege = c.privilege}),
                  expected);
    }
}

TEST(IpmiRegistry, ReadsFiltersStrictly) {
    using Terms = std::vector<FilterTerm>;
    EXPECT_EQ(parse_filter(""), Terms{});
    EXPECT_EQ(parse_filter("data[0]=00h"), (Terms{{0, 0}}));
    EXPECT_EQ(parse_filter("data[254]=fFH,data[1]=10h"), (Terms{{254, 0xFF}, {1, 0x10}}));
    for (const char *wrong : {"data[]=00h", "data[1]=0h", "data[1]=000h", "data[1]=00", "data[1]=00h,", ",data[1]=00h",
                              "data[1]=00hdata[2]=00h", "data[255]=00h", "data[1000]=00h", "data[-1]=00h"}) {
        EXPECT_EQ(parse_filter(wrong), std::nullopt) << wrong;
    }
}

TEST(IpmiRegistry, TakesNoneOfTheRowsWhenOneIsUnusable) {
    std::array faults{ipmi_row(1, "data[1]", 0, 0, 1, ""), ipmi_row(1, "", 0, 2, 1, ""),
                      ipmi_row(1, "", 0, 0, 1, "", nullptr), ipmi_row(1, "", 0, 0, 1, "")};
    faults.back().netfn = 0x33;
    for (const IPMI_CMD_S &fault : faults) {
        IpmiRegistry registry;
        EXPECT_FALSE(registry.add(std::array{kRows[4], fault}));
        EXPECT_EQ(registry.serve({.netfn = 0x32, .cmd = 0x15}), Bytes{0xC1});
    }
}

// Who is behind a request of an OpenBMC bridge, by its bus name and options.
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

// A text of one character would be taken for the end of the fields; Latin 1 has no katakana.
TEST(FruImage, AreasAreWholeUnitsWhoseBytesSumToNothing) {
    const std::array<std::optional<FruArea>, 3> areas = {FruArea{.head = {23}, .fields = {"", "AB"}}, std::nullopt,
                                                         FruArea{.head = {25}, .fields = {"x", "M\u00fcller \u30ab"}}};
    // clang-format off
    const Bytes expected = {
        0x01, 0x00, 0x01, 0x00, 0x03, 0x00, 0x00, 0xFB,
        0x01, 0x02, 0x17, 0xC0, 0xC2, 0x41, 0x42, 0xC1, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x20,
        0x01, 0x03, 0x19, 0xC2, 0x78, 0x20, 0xC8, 0x4D, 0xFC, 0x6C, 0x6C, 0x65, 0x72, 0x20, 0x3F, 0xC1, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xA9,
    };
    // clang-format on
    EXPECT_EQ(fru_image(areas), expected);
    const FruArea longest{.head = {25, 0, 0, 0}, .fields = std::vector<std::string>(23, std::string(80, 'a'))};
    const Bytes image = fru_image(std::array<std::optional<FruArea>, 3>{std::nullopt, longest, std::nullopt});
    ASSERT_EQ(image.size(), 8U + 1480);
    EXPECT_EQ(image[9], 1480 / 8);
    EXPECT_TRUE(image[8 + 6] == 0xFF && image[8 + 6 + 64] == 0xFF && image[8 + 6 + 23 * 64] == 0xC1);
}

} // namespace
} // namespace asd_host
