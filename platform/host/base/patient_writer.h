// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Lines for a standard stream that nobody may be reading: a full pipe, a stopped terminal. A thread of its own writes
// them, so that nothing else ever waits long.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace asd_host {

class PatientWriter {
public:
    static constexpr std::size_t kRoom = std::size_t{256} * 1024; // bytes that wait to be taken
    static constexpr std::chrono::milliseconds kMoment{100};      // that a line's author waits for it to be taken

    // What says how many lines were dropped, line end included.
    using Note = std::string (*)(std::uint64_t dropped);

    // Writes to the descriptor, which stays open. Must never be destroyed: its thread does not end.
    PatientWriter(int fd, Note note);
    PatientWriter(const PatientWriter &) = delete;
    PatientWriter &operator=(const PatientWriter &) = delete;

    // Takes a line with its line end. When it comes back the line has been written, unless the stream took nothing for
    // a moment: then it waits in the room, and from there on nobody waits until all is written. A line for which the
    // room is too small, or that the stream refuses (a full disk, a closed pipe), is dropped and counted. Any thread.
    void put(std::string_view line);

    // True: all lines have been written; false: not within the limit. Any thread.
    [[nodiscard]] bool flush(std::chrono::milliseconds limit);

private:
    void ensure_thread(); // under mutex_
    void run();
    bool write_lines(std::string_view lines, std::uint64_t *lost);
    [[nodiscard]] bool write_line(std::string_view line);

    const int fd_;
    const Note note_;
    bool line_unfinished_ = false; // the thread's

    std::mutex mutex_; // guards the fields below
    std::condition_variable work_;
    std::condition_variable written_;
    std::string waiting_;       // lines; never more than kRoom bytes, so that nothing is allocated
    std::string under_way_;     // the thread's while busy_
    std::uint64_t dropped_ = 0; // lines, not yet told
    bool busy_ = false;         // the thread writes
    bool stalled_ = false;      // the stream took nothing for a moment, and not all since
    bool threaded_ = false;
};

} // namespace asd_host
