// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "state_store.h"

#include "atomic_file.h"
#include "byte_codec.h"
#include "log.h"
#include "places.h"
#include "status.h"

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <glib.h>

namespace asd_host {

namespace {

constexpr std::string_view kStateMagic = "ASDSTATE";
constexpr std::uint32_t kStateVersion = 1;
constexpr unsigned kMode = 0600;

enum class Content { kGood, kDamaged, kLaterVersion };

std::vector<std::uint8_t> encode(const StateStore::Values &values) {
    ByteWriter writer;
    writer.text(kStateMagic);
    writer.u32(kStateVersion);
    writer.u32(u32_of(values.size()));
    for (const auto &[key, value] : values) {
        writer.u32(key);
        writer.u32(u32_of(value.size()));
        writer.bytes(value);
    }
    return writer.sealed();
}

Content decode(std::span<const std::uint8_t> file, StateStore::Values *values) {
    const auto content = unsealed(file);
    if (!content) {
        return Content::kDamaged;
    }
    ByteReader reader(*content);
    const auto magic = reader.bytes(u32_of(kStateMagic.size()));
    const auto version = reader.u32();
    if (!magic || !version || !same_text(*magic, kStateMagic)) {
        return Content::kDamaged;
    }
    if (*version > kStateVersion) {
        return Content::kLaterVersion;
    }
    const auto count = reader.u32();
    for (std::uint32_t i = 0; i < count.value_or(0); ++i) {
        const auto key = reader.u32();
        const auto length = reader.u32();
        const auto value = reader.bytes(length.value_or(0));
        if (!key || !length || !value) {
            return Content::kDamaged;
        }
        (*values)[*key].assign(value->begin(), value->end());
    }
    return count && reader.at_end() ? Content::kGood : Content::kDamaged;
}

void set_aside(const std::filesystem::path &file) {
    std::filesystem::path aside = file;
    aside += kDamaged;
    std::error_code error;
    std::filesystem::rename(file, aside, error);
    if (error) {
        HOST_LOG(kLogError, "%s is damaged and could not be set aside (%s); it starts empty.", file.c_str(),
                 error.message().c_str());
        return;
    }
    HOST_LOG(kLogError, "%s was damaged; it is now %s, and the values start empty.", file.c_str(), aside.c_str());
}

} // namespace

bool StateStore::open(const std::filesystem::path &file, std::string *mistake) {
    const std::lock_guard lock(mutex_);
    file_ = file;
    remove_leftover_temporary(file_);
    int error = 0;
    const auto bytes = read_file(file_, &error, kLargestFile);
    if (error == ENOENT) {
        return true;
    }
    if (!bytes) {
        *mistake = file_.string() + ": cannot be read: " + read_failure(error) +
                   "; move it away, or put the right one in its place";
        return false;
    }
    Values values;
    switch (decode(*bytes, &values)) {
    case Content::kGood:
        values_ = std::move(values);
        return true;
    case Content::kLaterVersion:
        *mistake = file_.string() + ": was written by a later version of asd; move it away or run that version";
        return false;
    case Content::kDamaged:
        break;
    }
    set_aside(file_);
    return true;
}

std::optional<std::vector<std::uint8_t>> StateStore::get(std::uint32_t key) const {
    const std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    return found->second;
}

gint32 StateStore::put(std::uint32_t key, std::span<const std::uint8_t> value) {
    return put_all({{key, {value.begin(), value.end()}}});
}

gint32 StateStore::put_all(const Values &changes) {
    const std::lock_guard lock(mutex_);
    Values values = values_;
    for (const auto &[key, value] : changes) {
        values.insert_or_assign(key, value);
    }
    if (values == values_ && !file_doubtful_) {
        return 0;
    }
    const gint32 ret = save(values);
    file_doubtful_ = ret != 0;
    if (ret == 0) {
        values_ = std::move(values);
    }
    return ret;
}

gint32 StateStore::save(const Values &values) const {
    const std::vector<std::uint8_t> bytes = encode(values);
    const int error = bytes.size() > kLargestFile ? EFBIG : replace_file(file_, bytes, kMode);
    if (error == 0) {
        return 0;
    }
    HOST_LOG(kLogError, "%s could not be written: %s.", file_.c_str(), read_failure(error));
    return kStorageFailed;
}

} // namespace asd_host
