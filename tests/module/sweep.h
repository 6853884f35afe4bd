// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every entry point of the module in small worlds: once undisturbed and, where it is worth it, again with each of its
// platform calls failing. What must hold whatever failed is asserted; all that is seen is compared with a digest.

#include "module_test.h"

struct SweepAnswer {
    std::string text;           // as a transcript shows it
    bool known = true;          // a code or status that the module answers with
    std::string outcome = text; // of it, without the data
};

// An operation in a world of its own.
struct SweepCase {
    std::string name;
    Arrange build;
    std::function<SweepAnswer()> run;
    bool disturbed = false; // also with each call failing, and with each lock held by somebody else
};

struct SweepEntry {
    std::string name;
    std::vector<SweepCase> cases;
};
using SweepEntries = std::vector<SweepEntry>;

// What the entries are.
SweepEntries command_entries();  // each command by its number, selector and item
SweepEntries method_entries();   // each method of the two classes
SweepEntries function_entries(); // what other modules call, and the paths that several commands share
SweepEntries task_entries();     // start and tasks

// Bytes as a transcript shows them: in full, or by their head, size and a hash.
std::string shown(const Bytes &bytes);

SweepAnswer answer_of(gint32 status, const Bytes &data = {});
SweepAnswer answer_of(const fake::Reply &reply);
