// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Records that take several IPMI requests: the electronic keys and the bay configuration file.
//
// The service collects the frames of all clients in one buffer a kind, so a transfer that another one crosses can store
// a mixture. That is why what was written is read back.

#include "bytes.h"
#include "ipmi_client.h"
#include "records.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace asdctl {

inline constexpr std::size_t kKeyFrames = 5; // in both directions
inline constexpr std::size_t kBayReadFrames = 9;

// Called after every request that was answered.
using Progress = std::function<void()>;

// All throw Failure when a request is refused.
[[nodiscard]] Bytes ekey_read(IpmiClient &client, const KeyPlace &place, bool from_chip, const Progress &progress);
void ekey_write(IpmiClient &client, const KeyPlace &place, BytesView key, const Progress &progress); // kKeySize bytes

// What stands in front of the file; none: erased.
[[nodiscard]] std::optional<std::uint32_t> bay_length(IpmiClient &client);
[[nodiscard]] Bytes bay_read(IpmiClient &client, const Progress &progress); // kBayFileLimit bytes
[[nodiscard]] std::size_t bay_write_frames(std::size_t file_size);
void bay_write(IpmiClient &client, BytesView file, const Progress &progress); // with its length in front
void bay_erase(IpmiClient &client);

} // namespace asdctl
