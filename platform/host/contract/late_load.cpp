// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "late_load.h"

#include "host.h"
#include "item_reload.h"
#include "item_turns.h"
#include "log.h"
#include "records.h"
#include "status.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <variant>

namespace asd_host {

namespace {

constexpr std::chrono::seconds kEvery{2};
constexpr std::chrono::milliseconds kFirstLook{500};
constexpr std::chrono::seconds kTurnLimit{1};

using Chips = std::set<OBJ_HANDLE>;

// Never destroyed: a door that is still busy at the end of the process uses it.
struct Unread {
    std::mutex mutex; // guards the field below
    Chips chips;      // whose last read failed
};

Unread &unread() {
    static Unread &all = *new Unread;
    return all;
}

std::map<Part *, Chips> unread_by_part(const Host &platform) {
    std::map<Part *, Chips> by_part;
    const std::lock_guard lock(unread().mutex);
    for (const OBJ_HANDLE chip : unread().chips) {
        if (const auto place = platform.chips.find(chip); place != platform.chips.end()) {
            by_part[place->second.part].insert(chip);
        }
    }
    return by_part;
}

bool is_byte(const ObjectStore &objects, OBJ_HANDLE object, const char *property, std::uint8_t wanted) {
    PropertyValue value;
    return objects.get(object, property, &value) == 0 && value == PropertyValue(wanted);
}

// Those of the chips that are the item's.
Chips chips_among(const ObjectStore &objects, OBJ_HANDLE item, const Chips &chips) {
    Chips found;
    for (const char *reference : kChipKeys) {
        PropertyValue value;
        const auto *chip = objects.get(item, reference, &value) == 0 ? std::get_if<ObjectRef>(&value) : nullptr;
        if (chip != nullptr && chips.contains(chip->handle)) {
            found.insert(chip->handle);
        }
    }
    return found;
}

// In the item's turn, so that the memory cannot end as what the chips held before a write.
gint32 reload_in_turn(const ObjectStore &objects, OBJ_HANDLE item) {
    const ItemTurn turn(item, kTurnLimit);
    if (!turn) {
        return kTimedOut;
    }
    // Whoever had the turn before may have made it ready.
    return is_byte(objects, item, "Ready", 0) ? reload_item(item) : 0;
}

// The part answers: loads what it kept back. Chips of items that fail again are looked at again.
void load_part(const Host &platform, const Part &part, const Chips &chips) {
    unsigned loaded = 0;
    unsigned without_record = 0;
    Chips kept;
    for (const OBJ_HANDLE item : platform.objects.of_class(kItemClass)) {
        Chips of_item = chips_among(platform.objects, item, chips);
        if (of_item.empty() || !is_byte(platform.objects, item, "Ready", 0) ||
            is_byte(platform.objects, item, "Online", 0)) {
            continue;
        }
        const gint32 status = reload_in_turn(platform.objects, item);
        loaded += status == 0 ? 1 : 0;
        without_record += status == kNoRecord ? 1 : 0;
        if (status != 0 && status != kNoRecord) {
            kept.merge(of_item);
        }
    }
    {
        const std::lock_guard lock(unread().mutex);
        std::erase_if(unread().chips, [&](OBJ_HANDLE chip) { return chips.contains(chip) && !kept.contains(chip); });
    }
    if (kept.size() < chips.size()) {
        HOST_LOG(kLogInformation, "Part %s answers again: %u of its items loaded, %u hold no record that checks.",
                 part.config().name.c_str(), loaded, without_record);
    }
}

} // namespace

void note_chip_read(OBJ_HANDLE chip, gint32 status) {
    const std::lock_guard lock(unread().mutex);
    if (status == 0) {
        unread().chips.erase(chip);
    } else {
        unread().chips.insert(chip);
    }
}

LateLoad::LateLoad(Host &platform) : platform_(platform) {}

void LateLoad::start() {
    const auto deadline = std::chrono::steady_clock::now() + kFirstLook;
    for (const auto &[name, part] : platform_.parts) {
        if (std::chrono::steady_clock::now() < deadline) {
            (void)part->probe(); // it remembers
        }
    }
    std::string mistake;
    const auto pass = [&platform = platform_](const Rounds::MustEnd &must_end) {
        for (const auto &[part, chips] : unread_by_part(platform)) {
            if (must_end() || platform.board.role() != BOARD_MASTER) {
                return;
            }
            if (part->probe()) {
                load_part(platform, *part, chips);
            }
        }
    };
    if (!rounds_.start(kEvery, pass, &mistake)) {
        HOST_LOG(kLogError, "no thread to load items late: %s", mistake.c_str());
    }
}

bool LateLoad::stop(std::chrono::milliseconds limit) {
    return rounds_.stop(limit);
}

} // namespace asd_host
