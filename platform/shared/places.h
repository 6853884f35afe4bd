// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where the service keeps its files and sockets: their names, folder by folder. docs/configuration.md says what each is
// for.

#include "names.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <unistd.h>

namespace asd_shared {

inline constexpr unsigned kSlots = 4; // of an enclosure, at most

// The folders of an enclosure, and those in them that a slot's controller has for itself.
enum class Folder { kRun, kSlotRun, kState, kSlotState };

inline constexpr std::string_view kMasterLock = "master.lock";
inline constexpr std::string_view kIpmiSocket = "ipmi.sock";
inline constexpr std::string_view kHostSocket = "host.sock";
inline constexpr std::string_view kLinkSocket = "link.sock";
inline constexpr std::string_view kBusSocket = "bus";
inline constexpr std::string_view kInstanceLock = "instance.lock";
inline constexpr std::string_view kLines = "gpio";
inline constexpr std::string_view kRoleLock = "role.lock";
inline constexpr std::string_view kStateLock = "state.lock";
inline constexpr std::string_view kIntents = "intents";
inline constexpr std::string_view kCpldRegisters = "cpld-registers";
inline constexpr std::string_view kCpldRam = "cpld-ram";
inline constexpr std::string_view kFlashParameters = "flash-parameters";
inline constexpr std::string_view kHistory = "history";
inline constexpr std::string_view kOlderHistory = "history.old";

struct Place {
    Folder folder;
    std::string_view name;
};

// clang-format off
inline constexpr std::array kPlaces = {
    Place{.folder = Folder::kRun,       .name = kMasterLock},
    Place{.folder = Folder::kSlotRun,   .name = kBusSocket},
    Place{.folder = Folder::kSlotRun,   .name = kHostSocket},
    Place{.folder = Folder::kSlotRun,   .name = kInstanceLock},
    Place{.folder = Folder::kSlotRun,   .name = kIpmiSocket},
    Place{.folder = Folder::kSlotRun,   .name = kLines},
    Place{.folder = Folder::kSlotRun,   .name = kLinkSocket},
    Place{.folder = Folder::kState,     .name = kIntents},
    Place{.folder = Folder::kState,     .name = kRoleLock},
    Place{.folder = Folder::kSlotState, .name = kCpldRam},
    Place{.folder = Folder::kSlotState, .name = kCpldRegisters},
    Place{.folder = Folder::kSlotState, .name = kFlashParameters},
    Place{.folder = Folder::kSlotState, .name = kHistory},
    Place{.folder = Folder::kSlotState, .name = kOlderHistory},
    Place{.folder = Folder::kSlotState, .name = kIntents},
    Place{.folder = Folder::kSlotState, .name = kStateLock},
};
// clang-format on

// What a file is called while it is replaced, and one that was set aside because it is damaged.
inline constexpr std::string_view kTemporary = ".tmp";
inline constexpr std::string_view kDamaged = ".damaged";

[[nodiscard]] inline std::string slot_folder(unsigned slot) {
    return "slot" + std::to_string(slot);
}

// Whether the service itself uses, or may come to use, this name in that folder.
[[nodiscard]] inline bool is_taken(Folder folder, std::string_view name) {
    const auto use = [name](std::string_view own) {
        return name.starts_with(own) && (name.size() == own.size() || name.substr(own.size()) == kTemporary ||
                                         name.substr(own.size()) == kDamaged);
    };
    if (folder == Folder::kState || folder == Folder::kRun) {
        for (unsigned slot = 0; slot < kSlots; ++slot) {
            if (name == slot_folder(slot)) {
                return true;
            }
        }
    }
    return std::ranges::any_of(kPlaces, [&](const Place &place) { return place.folder == folder && use(place.name); });
}

// The default run folder of a user who has no folder of his own for such things: anybody could have made it.
[[nodiscard]] inline std::filesystem::path run_dir_in_tmp() {
    return "/tmp/asd-" + std::to_string(::geteuid());
}

// The run folder unless another is named: /run/asd for root, else $XDG_RUNTIME_DIR/asd, else run_dir_in_tmp. To be
// asked before other threads exist.
[[nodiscard]] inline std::filesystem::path default_run_dir() {
    if (::geteuid() == 0) {
        return "/run/asd";
    }
    const char *value = std::getenv("XDG_RUNTIME_DIR"); // NOLINT(concurrency-mt-unsafe): before other threads exist
    const std::filesystem::path runtime = value == nullptr ? "" : value;
    return runtime.is_absolute() ? runtime / "asd" : run_dir_in_tmp();
}

} // namespace asd_shared
