// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "peers.h"

#include "clock.h"
#include "host.h"
#include "item_reload.h"
#include "item_turns.h"
#include "log.h"
#include "peer_link.h"
#include "places.h"
#include "records.h"
#include "status.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace asd_host {
namespace {

using Deadline = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

constexpr milliseconds kShortestLimit{50}; // real time: with a high time scale a peer still needs some
constexpr milliseconds kTellLimit{1000};   // for all items of a request, real time: a client waits

PeerPatience &peer_patience() {
    static PeerPatience &patience = *new PeerPatience(clock_real(1000)); // never destroyed: tasks use it to the end
    return patience;
}

PeerLines &peer_lines() {
    static PeerLines &lines = *new PeerLines(clock_real(1000)); // never destroyed, for the same reason
    return lines;
}

std::filesystem::path link_of(std::uint8_t slot) {
    return host()->options.run_dir / slot_folder(slot) / kLinkSocket;
}

// False: the master may not know.
bool tell_master(std::string_view item, Deadline deadline) {
    std::vector<std::filesystem::path> sockets;
    bool all_answer = true;
    for (std::uint8_t slot = 0; slot < kSlots; ++slot) {
        if (slot == host()->options.slot) {
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        if (peer_patience().limit(slot, deadline - now, now)) {
            sockets.push_back(link_of(slot));
        } else {
            all_answer = false;
        }
    }
    const Reloaded outcome = peers_reload(sockets, item, deadline);
    return outcome == Reloaded::kByMaster || (outcome == Reloaded::kNoMaster && all_answer);
}

// The item has a record on one of the chips, on a part that other controllers reach.
bool is_shared_on(Host &platform, OBJ_HANDLE item, const std::vector<OBJ_HANDLE> &chips) {
    return std::ranges::any_of(kChipKeys, [&](const char *property) {
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

gint32 patient_request(std::uint8_t slot, const IpmiRequest &request, gint32 timeout_s, IpmiResponse *response) {
    const auto wanted = clock_real(static_cast<std::uint64_t>(std::max(timeout_s, 0)) * 1000);
    const auto limit = peer_patience().limit(slot, wanted, std::chrono::steady_clock::now());
    if (!limit) {
        return kTimedOut;
    }
    const gint32 status = peer_lines().request(slot, link_of(slot), request,
                                               std::max<std::chrono::nanoseconds>(*limit, kShortestLimit), response);
    peer_patience().note(slot, status != kTimedOut, std::chrono::steady_clock::now());
    return status;
}

bool peer_online(std::uint8_t slot) {
    const Host *const platform = host();
    return platform != nullptr && (slot == platform->options.slot ||
                                   peer_lines().listens(slot, link_of(slot), std::chrono::steady_clock::now()));
}

void tell_master_of(const std::vector<OBJ_HANDLE> &chips) {
    Host *const platform = host();
    if (platform != nullptr && platform->board.role() != BOARD_MASTER) {
        tell_what_was_written(*platform, chips);
    }
}

std::uint8_t reload_for_peer(std::string_view name) {
    Host *const platform = host();
    const auto found = platform == nullptr ? std::nullopt : platform->objects.find(std::string(name));
    if (!found) {
        return kDataAbsent;
    }
    const OBJ_HANDLE item = *found;
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
