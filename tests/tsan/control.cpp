// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Shows that ThreadSanitizer, with what tests/tsan.supp leaves out, still sees a race in a function that GLib's main
// loop calls, and has nothing to say of the same program with a lock. CTest runs both: the first must be reported.

#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include <glib.h>

namespace {

struct Counted {
    std::mutex mutex;
    bool locks = false;
    int calls = 0;

    void count() {
        std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
        if (locks) {
            lock.lock();
        }
        ++calls;
    }
};

gboolean on_timer(gpointer data) {
    constexpr int kEnough = 50;
    static int left = kEnough;
    static_cast<Counted *>(data)->count();
    return --left > 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

} // namespace

int main(int argc, char **argv) {
    Counted counted;
    counted.locks = argc == 2 && std::strcmp(argv[1], "clean") == 0;
    (void)g_timeout_add(1, on_timer, &counted);
    std::thread other([&counted] {
        for (int i = 0; i < 50; ++i) {
            counted.count();
            g_usleep(500);
        }
    });
    while (g_main_context_iteration(nullptr, TRUE) != 0 && g_main_context_find_source_by_user_data(nullptr, &counted)) {
    }
    other.join();
    return std::printf("%d calls\n", counted.calls) < 0 ? 1 : 0;
}
