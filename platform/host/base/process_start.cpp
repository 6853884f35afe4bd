// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "process_start.h"

#include <fstream>
#include <span>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace asd_host {

namespace {

// Set once, before other threads exist.
std::span<char *> g_arguments;

// What is opened takes the lowest free number: with standard error closed, that would be a lock file or an EEPROM's
// image, and the log would go there.
void fill_standard_descriptors() {
    for (;;) {
        int fd = ::open("/dev/null", O_RDWR); // kept over exec, as the real ones are
        if (fd < 0) {
            fd = ::open("/", O_PATH | O_DIRECTORY); // without /dev: a place that takes no bytes
        }
        if (fd < 0) {
            return;
        }
        if (fd > STDERR_FILENO) {
            (void)::close(fd); // all three places were taken
            return;
        }
    }
}

} // namespace

void prepare_process(int argc, char **argv) {
    fill_standard_descriptors();
    const sigset_t signals = end_signals();
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    for (const int ignored : {SIGHUP, SIGPIPE, SIGXFSZ}) {
        (void)std::signal(ignored, SIG_IGN);
    }
    g_arguments = {argv, static_cast<std::size_t>(argc)};
}

sigset_t end_signals() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGINT);
    return signals;
}

std::vector<std::string> process_arguments() {
    std::vector<std::string> arguments(g_arguments.begin(), g_arguments.end());
    if (arguments.empty()) {
        std::ifstream file("/proc/self/cmdline", std::ios::binary);
        for (std::string argument; std::getline(file, argument, '\0');) {
            arguments.push_back(argument);
        }
    }
    if (!arguments.empty()) {
        arguments.erase(arguments.begin()); // the program's name
    }
    return arguments;
}

} // namespace asd_host
