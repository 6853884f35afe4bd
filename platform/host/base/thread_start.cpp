// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "thread_start.h"

#include <system_error>
#include <utility>

namespace asd_host {

int start_thread(std::thread *thread, std::function<void()> run) {
    try {
        *thread = std::thread(std::move(run));
        return 0;
    } catch (const std::system_error &failure) {
        return failure.code().value();
    }
}

int start_detached_thread(std::function<void()> run) {
    std::thread thread;
    const int error = start_thread(&thread, std::move(run));
    if (error == 0) {
        thread.detach();
    }
    return error;
}

} // namespace asd_host
