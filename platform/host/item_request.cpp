// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_request.h"

#include "host.h"
#include "ipmi_registry.h"
#include "item_reload.h"
#include "log.h"
#include "peer_link.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

namespace asd_host {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kTellLimit{1000}; // for all items of a request, real time: a client waits

thread_local std::vector<OBJ_HANDLE> *written_now = nullptr; // by the request on this thread

// The item has a record on one of the chips, on a part that other controllers reach.
bool is_shared_on(Host &platform, OBJ_HANDLE item, const std::vector<OBJ_HANDLE> &chips) {
    static constexpr std::array kChipProperties = {"AtomStorageDataDev0", "AtomStorageDataDev1"};
    return std::ranges::any_of(kChipProperties, [&](const char *property) {
        PropertyValue value;
        if (platform.objects.get(item, property, &value) != 0) {
            return false;
        }
        const auto *chip = std::get_if<ObjectRef>(&value);
        if (chip == nullptr || std::ranges::find(chips, chip->handle) == chips.end()) {
            return false;
        }
        const auto place = platform.chips.find(chip->handle);
        return place != platform.chips.end() && place->second.part->config().shared;
    });
}

void tell_what_was_written(Host &platform, const std::vector<OBJ_HANDLE> &chips) {
    const auto deadline = std::chrono::steady_clock::now() + kTellLimit;
    for (const OBJ_HANDLE item : platform.objects.of_class(kItemClass)) {
        if (!is_shared_on(platform, item, chips)) {
            continue;
        }
        const std::string &name = *platform.objects.name_of(item);
        if (!tell_master(name, deadline)) {
            HOST_LOG(kLogError,
                     "%s was written here, but not every other controller could be told: if the master is among them, "
                     "it keeps its old value in memory; write %s there too",
                     name.c_str(), name.c_str());
        }
    }
}

} // namespace

ItemRequest::ItemRequest(OBJ_HANDLE item) : turn_(item) {
    written_now = &written_;
}

ItemRequest::~ItemRequest() {
    written_now = nullptr;
}

void ItemRequest::end() {
    written_now = nullptr;
    turn_.give_back(); // the master may be asked for something by a request that waits for it
    Host *platform = host();
    if (!written_.empty() && platform != nullptr && platform->board.role() != BOARD_MASTER) {
        tell_what_was_written(*platform, written_);
    }
}

void note_chip_written(OBJ_HANDLE chip) {
    if (written_now != nullptr) {
        written_now->push_back(chip);
    }
}

OBJ_HANDLE item_named(const char *name) {
    return host() == nullptr || name == nullptr ? 0 : host()->objects.find(name).value_or(0);
}

std::uint8_t reload_for_peer(std::string_view name) {
    Host *platform = host();
    const OBJ_HANDLE item = item_named(std::string(name).c_str());
    if (item == 0) {
        return kDataAbsent;
    }
    if (platform->board.role() != BOARD_MASTER) {
        return kNotInThisState;
    }
    const ItemTurn turn(item, kTellLimit);
    if (!turn) {
        return kNodeBusy;
    }
    const gint32 status = reload_item(item);
    if (status == 0) {
        return kCompleted;
    }
    HOST_LOG(kLogError, "another controller has written %s, but it cannot be read again here (status %d)",
             platform->objects.name_of(item)->c_str(), status);
    return kUnspecifiedError;
}

} // namespace asd_host
