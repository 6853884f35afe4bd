// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// One EEPROM part behind a file: reads, and writes that are on the part, read back and whole before they count.

#include "conditions.h"
#include "enclosure.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include <glib.h>

namespace asd_host {

// The status of a system call on a part's file that failed with that errno value; 0 for 0. The EEPROM driver says
// ETIMEDOUT whatever went wrong on the bus. For a read that is a part that does not answer; a write has read before,
// and its part may be one that refuses bytes while its pin protects it.
enum class PartStep { kOpen, kRead, kWrite };
[[nodiscard]] gint32 part_status(PartStep step, int error);

struct PartPaths {
    std::filesystem::path file; // the image or device file
    // Where the intent records are kept. Controllers that share a part and this folder finish each other's cut writes
    // before they read or write; with a folder of its own a controller finishes its own ones, when it is back.
    std::filesystem::path intent_dir;
    // How long a transfer waits for another process at the part. While one holds it for longer (a stopped one, say),
    // each transfer after the first waits an eighth of the one before, until one of them gets the lock.
    std::chrono::milliseconds lock_limit{3000};
};

// How a part is: one of kAnswers, kUnwritable, kWrongSize and kSilent.
struct PartSight {
    Condition condition = Condition::kAnswers;
    std::string reason; // in words, of any but kAnswers
    bool operator==(const PartSight &) const = default;
};

class Part {
public:
    // Says at each write whether the part is protected at that moment (a write-protect line at level 0).
    using Protected = std::function<bool()>;

    // Opens the part; creates an image that does not exist (erased, 0xFF, whole or not at all). A file of another size
    // is refused, never extended. An image that is missing beside intents of earlier writes is said in the log. Then
    // finishes or drops what a crash left in the intent folder. A device file that is missing is an absent part: said
    // in the log, and its transfers fail until it appears. Null: *mistake says why, in a sentence that names the file.
    [[nodiscard]] static std::unique_ptr<Part> open(const PartConfig &config, const PartPaths &paths,
                                                    Protected protected_by_line, std::string *mistake);
    ~Part();
    Part(const Part &) = delete;
    Part &operator=(const Part &) = delete;

    // All bytes or a status (status.h: kTransferFailed, kPartAbsent, kBadArgument past the end). Never bytes of a write
    // under way or of one that was cut and can't be finished. Why a read or a write fails is said in the log, again
    // only when the reason changes or it worked in between. Any thread.
    [[nodiscard]] gint32 read(std::uint32_t offset, std::span<std::uint8_t> out);

    // Returns 0 only when the part holds data at offset, read back; after a crash at any point the part holds all of
    // the old bytes or all of the new ones. Pages that already hold the wanted bytes are not written. With
    // chip_protected, or while the line protects it, an image part acknowledges and stores nothing, which the read-back
    // turns into kTransferFailed. Serialised across threads and, by a lock on the part's file, across processes. Any
    // thread; blocks for the write.
    [[nodiscard]] gint32 write(std::uint32_t offset, std::span<const std::uint8_t> data, bool chip_protected);

    // Reads a byte: whether the part answers. One that does not is silent from then on. Any thread; blocks for the
    // transfer.
    [[nodiscard]] bool probe();
    // False: the part is silent. Its last transfers failed as absent (kPartAbsent), five in a row or for 250 ms in all.
    // Until one succeeds, a silent device is tried at most twice a second; what is asked of it in between fails at once
    // with its last status. Any thread.
    [[nodiscard]] bool answering() const;

    // Looks at the part's file: whether it is there, has the part's size and may be written. With a transfer also a
    // byte is read, unless somebody is at the part at this moment, which tells as much; a file that has come back is
    // read from at once. Waits for no transfer and no lock. Any thread.
    void look(bool transfer);
    // What looks and transfers have shown. Any thread; blocks for nothing.
    [[nodiscard]] PartSight sight() const;
    [[nodiscard]] const std::filesystem::path &file() const;

    [[nodiscard]] const PartConfig &config() const;
    [[nodiscard]] std::uint64_t page_cycles() const; // pages written since start: the wear this process caused

private:
    Part();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace asd_host
