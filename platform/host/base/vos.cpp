// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "vos.h"

#include "clock.h"
#include "log.h"
#include "status.h"
#include "tasks.h"
#include "thread_start.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <glib.h>
#include <pthread.h>

namespace asd_host {
namespace {

constexpr std::size_t kThreadNameLimit = 15; // the kernel's

// Outside of a delay. The longest that is right is a load of all items from slow chips whose parts are locked by others
// now and then: seconds; the pauses between tries are delays.
constexpr std::chrono::seconds kLongestWork{120};

struct Task {
    std::string name;
    std::uint64_t begun = 0; // the piece of work that it is at: no two of any tasks are the same
    bool rests = false;      // it is in a delay
};

// Never destroyed: tasks use it until the process is gone.
struct Tasks {
    std::mutex mutex; // guards the fields below
    std::condition_variable ending_began;
    std::condition_variable task_stopped;
    std::condition_variable never;
    gulong last_handle = 0;
    unsigned running = 0;    // neither parked nor returned
    std::list<Task> all;     // that have not returned
    std::uint64_t begun = 0; // pieces of work, of all of them
    bool ending = false;
};

Tasks &tasks() {
    static Tasks &all = *new Tasks;
    return all;
}

// How many semaphores a thread holds; shared with the semaphores, which any thread may give back or delete.
using HeldCount = std::shared_ptr<std::atomic<unsigned>>;

thread_local Task *own_task = nullptr; // its fields are guarded by the tasks' mutex; null: another thread
thread_local HeldCount held_count = std::make_shared<std::atomic<unsigned>>(0);

void task_stopped(Tasks &all) {
    --all.running;
    all.task_stopped.notify_all();
}

void run_task(std::list<Task>::iterator task, VOS_TASK_ENTRY entry, void *argument) {
    // A name for people; the task runs without it as well.
    (void)pthread_setname_np(pthread_self(), task->name.substr(0, kThreadNameLimit).c_str());
    own_task = &*task;
    entry(argument);
    const std::lock_guard lock(tasks().mutex);
    tasks().all.erase(task);
    task_stopped(tasks());
}

// A task sleeps until its time has come, or for good once the service is ending and it holds no semaphore.
void task_delay(std::chrono::nanoseconds duration) {
    Tasks &all = tasks();
    std::unique_lock lock(all.mutex);
    own_task->rests = true;
    const bool may_end = *held_count == 0;
    if (!all.ending_began.wait_for(lock, duration, [&all, may_end] { return may_end && all.ending; })) {
        own_task->rests = false;
        own_task->begun = ++all.begun;
        return;
    }
    task_stopped(all);
    all.never.wait(lock, [] { return false; });
}

struct Semaphore {
    std::mutex mutex; // guards the fields below
    std::condition_variable changed;
    bool taken = false;
    bool deleted = false;
    HeldCount taker;

    void release() { // under mutex, taken
        taken = false;
        --*std::exchange(taker, nullptr);
    }
};

// Never destroyed, like Tasks. Handles are not used again.
struct Semaphores {
    std::mutex mutex; // guards the fields below
    std::map<gulong, std::shared_ptr<Semaphore>> by_handle;
    gulong last_handle = 0;

    [[nodiscard]] std::shared_ptr<Semaphore> find(gulong handle) {
        const std::lock_guard lock(mutex);
        const auto found = by_handle.find(handle);
        return found == by_handle.end() ? nullptr : found->second;
    }
};

Semaphores &semaphores() {
    static Semaphores &all = *new Semaphores;
    return all;
}

} // namespace

bool tasks_park(std::chrono::milliseconds limit) {
    Tasks &all = tasks();
    std::unique_lock lock(all.mutex);
    all.ending = true;
    all.ending_began.notify_all();
    return all.task_stopped.wait_for(lock, limit, [&all] { return all.running == 0; });
}

std::vector<std::string> tasks_running() {
    std::vector<std::string> names;
    const std::lock_guard lock(tasks().mutex);
    for (const Task &task : tasks().all) {
        names.push_back(task.name);
    }
    std::ranges::sort(names);
    return names;
}

std::vector<Pulse> tasks_at_work() {
    std::vector<Pulse> pulses;
    const std::lock_guard lock(tasks().mutex);
    for (const Task &task : tasks().all) {
        if (!task.rests) {
            pulses.push_back({.name = "task " + task.name, .count = task.begun, .bound = kLongestWork});
        }
    }
    return pulses;
}

} // namespace asd_host

using asd_host::semaphores;
using asd_host::tasks;

// The priority is not used: on Linux every task is an ordinary thread of the fair scheduler.
gint32 vos_task_create(gulong *task, const gchar *name, VOS_TASK_ENTRY entry, void *argument, guint32 /*priority*/) {
    if (task == nullptr || entry == nullptr) {
        return asd_host::kBadArgument;
    }
    const std::string shown = name != nullptr ? name : "task";
    const std::lock_guard lock(tasks().mutex);
    const auto added = tasks().all.insert(tasks().all.end(), {.name = shown, .begun = ++tasks().begun});
    const int error =
        asd_host::start_detached_thread([added, entry, argument] { asd_host::run_task(added, entry, argument); });
    if (error != 0) {
        tasks().all.erase(added);
        HOST_LOG(asd_host::kLogError, "task %s cannot be started: %s", shown.c_str(), g_strerror(error));
        return error;
    }
    ++tasks().running;
    *task = ++tasks().last_handle;
    return 0;
}

void vos_task_delay(guint32 milliseconds) {
    const std::chrono::nanoseconds duration = asd_host::clock_real(milliseconds);
    if (asd_host::own_task != nullptr) {
        asd_host::task_delay(duration);
        return;
    }
    std::this_thread::sleep_for(duration);
}

gulong vos_tick_get(void) {
    return asd_host::clock_ticks() & std::numeric_limits<gulong>::max();
}

gint32 vos_thread_mutex_sem4_create(const gchar * /*name*/, gulong *semaphore) {
    if (semaphore == nullptr) {
        return asd_host::kBadArgument;
    }
    const std::lock_guard lock(semaphores().mutex);
    *semaphore = ++semaphores().last_handle;
    semaphores().by_handle.emplace(*semaphore, std::make_shared<asd_host::Semaphore>());
    return 0;
}

// 0, kNoObject (unknown, or deleted while waiting) or kTimedOut.
gint32 vos_thread_sem4_p(gulong semaphore, guint32 timeout_ms) {
    const std::shared_ptr<asd_host::Semaphore> found = semaphores().find(semaphore);
    if (found == nullptr) {
        return asd_host::kNoObject;
    }
    std::unique_lock lock(found->mutex);
    const auto settled = [&found] { return !found->taken || found->deleted; };
    if (timeout_ms == 0) {
        found->changed.wait(lock, settled);
    } else if (!found->changed.wait_for(lock, asd_host::clock_real(timeout_ms), settled)) {
        return asd_host::kTimedOut;
    }
    if (found->deleted) {
        return asd_host::kNoObject;
    }
    found->taken = true;
    found->taker = asd_host::held_count;
    ++*found->taker;
    return 0;
}

// Any thread may give it back. 0, kNoObject, or kBadArgument when nobody has taken it.
gint32 vos_thread_sem4_v(gulong semaphore) {
    const std::shared_ptr<asd_host::Semaphore> found = semaphores().find(semaphore);
    if (found == nullptr) {
        return asd_host::kNoObject;
    }
    const std::lock_guard lock(found->mutex);
    if (!found->taken) {
        return asd_host::kBadArgument;
    }
    found->release();
    found->changed.notify_one();
    return 0;
}

gint32 vos_thread_sem4_delete(gulong semaphore) {
    const std::shared_ptr<asd_host::Semaphore> found = semaphores().find(semaphore);
    if (found == nullptr) {
        return asd_host::kNoObject;
    }
    {
        const std::lock_guard lock(semaphores().mutex);
        semaphores().by_handle.erase(semaphore);
    }
    const std::lock_guard lock(found->mutex);
    found->deleted = true;
    if (found->taken) {
        found->release();
    }
    found->changed.notify_all();
    return 0;
}
