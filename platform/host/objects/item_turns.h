// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// One request of an item at a time, whichever door it came through.
//
// The writes of two chips and of a check flag are several transfers, and nothing in the module spans them: of two
// writers each could win one copy.

#include "platform_types.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace asd_host {

// Any thread.
class ItemTurns {
public:
    // Waits until those who came before have given the item's turn back. False: not within the limit, and nothing is to
    // be given back.
    [[nodiscard]] bool take(OBJ_HANDLE item, std::chrono::milliseconds limit);
    void give_back(OBJ_HANDLE item);

private:
    struct Waiting {
        OBJ_HANDLE item = 0;
        std::condition_variable called;
        bool has_turn = false;
    };
    std::mutex mutex_;              // guards the fields below
    std::vector<OBJ_HANDLE> busy_;  // items whose turn is taken: few, and nothing is allocated for the next one
    std::deque<Waiting *> waiting_; // for any of them, in order
};

// A turn at an item of this process, given back by the destructor. Item 0 stands for none and has the turn at once.
class ItemTurn {
public:
    // Long enough for 64 writes of a small pair, short enough for the clients' own limits.
    static constexpr std::chrono::milliseconds kLimit{10000};

    // Blocks up to the limit.
    explicit ItemTurn(OBJ_HANDLE item, std::chrono::milliseconds limit = kLimit);
    ~ItemTurn();
    ItemTurn(const ItemTurn &) = delete;
    ItemTurn &operator=(const ItemTurn &) = delete;
    [[nodiscard]] explicit operator bool() const { return taken_; } // false: it was not had within the limit
    void give_back();                                               // once; the destructor then has nothing to do

private:
    OBJ_HANDLE item_;
    bool taken_;
};

} // namespace asd_host
