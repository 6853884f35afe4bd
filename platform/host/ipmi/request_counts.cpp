// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "request_counts.h"

#include <algorithm>

namespace asd_host {

void RequestCounts::note(std::string_view door, std::uint8_t code, std::chrono::nanoseconds took) {
    const auto *const bound =
        std::ranges::find_if(kBounds, [took](std::chrono::milliseconds limit) { return took <= limit; });
    const std::lock_guard lock(mutex_);
    auto found = doors_.find(door);
    if (found == doors_.end()) {
        found = doors_.emplace(door, Door()).first;
    }
    ++found->second.answers[code];
    ++found->second.durations[static_cast<std::size_t>(bound - kBounds.begin())];
    found->second.time += took;
}

std::map<std::string, RequestCounts::Door, std::less<>> RequestCounts::all() const {
    const std::lock_guard lock(mutex_);
    return doors_;
}

RequestCounts &request_counts() {
    static RequestCounts &counts = *new RequestCounts;
    return counts;
}

} // namespace asd_host
