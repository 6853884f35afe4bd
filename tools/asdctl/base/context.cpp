// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "context.h"

#include <sys/stat.h>
#include <unistd.h>

namespace asdctl {

std::string Context::how_to_start() const {
    const std::string number = std::to_string(slot);
    return "Is asd running for slot " + number + "? Start it with: asd --config FILE --slot " + number + " --run-dir " +
           run_dir.string() + "\nA service elsewhere is found with --run-dir, --slot and --bus.";
}

int answer(const Context &context, const Json &json, std::string_view text, int status) {
    print(context.json ? json.dump(2) + "\n" : text);
    return status;
}

void check_default_run_dir(const std::filesystem::path &run_dir) {
    struct stat facts = {};
    if (run_dir != run_dir_in_tmp() || ::lstat(run_dir.c_str(), &facts) != 0) {
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
        const std::filesystem::path folder = run_dir / slot_folder(slot);
        std::error_code unreadable; // counts as not there
        if (!std::filesystem::exists(folder / kIpmiSocket, unreadable) &&
            !std::filesystem::exists(folder / kBusSocket, unreadable)) {
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
