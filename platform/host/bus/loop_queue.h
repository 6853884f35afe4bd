// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Work handed to the thread of a GLib main loop. A queue of our own, so that nothing of GLib's is shared between
// threads.

#include "fd.h"
#include "gio_holders.h"

#include <deque>
#include <functional>
#include <mutex>

namespace asd_host {

class LoopQueue {
public:
    using Task = std::function<void()>;

    [[nodiscard]] bool open(); // false: no descriptor is left

    // Any thread. What a task captures is plain data; tasks run in the order they were posted.
    void post(Task task);

    // On the loop's thread: tasks run there from now on, or no longer.
    void attach();
    void detach();

private:
    static gboolean on_readable(gint fd, GIOCondition condition, gpointer queue);
    void run_tasks();

    Fd event_; // readable while tasks wait
    SourcePtr source_;
    std::mutex mutex_; // guards tasks_
    std::deque<Task> tasks_;
};

} // namespace asd_host
