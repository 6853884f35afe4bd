// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The write-protect lines: those that the enclosure file maps are lines of GPIO chips, the others are emulated. The
// level of each is in a file RUN_DIR/slotN/gpio/LINE, "0\n" or "1\n", for people to see.

#include "gpio_lines.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <glib.h>

namespace asd_host {

class WriteProtectLines {
public:
    // Drives to level 0 (protected) the lines the module switches (39, 55, 56) and any that an earlier process left a
    // file of. False: the folder can't be used; *mistake says why.
    [[nodiscard]] bool open(const std::filesystem::path &folder, std::string *mistake);

    // Takes a line of a GPIO chip, at level 0, for as long as this object lives. False: *mistake says why.
    [[nodiscard]] bool attach(const GpioLineConfig &config, std::string *mistake);

    [[nodiscard]] gint32 init(std::uint32_t line, std::uint32_t mode); // 0 or kBadArgument: mode 1 is output
    // 0, kBadArgument, or kLineFailed: then the line counts as having kept its level, and the log says so, once until
    // it works again. A file that can't be written is said once as well, but the line has its level all the same.
    [[nodiscard]] gint32 write(std::uint32_t line, std::uint32_t level);
    [[nodiscard]] std::uint32_t level(std::uint32_t line) const;         // 0 for a line never driven
    [[nodiscard]] std::map<std::uint32_t, std::uint32_t> levels() const; // of each line driven so far

private:
    [[nodiscard]] int show(std::uint32_t line, std::uint32_t level) const;

    struct Attached {
        std::unique_ptr<GpioLine> line;
        bool set_failed = false; // said in the log
    };
    [[nodiscard]] gint32 drive(std::uint32_t line, std::uint32_t level);

    mutable std::mutex mutex_; // guards everything below, and the files
    std::filesystem::path folder_;
    std::map<std::uint32_t, Attached> attached_; // the others are emulated
    std::map<std::uint32_t, std::uint32_t> levels_;
    bool show_failed_ = false;
};

} // namespace asd_host
