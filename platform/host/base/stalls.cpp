// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "stalls.h"

#include "log.h"

#include <utility>

namespace asd_host {

bool Stalls::look(const std::vector<Pulse> &pulses, std::chrono::milliseconds later) {
    std::map<Pulse, std::chrono::milliseconds> still;
    bool all_move = true;
    for (const Pulse &pulse : pulses) {
        const auto before = still_.find(pulse);
        if (before == still_.end()) {
            still.emplace(pulse, 0);
            continue;
        }
        const auto age = before->second + later;
        still.emplace(pulse, age);
        if (age <= pulse.bound) {
            continue;
        }
        all_move = false;
        if (before->second <= pulse.bound) {
            HOST_LOG(
                kLogError,
                "%s hangs: it has not moved for more than %lld seconds. The service manager is no longer told that "
                "the service works, and is to kill it.",
                pulse.name.c_str(), static_cast<long long>(pulse.bound.count() / 1000));
        }
    }
    for (const auto &[pulse, age] : still_) {
        if (age > pulse.bound && !still.contains(pulse)) {
            HOST_LOG(kLogError, "%s moves again", pulse.name.c_str());
        }
    }
    still_ = std::move(still);
    return all_move;
}

} // namespace asd_host
