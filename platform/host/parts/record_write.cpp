// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "record_write.h"

#include "atomic_file.h"
#include "byte_codec.h"
#include "log.h"
#include "record_format.h"
#include "status.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <glib.h>

namespace asd_host {

namespace {

constexpr int kReadBacks = 2; // a part may answer the first read while its last page still settles

bool overlaps(std::uint32_t a, std::size_t a_length, std::uint32_t b, std::size_t b_length) {
    return std::uint64_t{a} < std::uint64_t{b} + b_length && std::uint64_t{b} < std::uint64_t{a} + a_length;
}

bool same(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
    return std::ranges::equal(a, b);
}

[[nodiscard]] gint32 read_back(PageDevice &device, std::uint32_t offset, std::span<const std::uint8_t> wanted) {
    std::vector<std::uint8_t> held(wanted.size());
    for (int i = 0; i < kReadBacks; ++i) {
        if (const gint32 ret = device.read(offset, held); ret != 0) {
            return ret;
        }
        if (same(held, wanted)) {
            return 0;
        }
    }
    return kTransferFailed | EIO;
}

} // namespace

std::vector<PageSlice> page_slices(std::uint32_t offset, std::size_t length, std::uint32_t page_size) {
    std::vector<PageSlice> slices;
    const std::uint32_t end = u32_of(length);
    for (std::uint32_t begin = 0; begin < end;) {
        const std::uint32_t to_page_end = page_size - (offset + begin) % page_size;
        const std::uint32_t step = std::min(to_page_end, end - begin);
        slices.push_back({begin, step});
        begin += step;
    }
    return slices;
}

Verdict judge(const Intent &intent, std::span<const std::uint8_t> now, std::uint32_t page_size) {
    // New first: should the bytes be the same, there is nothing to do.
    if (same(now, intent.new_bytes)) {
        return Verdict::kNew;
    }
    if (same(now, intent.old_bytes)) {
        return Verdict::kOld;
    }
    if (is_record(now)) {
        return Verdict::kLater;
    }
    const std::span<const std::uint8_t> old_bytes(intent.old_bytes);
    const std::span<const std::uint8_t> new_bytes(intent.new_bytes);
    int neither = 0;
    for (const auto [begin, length] : page_slices(intent.offset, now.size(), page_size)) {
        const auto page = now.subspan(begin, length);
        if (!same(page, old_bytes.subspan(begin, length)) && !same(page, new_bytes.subspan(begin, length))) {
            ++neither;
        }
    }
    return neither <= 1 ? Verdict::kTorn : Verdict::kForeign;
}

RecordWriter::RecordWriter(std::string part, Geometry geometry, IntentLog *log)
    : part_(std::move(part)), geometry_(geometry), log_(log) {}

bool RecordWriter::unsettled(const Intent &intent) const {
    return !settled_ || *settled_ != intent;
}

bool RecordWriter::doubted_by_sync(std::uint32_t offset, std::size_t length) const {
    return std::ranges::any_of(
        unsynced_, [&](const Range &range) { return overlaps(offset, length, range.offset, range.length); });
}

bool RecordWriter::in_doubt(std::uint32_t offset, std::size_t length) {
    std::optional<Intent> intent;
    return log_->load(&intent) != 0 ||
           (intent && unsettled(*intent) && overlaps(offset, length, intent->offset, intent->new_bytes.size()));
}

// Notes the intent. A state folder that is full or read-only must not keep the machine's identity from being written.
bool RecordWriter::note(const Intent &intent) {
    const int error = log_->save(intent);
    if (error != 0 && !note_failed_) {
        HOST_LOG(kLogError, "Part %s: the intent of a write could not be noted (%s); a power cut may tear a record.",
                 part_.c_str(), g_strerror(error));
    }
    note_failed_ = error != 0;
    return error == 0;
}

void RecordWriter::settle(const Intent &intent, IntentLog::Drop when) {
    const int error = log_->drop(when);
    if (error == 0) {
        settled_.reset();
        return;
    }
    if (settled_ != intent) {
        // Acted on later it would bring back bytes that have been replaced since.
        settled_ = intent;
        HOST_LOG(kLogError, "Part %s: the intent of a finished write could not be removed: %s.", part_.c_str(),
                 g_strerror(error));
    }
}

// A failed write that left the part as it was leaves no intent either: should another master write before our next try,
// its bytes would be taken for a torn page.
void RecordWriter::settle_untouched(PageDevice &device, const Intent &intent) {
    std::vector<std::uint8_t> now(intent.old_bytes.size());
    if (device.read(intent.offset, now) == 0 && same(now, intent.old_bytes) &&
        !doubted_by_sync(intent.offset, now.size())) {
        settle(intent);
    }
}

// An unfinishable intent gives way to newer bytes in its place.
void RecordWriter::settle_overwritten(std::uint32_t offset, std::size_t length) {
    std::optional<Intent> intent;
    if (log_->load(&intent) == 0 && intent && overlaps(offset, length, intent->offset, intent->new_bytes.size())) {
        say_dropped(kLogError, *intent, "newer bytes have taken the place of the ones it could not finish");
        settle(*intent);
    }
}

gint32 RecordWriter::recover(PageDevice &device) {
    std::optional<Intent> intent;
    const int unknown = log_->load(&intent);
    if (unknown != 0 || !intent) {
        return unknown == 0 ? 0 : kTransferFailed | unknown;
    }
    const std::size_t length = intent->new_bytes.size();
    const bool ours = intent->part == part_ && std::uint64_t{intent->offset} + length <= geometry_.size;
    if (!unsettled(*intent) || !ours) {
        if (!ours) {
            say_dropped(kLogError, *intent, "it is of another part, or goes past the end of this one");
        }
        settle(*intent);
        return 0;
    }
    std::vector<std::uint8_t> now(length);
    if (const gint32 ret = device.read(intent->offset, now); ret != 0) {
        return ret;
    }
    if (const gint32 ret = finish(device, *intent, now); ret != 0) {
        HOST_LOG(kLogError, "Part %s: the cut write of %zu bytes at %u could not be finished (status 0x%x).",
                 part_.c_str(), length, intent->offset, static_cast<unsigned>(ret));
        return ret;
    }
    settle(*intent);
    return 0;
}

void RecordWriter::say_dropped(int level, const Intent &intent, const char *reason) const {
    HOST_LOG(level, "Part %s: the intent of a write of %zu bytes at %u is dropped: %s.", part_.c_str(),
             intent.new_bytes.size(), intent.offset, reason);
}

// What the part holds is to stay.
gint32 RecordWriter::keep(PageDevice &device, const Intent &intent, Verdict verdict) const {
    switch (verdict) {
    case Verdict::kLater:
        say_dropped(kLogError, intent, "the part holds another record there, whole and with a good checksum");
        return 0;
    case Verdict::kForeign:
        say_dropped(kLogError, intent, "the bytes there were written by another master since");
        return 0;
    case Verdict::kNew:
        say_dropped(kLogInformation, intent, "all of it is on the part");
        break;
    default:
        say_dropped(kLogInformation, intent, "nothing of it is on the part");
        break;
    }
    // The bytes may have reached the part's file but not yet its disk.
    return device.sync();
}

// Brings the part from what a cut left to old or new.
gint32 RecordWriter::finish(PageDevice &device, const Intent &intent, std::span<const std::uint8_t> now) {
    const Verdict verdict = judge(intent, now, geometry_.page_size);
    const bool others = verdict == Verdict::kForeign || verdict == Verdict::kLater;
    if (verdict == Verdict::kTorn || (!others && doubted_by_sync(intent.offset, now.size()))) {
        HOST_LOG(kLogInformation, "Part %s: finishing the cut write of %zu bytes at %u.", part_.c_str(), now.size(),
                 intent.offset);
        return put(device, intent.offset, now, intent.new_bytes);
    }
    return keep(device, intent, verdict);
}

gint32 RecordWriter::write(PageDevice &device, std::uint32_t offset, std::span<const std::uint8_t> data) {
    // An intent is never replaced before its write is whole: noting mixed bytes as old would make the mixture last. One
    // that can't be finished (a worn-out page) must not block the part for ever, so the write then goes on without.
    const gint32 recovered = recover(device);
    if (is_short_of_resources(recovered & kErrnoMask)) {
        return recovered; // an intent that is there would bring its bytes back over these
    }
    const bool stuck = recovered != 0;
    Intent intent{part_, offset, std::vector<std::uint8_t>(data.size()), {data.begin(), data.end()}};
    if (const gint32 ret = device.read(offset, intent.old_bytes); ret != 0) {
        return ret;
    }
    const bool held = same(intent.old_bytes, data) && !doubted_by_sync(offset, data.size());
    const bool noted = !held && !stuck && note(intent);
    if (!held) {
        if (const gint32 ret = put(device, offset, intent.old_bytes, data); ret != 0) {
            if (noted) {
                settle_untouched(device, intent);
            }
            return ret;
        }
    }
    if (noted) {
        settle(intent, IntentLog::Drop::kSoon); // should it come back, the part holds its new bytes
    }
    if (stuck) {
        settle_overwritten(offset, data.size());
    }
    return 0;
}

// Writes the pages that differ, reads all of data back and syncs.
gint32 RecordWriter::put(PageDevice &device, std::uint32_t offset, std::span<const std::uint8_t> now,
                         std::span<const std::uint8_t> data) {
    const bool anew = doubted_by_sync(offset, data.size());
    for (const auto [begin, length] : page_slices(offset, data.size(), geometry_.page_size)) {
        const auto page = data.subspan(begin, length);
        if (!anew && same(page, now.subspan(begin, length))) {
            continue;
        }
        if (const gint32 ret = device.write_page(offset + begin, page); ret != 0) {
            return ret;
        }
    }
    if (const gint32 ret = read_back(device, offset, data); ret != 0) {
        return ret;
    }
    const gint32 ret = device.sync();
    std::erase_if(unsynced_, [&](const Range &range) {
        return range.offset >= offset && range.offset - offset + range.length <= data.size();
    });
    if (ret != 0) {
        unsynced_.push_back({offset, data.size()});
    }
    return ret;
}

} // namespace asd_host
