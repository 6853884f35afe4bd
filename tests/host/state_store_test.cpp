// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What the host keeps beside the chips: state files, emulated lines, the board's CPLD and role.

#include "board_state.h"
#include "history.h"
#include "host_test.h"
#include "state_store.h"
#include "write_protect.h"

namespace {

using namespace asd_host;
using namespace asd_test;

class State : public testing::Test {
protected:
    ScratchFolder folder_;
    fs::path file_ = folder_.path() / "values";
    std::string mistake_;
};

TEST_F(State, HistoryIsBoundedKeepsNoKeysAndStopsNothing) {
    const auto none = [] { return std::string("uid 7"); };
    const Caller caller("IPMI", none);
    const ItemConfig text{.name = "ASD11", .length = 4, .chips = {}}, key{.name = "ASD7", .length = 4, .chips = {}};
    History history;
    history.set_folder(folder_.path());
    const struct {
        const ItemConfig *item;
        ValueChange change;
        Bytes in_memory;
        const char *line; // behind the time; empty: no change
    } rows[] = {
        // clang-format off
        {&text, {Bytes{1, 2}, {3}, Bytes{3, 9}},    {3},    "IPMI\tuid 7\tASD11\tstored\t2\t0102\t1\t03\n"},
        {&text, {Bytes{3}, {4}, {}},                {4},    "IPMI\tuid 7\tASD11\tin-memory\t1\t03\t1\t04\n"},
        {&text, {Bytes{4}, {4}, Bytes{6,6,6,6,9,9}}, {4},   "IPMI\tuid 7\tASD11\ton-parts\t1\t04\t4\t06060606\n"},
        {&text, {Bytes{4}, {4}, {}},                {4},    ""},
        {&key,  {Bytes{1}, {2, 3}, {}},             {2, 3}, "IPMI\tuid 7\tASD7\tin-memory\t1\t\t2\t\n"},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        const std::size_t before = history.lines("").size();
        history.add(*row.item, caller, row.change, row.in_memory);
        const std::string added = history.lines("").substr(before);
        EXPECT_EQ(added.empty() ? added : added.substr(added.find('\t') + 1), row.line);
    }
    EXPECT_EQ(history.lines("ASD7"), history.lines("").substr(history.lines("ASD11").size()));
    std::ofstream(folder_.path() / "history", std::ios::app) << "1\t2\n\x01\t\t\t\t\t\t\t\t\n1\tIPMI\tuid 7\tASD11";
    EXPECT_EQ(std::ranges::count(history.lines(""), '\n'), 4) << "what is torn or strange is left out";
    fs::remove_all(folder_.path()); // said once
    const Texts said = logged([&] {
        for (int i = 0; i < 2; ++i) {
            history.add(text, caller, {Bytes{1}, {2}, {}}, {2});
        }
    });
    EXPECT_EQ(std::ranges::count_if(said, [](const auto &line) { return line.find("cannot be kept") != line.npos; }),
              1);
    fs::create_directory(folder_.path());
    for (std::size_t i = 0; i < 3 * History::kFileLimit / 300; ++i) { // lines of over 300 bytes: the oldest go
        history.add(text, caller, {Bytes(99, 1), Bytes(99, 2), {}}, Bytes(99, 2));
    }
    for (const char *name : {"history", "history.old"}) {
        EXPECT_TRUE(fs::file_size(folder_.path() / name) <= History::kFileLimit &&
                    fs::status(folder_.path() / name).permissions() == fs::perms(0600));
    }
}

TEST_F(State, OnlyChangesAreWrittenAndAFailedOneChangesNothing) {
    StateStore store;
    ASSERT_TRUE(store.open(file_, &mistake_)) << mistake_;
    EXPECT_EQ(store.put_all({{1, {1}}, {8, {}}, {0xFFFFFFFF, {1, 2, 3}}}), 0);
    fs::remove(file_);
    EXPECT_EQ(store.put(1, Bytes{1}), 0);
    EXPECT_FALSE(fs::exists(file_)) << "an unchanged value is not written";
    EXPECT_EQ(store.put(2, Bytes(StateStore::kLargestFile)), kStorageFailed);
    fs::remove_all(folder_.path());
    EXPECT_EQ(store.put_all({{1, {2}}, {2, {2}}}), kStorageFailed);
    fs::create_directory(folder_.path());
    EXPECT_EQ(store.put(1, Bytes{1}), 0) << "unchanged, but the file may not say so";
    StateStore again;
    ASSERT_TRUE(again.open(file_, &mistake_)) << mistake_;
    for (const StateStore *one : {&store, &again}) {
        EXPECT_TRUE(one->get(1) == Bytes{1} && one->get(8) == Bytes{} && one->get(0xFFFFFFFF) == (Bytes{1, 2, 3}));
        EXPECT_FALSE(one->get(2));
    }
    fs::create_directories(file_.string() + "s/x"); // a folder can't be replaced by a file, and leaves no temporary one
    EXPECT_EQ(replace_file(file_.string() + "s", Bytes(1), 0600), EISDIR);
    EXPECT_FALSE(fs::exists(file_.string() + "s.tmp"));
}

TEST_F(State, DamageAnywhereIsSetAside) {
    StateStore store;
    ASSERT_TRUE(store.open(file_, &mistake_));
    ASSERT_EQ(store.put(0x11, Bytes{0x55}), 0);
    const Bytes good = content_of(file_);
    for (std::size_t i = 0; i < 2 * good.size(); ++i) { // a flipped bit, then a file that is cut short
        SCOPED_TRACE(i);
        Bytes damaged = good;
        damaged[i % good.size()] ^= 0x01U;
        damaged.resize(i < good.size() ? good.size() : i - good.size());
        ASSERT_EQ(replace_file(file_, damaged, 0600), 0);
        StateStore reopened;
        ASSERT_TRUE(reopened.open(file_, &mistake_)) << mistake_;
        EXPECT_FALSE(reopened.get(0x11));
        EXPECT_EQ(content_of(file_.string() + ".damaged"), damaged);
        EXPECT_EQ(reopened.put(0x11, Bytes{0x66}), 0);
    }
}

TEST_F(State, WhatCannotBeReadIsAMistakeNotAnEmptyMap) {
    StateStore store;
    ASSERT_EQ(::mkfifo((folder_.path() / "fifo").c_str(), 0600), 0);
    std::ofstream(folder_.path() / "giant").close();
    fs::resize_file(folder_.path() / "giant", 1ULL << 36U);
    const std::pair<const char *, const char *> rows[] = {
        {".", "it is a folder"}, {"fifo", "it is no plain file"}, {"giant", "it is too large"}};
    for (const auto &[name, reason] : rows) {
        EXPECT_FALSE(store.open(folder_.path() / name, &mistake_));
        EXPECT_EQ(mistake_, (folder_.path() / name).string() + ": cannot be read: " + reason +
                                "; move it away, or put the right one in its place");
    }
    // "ASDSTATE", version 2, no values.
    const Bytes later = {'A', 'S', 'D', 'S', 'T', 'A', 'T', 'E', 2, 0, 0, 0, 0, 0, 0, 0, 0x7B, 0x41, 0x78, 0x51};
    ASSERT_EQ(replace_file(file_, later, 0600), 0);
    EXPECT_FALSE(store.open(file_, &mistake_));
    EXPECT_NE(mistake_.find("later version"), std::string::npos) << mistake_;
    EXPECT_EQ(content_of(file_), later);
}

TEST_F(State, LinesStartProtectedAndAreShown) {
    const fs::path gpio = folder_.path() / "gpio";
    const auto shown = [&](const char *line) { return content_of<std::string>(gpio / line); };
    fs::create_directory(gpio);
    for (const char *no_line : {"x", "7x", "99999999999"}) {
        std::ofstream(gpio / no_line) << "1\n";
    }
    {
        WriteProtectLines before;
        ASSERT_TRUE(before.open(gpio, &mistake_)) << mistake_;
        EXPECT_EQ(before.write(55, 1), 0);
        EXPECT_EQ(before.write(7, 1), 0);
        EXPECT_EQ(shown("39") + shown("55") + shown("7"), "0\n1\n1\n");
    } // killed with two lines open
    WriteProtectLines lines;
    ASSERT_TRUE(lines.open(gpio, &mistake_)) << mistake_;
    EXPECT_EQ(shown("39") + shown("55") + shown("7"), "0\n0\n0\n");
    EXPECT_TRUE(lines.level(55) == 0 && lines.level(99) == 0 && lines.levels().size() == 4);
    EXPECT_EQ(lines.init(7, 0), kBadArgument);
    fs::remove_all(gpio);
    EXPECT_EQ(lines.write(55, 1), 0) << "a run folder that is full must not keep the chips protected";
    EXPECT_EQ(lines.level(55), 1U);
}

class Board : public State {
protected:
    void open(BoardState &board, std::uint8_t slot, Role role = Role::kAuto) {
        Options options;
        options.slot = slot;
        options.run_dir = options.state_dir = folder_.path();
        fs::create_directories(options.slot_state_dir());
        Enclosure enclosure;
        enclosure.role = role;
        ASSERT_TRUE(board.open(options, enclosure, &mistake_)) << mistake_;
    }
};

TEST_F(Board, OneControllerIsMasterUntilItDies) {
    auto first = std::make_unique<BoardState>();
    BoardState second;
    open(*first, 0);
    open(second, 1);
    EXPECT_EQ(first->role(), BOARD_MASTER);
    EXPECT_EQ(second.role(), BOARD_SLAVE);
    // Somebody tidies up: there is never a second master, whoever asks first, and the first one makes the file anew.
    for (const char *file : {"master.lock", "role.lock"}) {
        for (const bool rename : {false, true}) {
            SCOPED_TRACE(file);
            const fs::path lock = folder_.path() / file;
            rename ? fs::rename(lock, folder_.path() / "elsewhere") : static_cast<void>(fs::remove(lock));
            const bool first_asks_first = fs::path(file) == "role.lock"; // in one of the two places it has to
            const BOARD_MOS_E early = first_asks_first ? first->role() : second.role();
            EXPECT_EQ(early, first_asks_first ? BOARD_MASTER : BOARD_SLAVE);
            EXPECT_EQ(first->role(), BOARD_MASTER);
            EXPECT_EQ(second.role(), BOARD_SLAVE);
            EXPECT_TRUE(fs::exists(lock));
        }
    }
    fs::remove(folder_.path() / "master.lock");
    fs::create_directory(folder_.path() / "master.lock"); // nothing to be locked: the role is given up, and said once
    expect_line("cannot be locked, so that this controller has no role: ",
                [&] { EXPECT_TRUE(first->role() == BOARD_MOS_ERROR && first->role() == BOARD_MOS_ERROR); });
    fs::remove(folder_.path() / "master.lock");
    EXPECT_EQ(first->role(), BOARD_MASTER);
    first.reset();
    EXPECT_EQ(second.role(), BOARD_MASTER);
}

TEST_F(Board, CpldFieldsRegistersAndFlashOutliveTheProcess) {
    {
        BoardState board;
        open(board, 0, Role::kSlave);
        EXPECT_EQ(board.set_cpld_register(0x1F8, 0x80000102), 0);
        EXPECT_EQ(board.set_cpld_bit(0x1000, 0, true), kBadArgument) << "the file must not grow without bound";
        EXPECT_EQ(board.set_cpld_field(CpldField::kProductConfiguration, Bytes(64, 4)), 0);
        EXPECT_EQ(board.set_cpld_field(CpldField::kFrameModel, Bytes(16, 7)), 0);
        EXPECT_EQ(board.set_cpld_field(CpldField::kFrameModel, Bytes(3, 8)), 0);
        EXPECT_EQ(board.set_cpld_field(CpldField::kWwn, Bytes(7, 1)), kBadArgument);
        EXPECT_EQ(board.set_cpld_field(CpldField::kWwn, Bytes()), kBadArgument);
    }
    BoardState board;
    open(board, 0, Role::kSlave);
    EXPECT_EQ(board.role(), BOARD_SLAVE);
    EXPECT_EQ(board.cpld_register(0x1F8), 0x80000102U);
    EXPECT_FALSE(board.cpld_ram.get(0xCE00));
    EXPECT_EQ(board.cpld_ram.get(0xCE12), Bytes{8});
    EXPECT_EQ(board.cpld_ram.get(0xCE13), Bytes{0}) << "a shorter value leaves nothing of the longer one";
    EXPECT_EQ(board.cpld_ram.get(0xCE7F), Bytes{4});
}

} // namespace
