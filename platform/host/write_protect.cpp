// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "write_protect.h"

#include "atomic_file.h"
#include "log.h"
#include "status.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <glib.h>

namespace asd_host {

namespace {

constexpr std::array<std::uint32_t, 3> kModuleLines = {39, 55, 56};
constexpr std::uint32_t kOutput = 1;
constexpr unsigned kFileMode = 0644;

std::optional<std::uint32_t> line_of(const std::string &file_name) {
    std::uint32_t line = 0;
    const char *end = file_name.data() + file_name.size();
    const auto parsed = std::from_chars(file_name.data(), end, line);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        return std::nullopt;
    }
    return line;
}

} // namespace

bool WriteProtectLines::open(const std::filesystem::path &folder, std::string *mistake) {
    const std::lock_guard lock(mutex_);
    folder_ = folder;
    for (const std::uint32_t line : kModuleLines) {
        levels_[line] = 0;
    }
    std::error_code failed;
    std::filesystem::create_directories(folder_, failed);
    std::filesystem::directory_iterator entry(folder_, failed);
    while (!failed && entry != std::filesystem::directory_iterator()) {
        if (const auto line = line_of(entry->path().filename().string())) {
            levels_[*line] = 0;
        }
        entry.increment(failed);
    }
    if (failed) {
        *mistake = folder_.string() + ": the write-protect lines cannot be shown here: " + failed.message();
        return false;
    }
    for (const auto &[line, level] : levels_) {
        if (const int error = show(line, level); error != 0) {
            *mistake = (folder_ / std::to_string(line)).string() + ": cannot be written: " + g_strerror(error);
            return false;
        }
    }
    return true;
}

gint32 WriteProtectLines::init(std::uint32_t line, std::uint32_t mode) {
    (void)line; // any number is a line
    return mode == kOutput ? 0 : kBadArgument;
}

gint32 WriteProtectLines::write(std::uint32_t line, std::uint32_t level) {
    if (level > 1) {
        return kBadArgument;
    }
    const std::lock_guard lock(mutex_);
    levels_[line] = level;
    const int error = show(line, level);
    if (error != 0 && !show_failed_) {
        HOST_LOG(kLogError, "%s: the level of line %u cannot be shown: %s.", folder_.c_str(), line, g_strerror(error));
    }
    show_failed_ = error != 0;
    return 0;
}

std::uint32_t WriteProtectLines::level(std::uint32_t line) const {
    const std::lock_guard lock(mutex_);
    const auto found = levels_.find(line);
    return found == levels_.end() ? 0 : found->second;
}

std::map<std::uint32_t, std::uint32_t> WriteProtectLines::levels() const {
    const std::lock_guard lock(mutex_);
    return levels_;
}

// In place and without a sync: the file is there to be looked at, a start drives the line anew.
int WriteProtectLines::show(std::uint32_t line, std::uint32_t level) const {
    const std::filesystem::path file = folder_ / std::to_string(line);
    const Fd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kFileMode));
    if (!fd) {
        return errno;
    }
    const std::array<std::uint8_t, 2> text = {static_cast<std::uint8_t>(level == 0 ? '0' : '1'), '\n'};
    return pwrite_all(fd.get(), text, 0);
}

} // namespace asd_host
