// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tells the service manager again and again that the service works. A manager that hears nothing for WATCHDOG_USEC
// kills the process, and the kernel then frees its locks, the role among them. A thread does it, and only while
// everything that it looks at moves; a process that is stopped tells nothing anyway.

#include "stalls.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

namespace asd_host {

// Half of the time after which the manager kills. Empty: it does not ask this process, or what it says is no number of
// microseconds, which is logged.
[[nodiscard]] std::optional<std::chrono::milliseconds> watchdog_interval();

class Watchdog {
public:
    Watchdog() = default;
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    // Looks at once and then at each interval, and tells "WATCHDOG=1" when nothing hangs. What hangs is logged once,
    // and once more when it moves again. The looks happen on the watchdog's thread, until stop() returns.
    void start(std::chrono::milliseconds interval, std::function<std::vector<Pulse>()> looks,
               std::function<void(std::string_view)> tell);

    // Tells nothing more once it returns, which is at once but for a manager that takes nothing. Nothing without a
    // start.
    void stop();

private:
    void run(std::chrono::milliseconds interval);

    std::function<std::vector<Pulse>()> looks_;
    std::function<void(std::string_view)> tell_;
    std::mutex mutex_; // guards stopping_
    std::condition_variable stop_asked_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace asd_host
