// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "history.h"

#include "atomic_file.h"
#include "fd.h"
#include "known_items.h"
#include "log.h"
#include "places.h"
#include "printable.h"
#include "records.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr std::size_t kKeptBytes = 64;   // of a value, in the file
constexpr std::size_t kLoggedBytes = 32; // in the log
constexpr unsigned kFileMode = 0600;

// A value as the history has it.
struct Shown {
    std::size_t length = 0;
    std::span<const std::uint8_t> bytes; // none of what is secret
};

bool is_secret(const ItemConfig &item) {
    return item.confidential || std::ranges::find(kKeyPlaces, item.name, &KeyPlace::item) != kKeyPlaces.end();
}

Shown shown(const ItemConfig &item, const Bytes &value) {
    const std::span<const std::uint8_t> all(value);
    return {.length = value.size(),
            .bytes = is_secret(item) ? all.first(0) : all.first(std::min(value.size(), kKeptBytes))};
}

std::string hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    std::array<char, 3> digits{};
    for (const std::uint8_t byte : bytes) {
        (void)std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

// In the log: a text in quotes, else hexadecimal digits.
std::string value_text(const Shown &value, bool secret) {
    if (value.length == 0) {
        return "nothing";
    }
    const std::string length = std::to_string(value.length) + (value.length == 1 ? " byte" : " bytes");
    if (secret) {
        return length + ", not shown";
    }
    const auto filler = [](std::uint8_t byte) { return byte == 0xFF || byte == 0; };
    const auto end = std::find_if_not(value.bytes.rbegin(), value.bytes.rend(), filler).base();
    const std::span used(value.bytes.begin(), end);
    if (used.empty()) {
        return length + " 0x" + hex(value.bytes.first(1));
    }
    const std::span some = used.first(std::min(used.size(), kLoggedBytes));
    const bool whole = some.size() == used.size() && value.bytes.size() == value.length;
    const bool text = std::ranges::all_of(some, [](std::uint8_t byte) { return byte >= ' ' && byte <= '~'; });
    const std::string said = text ? "\"" + std::string(some.begin(), some.end()) + "\""
                                  : "0x" + hex(value.bytes.first(std::min(value.bytes.size(), kLoggedBytes)));
    return whole && (text || value.length <= kLoggedBytes) ? said : said + "... (" + length + ")";
}

std::string field(const Shown &value) {
    return std::to_string(value.length) + "\t" + hex(value.bytes);
}

std::int64_t now_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Item and value now, of a record on a part.
Bytes without_checksum(const Bytes &record, std::size_t length) {
    return {record.begin(), record.begin() + static_cast<std::ptrdiff_t>(std::min(record.size(), length))};
}

void add_lines_of(const std::filesystem::path &file, std::string_view item, std::string *lines) {
    int error = 0;
    const auto bytes = read_file(file, &error);
    std::string_view rest = bytes ? std::string_view(reinterpret_cast<const char *>(bytes->data()), bytes->size()) : "";
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        std::string_view wanted = line; // the fourth field
        for (int skipped = 0; skipped < 3; ++skipped) {
            wanted.remove_prefix(std::min(wanted.find('\t'), wanted.size() - 1) + 1);
        }
        const bool clean = std::ranges::all_of(line, [](char c) { return c == '\t' || (c >= ' ' && c <= '~'); });
        if (clean && std::ranges::count(line, '\t') == 8 &&
            (item.empty() || wanted.substr(0, wanted.find('\t')) == item)) {
            *lines += std::string(line) + "\n";
        }
    }
}

} // namespace

void History::set_folder(const std::filesystem::path &folder) {
    file_ = folder / kHistory;
    older_ = folder / kOlderHistory;
}

void History::add(const ItemConfig &item, const Caller &caller, const ValueChange &change, const Bytes &in_memory) {
    const bool in_value = change.before && *change.before != change.now;
    const Bytes on_part = change.stored ? without_checksum(*change.stored, item.length) : Bytes();
    if (!in_value && (on_part.empty() || on_part == in_memory)) {
        return;
    }
    const Bytes &before = in_value ? *change.before : in_memory;
    const Bytes &now = in_value ? change.now : on_part;
    const std::string_view where = !in_value ? kOnParts : change.stored ? kStored : kInMemory;
    const bool secret = is_secret(item);
    const std::string user = printable(caller.user());
    const std::string_view label = label_of(item.name);
    HOST_LOG(kLogInformation, "%s%s%s%s changed by %s over %s%s: %s -> %s", item.name.c_str(),
             label.empty() ? "" : " (", std::string(label).c_str(), label.empty() ? "" : ")", user.c_str(),
             std::string(caller.door()).c_str(),
             where == kStored     ? ""
             : where == kInMemory ? ", in memory alone"
                                  : ", on its parts alone",
             value_text(shown(item, before), secret).c_str(), value_text(shown(item, now), secret).c_str());
    std::string line = std::to_string(now_ms()) + "\t";
    for (const std::string_view word : {caller.door(), std::string_view(user), std::string_view(item.name), where}) {
        line += std::string(word) + "\t";
    }
    line += field(shown(item, before)) + "\t" + field(shown(item, now)) + "\n";
    const std::lock_guard lock(mutex_);
    const int error = append(line);
    if (error != 0 && !std::exchange(failed_, true)) {
        HOST_LOG(kLogError, "%s: changes cannot be kept there: %s", file_.c_str(), std::strerror(error));
    }
    failed_ = error != 0;
}

// Nothing of a line stays that does not go in whole.
int History::append(const std::string &line) {
    const Fd fd(::open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kFileMode));
    struct stat facts = {};
    if (!fd || ::fstat(fd.get(), &facts) != 0) {
        return errno;
    }
    if (!S_ISREG(facts.st_mode)) {
        return EINVAL;
    }
    if (facts.st_size > 0 && static_cast<std::size_t>(facts.st_size) + line.size() > kFileLimit) {
        return ::rename(file_.c_str(), older_.c_str()) == 0 ? append(line) : errno;
    }
    const ssize_t written = ::write(fd.get(), line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) {
        return 0;
    }
    const int error = written < 0 ? errno : ENOSPC;
    // As far as it can be: a torn line is left out when it is read.
    [[maybe_unused]] const int cut = ::ftruncate(fd.get(), facts.st_size);
    return error;
}

std::string History::lines(std::string_view item) const {
    const std::lock_guard lock(mutex_);
    std::string lines;
    add_lines_of(older_, item, &lines);
    add_lines_of(file_, item, &lines);
    return lines;
}

} // namespace asd_host
