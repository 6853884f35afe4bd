// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Which request reaches which handler, and what is answered when none does.

#include "ipmi_registry.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace asd_host {
namespace {

using Data = std::vector<std::uint8_t>;

// Answers with the row's text, then the request's data.
gint32 echo(const IPMI_MSG_S *message, gconstpointer user_data) {
    const std::string text = static_cast<const char *>(user_data);
    Data response{kCompleted};
    response.insert(response.end(), text.begin(), text.end());
    const guint8 *data = get_ipmi_src_data(message);
    response.insert(response.end(), data, data + get_ipmi_src_data_len(message));
    return ipmi_send_response(message, static_cast<guint32>(std::uint64_t{response.size()}), response.data());
}

gint32 say_nothing(const IPMI_MSG_S * /*message*/, gconstpointer /*user_data*/) {
    return -1;
}

gint32 answer_twice(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    EXPECT_EQ(ipmi_send_simple_response(message, 0xCE), 0);
    EXPECT_NE(ipmi_send_simple_response(message, 0x00), 0);
    return 0;
}

gint32 refuse_bad_answers(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const Data bytes(2000);
    EXPECT_NE(ipmi_send_response(message, 2000, bytes.data()), 0);
    EXPECT_NE(ipmi_send_response(message, 0, bytes.data()), 0);
    EXPECT_NE(ipmi_send_response(message, 1, nullptr), 0);
    return ipmi_send_simple_response(message, 0x00);
}

// The buffer is never null, 255 bytes long and zero past the request.
gint32 check_buffer(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const guint8 *data = get_ipmi_src_data(message);
    std::uint8_t rest = 0;
    for (unsigned i = get_ipmi_src_data_len(message); i < 255; ++i) {
        rest |= data[i];
    }
    return ipmi_send_simple_response(message, rest == 0 ? 0x00 : 0x01);
}

constexpr IPMI_CMD_S row(std::uint8_t cmd, const char *filter, std::uint8_t privilege, std::uint8_t min_length,
                         std::uint8_t max_length, const char *text, IPMI_CMD_FUNC handler = echo) {
    return {.netfn = 0x32,
            .cmd = cmd,
            .filter = filter,
            .privilege = privilege,
            .role_func = "",
            .max_length = max_length,
            .min_length = min_length,
            .ipmi_handler = handler,
            .user_data = text};
}

// clang-format off
constexpr std::array kRows{
    row(0x12, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1bh", 0, 9, 9,   "A"),
    row(0x12, "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1Ch", 0, 9, 9,   "B"),
    row(0x13, "data[1]=00h",                                     0, 1, 229, "C"),
    row(0x14, "data[1]=02h",                                     4, 3, 255, "D"),
    row(0x15, "",                                                0, 0, 2,   "E"),
    row(0x15, "data[0]=07h",                                     0, 4, 5,   "F"),
    row(0x15, nullptr,                                           4, 8, 8,   "G"),
    row(0x20, "", 0, 0, 255, nullptr, say_nothing),
    row(0x21, "", 0, 0, 255, nullptr, answer_twice),
    row(0x22, "", 0, 0, 255, nullptr, refuse_bad_answers),
    row(0x23, "", 0, 0, 255, nullptr, check_buffer),
};
// clang-format on

struct Case {
    const char *name;
    std::uint8_t netfn;
    std::uint8_t cmd;
    std::uint8_t privilege;
    Data data;
    std::uint8_t code;
    const char *text; // of the row that must have served it
};

TEST(IpmiRegistry, BringsARequestToItsRowOrAnswersWhyNot) {
    IpmiRegistry registry;
    ASSERT_TRUE(registry.add(kRows));
    const std::vector<Case> cases = {
        {"first of two that share a command", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1B, 1, 2, 3, 4}, 0x00, "A"},
        {"second of two, upper-case digits", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1C, 1, 2, 3, 4}, 0x00, "B"},
        {"no term list matches", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1D, 1, 2, 3, 4}, 0xC1, ""},
        {"too short to tell", 0x32, 0x12, 0, {0, 0, 0x80, 9}, 0xC7, ""},
        {"too short, but wrong already", 0x32, 0x12, 0, {0, 1}, 0xC1, ""},
        {"empty is too short to tell", 0x32, 0x12, 0, {}, 0xC7, ""},
        {"matches, one too short", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1B, 1, 2, 3}, 0xC7, ""},
        {"matches, one too long", 0x32, 0x12, 0, {0, 0, 0x80, 9, 0x1B, 1, 2, 3, 4, 5}, 0xC7, ""},
        {"longest", 0x32, 0x13, 0, Data(229), 0x00, "C"},
        {"over the longest", 0x32, 0x13, 0, Data(230), 0xC7, ""},
        {"privilege enough", 0x32, 0x14, 4, {0, 2, 0}, 0x00, "D"},
        {"privilege too low", 0x32, 0x14, 3, {0, 2, 0}, 0xD4, ""},
        {"privilege is judged before length", 0x32, 0x14, 3, {0, 2}, 0xD4, ""},
        {"no privilege needed for 0xC1", 0x32, 0x14, 0, {0, 3, 0}, 0xC1, ""},
        {"whole filter space, shortest", 0x32, 0x15, 0, {}, 0x00, "E"},
        {"length picks among rows that match", 0x32, 0x15, 0, {7, 1, 2, 3}, 0x00, "F"},
        {"length fits a row of higher privilege only", 0x32, 0x15, 0, Data(8), 0xC7, ""},
        {"the same with that privilege", 0x32, 0x15, 4, Data(8), 0x00, "G"},
        {"unknown command", 0x32, 0x16, 4, {}, 0xC1, ""},
        {"unknown network function", 0x30, 0x12, 4, {}, 0xC1, ""},
        {"network function of an answer", 0x33, 0x12, 4, Data(9), 0xC1, ""},
        {"network function beyond 6 bits", 0xB2, 0x12, 4, Data(9), 0xC1, ""},
        {"longest request", 0x32, 0x23, 0, Data(255, 0xFF), 0x00, nullptr},
        {"request over 255 bytes", 0x32, 0x23, 0, Data(256), 0xC8, ""},
        {"handler that says nothing", 0x32, 0x20, 0, {1}, 0xFF, ""},
        {"the first of two responses counts", 0x32, 0x21, 0, {1}, 0xCE, ""},
        {"responses that cannot be sent do not count", 0x32, 0x22, 0, {1}, 0x00, nullptr},
        {"buffer of an empty request", 0x32, 0x23, 0, {}, 0x00, nullptr},
        {"buffer of a short request", 0x32, 0x23, 0, Data(3, 0xFF), 0x00, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Data expected{c.code};
        if (c.text != nullptr && *c.text != '\0') {
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
    for (const char *wrong :
         {"data", "data[]=00h", "data[1]=0h", "data[1]=000h", "data[1]=00", "data[1]=00h,", ",data[1]=00h",
          "data[1]=00hdata[2]=00h", "data[255]=00h", "data[1000]=00h", "data[-1]=00h", "data[1]=0xh", "data[1]=-1h"}) {
        EXPECT_EQ(parse_filter(wrong), std::nullopt) << wrong;
    }
}

TEST(IpmiRegistry, TakesNoneOfTheRowsWhenOneIsUnusable) {
    std::array faults{row(1, "data[1]", 0, 0, 1, ""), row(1, "", 0, 2, 1, ""), row(1, "", 0, 0, 1, "", nullptr),
                      row(1, "", 0, 0, 1, "")};
    faults.back().netfn = 0x33;
    for (const IPMI_CMD_S &fault : faults) {
        IpmiRegistry registry;
        EXPECT_FALSE(registry.add(std::array{kRows[4], fault}));
        EXPECT_EQ(registry.serve({.netfn = 0x32, .cmd = 0x15}), Data{0xC1});
    }
}

} // namespace
} // namespace asd_host
