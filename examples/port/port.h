// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the files of this example port share. It is the smallest platform on which the module runs: one item on one chip
// of memory, a board that is always master and has no peers, and requests as text on standard input.

#include <glib.h>

// 1 while every write-protect line that the module has driven is open.
gboolean port_lines_open(void);

// Prints the chip's bytes of the record as one line.
void port_print_chip(void);
