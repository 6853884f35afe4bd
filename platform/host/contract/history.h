// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What was changed, by whom: a line in the log, and one in a file of the slot's state folder that does not grow without
// end. Of keys and other confidential items no byte is in either.

#include "caller.h"
#include "enclosure.h"

#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>

namespace asd_host {

// A change's line, without its end: fields between tabs. Time in milliseconds since 1970; door; user; item; where the
// value is now (kStored, kInMemory, kOnParts); the length and the first kHistoryBytes bytes in hexadecimal of the value
// before, and of the one that it is now.
inline constexpr std::string_view kStored = "stored";
inline constexpr std::string_view kInMemory = "in-memory"; // the copies keep what they had
inline constexpr std::string_view kOnParts = "on-parts";   // the value in memory is the one before

class History {
public:
    // When the file has that many bytes it becomes the older one, and the older one goes.
    static constexpr std::size_t kFileLimit = 64U << 10U;

    // Where its files are; nothing is opened.
    void set_folder(const std::filesystem::path &folder);

    // What has changed an item of this configuration. Nothing, when nothing did. A file that cannot be written is said
    // in the log once, and nothing else comes of it. Any thread.
    void add(const ItemConfig &item, const Caller &caller, const ValueChange &change, const Bytes &in_memory);

    // The lines that are kept, oldest first, of that item alone, or of all when it is empty. Any thread.
    [[nodiscard]] std::string lines(std::string_view item) const;

private:
    [[nodiscard]] int append(const std::string &line);

    mutable std::mutex mutex_; // guards the files and the field below
    bool failed_ = false;      // said already
    std::filesystem::path file_;
    std::filesystem::path older_;
};

} // namespace asd_host
