// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Time, tasks, semaphores, the log and bounds of memory.

#include "clock.h"
#include "host_test.h"
#include "log.h"
#include "log_ration.h"
#include "patient_writer.h"
#include "securec.h"
#include "tasks.h"
#include "vos.h"
#include "watchdog.h"

#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {
namespace {

using namespace asd_test;

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
    const auto start = std::chrono::steady_clock::now();
    vos_task_delay(20000);
    const auto real = std::chrono::steady_clock::now() - start;
    const gulong ticks = vos_tick_get() - before;
    clock_set_scale(1);
    EXPECT_GE(real, milliseconds(20));
    EXPECT_LT(real, milliseconds(10000));
    EXPECT_GE(ticks, 20000UL);
    EXPECT_EQ(clock_real(7), milliseconds(7));

    double seconds = 0;
    std::ifstream("/proc/uptime") >> seconds;
    EXPECT_NEAR(static_cast<double>(clock_ticks()) / 1000, seconds, 5);
}

TEST(Semaphore, DeletionWakesWaitersAndEndsTheHandle) {
    const gulong semaphore = make_semaphore();
    EXPECT_NE(vos_thread_sem4_v(semaphore), 0) << "nobody has taken it";
    ASSERT_EQ(vos_thread_sem4_p(semaphore, 0), 0);
    std::atomic<int> failed = 0;
    std::vector<std::jthread> waiters;
    for (const guint32 limit : {0U, 0U, 60000U}) {
        std::atomic<pid_t> waiter = 0;
        waiters.emplace_back([&failed, &waiter, semaphore, limit] {
            waiter = gettid();
            failed += vos_thread_sem4_p(semaphore, limit) != 0 ? 1 : 0;
        });
        EXPECT_TRUE(eventually([&waiter] { return waiter != 0; }));
        EXPECT_TRUE(eventually([thread = waiter.load()] { return sleeps(thread); }));
    }
    EXPECT_EQ(vos_thread_sem4_delete(semaphore), 0);
    waiters.clear();
    EXPECT_EQ(failed, 3);
    EXPECT_NE(vos_thread_sem4_delete(semaphore), 0);
    EXPECT_NE(vos_thread_sem4_p(semaphore, 0), 0);
    EXPECT_NE(vos_thread_sem4_v(semaphore), 0);
    EXPECT_NE(make_semaphore(), semaphore) << "handles are not used again";
}

TEST(Task, IsAtWorkUntilItRestsOrReturns) {
    static const gulong held = make_semaphore();
    const auto counts = [] {
        std::set<std::uint64_t> all;
        for (const Pulse &pulse : tasks_at_work()) {
            EXPECT_EQ(pulse.name, "task worker");
            all.insert(pulse.count);
        }
        return all;
    };
    ASSERT_EQ(vos_thread_sem4_p(held, 0), 0);
    gulong task = 0;
    const auto worker = [](void *) {
        (void)vos_thread_sem4_p(held, 0);
        vos_task_delay(1000); // with a semaphore, too
        (void)vos_thread_sem4_v(held);
    };
    ASSERT_EQ(vos_task_create(&task, "worker", worker, nullptr, 1), 0);
    const std::set<std::uint64_t> waiting = counts();
    EXPECT_EQ(waiting.size(), 1U);
    EXPECT_EQ(counts(), waiting) << "it waits for a semaphore: it does not move";
    ASSERT_EQ(vos_thread_sem4_v(held), 0);
    EXPECT_TRUE(eventually([&counts] { return counts().empty() && !tasks_running().empty(); })) << "it rests";
    EXPECT_TRUE(eventually([] { return tasks_running().empty(); }));
}

TEST(Watchdog, TellsOnlyWhileEverythingMoves) {
    std::atomic<std::uint64_t> count = 0;
    std::atomic<bool> hangs = false;
    std::atomic<int> looks = 0;
    std::atomic<int> told = 0;
    const auto look_again = [&looks](int times) {
        EXPECT_TRUE(eventually([&looks, last = looks + times] { return looks > last; }));
    };
    const Texts lines = logged([&] {
        Watchdog watchdog;
        const auto look = [&] {
            ++looks;
            count += hangs ? 0 : 1;
            return std::vector<Pulse>{{.name = "worker", .count = count, .bound = milliseconds(3)}};
        };
        watchdog.start(milliseconds(1), look, [&](std::string_view) { ++told; });
        look_again(10);
        EXPECT_GE(told, 10);
        hangs = true;
        look_again(10);
        const int before = told;
        look_again(10);
        EXPECT_EQ(told, before);
        hangs = false;
        look_again(10);
        EXPECT_GT(told, before);
    });
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].find("worker hangs"), std::string::npos);
    EXPECT_NE(lines[1].find("worker moves again"), std::string::npos);
}

// What the end of the service needs: a task that sleeps stops at once, one in a critical section first leaves it, one
// that waits for that section without a limit too; and then the process ends under the sanitizers' eyes.
void end_with_tasks() {
    static const gulong semaphore = make_semaphore();
    static std::atomic<int> ready = 0;
    static std::atomic<int> left_section = 0;
    const auto sleeper = [](void *) {
        ++ready;
        vos_task_delay(120000);
        std::_Exit(3); // a task went on after the end
    };
    const auto in_section = [](void *) {
        ++ready;
        (void)vos_thread_sem4_p(semaphore, 0);
        vos_task_delay(50);
        ++left_section;
        (void)vos_thread_sem4_v(semaphore);
        vos_task_delay(120000);
        std::_Exit(3);
    };
    gulong task = 0;
    const auto returning = [](void *argument) { *static_cast<std::atomic<int> *>(argument) += 1; };
    for (const VOS_TASK_ENTRY entry :
         std::initializer_list<VOS_TASK_ENTRY>{returning, sleeper, in_section, in_section}) {
        (void)vos_task_create(&task, "task", entry, &ready, 1);
    }
    (void)eventually([] { return ready == 4; });
    const bool parked = tasks_park(milliseconds(10000));
    std::exit(parked && left_section == 2 ? 0 : 4);
}

void end_with_a_busy_task() {
    gulong task = 0;
    const auto busy = [](void *) { (void)pause(); };
    (void)vos_task_create(&task, "busy", busy, nullptr, 1);
    std::_Exit(tasks_park(milliseconds(50)) ? 4 : 0);
}

TEST(Watchdog, IsToldOfByANumberOfThisProcess) {
    const std::tuple<const char *, std::string, bool> rows[] = {
        // clang-format off
        {"", "", false},          {"4000000", "", true},          {"4000000", std::to_string(getpid()), true}, {"4000000", "1", false},
        {"x", "", false},         {"4000000x", "", false},        {"1999", "", false},                         {"86400000001", "", false},
        {"99999999999999999999", "", false},
        // clang-format on
    };
    for (const auto &[interval, process, told] : rows) {
        ASSERT_EQ(setenv("WATCHDOG_USEC", interval, 1) + setenv("WATCHDOG_PID", process.c_str(), 1), 0);
        EXPECT_EQ(watchdog_interval(), told ? std::optional(milliseconds(2000)) : std::nullopt) << interval;
    }
}

TEST(TaskDeathTest, TasksStopAtTheEndOfTheService) {
    GTEST_FLAG_SET(death_test_style, ASD_DEATH_TEST_STYLE);
    EXPECT_EXIT(end_with_tasks(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(end_with_a_busy_task(), testing::ExitedWithCode(0), "");
}

constexpr std::size_t kTimeLength = 25; // "2026-01-02T03:04:05.678Z "

TEST(Log, EscapesCutsAndFilters) {
    const std::string longest = std::string(4095, 'x');
    const struct {
        const char *name;
        int level;
        std::string text;
        Texts lines; // without the time
    } rows[] = {
        // clang-format off
        {"line end of the module", 0, "failed!\r\n", {"error f.cpp:7: failed!"}},
        {"level above the highest", 2, "detail", {}},
        {"line end inside", 1, "a\r\nb\tc", {"info f.cpp:7: a\\x0D\\x0Ab\\x09c"}},
        {"terminal escape", 1, "\033[2J\x7F", {"info f.cpp:7: \\x1B[2J\\x7F"}},
        {"characters of 2 to 4 bytes", 1, "\u00E9\u20AC\U0001F600", {"info f.cpp:7: \u00E9\u20AC\U0001F600"}},
        {"control character of 2 bytes", 1, "\xC2\x9B", {"info f.cpp:7: \\xC2\\x9B"}},
        {"no UTF-8", 1, "\xFF\xC0\xAF\xED\xA0\x80z\xE2\x82", {"info f.cpp:7: \\xFF\\xC0\\xAF\\xED\\xA0\\x80z\\xE2\\x82"}},
        {"over 4 KiB, not cut inside a character", 1, longest + "\u00E9" + std::string(5000, 'y'), {"info f.cpp:7: " + longest + " ... (cut)"}},
        // clang-format on
    };
    log_set(kLogInformation, false);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Texts lines = logged([&] { debug_log_func(row.level, "f.cpp", 7, "%s", row.text.c_str()); });
        for (std::string &line : lines) {
            EXPECT_EQ(line.substr(0, 2) + line.at(kTimeLength - 2), "20Z");
            line.erase(0, kTimeLength);
        }
        EXPECT_EQ(lines, row.lines);
    }
}

TEST(Log, ColoursForATerminalAndNumbersForTheJournal) {
    const Texts lines = logged([] {
        log_set(kLogDebug, true);
        dbg_log(0, "maintenance %d", 5);
        struct stat status {};
        ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
        const std::string stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
        ASSERT_EQ(setenv("JOURNAL_STREAM", stream.c_str(), 1), 0);
        log_set(kLogDebug, true);
        for (const int level : {0, 1, 2}) {
            dbg_log(level, "text");
        }
        ASSERT_EQ(setenv("JOURNAL_STREAM", "1:1", 1), 0); // inherited, of another stream
        log_set(kLogInformation, false);
        dbg_log(1, "plain");
        ASSERT_EQ(unsetenv("JOURNAL_STREAM"), 0);
    });
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0].substr(0, 7) + lines[0].substr(5 + kTimeLength), "\033[31m20error maintenance 5\033[0m");
    EXPECT_EQ(Texts(lines.begin() + 1, lines.end() - 1), (Texts{"<3>text", "<6>text", "<7>text"}));
    EXPECT_EQ(lines[4].substr(kTimeLength), "info plain");
}

TEST(Log, AFailingStandardErrorIsNobodysTrouble) {
    log_set(kLogInformation, false);
    const Fd full(open("/dev/full", O_WRONLY | O_CLOEXEC)), usual(dup(STDERR_FILENO));
    ASSERT_GE(dup2(full.get(), STDERR_FILENO), 0);
    errno = EXDEV;
    dbg_log(0, "text");
    const int left = errno;
    const bool flushed = log_flush(milliseconds(kLimitMs));
    ASSERT_GE(dup2(usual.get(), STDERR_FILENO), 0);
    EXPECT_TRUE(left == EXDEV && flushed);
    const Texts after = logged([] { dbg_log(0, "after"); });
    ASSERT_EQ(after.size(), 2U);
    EXPECT_EQ(after[1].substr(kTimeLength, 30), "error 1 lines were dropped her");
}

// A pipe that nobody empties: nobody waits long for it, and what it holds in the end are whole lines, with the number
// of those that are missing.
TEST(Log, AFullPipeStopsNobodyAndMissingLinesAreCounted) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const Fd reading(ends[0]);
    PatientWriter &writer =
        *new PatientWriter(ends[1], [](std::uint64_t dropped) { return "dropped " + std::to_string(dropped) + "\n"; });
    const std::string line = std::string(99, 'a') + "\n";
    constexpr std::size_t kThreads = 4, kLines = 2500; // more than pipe and room together
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::jthread> threads(kThreads);
    std::ranges::generate(threads, [&] {
        return std::jthread([&] {
            for (std::size_t n = 0; n < kLines; ++n) {
                writer.put(line);
            }
        });
    });
    threads.clear();
    EXPECT_FALSE(writer.flush(milliseconds(1)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // one moment, and not one a line
    std::string text;
    while (text.find("dropped ") == text.npos || text.back() != '\n') {
        ASSERT_TRUE(readable(reading));
        std::array<char, 5000> bytes{};
        text.append(bytes.data(), static_cast<std::size_t>(read(reading.get(), bytes.data(), bytes.size())));
    }
    std::size_t lines = 0;
    for (; text.substr(lines * line.size(), line.size()) == line; ++lines) {
    }
    EXPECT_EQ(text.substr(lines * line.size()), "dropped " + std::to_string(kThreads * kLines - lines) + "\n");
    EXPECT_TRUE(writer.flush(milliseconds(kLimitMs)));
}

TEST(Log, RationsWhatComesAgainAndAgain) {
    LogRation ration;
    LogRation::Time now{};
    const auto admitted = [&](int lines, int texts) {
        int count = 0;
        for (int n = 0; n < lines; ++n) {
            count += ration.admit({.name = "f.cpp:7: ", .level = 1}, std::to_string(n % texts), now) ? 1 : 0;
        }
        return count;
    };
    EXPECT_EQ(admitted(100, 1), 100);
    EXPECT_EQ(ration.settle(now, true), std::nullopt);
    EXPECT_EQ(admitted(900, 1), 0);
    EXPECT_TRUE(ration.admit({.name = "g.cpp:7: ", .level = 1}, "0", now)); // another place
    EXPECT_EQ(admitted(10000, 1000), 400);                                  // other texts, up to the place's limit
    EXPECT_EQ(ration.settle(now, false), std::nullopt);
    now += LogRation::kWindow;
    const auto left_out = ration.settle(now, false);
    ASSERT_TRUE(left_out.has_value());
    EXPECT_EQ(std::string(left_out->name.data()) + std::to_string(left_out->lines), "f.cpp:7: 10500");
    EXPECT_EQ(admitted(1000, 1), 10); // it goes on: less of it
    now += 3 * LogRation::kWindow;
    EXPECT_EQ(admitted(1000, 1), 100); // a new story
}

// A size beyond half of the address space is a negative number in disguise; the destination cannot be cleared.
TEST(Securec, NegativeRoomIsRefused) {
    std::string buffer = "abcdef";
    constexpr size_t kHuge = SIZE_MAX / 2 + 1;
    EXPECT_NE(memcpy_s(buffer.data(), kHuge, "x", 1), 0);
    EXPECT_NE(memset_s(buffer.data(), kHuge, 'x', 1), 0);
    EXPECT_EQ(buffer, "abcdef");
}

} // namespace
} // namespace asd_host
