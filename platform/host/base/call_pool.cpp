// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "call_pool.h"

#include "thread_start.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <utility>

#include <glib.h>
#include <pthread.h>

namespace asd_host {

// Kept by the pool and by each of its threads.
struct CallPoolShared {
    struct Call {
        OBJ_HANDLE object = 0;
        std::uint64_t number = 0;
        CallPool::Work work;
    };
    std::mutex mutex; // guards the fields below
    std::condition_variable changed;
    std::deque<Call> waiting;
    std::set<OBJ_HANDLE> busy; // objects with a running call
    bool ending = false;

    [[nodiscard]] std::deque<Call>::iterator next() {
        return std::ranges::find_if(waiting, [this](const Call &call) { return !busy.contains(call.object); });
    }
};

namespace {

void run_calls(const std::shared_ptr<CallPoolShared> &shared) {
    (void)pthread_setname_np(pthread_self(), "call"); // a name for people
    std::unique_lock lock(shared->mutex);
    for (;;) {
        shared->changed.wait(lock, [&shared] { return shared->ending || shared->next() != shared->waiting.end(); });
        if (shared->ending) {
            return;
        }
        const auto next = shared->next();
        CallPoolShared::Call call = std::move(*next);
        shared->waiting.erase(next);
        shared->busy.insert(call.object);
        lock.unlock();
        call.work();
        call.work = nullptr;
        lock.lock();
        shared->busy.erase(call.object);
        // What has become free is at most one call that waits, and this thread looks for it next: nobody else is woken.
        if (shared->ending) {
            shared->changed.notify_all();
        }
    }
}

} // namespace

CallPool::CallPool(std::size_t threads) : thread_count_(threads), shared_(std::make_shared<CallPoolShared>()) {}

CallPool::~CallPool() {
    (void)stop(std::chrono::seconds(1)); // a call that is still running keeps what it uses
}

bool CallPool::start(std::string *mistake) {
    while (threads_.size() < thread_count_) {
        std::thread thread;
        if (const int error = start_thread(&thread, [shared = shared_] { run_calls(shared); }); error != 0) {
            *mistake = std::string("no thread for method calls: ") + g_strerror(error);
            return false;
        }
        threads_.push_back(std::move(thread));
    }
    return true;
}

CallPool::Taken CallPool::run(OBJ_HANDLE object, Work work, std::uint64_t number) {
    {
        const std::lock_guard lock(shared_->mutex);
        if (shared_->ending) {
            return Taken::kEnding;
        }
        if (shared_->waiting.size() >= kWaiting) {
            return Taken::kFull;
        }
        shared_->waiting.push_back({.object = object, .number = number, .work = std::move(work)});
    }
    shared_->changed.notify_one(); // not under the lock, which the woken thread takes first
    return Taken::kYes;
}

bool CallPool::withdraw(std::uint64_t number) {
    const std::lock_guard lock(shared_->mutex);
    return std::erase_if(shared_->waiting, [number](const auto &call) { return call.number == number; }) > 0;
}

bool CallPool::stop(std::chrono::milliseconds limit) {
    if (threads_.empty()) {
        return true; // nothing runs, or it has been left to itself
    }
    bool idle = false;
    {
        std::unique_lock lock(shared_->mutex);
        shared_->ending = true;
        shared_->changed.notify_all();
        idle = shared_->changed.wait_for(lock, limit, [this] { return shared_->busy.empty(); });
    }
    for (std::thread &thread : threads_) {
        idle ? thread.join() : thread.detach();
    }
    threads_.clear();
    return idle;
}

} // namespace asd_host
