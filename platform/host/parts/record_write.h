// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writes that are whole or not at all, on a part that takes bytes page by page and may lose power within any of them.
//
// A page that is cut may hold anything, but pages are written one after the other, so a crash leaves new pages, at most
// one torn page, and old pages. With the old and the new bytes noted before the first page that is enough to finish the
// write.

#include "intent_record.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <glib.h>

namespace asd_host {

// The bytes of a part while its lock is held. Statuses are 0 or those of status.h.
class PageDevice {
public:
    PageDevice() = default;
    virtual ~PageDevice() = default;
    PageDevice(const PageDevice &) = delete;
    PageDevice &operator=(const PageDevice &) = delete;

    [[nodiscard]] virtual gint32 read(std::uint32_t offset, std::span<std::uint8_t> out) = 0;
    // Bytes within one page. 0: the part acknowledged them, which is not yet that it keeps them.
    [[nodiscard]] virtual gint32 write_page(std::uint32_t offset, std::span<const std::uint8_t> bytes) = 0;
    // What was written survives a power cut from here on.
    [[nodiscard]] virtual gint32 sync() = 0;
};

// The piece of a record that lies in one page, relative to the record.
struct PageSlice {
    std::uint32_t begin = 0;
    std::uint32_t length = 0;
};
[[nodiscard]] std::vector<PageSlice> page_slices(std::uint32_t offset, std::size_t length, std::uint32_t page_size);

// What a part that holds `now` where an intent was noted went through.
enum class Verdict {
    kOld,     // nothing was written
    kNew,     // everything was
    kTorn,    // every page is old or new except at most one: the write was cut; writing the new bytes makes it whole
    kForeign, // more than one page is neither: another master wrote since
    kLater,   // neither, and its checksum is good: a record that came after the intent, or before it from a backup
};
// An intent may outlive its write (its folder became read-only, a backup brought it back) or its part (the backplane
// was exchanged). Of the records it could then undo a good checksum speaks; a torn record has one by chance in 1 of
// 65,536.
[[nodiscard]] Verdict judge(const Intent &intent, std::span<const std::uint8_t> now, std::uint32_t page_size);

// Writes to one part. Its user holds the part's lock during each call and keeps all ranges within the part.
class RecordWriter {
public:
    struct Geometry {
        std::uint32_t size = 0;
        std::uint32_t page_size = 0;
    };
    RecordWriter(std::string part, Geometry geometry, IntentLog *log);

    // Finishes or drops what a crash or a failed write left. 0: nothing is left to do; else the part could not be
    // brought to old or new, and the intent stays.
    [[nodiscard]] gint32 recover(PageDevice &device);

    // 0 when the part holds data, read back and synced. A part that already does is not written.
    [[nodiscard]] gint32 write(PageDevice &device, std::uint32_t offset, std::span<const std::uint8_t> data);

    // An intent that recover could not settle covers bytes of the range, or may: they may be neither old nor new.
    [[nodiscard]] bool in_doubt(std::uint32_t offset, std::size_t length);

private:
    struct Range {
        std::uint32_t offset = 0;
        std::size_t length = 0;
    };
    [[nodiscard]] bool unsettled(const Intent &intent) const;
    [[nodiscard]] bool note(const Intent &intent);
    void settle(const Intent &intent, IntentLog::Drop when = IntentLog::Drop::kNow);
    void say_dropped(int level, const Intent &intent, const char *reason) const;
    void settle_untouched(PageDevice &device, const Intent &intent);
    void settle_overwritten(std::uint32_t offset, std::size_t length);
    [[nodiscard]] gint32 finish(PageDevice &device, const Intent &intent, std::span<const std::uint8_t> now);
    [[nodiscard]] gint32 keep(PageDevice &device, const Intent &intent, Verdict verdict) const;
    [[nodiscard]] gint32 put(PageDevice &device, std::uint32_t offset, std::span<const std::uint8_t> now,
                             std::span<const std::uint8_t> data);
    [[nodiscard]] bool doubted_by_sync(std::uint32_t offset, std::size_t length) const;

    std::string part_;
    Geometry geometry_;
    IntentLog *log_;
    std::optional<Intent> settled_; // done with, but its file could not be removed: not to be acted on again
    std::vector<Range> unsynced_;   // a sync failed here: what reads back may not be on the disk, so it is written anew
    bool note_failed_ = false;      // said in the log
};

} // namespace asd_host
