// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The host's own log lines; they and the module's (debug_log.h) go to standard error, one write a line.

#include "debug_log.h"

namespace asd_host {

enum LogLevel : int { kLogError = 0, kLogInformation = 1, kLogDebug = 2 };

// Sets the highest level printed and whether to colour; called once before other threads exist. When standard error is
// the journal's stream the lines carry a priority instead of time and colour.
void log_set(int highest_level, bool colour);

// Standard error is a terminal whose user has not asked for plain text (NO_COLOR, TERM=dumb).
[[nodiscard]] bool log_colour_wanted();

} // namespace asd_host

#define HOST_LOG(level, ...) debug_log_func((level), __FILE_NAME__, __LINE__, __VA_ARGS__)
