// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// What is said of parts and copies, as truth tables.

#include "host_test.h"
#include "picture.h"

#include <tuple>

namespace {

using namespace asd_host;
using enum Condition;

TEST(Picture, ItemIsAsItsCopiesAre) {
    using Copies = std::vector<CopyView>;
    const CopyView good{"a", kGood, 1}, other{"b", kGood, 2}, blank{"a", kNeverWritten}, wrong{"a", kCorrupt},
        away{"b", kUnreachable}, unread{"b", kNotLoaded};
    const std::tuple<Copies, bool, bool, Condition> rows[] = {
        // clang-format off
        // copies       ready  loading
        {{good},         true,  false, kGood},     {{good, good},   true,  false, kGood},    {{good},         false, false, kNotLoaded},
        {{good},         false, true,  kLoading},  {{good, other},  true,  false, kDiffer},  {{good, wrong},  true,  false, kOneLeft},
        {{blank, good},  true,  false, kOneLeft},  {{blank, away},  true,  false, kOneLeft}, {{blank, blank}, true,  false, kNeverWritten},
        {{wrong, blank}, true,  false, kCorrupt},  {{wrong, away},  true,  false, kCorrupt}, {{away},         true,  false, kUnreachable},
        {{good, unread}, true,  false, kInMemory}, {{unread},       false, false, kNotLoaded}, {{unread},     true,  true,  kLoading},
        // clang-format on
    };
    for (const auto &[copies, ready, loading, expected] : rows) {
        SCOPED_TRACE(&copies - &std::get<0>(rows[0]));
        EXPECT_EQ(item_condition(ready, loading, copies), expected);
    }
}

TEST(Picture, LossesAreSaidPartByPart) {
    const auto item = [](const char *name, Condition condition, std::vector<CopyView> copies) {
        return ItemView{.name = name, .condition = condition, .copies = std::move(copies)};
    };
    Picture picture{.role = "master",
                    .parts = {{.name = "a"}, {.name = "b", .condition = kSilent, .reason = "Connection timed out"}},
                    .items = {item("ASD14", kOneLeft, {{"a", kGood, 1}, {"b", kUnreachable}}),
                              item("ASD15", kCorrupt, {{"a", kCorrupt}, {"b", kUnreachable}}),
                              item("ASD16", kUnreachable, {{"b", kUnreachable}}),
                              item("ASD26", kCorrupt, {{"a", kCorrupt}}),
                              item("ASD27", kNeverWritten, {{"a", kNeverWritten}})}};
    const std::string out =
        "b does not answer (Connection timed out): 1 item has one copy left, 2 items are not reachable";
    EXPECT_EQ(concerns_of(picture), (std::vector<Concern>{{"silent", out, {"ASD15", "ASD16"}},
                                                          {"damaged", "1 item is damaged on a", {"ASD26"}}}));
    const std::string counts = "1 never written, 2 damaged, 1 not reachable, 1 with one copy left";
    EXPECT_EQ(summary_of(picture), "master; 5 items: " + counts + "; " + out + "; 1 item is damaged on a");
    EXPECT_EQ(load_summary_of(picture, std::chrono::milliseconds(314)),
              "load done in 0.31 s: 5 items, " + counts + ": specification (ASD26), copy on a; " + out);
    picture = {.role = "slave",
               .parts = {},
               .items = {item("ASD11", kOneLeft, {{"a", kCorrupt}, {"b", kGood}}),
                         item("ASD14", kOneLeft, {{"a", kCorrupt}, {"b", kGood}}),
                         item("ASD20", kDiffer, {{"a", kGood, 1}, {"b", kGood, 2}})}};
    EXPECT_EQ(concerns_of(picture),
              (std::vector<Concern>{
                  {"copies-differ", "1 item has copies that differ", {"ASD20"}},
                  {"one-copy-left", "2 items have one copy left, that on a is damaged", {"ASD11", "ASD14"}}}));
    picture = {.role = "slave",
               .parts = {{.name = "a", .condition = kUnwritable, .reason = "Read-only file system"}},
               .items = {}};
    EXPECT_EQ(summary_of(picture), "slave; 0 items: ; a can only be read (Read-only file system)");
    picture = {.role = "slave",
               .parts = {{.name = "c", .condition = kWrongSize}},
               .items = {item("ASD98", kDiffer, {}), item("ASD99", kDiffer, {})}};
    for (int i = 0; i < 10; ++i) { // more than a line names; of these no label is known
        picture.items.push_back(item(("X" + std::to_string(i)).c_str(), kCorrupt, {{"a", kCorrupt}, {"b", kCorrupt}}));
    }
    EXPECT_EQ(concerns_of(picture).back().text, "10 items are damaged on both parts");
    const std::string said = load_summary_of(picture, std::chrono::milliseconds(0));
    EXPECT_NE(said.find("; X5, both copies; and 4 more; c has the wrong size"), std::string::npos) << said;
    EXPECT_EQ(item_condition(false, false, {}), kNotLoaded);
}

} // namespace
