// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "write_protect.h"

#include "atomic_file.h"
#include "log.h"
#include "safe_folder.h"
#include "status.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

#include <glib.h>

namespace asd_host {

namespace {

constexpr std::array<std::uint32_t, 3> kModuleLines = {39, 55, 56};
constexpr std::uint32_t kOutput = 1;
constexpr unsigned kLineFileMode = 0644;

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

bool WriteProtectLines::attach(const GpioLineConfig &config, std::string *mistake) {
    auto taken = GpioLine::request(config, mistake);
    if (taken == nullptr) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    attached_[config.line].line = std::move(taken);
    levels_[config.line] = 0;
    if (const int error = show(config.line, 0); error != 0) {
        *mistake = (folder_ / std::to_string(config.line)).string() + ": cannot be written: " + g_strerror(error);
        return false;
    }
    const std::string place = config.offset ? std::to_string(*config.offset) : config.name;
    HOST_LOG(kLogInformation, "Write-protect line %u is line %s of the GPIO chip %s%s.", config.line, place.c_str(),
             config.chip.c_str(), config.active_low ? ", active low" : "");
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
    if (const gint32 ret = drive(line, level); ret != 0) {
        return ret;
    }
    levels_[line] = level;
    const int error = show(line, level);
    if (error != 0 && !show_failed_) {
        HOST_LOG(kLogError, "%s: the level of line %u cannot be shown: %s.", folder_.c_str(), line, g_strerror(error));
    }
    show_failed_ = error != 0;
    return 0;
}

gint32 WriteProtectLines::drive(std::uint32_t line, std::uint32_t level) {
    const auto found = attached_.find(line);
    if (found == attached_.end()) {
        return 0;
    }
    Attached &attached = found->second;
    const int error = attached.line->set(level);
    if (error != 0 && !attached.set_failed) {
        HOST_LOG(kLogError, "Write-protect line %u cannot be set to %u: %s.", line, level, g_strerror(error));
    }
    attached.set_failed = error != 0;
    return error == 0 ? 0 : kLineFailed;
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
    const Fd fd = open_own_file(file, kLineFileMode);
    if (!fd) {
        return errno;
    }
    const std::array<std::uint8_t, 2> text = {static_cast<std::uint8_t>(level == 0 ? '0' : '1'), '\n'};
    return pwrite_all(fd.get(), text, 0);
}

} // namespace asd_host
