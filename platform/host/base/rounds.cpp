// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "rounds.h"

#include "thread_start.h"

#include <condition_variable>
#include <mutex>
#include <utility>

#include <glib.h>

namespace asd_host {

// Kept by the thread as well, which may outlive a stop that has not waited for it.
struct Rounds::Shared {
    std::mutex mutex; // guards the fields below
    std::condition_variable changed;
    bool running = false;
    bool ending = false;
    bool woken = false;

    [[nodiscard]] bool must_end() {
        const std::lock_guard lock(mutex);
        return ending;
    }

    void run(std::chrono::milliseconds every, const Round &round) {
        std::unique_lock lock(mutex);
        for (;;) {
            (void)changed.wait_for(lock, every, [this] { return ending || woken; });
            if (ending) {
                break;
            }
            woken = false;
            lock.unlock();
            round([this] { return must_end(); });
            lock.lock();
        }
        running = false;
        changed.notify_all();
    }
};

Rounds::Rounds() : shared_(std::make_shared<Shared>()) {}

Rounds::~Rounds() {
    (void)stop(std::chrono::milliseconds(0));
}

bool Rounds::start(std::chrono::milliseconds every, Round round, std::string *mistake) {
    const std::lock_guard lock(shared_->mutex);
    const int error =
        start_detached_thread([shared = shared_, every, round = std::move(round)] { shared->run(every, round); });
    if (error != 0) {
        *mistake = g_strerror(error);
        return false;
    }
    shared_->running = true;
    return true;
}

void Rounds::wake() {
    const std::lock_guard lock(shared_->mutex);
    shared_->woken = true;
    shared_->changed.notify_all();
}

bool Rounds::stop(std::chrono::milliseconds limit) {
    std::unique_lock lock(shared_->mutex);
    shared_->ending = true;
    shared_->changed.notify_all();
    return shared_->changed.wait_for(lock, limit, [this] { return !shared_->running; });
}

} // namespace asd_host
