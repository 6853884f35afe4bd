// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_turns.h"

#include <algorithm>
#include <utility>

namespace asd_host {
namespace {

// Never destroyed: a door that is still busy at the end of the process uses it.
ItemTurns &process_turns() {
    static ItemTurns &turns = *new ItemTurns;
    return turns;
}

} // namespace

bool ItemTurns::take(OBJ_HANDLE item, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    if (std::ranges::find(busy_, item) == busy_.end()) {
        busy_.push_back(item);
        return true;
    }
    Waiting self;
    self.item = item;
    waiting_.push_back(&self);
    if (self.called.wait_for(lock, limit, [&self] { return self.has_turn; })) {
        return true;
    }
    std::erase(waiting_, &self);
    return false;
}

void ItemTurns::give_back(OBJ_HANDLE item) {
    const std::lock_guard lock(mutex_);
    const auto first = std::ranges::find(waiting_, item, &Waiting::item);
    if (first == waiting_.end()) {
        std::erase(busy_, item);
        return;
    }
    Waiting *next = *first;
    waiting_.erase(first);
    next->has_turn = true;
    next->called.notify_one(); // with the mutex held: it is gone as soon as its thread has seen it
}

ItemTurn::ItemTurn(OBJ_HANDLE item, std::chrono::milliseconds limit)
    : item_(item), taken_(item == 0 || process_turns().take(item, limit)) {}

ItemTurn::~ItemTurn() {
    give_back();
}

void ItemTurn::give_back() {
    const OBJ_HANDLE item = std::exchange(item_, 0);
    if (taken_ && item != 0) {
        process_turns().give_back(item);
    }
}

} // namespace asd_host
