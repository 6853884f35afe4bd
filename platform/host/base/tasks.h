// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The module's tasks from outside: whether they move, and their end, as they never return by themselves.

#include "stalls.h"

#include <chrono>
#include <string>
#include <vector>

namespace asd_host {

// Asks every task to stop and waits until each has returned or is parked: blocked for good in its next vos_task_delay.
// A task that holds a semaphore is let go on until it has given it back, so that no write to a chip is left half done.
// False: some are still busy after the limit. There is no way back.
[[nodiscard]] bool tasks_park(std::chrono::milliseconds limit);

// The names of the tasks that have not returned, in alphabetical order.
[[nodiscard]] std::vector<std::string> tasks_running();

// The tasks that are at work: outside of a vos_task_delay. Each time one begins or leaves a delay, its count is
// another.
[[nodiscard]] std::vector<Pulse> tasks_at_work();

} // namespace asd_host
