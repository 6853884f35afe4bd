// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The state of the process before anything of the service runs.

#include <csignal>
#include <string>
#include <vector>

namespace asd_host {

// Makes the process fit to serve: /dev/null takes the place of a closed standard input, output or error; the signals
// that end the service wait until end_signals() are asked for, in every thread that is started from now on; SIGHUP,
// SIGPIPE and SIGXFSZ are ignored, so that a write says what went wrong. Keeps argc and argv for process_arguments().
// Once, before any other thread exists and before any file is opened.
void prepare_process(int argc, char **argv);

// What ends the service: SIGTERM and SIGINT.
[[nodiscard]] sigset_t end_signals();

// The arguments of this process without its name; empty when they are known neither from prepare_process() nor from
// /proc. Main thread.
[[nodiscard]] std::vector<std::string> process_arguments();

} // namespace asd_host
