// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The executable's own file: everything else comes out of the two libraries. It carries the version where it can be
// read off the binary, with strings or in a debugger, when it can no longer be run.

extern const char kVersion[];
__attribute__((used)) const char kVersion[] = "asd " ASD_VERSION;
