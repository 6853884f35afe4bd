// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "clock.h"

#include <algorithm>
#include <atomic>

#include <time.h>

namespace asd_host {
namespace {

constexpr std::uint64_t kNanosecondsPerMillisecond = 1000000;
constexpr std::uint64_t kLongestWait = 0x3FFFFFFFFFFFFFFF / kNanosecondsPerMillisecond; // 146 years

// Nanoseconds; 584 years of them.
std::uint64_t since_boot() {
    timespec now{};
    (void)clock_gettime(CLOCK_BOOTTIME, &now); // cannot fail: the clock exists and the pointer is valid
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 * kNanosecondsPerMillisecond +
           static_cast<std::uint64_t>(now.tv_nsec);
}

// Set before other threads exist; atomic because tests set them again.
std::atomic<std::uint32_t> time_scale{1};
std::atomic<std::uint64_t> start_ns{since_boot()};

} // namespace

void clock_set_scale(std::uint32_t scale) {
    time_scale = std::max<std::uint32_t>(scale, 1);
    start_ns = since_boot();
}

std::chrono::nanoseconds clock_real(std::uint64_t milliseconds) {
    const std::uint64_t nanoseconds = std::min(milliseconds, kLongestWait) * kNanosecondsPerMillisecond / time_scale;
    return std::chrono::nanoseconds(static_cast<std::chrono::nanoseconds::rep>(nanoseconds));
}

std::uint64_t clock_ticks() {
    const std::uint64_t elapsed = since_boot() - start_ns;
    const std::uint64_t whole = elapsed / kNanosecondsPerMillisecond * time_scale;
    const std::uint64_t rest = elapsed % kNanosecondsPerMillisecond * time_scale / kNanosecondsPerMillisecond;
    return start_ns / kNanosecondsPerMillisecond + whole + rest;
}

} // namespace asd_host
