// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The host's own log lines; they and the module's (debug_log.h) go to standard error, one write a line. Nobody waits
// long for a standard error that takes nothing (patient_writer.h), and lines that come again and again are left out
// (log_ration.h).

#include "debug_log.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

enum LogLevel : int { kLogError = 0, kLogInformation = 1, kLogDebug = 2 };

// Sets the highest level printed and whether to colour; called once before other threads exist. When standard error is
// the journal's stream the lines carry a priority instead of time and colour.
void log_set(int highest_level, bool colour);

// Standard error is a terminal whose user has not asked for plain text (NO_COLOR, TERM=dumb).
[[nodiscard]] bool log_colour_wanted();

// Says how many lines were left out where the time for that has come; to be called about once a second. Any thread.
void log_settle();

// Says all that was left out and waits until every line is written; false: not within the limit. Any thread.
[[nodiscard]] bool log_flush(std::chrono::milliseconds limit);

// Writes the text, which ends with a line end, as it is, after the lines before it. Any thread.
void log_plain(std::string_view text);

// While it lives, the lines that its thread logs are kept, with the time at which they were logged, to be printed at
// its end or left out. Nothing is kept when debugging is logged, nor beyond 64 lines. One at a time on a thread.
class HeldLines {
public:
    HeldLines();
    ~HeldLines();
    HeldLines(const HeldLines &) = delete;
    HeldLines &operator=(const HeldLines &) = delete;

    // Forgets what is kept; how many lines that was.
    unsigned leave_out();

private:
    std::vector<std::string> lines_;
};

} // namespace asd_host

#define HOST_LOG(level, ...) debug_log_func((level), __FILE_NAME__, __LINE__, __VA_ARGS__)
