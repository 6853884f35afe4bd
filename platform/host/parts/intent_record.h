// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a write is about to do, noted before the first page: after a crash it tells how to make the record whole again.

#include "fd.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace asd_host {

struct Intent {
    std::string part;
    std::uint32_t offset = 0;
    std::vector<std::uint8_t> old_bytes;
    std::vector<std::uint8_t> new_bytes; // as many
    bool operator==(const Intent &) const = default;
};

// The intent as a file's bytes, numbers of 4 bytes little-endian:
//   "ASDINTNT"   8 bytes
//   version      1
//   name length, then the part's name
//   offset
//   data length, then that many old bytes, then as many new ones
//   CRC-32       over everything before it
// What is behind that does not count. Zeros in place of "ASDINTNT", or an empty file: there is no intent.
[[nodiscard]] std::vector<std::uint8_t> encode_intent(const Intent &intent);
[[nodiscard]] std::optional<Intent> decode_intent(std::span<const std::uint8_t> file);

// Where the one intent of a part is kept. Its user holds the part's lock.
class IntentLog {
public:
    IntentLog() = default;
    virtual ~IntentLog() = default;
    IntentLog(const IntentLog &) = delete;
    IntentLog &operator=(const IntentLog &) = delete;

    // kSoon: a power cut within the next seconds may bring the intent back, unless another one is saved before. That
    // does no harm while the part holds its new bytes and gets no others without an intent.
    enum class Drop { kNow, kSoon };

    // The noted intent, or none; a damaged one is said in the log, removed and not returned. 0 or an errno value: for
    // want of descriptors or memory it is not known whether there is one; what is there stays.
    [[nodiscard]] virtual int load(std::optional<Intent> *intent) = 0;
    // Durable on return, in place of an earlier one. 0 or an errno value: then nothing is noted, and an earlier one
    // that was dropped comes back no more, as far as the folder takes anything at all.
    [[nodiscard]] virtual int save(const Intent &intent) = 0;
    // 0 or an errno value.
    [[nodiscard]] virtual int drop(Drop when) = 0;
};

// One file a part, FOLDER/PART.intent, mode 0600: keys pass through it. The first write makes it, and the folder when
// that is missing; from then on it stays, marked while there is no intent, so that a write costs one sync here, and
// none of the folder. What is in the file's place and no intent for a part of that size is said in the log, once, and
// removed where it can be.
class IntentFile final : public IntentLog {
public:
    IntentFile(const std::filesystem::path &folder, const std::string &part, std::uint32_t part_size);

    [[nodiscard]] bool exists() const; // an intent, or what load has not refused yet
    // A write has ended, but its bytes, which may be keys, still are in the file.
    [[nodiscard]] bool to_wipe() const { return to_wipe_; }
    // Overwrites them, unless an intent is there. What cannot be done now is still to be done.
    void wipe();
    [[nodiscard]] bool leftover() const; // versions that replaced the file left a temporary one when they crashed
    void remove_leftover() const;
    [[nodiscard]] int load(std::optional<Intent> *intent) override;
    [[nodiscard]] int save(const Intent &intent) override;
    [[nodiscard]] int drop(Drop when) override;

private:
    [[nodiscard]] int open_to_write(Fd *fd) const;
    void refuse(const char *reason);

    std::filesystem::path file_;
    std::size_t limit_; // of the file
    bool to_wipe_ = false;
    bool refused_ = false; // what is there was said in the log and can't be removed
};

// Says in the log how many files of the folder that are not empty belong to none of these parts: left by one that was
// renamed or taken out of the enclosure, their writes stay unfinished, and the bytes in them may be keys.
void say_strange_intents(const std::filesystem::path &folder, const std::vector<std::string> &parts);

} // namespace asd_host
