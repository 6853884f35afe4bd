// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Items that could not be loaded when the controller became master are loaded when their part answers again.

#include "platform_types.h"
#include "rounds.h"

#include <chrono>

namespace asd_host {

struct Host;

// Notes how the module's read of a chip ended: a chip whose last read failed makes its item a candidate. Any thread.
void note_chip_read(OBJ_HANDLE chip, gint32 status);

// A thread that looks every two seconds, while this controller is master, at the parts of such chips and at no others:
// a byte is read; where it comes, the items of these chips that are online and not ready are read, each in its turn.
// An item without a record whose checksum is good stays not ready.
class LateLoad {
public:
    explicit LateLoad(Host &platform); // which outlives it

    // Looks at every part once, for half a second at most in all, so that the first load does not wait for parts that
    // are dead already, and starts the thread. Without a thread the log says so, and nothing is loaded late.
    void start();

    // Begins nothing any more. False: a transfer is still under way after the limit; the process must not destroy what
    // it uses.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);

private:
    Host &platform_;
    Rounds rounds_;
};

} // namespace asd_host
