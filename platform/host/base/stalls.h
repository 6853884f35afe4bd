// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which of the things that are looked at again and again do not move any more.

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace asd_host {

// What has to move, as one look finds it. What rests because it has nothing to do is left out of the look.
struct Pulse {
    std::string name;                  // in the log
    std::uint64_t count = 0;           // another number at the next look: it has moved
    std::chrono::milliseconds bound{}; // longer without moving: it hangs

    [[nodiscard]] bool operator<(const Pulse &other) const {
        return std::tie(name, count) < std::tie(other.name, other.count);
    }
};

// Used on one thread.
class Stalls {
public:
    // The next look, which comes that much later than the one before. The time is what the looks are apart by plan, not
    // by the clock: when the whole process was stopped, nothing in it hangs. What begins to hang, and what moves again
    // or has gone, is logged. True: nothing hangs.
    [[nodiscard]] bool look(const std::vector<Pulse> &pulses, std::chrono::milliseconds later);

private:
    std::map<Pulse, std::chrono::milliseconds> still_; // for how long each has not moved
};

} // namespace asd_host
