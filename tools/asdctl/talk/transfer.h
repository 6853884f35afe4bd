// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Records that take several IPMI requests: the electronic keys and the bay configuration file.
//
// The service collects the frames of all clients in one buffer a kind, so a transfer that another one crosses can store
// a mixture. That is why what was written is read back.

#include "bytes.h"
#include "ipmi_client.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace asdctl {

inline constexpr std::size_t kEkeySize = 1024;
inline constexpr std::size_t kEkeyFrames = 5; // in both directions
inline constexpr std::size_t kBayFileLimit = 2048;
inline constexpr std::size_t kBayReadFrames = 9;
inline constexpr std::size_t kBayWriteFrame = 220; // bytes; the last frame may be shorter

struct EkeyPlace {
    std::string_view name;
    std::string_view item;
    std::array<std::uint8_t, 3> fru; // the first bytes of its requests
    bool mirror;                     // whether it can be read from memory too
};

inline constexpr std::array kEkeyPlaces = {
    EkeyPlace{.name = "frameboard", .item = "ASD5", .fru = {0x00, 0x00, 0x80}, .mirror = true},
    EkeyPlace{.name = "leftear", .item = "ASD7", .fru = {0x00, 0x80, 0x00}, .mirror = true},
    EkeyPlace{.name = "power0", .item = "ASD1000", .fru = {0x00, 0x10, 0x00}, .mirror = false},
    EkeyPlace{.name = "power1", .item = "ASD1001", .fru = {0x01, 0x10, 0x00}, .mirror = false},
};

// Called after every request that was answered.
using Progress = std::function<void()>;

// All throw Failure when a request is refused.
[[nodiscard]] Bytes ekey_read(IpmiClient &client, const EkeyPlace &place, bool from_chip, const Progress &progress);
void ekey_write(IpmiClient &client, const EkeyPlace &place, BytesView key, const Progress &progress); // kEkeySize bytes

// What stands in front of the file; none: erased.
[[nodiscard]] std::optional<std::uint32_t> bay_length(IpmiClient &client);
[[nodiscard]] Bytes bay_read(IpmiClient &client, const Progress &progress); // kBayFileLimit bytes
[[nodiscard]] std::size_t bay_write_frames(std::size_t file_size);
void bay_write(IpmiClient &client, BytesView file, const Progress &progress); // with its length in front
void bay_erase(IpmiClient &client);

} // namespace asdctl
