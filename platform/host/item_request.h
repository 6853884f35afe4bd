// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What every door does round a request that works on one item: its turn, and on a controller that is not the master,
// telling the master what was written.

#include "item_turns.h"
#include "platform_types.h"

#include <cstdint>
#include <string_view>
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

    // After the handler and before the answer: gives the turn back. When this controller is not the master and the
    // handler has written chips on shared parts, their items are read again by the master; waits up to a second for
    // that, and says in the log when a master may not have done it.
    void end();

private:
    ItemTurn turn_;
    std::vector<OBJ_HANDLE> written_; // chips
};

// Notes that a chip was written, for the request on this thread; does nothing when there is none.
void note_chip_written(OBJ_HANDLE chip);

// The object of that name, which may be null; 0: there is none.
[[nodiscard]] OBJ_HANDLE item_named(const char *name);

// Carries out a peer's wish that the master read an item from its chips again. The completion code: 0x00 done, 0xC0 its
// turn did not come within a second, 0xCB no such item, 0xD5 this controller is not the master, 0xFF the chips hold no
// good record or cannot be read (the log says why). Blocks for the transfers.
[[nodiscard]] std::uint8_t reload_for_peer(std::string_view name);

} // namespace asd_host
