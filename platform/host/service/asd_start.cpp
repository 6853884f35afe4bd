// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Of the executable alone, not of the library: a program that tests the platform keeps its signals as they are.

#include "process_start.h"

namespace {

// The first of the executable's constructors: main() is the module's, and comes after them. glibc hands the arguments
// of main to constructors as well.
__attribute__((constructor(101))) void asd_start(int argc, char **argv) {
    asd_host::prepare_process(argc, argv);
}

} // namespace
