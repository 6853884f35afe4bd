// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Knows in what condition parts and records are, from what the module's transfers show and from looks of its own, and
// tells of changes: the log, the service manager, D-Bus.

#include "clock.h"
#include "enclosure.h"
#include "part.h"
#include "picture.h"
#include "platform_types.h"
#include "rounds.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace asd_host {

struct Host;

class Lookout {
public:
    // The service itself, in place of an object.
    static constexpr OBJ_HANDLE kService = -1;
    // Of the module's time: how often a byte of each part is read, and every copy that has been read before.
    static constexpr std::uint64_t kProbeEveryMs = 60'000;
    static constexpr std::uint64_t kReadEveryMs = 3'600'000;
    // Told, on any thread and outside of locks, that a property has another value: State of an item or a chip; Parts,
    // Concerns and Condition of the service.
    using Observer = std::function<void(OBJ_HANDLE object, const char *property)>;

    explicit Lookout(Host &platform) : platform_(platform) {}

    // When parts, chips and items are there; before other threads are.
    void set_up();
    void set_observer(Observer observer);

    // A thread that looks every two seconds. At each part's file; once a minute, of the module's time, it reads a byte
    // of each part, unless somebody is at the part. After a load it reads the copies that the load has not read; and
    // those that may have changed, in their item's turn; all of them once an hour, of the module's time. Without a
    // thread the log says so, and conditions are those that transfers show.
    void start();
    // As Rounds::stop.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit) { return rounds_.stop(limit); }

    // What the module's transfers show; any thread. Bytes that are not a whole record of the chip say nothing.
    void note_read(OBJ_HANDLE chip, std::uint32_t offset, std::span<const std::uint8_t> bytes, gint32 status);
    void note_written(OBJ_HANDLE chip, std::uint32_t offset, std::span<const std::uint8_t> bytes, gint32 status);
    // The item's copies or its readiness may be others than before. Any thread.
    void note_changed(OBJ_HANDLE item);
    void note_ready(OBJ_HANDLE item);

    // A load begins, and has ended; hidden: lines of the log that it has left out. On its thread.
    void load_begins();
    void load_ends(std::chrono::milliseconds took, unsigned hidden);

    // Of an item or a chip; nothing for other objects. Any thread.
    [[nodiscard]] std::optional<Condition> condition_of(OBJ_HANDLE object) const;
    [[nodiscard]] Picture picture() const;
    // The item that a chip's bytes are a copy of; 0: none. Any thread.
    [[nodiscard]] OBJ_HANDLE item_of(OBJ_HANDLE chip) const;

private:
    struct Copy {
        OBJ_HANDLE chip = 0;
        Part *part = nullptr;
        std::uint32_t offset = 0;
        Condition condition = Condition::kNotLoaded; // of its bytes; its part may be silent meanwhile
        std::uint64_t content = 0;
    };
    struct Item {
        OBJ_HANDLE handle = 0;
        const ItemConfig *config = nullptr;
        std::vector<Copy> copies;
        bool doubtful = false; // its copies are to be read
        Condition told = Condition::kNotLoaded;
    };
    struct Load {
        std::chrono::milliseconds took{};
        unsigned hidden = 0;
    };
    using Changes = std::vector<std::pair<OBJ_HANDLE, const char *>>;

    // With mutex_ held.
    Copy *copy_of(OBJ_HANDLE chip, std::uint32_t offset, std::size_t size, Item **item);
    [[nodiscard]] CopyView view_of(const Copy &copy) const;
    [[nodiscard]] Condition judge(const Item &item) const;
    void settle(Item &item, Changes *changes);

    void tell(const Changes &changes) const;
    void round(const Rounds::MustEnd &must_end);
    void look_at_parts(const Rounds::MustEnd &must_end, Changes *changes);
    [[nodiscard]] std::vector<OBJ_HANDLE> items_to_read();
    void read_copies(OBJ_HANDLE handle, Changes *changes);
    void tell_summary(Changes *changes);

    Host &platform_;
    Rounds rounds_;
    mutable std::mutex mutex_; // guards the fields below
    Observer observer_;
    std::vector<Item> items_;
    std::map<OBJ_HANDLE, std::pair<std::size_t, std::size_t>> by_chip_; // item and copy
    std::map<OBJ_HANDLE, std::size_t> by_item_;
    std::vector<PartView> parts_; // as told
    std::vector<Concern> concerns_;
    std::string summary_;
    bool loading_ = false;
    bool loaded_ = false;
    std::optional<Load> load_; // that is to be told
    // The thread's.
    std::chrono::steady_clock::time_point next_probe_;
    std::chrono::steady_clock::time_point next_reading_ = std::chrono::steady_clock::now() + clock_real(kReadEveryMs);
};

// Around the module's walk over all items, on its thread: one that reads chips is a load. The lines that it logs of an
// item that was never written are left out, unless debugging is logged.
class LoadWalk {
public:
    explicit LoadWalk(Host &platform) : platform_(platform) {}
    ~LoadWalk();
    LoadWalk(const LoadWalk &) = delete;
    LoadWalk &operator=(const LoadWalk &) = delete;

    [[nodiscard]] gint32 visit(OBJ_HANDLE item, gint32 (*callback)(OBJ_HANDLE, gpointer), gpointer data);

private:
    Host &platform_;
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
    bool reads_ = false;
    unsigned hidden_ = 0;
};

} // namespace asd_host
