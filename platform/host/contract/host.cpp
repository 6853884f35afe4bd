// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "host.h"

#include "caller.h"
#include "intent_record.h"
#include "item_request.h"
#include "known_items.h"
#include "log.h"
#include "peers.h"
#include "places.h"
#include "safe_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace asd_host {

namespace {

constexpr mode_t kPrivate = 0700; // keys lie in the state folders
constexpr mode_t kEntered = 0750; // clients in the group reach the sockets
constexpr std::uint32_t kProtected = 0;

// Set once, before other threads exist.
Host *g_host = nullptr;

class Starter {
public:
    Starter(Options options, Enclosure enclosure) {
        host_->options = std::move(options);
        host_->enclosure = std::move(enclosure);
    }

    // Every mistake; none: the platform is in take().
    [[nodiscard]] std::vector<std::string> start() {
        const Options &options = host_->options;
        const bool nobody_enters = options.run_dir_in_tmp;
        make_own(options.run_dir, nobody_enters ? kPrivate : kEntered, nobody_enters);
        make_own(options.slot_run_dir(), kEntered, false);
        make_own(options.state_dir, kPrivate, false);
        make_own(options.slot_state_dir(), kPrivate, false);
        // A running instance owns what follows: nothing of it is touched before the lock is held.
        if (mistakes_.empty()) {
            lock_instance();
        }
        if (!mistakes_.empty()) {
            return mistakes_;
        }
        open_lines();
        std::string mistake;
        if (!host_->board.open(options, host_->enclosure, &mistake)) {
            mistakes_.push_back(mistake);
        }
        for (const PartConfig &part : host_->enclosure.parts) {
            open_part(part);
        }
        // Only now: an image that is missing beside them has been there before.
        prepare_intents(options.state_dir / kIntents, true);
        prepare_intents(options.slot_state_dir() / kIntents, false);
        add_chips();
        add_items();
        if (mistakes_.empty()) {
            host_->lookout.set_up();
            host_->history.set_folder(options.slot_state_dir());
        }
        return mistakes_;
    }

    [[nodiscard]] std::unique_ptr<Host> take() { return std::move(host_); }

private:
    void make_folder(const std::filesystem::path &folder, mode_t mode) {
        std::error_code error;
        std::filesystem::create_directories(folder.parent_path(), error);
        if (::mkdir(folder.c_str(), mode) == 0) {
            return;
        }
        const int reason = errno;
        if (reason == EEXIST && std::filesystem::is_directory(folder, error)) {
            return;
        }
        mistakes_.push_back("cannot create the folder " + folder.native() + ": " + std::strerror(reason));
    }

    // Within a folder that is no good there is nothing to look at.
    void make_own(const std::filesystem::path &folder, mode_t mode, bool nobody_enters) {
        if (!mistakes_.empty()) {
            return;
        }
        if (std::string mistake = make_own_folder(folder, mode, nobody_enters); !mistake.empty()) {
            mistakes_.push_back(std::move(mistake));
        }
    }

    // The kernel drops the locks with the process, however that ends.
    void lock_instance() {
        const Options &options = host_->options;
        host_->instance_lock = LockFile(options.slot_run_dir() / kInstanceLock);
        host_->state_lock = LockFile(options.slot_state_dir() / kStateLock);
        lock(host_->instance_lock, options.run_dir, "stop it, or choose another --slot or --run-dir");
        if (mistakes_.empty()) {
            lock(host_->state_lock, options.state_dir, "stop it, or choose another --slot or --state-dir");
        }
    }

    void lock(LockFile &file, const std::filesystem::path &folder, const char *remedy) {
        int error = file.take();
        if (error == EAGAIN) {
            mistakes_.push_back("slot " + std::to_string(host_->options.slot) + " of " + folder.native() +
                                " is already served by process " + file.holder() + "; " + remedy);
            return;
        }
        if (error == 0) {
            error = file.sign();
        }
        if (error != 0) {
            mistakes_.push_back("cannot lock " + file.path().native() + ": " + std::strerror(error));
        }
    }

    void open_lines() {
        std::string mistake;
        if (!host_->lines.open(host_->options.slot_run_dir() / kLines, &mistake)) {
            mistakes_.push_back(mistake);
            return;
        }
        for (const PartConfig &part : host_->enclosure.parts) {
            if (part.write_protect_line && host_->lines.write(*part.write_protect_line, kProtected) != 0) {
                mistakes_.push_back("cannot drive the write-protect line " + std::to_string(*part.write_protect_line) +
                                    " of part " + part.name);
            }
        }
        for (const GpioLineConfig &line : host_->enclosure.gpio_lines) {
            if (!host_->lines.attach(line, &mistake)) {
                mistakes_.push_back(mistake);
            }
        }
    }

    void open_part(const PartConfig &config) {
        const Options &options = host_->options;
        const std::filesystem::path folder = config.shared ? options.state_dir : options.slot_state_dir();
        const std::filesystem::path file = folder / config.file; // an absolute path replaces the folder
        if (config.kind == PartKind::kImage) {
            make_folder(file.parent_path(), kPrivate);
        }
        Part::Protected protected_by_line = [] { return false; };
        if (config.write_protect_line) {
            protected_by_line = [lines = &host_->lines, line = *config.write_protect_line] {
                return lines->level(line) == kProtected;
            };
        }
        std::string mistake;
        // The intents of a shared part are shared as well: whoever reaches the part next finishes a cut write, before a
        // newer record of another controller could be taken for a torn one.
        auto part =
            Part::open(config, {.file = file, .intent_dir = folder / kIntents}, std::move(protected_by_line), &mistake);
        if (part == nullptr) {
            mistakes_.push_back(mistake);
            return;
        }
        host_->parts.emplace(config.name, std::move(part));
    }

    // Of the shared parts, or of those that the slot has for itself.
    void prepare_intents(const std::filesystem::path &folder, bool shared) {
        std::vector<std::string> parts;
        for (const PartConfig &part : host_->enclosure.parts) {
            if (part.shared == shared) {
                parts.push_back(part.name);
            }
        }
        say_strange_intents(folder, parts);
        make_folder(folder, kPrivate);
    }

    void add_chips() {
        for (const ChipConfig &chip : host_->enclosure.chips) {
            const auto part = host_->parts.find(chip.part);
            if (part == host_->parts.end()) {
                continue; // could not be opened: a mistake already
            }
            const OBJ_HANDLE handle =
                host_->objects.add(kChipClass, chip.name,
                                   {{.name = "Offset", .value = std::uint32_t{chip.offset}},
                                    {.name = "RetryNumber", .value = std::uint32_t{chip.retry_number}},
                                    {.name = "Health", .value = std::uint8_t{0}, .writable = true},
                                    {.name = "ErrorCode", .value = std::int32_t{0}, .writable = true},
                                    {.name = "StgWp", .value = std::uint8_t{chip.stg_wp}, .writable = true},
                                    {.name = "StgIsWp", .value = std::uint8_t{chip.stg_is_wp}}});
            host_->chips.emplace(handle, Host::Chip{.part = part->second.get(), .offset = chip.offset});
        }
    }

    void add_items() {
        for (const ItemConfig &item : host_->enclosure.items) {
            std::vector<Property> properties = {
                {.name = "Online", .value = std::uint8_t{item.online}},
                {.name = "DevCount", .value = std::uint32_t{item.chips.size() == 1 ? 1U : 2U}},
                {.name = "Length", .value = std::uint32_t{item.length}},
                {.name = "Value", .value = Bytes(item.erased_value ? item.length : 0, 0xFF), .writable = true},
                {.name = "Ready", .value = std::uint8_t{0}, .writable = true},
                {.name = "Num", .value = std::uint8_t{item.num}},
                {.name = "NeedSync", .value = static_cast<std::uint8_t>(item.need_sync ? 1 : 0)}};
            add_references(item, properties);
            host_->objects.add(kItemClass, item.name, std::move(properties));
        }
    }

    void add_references(const ItemConfig &item, std::vector<Property> &properties) const {
        const BoardFacts &board = host_->enclosure.board;
        std::vector<std::string> chips = item.chips;
        // Such a board reaches the only chip of an item through the second reference.
        if (chips.size() == 1 && board.four_u_four_controller && board.equipment_frame) {
            chips.push_back(chips.front());
        }
        for (std::size_t copy = 0; copy < chips.size(); ++copy) {
            if (const auto chip = host_->objects.find(chips[copy])) {
                properties.push_back({.name = "AtomStorageDataDev" + std::to_string(copy), .value = ObjectRef{*chip}});
            }
        }
    }

    std::unique_ptr<Host> host_ = std::make_unique<Host>();
    std::vector<std::string> mistakes_;
};

// A check flag that was written along with its pair is no change of its own.
void keep_changes(const Caller &caller) {
    for (const auto &[handle, change] : caller.changes()) {
        const auto item =
            std::ranges::find(g_host->enclosure.items, *g_host->objects.name_of(handle), &ItemConfig::name);
        PropertyValue value;
        const KnownItem *const known = known_item(item->name);
        if ((known != nullptr && known->format == Format::kFlag && caller.changes().size() > 1) ||
            g_host->objects.get(handle, "Value", &value) != 0 || !std::holds_alternative<Bytes>(value)) {
            continue;
        }
        g_host->history.add(*item, caller, change, std::get<Bytes>(value));
    }
}

// 0, or why the file is not this process' any more.
int keep(LockFile &file) {
    const unsigned before = file.remade();
    const int error = file.take();
    if (error != 0 || file.remade() == before) {
        return error;
    }
    HOST_LOG(kLogError, "%s had been removed or replaced; it is made anew and locked.", file.path().c_str());
    return file.sign();
}

} // namespace

std::string host_watch(Host &host) {
    for (LockFile *file : {&host.instance_lock, &host.state_lock}) {
        const int error = keep(*file);
        if (error == EAGAIN) {
            return file->path().native() + " had been removed or replaced, and process " + file->holder() +
                   " has locked the new one";
        }
        if (error != 0 && file == &host.instance_lock) {
            return file->path().native() + " cannot be made anew: " + std::strerror(error) +
                   "; the run folder has been removed, and with it the sockets";
        }
        if (error != 0 && !host.state_lock_failed) {
            HOST_LOG(kLogError, "%s had been removed, and cannot be made anew: %s.", file->path().c_str(),
                     std::strerror(error));
        }
        host.state_lock_failed = error != 0;
    }
    return {};
}

std::vector<std::string> host_start(Options options, Enclosure enclosure) {
    if (g_host != nullptr) {
        return {"the platform is running already"};
    }
    Starter starter(std::move(options), std::move(enclosure));
    std::vector<std::string> mistakes = starter.start();
    if (mistakes.empty()) {
        g_host = starter.take().release(); // lives as long as the process
        tell_of_written_chips(tell_master_of);
        tell_of_changes(keep_changes);
    }
    return mistakes;
}

Host *host() {
    return g_host;
}

} // namespace asd_host
