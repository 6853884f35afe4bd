// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Small persistent values of the board (CPLD registers and RAM, flash parameters), one file each group, changed
// atomically.

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <glib.h>

namespace asd_host {

// A map from a 32-bit key to bytes, kept in one file with its own checksum; each change replaces the file whole (temp
// file, fsync, rename, fsync of the folder), so that a crash leaves the old map or the new one. Safe for many threads.
//
// The file, numbers of 4 bytes little-endian:
//   "ASDSTATE"   8 bytes
//   version      1
//   count        of the values that follow, keys ascending
//   each value:  key, length, that many bytes
//   CRC-32       over everything before it
class StateStore {
public:
    using Values = std::map<std::uint32_t, std::vector<std::uint8_t>>;
    static constexpr std::size_t kLargestFile = 1U << 20U;

    // Reads the file; a missing one is an empty map. A damaged one is set aside as FILE.damaged, said in the log, and
    // the map starts empty. False: the file cannot be read at all, is no plain file of at most kLargestFile bytes, or a
    // later version wrote it; *mistake says why.
    [[nodiscard]] bool open(const std::filesystem::path &file, std::string *mistake);

    [[nodiscard]] std::optional<std::vector<std::uint8_t>> get(std::uint32_t key) const;
    // 0 when the change is durable, else kStorageFailed and nothing changed; so it is when the file would grow past
    // kLargestFile. An unchanged value is not written.
    [[nodiscard]] gint32 put(std::uint32_t key, std::span<const std::uint8_t> value);
    // The same for several values: after a crash all of them are changed or none.
    [[nodiscard]] gint32 put_all(const Values &changes);

private:
    [[nodiscard]] gint32 save(const Values &values) const;

    mutable std::mutex mutex_; // guards everything below and the file
    std::filesystem::path file_;
    Values values_;
    bool file_doubtful_ = false; // a save failed: the file may hold more than values_, so an unchanged value is written
};

} // namespace asd_host
