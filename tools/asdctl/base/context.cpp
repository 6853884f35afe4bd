// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "context.h"

#include "failure.h"

#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

namespace asdctl {

std::string Context::how_to_start() const {
    const std::string number = std::to_string(slot);
    return "Is asd running for slot " + number + "? Start it with: asd --config FILE --slot " + number + " --run-dir " +
           run_dir.string() + "\nA service elsewhere is found with --run-dir, --slot and --bus.";
}

std::filesystem::path default_run_dir() {
    if (::geteuid() == 0) {
        return "/run/asd";
    }
    const char *value = std::getenv("XDG_RUNTIME_DIR"); // NOLINT(concurrency-mt-unsafe): nothing changes it
    const std::filesystem::path runtime = value == nullptr ? "" : value;
    return runtime.is_absolute() ? runtime / "asd" : std::filesystem::path("/tmp/asd-" + std::to_string(::geteuid()));
}

void check_default_run_dir(const std::filesystem::path &run_dir) {
    struct stat facts = {};
    if (run_dir.parent_path() != "/tmp" || run_dir != default_run_dir() || ::lstat(run_dir.c_str(), &facts) != 0) {
        return;
    }
    if (!S_ISDIR(facts.st_mode) || facts.st_uid != ::geteuid() || (facts.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw Failure(run_dir.string() + ": not a folder of yours alone, so a stranger may answer in it",
                      "Remove it, or name the service's folder with --run-dir.");
    }
}

unsigned default_slot(const std::filesystem::path &run_dir) {
    std::optional<unsigned> only;
    for (unsigned slot = 0; slot < kSlots; ++slot) {
        const std::filesystem::path folder = run_dir / ("slot" + std::to_string(slot));
        std::error_code unreadable; // counts as not there
        if (!std::filesystem::exists(folder / "ipmi.sock", unreadable) &&
            !std::filesystem::exists(folder / "bus", unreadable)) {
            continue;
        }
        if (only) {
            return 0;
        }
        only = slot;
    }
    return only.value_or(0);
}

} // namespace asdctl
