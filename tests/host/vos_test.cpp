// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Time, tasks, semaphores and the log.

#include "clock.h"
#include "log.h"
#include "tasks.h"
#include "vos.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Polls until the condition holds; false after ten seconds.
bool eventually(const std::function<bool()> &condition) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

milliseconds elapsed(const std::function<void()> &action) {
    const Clock::time_point start = Clock::now();
    action();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    return line.find(") S ") != std::string::npos;
}

gulong make_semaphore() {
    gulong semaphore = 0;
    EXPECT_EQ(vos_thread_mutex_sem4_create("test", &semaphore), 0);
    return semaphore;
}

TEST(Time, ScaleMakesWaitsShorterAndTicksFaster) {
    clock_set_scale(1000);
    const gulong before = vos_tick_get();
    const milliseconds real = elapsed([] { vos_task_delay(20000); });
    const gulong ticks = vos_tick_get() - before;
    clock_set_scale(1);
    EXPECT_GE(real, milliseconds(20));
    EXPECT_LT(real, milliseconds(10000));
    EXPECT_GE(ticks, 20000UL);
    EXPECT_EQ(clock_real(7), milliseconds(7));

    std::ifstream uptime("/proc/uptime");
    double seconds = 0;
    uptime >> seconds;
    EXPECT_NEAR(static_cast<double>(clock_ticks()) / 1000, seconds, 5);
}

TEST(Semaphore, ExcludesAndObeysItsLimit) {
    const gulong semaphore = make_semaphore();
    EXPECT_NE(vos_thread_sem4_v(semaphore), 0) << "nobody has taken it";
    EXPECT_EQ(vos_thread_sem4_p(semaphore, 0), 0);
    EXPECT_GE(elapsed([&] { EXPECT_NE(vos_thread_sem4_p(semaphore, 30), 0); }), milliseconds(30));
    std::thread other([&] { EXPECT_EQ(vos_thread_sem4_v(semaphore), 0); }); // any thread may give it back
    EXPECT_EQ(vos_thread_sem4_p(semaphore, 10000), 0);
    other.join();
    EXPECT_EQ(vos_thread_sem4_v(semaphore), 0);
    EXPECT_EQ(vos_thread_sem4_delete(semaphore), 0);
    EXPECT_NE(vos_thread_sem4_delete(semaphore), 0);
    EXPECT_NE(vos_thread_sem4_p(semaphore, 0), 0);
    EXPECT_NE(vos_thread_sem4_v(semaphore), 0);
    EXPECT_NE(make_semaphore(), semaphore) << "handles are not used again";
}

TEST(Semaphore, GuardsACounterAgainstManyThreads) {
    const gulong semaphore = make_semaphore();
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&counter, semaphore, limit = i % 2 == 0 ? 0U : 60000U] {
            for (int n = 0; n < 500; ++n) {
                ASSERT_EQ(vos_thread_sem4_p(semaphore, limit), 0);
                ++counter;
                ASSERT_EQ(vos_thread_sem4_v(semaphore), 0);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 4000);
    EXPECT_EQ(vos_thread_sem4_delete(semaphore), 0);
}

TEST(Semaphore, DeletionWakesWaitersWithAFailure) {
    const gulong semaphore = make_semaphore();
    ASSERT_EQ(vos_thread_sem4_p(semaphore, 0), 0);
    std::atomic<int> failed = 0;
    std::vector<std::thread> waiters;
    for (const guint32 limit : {0U, 60000U}) {
        std::atomic<pid_t> waiter = 0;
        waiters.emplace_back([&failed, &waiter, semaphore, limit] {
            waiter = gettid();
            failed += vos_thread_sem4_p(semaphore, limit) != 0 ? 1 : 0;
        });
        EXPECT_TRUE(eventually([&waiter] { return waiter != 0; }));
        EXPECT_TRUE(eventually([thread = waiter.load()] { return sleeps(thread); }));
    }
    EXPECT_EQ(vos_thread_sem4_delete(semaphore), 0);
    for (std::thread &waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(failed, 2);
}

TEST(Task, RunsUnderItsShortenedName) {
    static std::array<std::atomic<char>, 32> seen{};
    static std::atomic<bool> done = false;
    gulong task = 0;
    const auto entry = [](void *argument) {
        std::array<char, 32> name{};
        (void)pthread_getname_np(pthread_self(), name.data(), name.size());
        std::copy(name.begin(), name.end(), seen.begin());
        done = *static_cast<int *>(argument) == 7;
    };
    static int argument = 7;
    ASSERT_EQ(vos_task_create(&task, "asd_eeprom_check", entry, &argument, 1), 0);
    EXPECT_NE(task, 0UL);
    ASSERT_TRUE(eventually([] { return done.load(); }));
    EXPECT_EQ(std::string(seen.begin(), std::find(seen.begin(), seen.end(), '\0')), "asd_eeprom_chec");
    EXPECT_NE(vos_task_create(nullptr, "x", entry, &argument, 1), 0);
    EXPECT_NE(vos_task_create(&task, "x", nullptr, &argument, 1), 0);
}

// What the end of the service needs: sleeping tasks stop at once, one inside a critical section first leaves it, one
// that waits for that section without a limit too; and then the process ends under the sanitizers' eyes.
void end_with_tasks() {
    static const gulong semaphore = make_semaphore();
    static std::atomic<int> ready = 0;
    static std::atomic<bool> left_section = false;
    gulong task = 0;
    const auto sleeper = [](void *) {
        ++ready;
        for (;;) {
            vos_task_delay(120000);
        }
    };
    const auto holder = [](void *) {
        (void)vos_thread_sem4_p(semaphore, 0);
        ++ready;
        vos_task_delay(50);
        left_section = true;
        (void)vos_thread_sem4_v(semaphore);
        vos_task_delay(120000);
        std::_Exit(3); // a task went on after the end
    };
    const auto waiter = [](void *) {
        (void)eventually([] { return ready >= 2; });
        ++ready;
        (void)vos_thread_sem4_p(semaphore, 0);
        (void)vos_thread_sem4_v(semaphore);
        vos_task_delay(120000);
    };
    (void)vos_task_create(&task, "sleeper", sleeper, nullptr, 1);
    (void)vos_task_create(&task, "holder", holder, nullptr, 1);
    (void)vos_task_create(&task, "waiter", waiter, nullptr, 1);
    (void)eventually([] { return ready == 3; });
    const bool parked = tasks_park(milliseconds(10000));
    std::exit(parked && left_section ? 0 : 4);
}

void end_with_a_busy_task() {
    gulong task = 0;
    (void)vos_task_create(
        &task, "busy",
        [](void *) {
            for (;;) {
                std::this_thread::yield();
            }
        },
        nullptr, 1);
    std::_Exit(tasks_park(milliseconds(50)) ? 4 : 0);
}

TEST(TaskDeathTest, TasksStopAtTheEndOfTheService) {
    GTEST_FLAG_SET(death_test_style, ASD_DEATH_TEST_STYLE);
    EXPECT_EXIT(end_with_tasks(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(end_with_a_busy_task(), testing::ExitedWithCode(0), "");
}

// Standard error goes to a file while this lives.
class Captured {
public:
    Captured() : path_(testing::TempDir() + "asd_log_" + std::to_string(getpid())), saved_(dup(STDERR_FILENO)) {
        const std::FILE *file = std::freopen(path_.c_str(), "we", stderr);
        EXPECT_NE(file, nullptr);
    }
    ~Captured() {
        (void)dup2(saved_, STDERR_FILENO);
        (void)close(saved_);
        std::filesystem::remove(path_);
    }
    Captured(const Captured &) = delete;
    Captured &operator=(const Captured &) = delete;
    [[nodiscard]] std::vector<std::string> lines() const {
        std::ifstream file(path_);
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line);) {
            all.push_back(line);
        }
        return all;
    }

private:
    std::string path_;
    int saved_;
};

constexpr std::size_t kTimeLength = 25; // "2026-01-02T03:04:05.678Z "

TEST(Log, EscapesCutsAndFilters) {
    struct Case {
        const char *name;
        int level;
        std::string text;
        std::string line; // without the time; empty: none
    };
    const std::string long_text = std::string(4095, 'x') + "\u00E9" + std::string(5000, 'y');
    const std::vector<Case> cases = {
        {"line end of the module", 0, "failed!\r\n", "error f.cpp:7: failed!"},
        {"level", 1, "started", "info f.cpp:7: started"},
        {"level above the highest", 2, "detail", ""},
        {"line end inside", 1, "a\r\nb\tc", "info f.cpp:7: a\\x0D\\x0Ab\\x09c"},
        {"terminal escape", 1, "\033[2J\x7F", "info f.cpp:7: \\x1B[2J\\x7F"},
        {"characters of 2 to 4 bytes", 1, "\u00E9\u20AC\U0001F600", "info f.cpp:7: \u00E9\u20AC\U0001F600"},
        {"control character of 2 bytes", 1, "\xC2\x9B", "info f.cpp:7: \\xC2\\x9B"},
        {"no UTF-8", 1, "\xFF\xC0\xAF\xED\xA0\x80z", "info f.cpp:7: \\xFF\\xC0\\xAF\\xED\\xA0\\x80z"},
        {"cut short character", 1, "\xE2\x82", "info f.cpp:7: \\xE2\\x82"},
        {"over 4 KiB, not cut inside a character", 1, long_text,
         "info f.cpp:7: " + std::string(4095, 'x') + " ... (cut)"},
    };
    log_set(kLogInformation, false);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const Captured captured;
        debug_log_func(c.level, "f.cpp", 7, "%s", c.text.c_str());
        const std::vector<std::string> lines = captured.lines();
        ASSERT_EQ(lines.size(), c.line.empty() ? 0U : 1U);
        if (!lines.empty()) {
            EXPECT_EQ(lines[0].substr(0, 2), "20");
            EXPECT_EQ(lines[0].substr(kTimeLength - 2), "Z " + c.line);
        }
    }
}

TEST(Log, ColoursForATerminalAndNumbersForTheJournal) {
    const Captured captured;
    log_set(kLogDebug, true);
    dbg_log(0, "maintenance %d", 5);
    struct stat status {};
    ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
    std::ostringstream stream;
    stream << status.st_dev << ":" << status.st_ino;
    ASSERT_EQ(setenv("JOURNAL_STREAM", stream.str().c_str(), 1), 0);
    log_set(kLogDebug, true);
    for (const int level : {0, 1, 2}) {
        debug_log_func(level, "f.cpp", 7, "text");
    }
    ASSERT_EQ(setenv("JOURNAL_STREAM", "1:1", 1), 0); // inherited, of another stream
    log_set(kLogInformation, false);
    dbg_log(1, "plain");
    ASSERT_EQ(unsetenv("JOURNAL_STREAM"), 0);
    const std::vector<std::string> lines = captured.lines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0].substr(0, 7), "\033[31m20");
    EXPECT_EQ(lines[0].substr(5 + kTimeLength), "error maintenance 5\033[0m");
    EXPECT_EQ(lines[1], "<3>f.cpp:7: text");
    EXPECT_EQ(lines[2], "<6>f.cpp:7: text");
    EXPECT_EQ(lines[3], "<7>f.cpp:7: text");
    EXPECT_EQ(lines[4].substr(kTimeLength), "info plain");
}

TEST(Log, AFailingStandardErrorIsNobodysTrouble) {
    log_set(kLogInformation, false);
    for (const char *target : {"/dev/full", "/dev/null"}) { // the latter opened for reading: every write fails
        const Captured captured;
        const int fd = open(target, (target[5] == 'f' ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
        ASSERT_GE(dup2(fd, STDERR_FILENO), 0);
        (void)close(fd);
        errno = EXDEV;
        debug_log_func(0, "f.cpp", 7, "text");
        EXPECT_EQ(errno, EXDEV);
    }
}

// Through a pipe, whose atomic writes end at 4 KiB: escaped, a line is four times as long.
TEST(Log, LinesOfThreadsNeverMix) {
    log_set(kLogInformation, false);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const int saved = dup(STDERR_FILENO);
    ASSERT_GE(dup2(ends[1], STDERR_FILENO), 0);
    (void)close(ends[1]);
    std::vector<std::thread> threads;
    for (char digit = 1; digit <= 4; ++digit) {
        threads.emplace_back([text = std::string(3999, digit) + "|"] {
            for (int n = 0; n < 50; ++n) {
                debug_log_func(0, "f.cpp", n, "%s", text.c_str());
            }
        });
    }
    std::string all;
    std::thread reader([&all, end = ends[0]] {
        std::array<char, 700> bytes{};
        for (ssize_t count = 0; (count = read(end, bytes.data(), bytes.size())) > 0;) {
            all.append(bytes.data(), static_cast<std::size_t>(count));
        }
    });
    for (std::thread &thread : threads) {
        thread.join();
    }
    (void)dup2(saved, STDERR_FILENO);
    (void)close(saved);
    reader.join();
    (void)close(ends[0]);
    std::istringstream stream(all);
    int lines = 0;
    for (std::string line; std::getline(stream, line); ++lines) {
        std::string expected = line.substr(line.find('\\'), 4);
        for (int doubled = 0; doubled < 12; ++doubled) {
            expected += expected;
        }
        ASSERT_EQ(line.substr(line.find('\\')), expected.substr(0, 4UL * 3999) + "|");
    }
    EXPECT_EQ(lines, 200);
}

} // namespace
} // namespace asd_host
