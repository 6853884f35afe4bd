// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "loop_queue.h"

#include <cstdint>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace asd_host {

bool LoopQueue::open() {
    event_ = Fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return static_cast<bool>(event_);
}

void LoopQueue::post(Task task) {
    bool first = false;
    {
        const std::lock_guard lock(mutex_);
        first = tasks_.empty();
        tasks_.push_back(std::move(task));
    }
    if (!first) {
        return; // who posted the first one makes it readable
    }
    const std::uint64_t one = 1;
    // Fails only when it is readable already.
    [[maybe_unused]] const ssize_t written = write(event_.get(), &one, sizeof one);
}

void LoopQueue::attach() {
    source_ = attached_fd(event_.get(), G_IO_IN, on_readable, this);
}

void LoopQueue::detach() {
    source_.reset();
}

gboolean LoopQueue::on_readable(gint fd, GIOCondition /*condition*/, gpointer queue) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = read(fd, &count, sizeof count); // empties it
    static_cast<LoopQueue *>(queue)->run_tasks();
    return G_SOURCE_CONTINUE;
}

// What is posted meanwhile has made the descriptor readable again.
void LoopQueue::run_tasks() {
    std::deque<Task> tasks;
    {
        const std::lock_guard lock(mutex_);
        tasks.swap(tasks_);
    }
    for (const Task &task : tasks) {
        task();
    }
}

} // namespace asd_host
