// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What every door does round a request that works on one item: its turn, and telling what was written.

#include "item_turns.h"
#include "platform_types.h"

#include <vector>

namespace asd_host {

// Lives on the thread that carries the request out, one at a time, around the module's handler and outside its locks.
class ItemRequest {
public:
    // Waits for the item's turn, up to ItemTurn::kLimit; item 0: the request is of no item.
    explicit ItemRequest(OBJ_HANDLE item);
    ~ItemRequest();
    ItemRequest(const ItemRequest &) = delete;
    ItemRequest &operator=(const ItemRequest &) = delete;

    [[nodiscard]] bool has_turn() const { return static_cast<bool>(turn_); } // false: it is not to be carried out

    // After the handler and before the answer: gives the turn back and tells of the chips that the handler has written,
    // which may block for as long as that takes.
    void end();

private:
    ItemTurn turn_;
    std::vector<OBJ_HANDLE> written_; // chips
};

// Who is told, on a request's thread, which chips the request has written. Set before other threads exist; until then
// nobody is.
using WrittenChips = void (*)(const std::vector<OBJ_HANDLE> &chips);
void tell_of_written_chips(WrittenChips teller);

// Notes that a chip was written, for the request on this thread; does nothing when there is none.
void note_chip_written(OBJ_HANDLE chip);

} // namespace asd_host
