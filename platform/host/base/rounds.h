// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A thread that looks after something again and again, and whose end is not waited for longer than one likes.

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace asd_host {

class Rounds {
public:
    // To be asked by a round that takes its time: true, leave off.
    using MustEnd = std::function<bool()>;
    using Round = std::function<void(const MustEnd &must_end)>;

    Rounds();
    ~Rounds(); // waits for nothing: a round that goes on has its own hold on what it uses
    Rounds(const Rounds &) = delete;
    Rounds &operator=(const Rounds &) = delete;

    // Starts the thread, whose first round comes after that time too. False: there is none, *mistake says why. Once.
    [[nodiscard]] bool start(std::chrono::milliseconds every, Round round, std::string *mistake);

    // The next round comes now, or after the one that runs. Any thread; nothing without a start.
    void wake();

    // Begins no round any more. False: one still runs after the limit; what it uses must stay.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);

private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

} // namespace asd_host
