// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The end of the module's tasks, which never return by themselves.

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

} // namespace asd_host
