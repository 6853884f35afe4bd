// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The write-protect lines. Emulated: each line is a file RUN_DIR/slotN/gpio/LINE that holds "0\n" or "1\n", for people
// to see.

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include <glib.h>

namespace asd_host {

class WriteProtectLines {
public:
    // Drives to level 0 (protected) the lines the module switches (39, 55, 56) and any that an earlier process left a
    // file of. False: the folder can't be used; *mistake says why.
    [[nodiscard]] bool open(const std::filesystem::path &folder, std::string *mistake);

    [[nodiscard]] gint32 init(std::uint32_t line, std::uint32_t mode); // 0 or kBadArgument: mode 1 is output
    // 0 or kBadArgument. A file that can't be written is said once in the log: the line has its level all the same.
    [[nodiscard]] gint32 write(std::uint32_t line, std::uint32_t level);
    [[nodiscard]] std::uint32_t level(std::uint32_t line) const;         // 0 for a line never driven
    [[nodiscard]] std::map<std::uint32_t, std::uint32_t> levels() const; // of each line driven so far

private:
    [[nodiscard]] int show(std::uint32_t line, std::uint32_t level) const;

    mutable std::mutex mutex_; // guards levels_ and the files
    std::filesystem::path folder_;
    std::map<std::uint32_t, std::uint32_t> levels_;
    bool show_failed_ = false;
};

} // namespace asd_host
