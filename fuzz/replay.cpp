// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target once for every file of the folders named.

#include "atomic_file.h"
#include "fuzz.h"

#include <cstdio>

int main(int count, char **words) {
    int files = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(words[i])) {
            int error = 0;
            const auto bytes = asd_host::read_file(entry.path(), &error);
            if (!bytes) {
                (void)std::fprintf(stderr, "%s cannot be read\n", entry.path().c_str());
                return 1;
            }
            (void)LLVMFuzzerTestOneInput(bytes->data(), bytes->size());
            ++files;
        }
    }
    (void)std::printf("%d inputs\n", files);
    return files == 0 ? 1 : 0;
}
