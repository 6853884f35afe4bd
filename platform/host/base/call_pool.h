// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Threads for calls that block on chips.

#include "platform_types.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace asd_host {

struct CallPoolShared;

class CallPool {
public:
    static constexpr std::size_t kThreads = 4; // unless the constructor is told otherwise
    static constexpr std::size_t kWaiting = 64;
    using Work = std::function<void()>;

    explicit CallPool(std::size_t threads = kThreads);
    ~CallPool();
    CallPool(const CallPool &) = delete;
    CallPool &operator=(const CallPool &) = delete;

    [[nodiscard]] bool start(std::string *mistake);

    enum class Taken {
        kYes,
        kFull,   // kWaiting calls are waiting already
        kEnding, // stop has been called
    };
    // Runs work on one of the threads. Calls of one object (any number that stands for what is worked on) run one after
    // the other, in the order they came. The number, the caller's own, is for withdraw.
    [[nodiscard]] Taken run(OBJ_HANDLE object, Work work, std::uint64_t number = 0);

    // Takes a waiting call out. False: it has begun.
    [[nodiscard]] bool withdraw(std::uint64_t number);

    // Begins nothing any more and waits for what is running. False: something still runs after the limit, and keeps
    // what it uses.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);

private:
    std::size_t thread_count_;
    std::shared_ptr<CallPoolShared> shared_;
    std::vector<std::thread> threads_;
};

} // namespace asd_host
