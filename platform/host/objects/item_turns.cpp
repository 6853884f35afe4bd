// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_turns.h"

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
    const auto [place, is_free] = busy_.try_emplace(item);
    if (is_free) {
        return true;
    }
    Waiting self;
    place->second.push_back(&self);
    if (self.called.wait_for(lock, limit, [&self] { return self.has_turn; })) {
        return true;
    }
    std::erase(place->second, &self); // the place is kept as long as somebody has the turn
    return false;
}

void ItemTurns::give_back(OBJ_HANDLE item) {
    const std::lock_guard lock(mutex_);
    const auto place = busy_.find(item);
    if (place->second.empty()) {
        busy_.erase(place);
        return;
    }
    Waiting *next = place->second.front();
    place->second.pop_front();
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
