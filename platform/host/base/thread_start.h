// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Threads, which the machine may refuse.

#include <functional>
#include <string>
#include <thread>

namespace asd_host {

// Starts a thread that runs it. 0 or an errno value: there is none, and *thread is as it was.
[[nodiscard]] int start_thread(std::thread *thread, std::function<void()> run);
// The same for one that nobody waits for.
[[nodiscard]] int start_detached_thread(std::function<void()> run);

} // namespace asd_host
