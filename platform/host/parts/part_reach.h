// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Whether a part answers, learnt from its transfers, so that a dead one or a hanging bus is not waited for at each of
// them.

#include "status.h"

#include <atomic>
#include <chrono>

namespace asd_host {

// For one transfer at a time, under its owner's mutex; answering() and last_failure() on any thread.
class PartReach {
public:
    // As many as a chip's usual RetryNumber: a call that begins while the part answers makes all its attempts.
    static constexpr int kFailures = 5;
    static constexpr std::chrono::milliseconds kTimeLost{
        250};                                               // by failures in a row; a hanging bus takes a second each
    static constexpr std::chrono::milliseconds kPause{500}; // from an attempt to the next one at a silent part

    // Makes the transfer and returns its status. With may_refuse, a silent part fails at once with its last status,
    // but for one attempt a pause.
    template <typename Transfer>
    [[nodiscard]] gint32 attempt(bool may_refuse, Transfer transfer) {
        const auto began = Clock::now();
        if (may_refuse && !answering_ && began < next_attempt_) {
            return status_;
        }
        const gint32 status = transfer();
        note(status, began);
        return status;
    }

    // The part is silent with its next failure, however short it was.
    void suspect() { failures_ = kFailures - 1; }
    [[nodiscard]] bool answering() const { return answering_; }
    [[nodiscard]] gint32 last_failure() const { return status_; } // as absent

private:
    using Clock = std::chrono::steady_clock;

    void note(gint32 status, Clock::time_point began) {
        if ((status & kPartAbsent) == 0) {
            failures_ = 0;
            lost_ = {};
            answering_ = true;
            return;
        }
        const auto now = Clock::now();
        ++failures_;
        lost_ += now - began;
        status_ = status;
        next_attempt_ = now + kPause;
        if (failures_ >= kFailures || lost_ >= kTimeLost) {
            answering_ = false;
        }
    }

    std::atomic<bool> answering_ = true;
    int failures_ = 0; // in a row
    Clock::duration lost_{};
    std::atomic<gint32> status_ = 0; // of the last failure
    Clock::time_point next_attempt_;
};

} // namespace asd_host
