// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The other controllers of this enclosure: asked, told what was written here, and served when they tell. Any thread.

#include "ipmi_registry.h"
#include "platform_types.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace asd_host {

// Sends a request to the controller of a slot and waits for its response; with response null, for nothing. The limit is
// in the module's seconds. 0, kPeerAbsent, kPeerFailed or kTimedOut, at once of a peer that has just not answered;
// *response is set when it is 0.
[[nodiscard]] gint32 patient_request(std::uint8_t slot, const IpmiRequest &request, gint32 timeout_s,
                                     IpmiResponse *response);

// This process's own slot, or a slot whose controller listens at its link; one that was absent less than three quarters
// of a second ago still counts as such. False while no platform is running.
[[nodiscard]] bool peer_online(std::uint8_t slot);

// When this controller is not the master: the items on the chips, as far as these lie on shared parts, are read again
// by the master. Waits up to a second for that, and says in the log when a master may not have done it.
void tell_master_of(const std::vector<OBJ_HANDLE> &chips);

// Carries out a peer's wish that the master read an item from its chips again. The completion code: 0x00 done, 0xC0 its
// turn did not come within a second, 0xCB no such item, 0xD5 this controller is not the master, 0xFF the chips hold no
// good record or cannot be read (the log says why). Blocks for the transfers.
[[nodiscard]] std::uint8_t reload_for_peer(std::string_view name);

} // namespace asd_host
