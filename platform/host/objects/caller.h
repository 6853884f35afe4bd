// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Who asks for what runs on a thread, and which values it has changed meanwhile.

#include "object_store.h"
#include "platform_types.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace asd_host {

// What a request has done to an item's value.
struct ValueChange {
    std::optional<Bytes> before; // the value in memory, where the request has set it to now
    Bytes now;
    std::optional<Bytes> stored; // what it has written to a copy, checksum included
};

// Lives on the thread that carries a request out, around all of it; one at a time.
class Caller {
public:
    // The door in an operator's words; user is asked only when there is something to tell, and may block.
    Caller(std::string_view door, std::function<std::string()> user);
    ~Caller(); // tells of the changes
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    // The one on this thread; null: nobody asks for what runs here.
    [[nodiscard]] static Caller *here();

    void note_value(OBJ_HANDLE item, const Bytes &before, const Bytes &now);
    void note_stored(OBJ_HANDLE item, Bytes record);

    [[nodiscard]] std::string_view door() const { return door_; }
    [[nodiscard]] std::string user() const { return user_(); }
    [[nodiscard]] const std::map<OBJ_HANDLE, ValueChange> &changes() const { return changes_; }

private:
    std::string_view door_;
    std::function<std::string()> user_;
    std::map<OBJ_HANDLE, ValueChange> changes_; // by item
};

// Who is told, on the caller's thread, when it has changed something. Set before other threads exist; until then nobody
// is.
using ChangesTeller = void (*)(const Caller &caller);
void tell_of_changes(ChangesTeller teller);

} // namespace asd_host
