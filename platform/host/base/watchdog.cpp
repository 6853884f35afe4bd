// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "watchdog.h"

#include "log.h"
#include "thread_start.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

#include <glib.h>
#include <pthread.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr std::uint64_t kLongestUs = 86'400'000'000; // a day: longer than anybody waits for a service that hangs

std::string_view variable(const char *name) {
    const char *value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets variables
    return value == nullptr ? "" : value;
}

} // namespace

std::optional<std::chrono::milliseconds> watchdog_interval() {
    const std::string_view text = variable("WATCHDOG_USEC");
    const std::string_view process = variable("WATCHDOG_PID"); // of a parent that passes its environment on, perhaps
    if (text.empty() || (!process.empty() && process != std::to_string(getpid()))) {
        return std::nullopt;
    }
    std::uint64_t microseconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), microseconds);
    constexpr std::uint64_t kShortestUs = 2000; // below it the half is not a millisecond
    if (error != std::errc() || end != text.data() + text.size() || microseconds < kShortestUs ||
        microseconds > kLongestUs) {
        HOST_LOG(kLogError,
                 "WATCHDOG_USEC is not a number of microseconds from %llu to %llu: \"%s\"; the service manager is not "
                 "told whether the service works",
                 static_cast<unsigned long long>(kShortestUs), static_cast<unsigned long long>(kLongestUs),
                 std::string(text).c_str());
        return std::nullopt;
    }
    return std::chrono::milliseconds(microseconds / 2000);
}

Watchdog::~Watchdog() {
    stop();
}

void Watchdog::start(std::chrono::milliseconds interval, std::function<std::vector<Pulse>()> looks,
                     std::function<void(std::string_view)> tell) {
    looks_ = std::move(looks);
    tell_ = std::move(tell);
    if (const int error = start_thread(&thread_, [this, interval] { run(interval); }); error != 0) {
        HOST_LOG(kLogError, "no thread to tell the service manager that the service works: %s; it will kill it",
                 g_strerror(error));
    }
}

void Watchdog::stop() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    stop_asked_.notify_all();
    thread_.join();
}

void Watchdog::run(std::chrono::milliseconds interval) {
    (void)pthread_setname_np(pthread_self(), "watchdog"); // a name for people
    Stalls stalls;
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        lock.unlock();
        if (stalls.look(looks_(), interval)) {
            tell_("WATCHDOG=1");
        }
        lock.lock();
        (void)stop_asked_.wait_for(lock, interval, [this] { return stopping_; });
    }
}

} // namespace asd_host
