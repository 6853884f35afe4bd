// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "part_store.h"

#include "failure.h"
#include "intent_record.h"
#include "lock_file.h"
#include "log.h"
#include "part.h"
#include "places.h"
#include "status.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <list>
#include <map>

#include <glib.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asdctl {

namespace {

constexpr std::chrono::seconds kLogLimit{1};

// What root leaves in the folder the service could not open.
void become_owner(const std::filesystem::path &folder) {
    struct stat facts = {};
    if (::geteuid() != 0 || ::stat(folder.c_str(), &facts) != 0 || facts.st_uid == 0) {
        return;
    }
    const passwd *const owner = ::getpwuid(facts.st_uid); // NOLINT(concurrency-mt-unsafe): no other threads
    const bool groups =
        owner == nullptr ? ::setgroups(0, nullptr) == 0 : ::initgroups(owner->pw_name, facts.st_gid) == 0;
    if (!groups || ::setgid(facts.st_gid) != 0 || ::setuid(facts.st_uid) != 0) {
        throw Failure(folder.string() + ": cannot become its owner: " + g_strerror(errno));
    }
}

[[nodiscard]] Failure served(unsigned slot, const std::string &folder, const std::string &process) {
    return Failure("slot " + std::to_string(slot) + " of " + folder + " is served by process " + process +
                       ", which has these parts",
                   "Stop the service first, with systemd: systemctl stop asd. --dry-run only looks.");
}

} // namespace

struct PartStore::Impl {
    std::list<asd_host::LockFile> locks;
    std::map<std::filesystem::path, std::unique_ptr<asd_host::Part>> parts; // by file

    // A slot without a lock file has never been run; to make one would only be in its way.
    void lock(const std::filesystem::path &state_dir) {
        for (unsigned slot = 0; slot < kSlots; ++slot) {
            const std::filesystem::path file = state_dir / slot_folder(slot) / kStateLock;
            std::error_code unreadable; // counts as not there
            if (!std::filesystem::exists(file, unreadable)) {
                continue;
            }
            locks.emplace_back(file);
            const int error = locks.back().take();
            if (error == EAGAIN) {
                throw served(slot, state_dir.string(), locks.back().holder());
            }
            if (error != 0) {
                throw Failure(file.string() + ": cannot be locked: " + g_strerror(error),
                              "The owner of the state folder may, and root.");
            }
        }
    }

    void open(const LoadedPart &loaded) {
        const asd_host::PartConfig config = {.name = loaded.plan.name,
                                             .kind = loaded.plan.device ? asd_host::PartKind::kDevice
                                                                        : asd_host::PartKind::kImage,
                                             .file = loaded.plan.file,
                                             .shared = loaded.plan.shared,
                                             .size = loaded.plan.size,
                                             .page_size = loaded.plan.page_size,
                                             .write_cycle_us = 0,
                                             .write_protect_line = {}};
        std::string mistake;
        auto part = asd_host::Part::open(config, {.file = loaded.file, .intent_dir = loaded.home / kIntents}, nullptr,
                                         &mistake);
        if (part == nullptr) {
            throw Failure(mistake);
        }
        parts[loaded.file] = std::move(part);
    }
};

PartStore::PartStore(const Context &context, const std::filesystem::path &state_dir,
                     const std::vector<LoadedPart> &parts)
    : impl_(std::make_unique<Impl>()) {
    const bool devices =
        std::ranges::any_of(parts, [](const LoadedPart &part) { return part.plan.file.is_absolute(); });
    if (devices && !context.serving.slots.empty()) {
        const auto &[slot, process] = *context.serving.slots.begin();
        throw served(slot, context.run_dir.string(), std::to_string(process));
    }
    become_owner(state_dir);
    asd_host::log_set(asd_host::kLogInformation, context.err.colour);
    impl_->lock(state_dir);
    for (const LoadedPart &part : parts) {
        if (part.trouble.empty()) {
            impl_->open(part);
        }
    }
}

PartStore::~PartStore() {
    (void)asd_host::log_flush(kLogLimit); // what could not be said in time is no reason to wait longer
}

void PartStore::write(const LoadedPart &part, std::uint32_t offset, BytesView bytes) {
    const std::int32_t status = impl_->parts.at(part.file)->write(offset, bytes, false);
    if (status != 0) {
        throw Failure(status_meaning(status) +
                      (part.plan.device ? "; is the part protected by a line that the service drives?" : ""));
    }
}

bool has_cut_write(const LoadedPart &part) {
    return !part.home.empty() && asd_host::IntentFile(part.home / kIntents, part.plan.name, part.plan.size).exists();
}

} // namespace asdctl
