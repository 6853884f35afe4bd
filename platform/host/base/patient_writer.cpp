// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "patient_writer.h"

#include "thread_start.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace asd_host {

namespace {

// A child of fork() has no thread that writes.
std::atomic<bool> g_in_child{false};

} // namespace

PatientWriter::PatientWriter(int fd, Note note) : fd_(fd), note_(note) {
    waiting_.reserve(kRoom);
    under_way_.reserve(kRoom);
    (void)pthread_atfork(nullptr, nullptr, [] { g_in_child = true; });
}

void PatientWriter::put(std::string_view line) {
    if (g_in_child) {
        (void)write_line(line);
        return;
    }
    std::unique_lock lock(mutex_);
    ensure_thread();
    if (line.size() > kRoom - waiting_.size()) {
        ++dropped_;
        return;
    }
    waiting_ += line;
    work_.notify_one();
    if (stalled_) {
        return;
    }
    const bool taken = written_.wait_for(lock, kMoment, [this] { return stalled_ || (waiting_.empty() && !busy_); });
    stalled_ = stalled_ || !taken;
}

bool PatientWriter::flush(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return g_in_child || written_.wait_for(lock, limit, [this] { return waiting_.empty() && !busy_; });
}

// The thread takes no signal that is meant for others.
void PatientWriter::ensure_thread() {
    if (threaded_) {
        return;
    }
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    // Without it the lines wait in the room; the next line tries again.
    threaded_ = start_detached_thread([this] { run(); }) == 0;
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void PatientWriter::run() {
    (void)pthread_setname_np(pthread_self(), "log"); // a name for people
    std::unique_lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [this] { return !waiting_.empty(); });
        std::swap(waiting_, under_way_);
        std::uint64_t lost = std::exchange(dropped_, 0);
        busy_ = true;
        lock.unlock();
        const bool taken = write_lines(under_way_, &lost);
        if (taken && lost > 0 && write_line(note_(lost))) {
            lost = 0;
        }
        lock.lock();
        under_way_.clear();
        dropped_ += lost;
        busy_ = false;
        stalled_ = stalled_ && !waiting_.empty();
        written_.notify_all();
    }
}

// A line a write: another process' lines in the same pipe come before or after it. False: the last one was refused.
bool PatientWriter::write_lines(std::string_view lines, std::uint64_t *lost) {
    bool taken = true;
    while (!lines.empty()) {
        const std::size_t length = std::min(lines.find('\n'), lines.size() - 1) + 1;
        taken = write_line(lines.substr(0, length));
        *lost += taken ? 0 : 1;
        lines.remove_prefix(length);
    }
    return taken;
}

bool PatientWriter::write_line(std::string_view line) {
    if (line_unfinished_ && ::write(fd_, "\n", 1) == 1) {
        line_unfinished_ = false;
    }
    bool begun = false;
    while (!line.empty()) {
        const ssize_t written = ::write(fd_, line.data(), line.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0 && errno == EAGAIN) { // somebody else made the stream so
            std::array<pollfd, 1> fds{{{.fd = fd_, .events = POLLOUT, .revents = 0}}};
            (void)::poll(fds.data(), fds.size(), static_cast<int>(kMoment.count()));
            continue;
        }
        if (written <= 0) {
            line_unfinished_ = line_unfinished_ || begun;
            return false;
        }
        begun = true;
        line.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace asd_host
