// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "context.h"

#include <array>
#include <fstream>
#include <sstream>

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asdctl {

namespace {

constexpr const char *kSystemRunDir = "/run/asd";

struct HeldLock {
    pid_t holder;
    ino_t file;
};

// Asking the kernel, and not the locks themselves: one that is tried is held for a moment, in which a service that
// starts would find it taken.
std::vector<HeldLock> held_locks() {
    std::vector<HeldLock> held;
    std::ifstream locks("/proc/locks"); // "1: FLOCK  ADVISORY  WRITE 24192 08:01:1234 0 EOF"
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string advisory;
        std::string access;
        std::string place;
        HeldLock lock{};
        if (words >> number >> kind >> advisory >> access >> lock.holder >> place && kind == "FLOCK") {
            lock.file = std::strtoull(place.substr(place.rfind(':') + 1).c_str(), nullptr, 10);
            held.push_back(lock);
        }
    }
    return held;
}

// The file's number; 0: there is none to be seen.
ino_t number_of(const std::filesystem::path &file) {
    struct stat facts = {};
    return ::stat(file.c_str(), &facts) == 0 ? facts.st_ino : 0;
}

bool is_member(gid_t group) {
    std::array<gid_t, 1024> groups{};
    const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
    return ::getegid() == group ||
           std::find(groups.begin(), groups.begin() + std::max(count, 0), group) != groups.begin() + std::max(count, 0);
}

std::string slots_text(const Serving &serving) {
    std::string text;
    for (const auto &[slot, pid] : serving.slots) {
        text += (text.empty() ? "" : ", ") + std::to_string(slot);
    }
    return (serving.slots.size() == 1 ? "slot " : "slots ") + text;
}

} // namespace

std::string Context::how_to_start() const {
    const auto served = serving.slots.find(slot);
    if (served != serving.slots.end()) {
        return "Slot " + std::to_string(slot) + " is served by process " + std::to_string(served->second) +
               ", but not there; " + (bus ? "without --bus it is found." : "its log says where, or why not.");
    }
    if (!serving.slots.empty()) {
        const unsigned other = find_slot(run_dir, serving);
        return "Served there: " + slots_text(serving) + ". '--slot " + std::to_string(other) + "' asks " +
               (serving.master == other ? "the master." : "it.");
    }
    const std::string by_hand = "asd --config FILE --slot " + std::to_string(slot) + " --run-dir " + run_dir.string();
    return (run_dir == kSystemRunDir ? "'systemctl start asd' starts it, or by hand: " : "It is started with: ") +
           by_hand + "\nOne that runs elsewhere is found with --run-dir and --slot.";
}

std::string Context::who_may() const {
    struct stat facts = {};
    const bool known = ::stat(run_dir.c_str(), &facts) == 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread
    const group *const group = known && facts.st_gid != 0 ? ::getgrgid(facts.st_gid) : nullptr;
    if (group == nullptr) {
        return "Its owner and root may ask.";
    }
    const std::string name = group->gr_name;
    return is_member(facts.st_gid)
               ? "Root may ask."
               : "You are not in the group " + name + ", whose members may ask. Root adds you with: usermod -aG " +
                     name + " USER; it counts from your next login.";
}

Failure Context::unreachable(const std::filesystem::path &socket, const std::string &error) const {
    const std::string where = "slot " + std::to_string(slot) + " of " + run_dir.string();
    if (::access(socket.c_str(), W_OK) != 0 && errno == EACCES) {
        return Failure(socket.string() + ": this user may not connect to it", who_may());
    }
    std::error_code unreadable; // counts as not there
    const bool there = std::filesystem::exists(socket, unreadable);
    if (serving.slots.contains(slot)) {
        return Failure(socket.string() + ": " + (there ? "cannot be connected to: " + error : "there is no such door"),
                       how_to_start());
    }
    return Failure(there ? socket.string() + ": is dead: who made it has ended without removing it"
                         : where + ": no service runs there",
                   how_to_start());
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

Serving serving_in(const std::filesystem::path &run_dir) {
    const std::vector<HeldLock> held = held_locks();
    const auto holds = [&](pid_t pid, const std::filesystem::path &file) {
        return std::ranges::any_of(held, [&, number = number_of(file)](const HeldLock &lock) {
            return lock.holder == pid && lock.file == number;
        });
    };
    Serving serving;
    for (unsigned slot = 0; slot < kSlots; ++slot) {
        const std::filesystem::path file = run_dir / slot_folder(slot) / kInstanceLock;
        pid_t pid = 0; // who holds it writes its number into it
        if (std::ifstream(file) >> pid && holds(pid, file)) {
            serving.slots[slot] = pid;
            if (holds(pid, run_dir / kMasterLock)) {
                serving.master = slot;
            }
        }
    }
    return serving;
}

std::filesystem::path find_run_dir() {
    std::filesystem::path own = default_run_dir();
    std::error_code unreadable; // counts as not there
    if (!std::filesystem::exists(kSystemRunDir, unreadable)) {
        return own;
    }
    return serving_in(kSystemRunDir).slots.empty() && !serving_in(own).slots.empty() ? own : kSystemRunDir;
}

unsigned find_slot(const std::filesystem::path &run_dir, const Serving &serving) {
    if (!serving.slots.empty()) {
        return serving.master.value_or(serving.slots.begin()->first);
    }
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
