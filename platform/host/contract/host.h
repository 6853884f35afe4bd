// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The running platform: what the contract's operations work on.

#include "board_state.h"
#include "bus_names.h"
#include "enclosure.h"
#include "history.h"
#include "lock_file.h"
#include "lookout.h"
#include "object_store.h"
#include "options.h"
#include "part.h"
#include "platform_types.h"
#include "write_protect.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace asd_host {

// Everything that registration brings up. Lives as long as the process (never destroyed: tasks of the module do not
// end).
struct Host {
    Options options;
    Enclosure enclosure;
    ObjectStore objects;
    WriteProtectLines lines;
    BoardState board;
    std::map<std::string, std::unique_ptr<Part>, std::less<>> parts; // by name

    struct Chip { // where a chip object's bytes are
        Part *part = nullptr;
        std::uint32_t offset = 0;
    };
    std::map<OBJ_HANDLE, Chip> chips;
    Lookout lookout{*this};
    History history;

    // Held as long as the process lives: the slot's place in the run folder, and what it keeps in the state folder.
    LockFile instance_lock;
    LockFile state_lock;
    bool state_lock_failed = false; // said already; host_watch's
};

// Brings the platform up: folders, instance lock, parts, board state, objects. Every mistake as a sentence; empty: it
// runs.
[[nodiscard]] std::vector<std::string> host_start(Options options, Enclosure enclosure);

// Looks after the instance's locks: a lock file that has been removed or replaced is made anew, which the log says.
// Empty: go on. Else why this process must end: another one has taken its place, or the run folder has gone, and with
// it the sockets. About twice a second; main thread.
[[nodiscard]] std::string host_watch(Host &host);

// The running platform; null before host_start succeeded.
[[nodiscard]] Host *host();

} // namespace asd_host
