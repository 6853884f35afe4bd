// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "lookout.h"

#include "host.h"
#include "item_turns.h"
#include "log.h"
#include "manager_notice.h"
#include "record_format.h"
#include "status.h"

#include <algorithm>
#include <utility>

namespace asd_host {

namespace {

constexpr std::chrono::seconds kLookEvery{2};
constexpr std::chrono::seconds kLookTurn{1};

// What the walk's present item has read, on this thread.
struct Seen {
    unsigned reads = 0;
    unsigned blank = 0;
};
thread_local Seen *seen_now = nullptr;

std::uint64_t content_of(std::span<const std::uint8_t> bytes) {
    return std::hash<std::string_view>{}({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

Condition condition_of_bytes(std::span<const std::uint8_t> record) {
    return is_blank(record) ? Condition::kNeverWritten : is_record(record) ? Condition::kGood : Condition::kCorrupt;
}

bool holds_byte(const ObjectStore &objects, OBJ_HANDLE object, const char *property, std::uint8_t wanted) {
    PropertyValue value;
    return objects.get(object, property, &value) == 0 && value == PropertyValue(wanted);
}

std::string_view role_word(BOARD_MOS_E role) {
    return role == BOARD_MASTER ? "master" : role == BOARD_SLAVE ? "slave" : "no role";
}

bool is_time(std::chrono::steady_clock::time_point *next, std::uint64_t every_ms) {
    const auto now = std::chrono::steady_clock::now();
    if (now < *next) {
        return false;
    }
    *next = now + clock_real(every_ms);
    return true;
}

bool gives_bytes(const Part &part) {
    const Condition condition = part.sight().condition;
    return condition == Condition::kAnswers || condition == Condition::kUnwritable;
}

} // namespace

// ---- What is known ----

void Lookout::set_up() {
    const bool one_eeprom = platform_.enclosure.board.backplane_eeproms == 1; // the module reads no second copy then
    for (const ItemConfig &config : platform_.enclosure.items) {
        Item item{.handle = *platform_.objects.find(config.name), .config = &config, .copies = {}};
        for (const std::string &name : config.chips) {
            const OBJ_HANDLE chip = *platform_.objects.find(name);
            const Host::Chip &place = platform_.chips.at(chip);
            by_chip_[chip] = {items_.size(), item.copies.size()};
            item.copies.push_back({.chip = chip, .part = place.part, .offset = place.offset});
            if (one_eeprom) {
                break;
            }
        }
        by_item_[item.handle] = items_.size();
        items_.push_back(std::move(item));
    }
}

void Lookout::set_observer(Observer observer) {
    const std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
}

// Null: unknown, or not a whole record.
Lookout::Copy *Lookout::copy_of(OBJ_HANDLE chip, std::uint32_t offset, std::size_t size, Item **item) {
    const auto found = by_chip_.find(chip);
    if (found == by_chip_.end()) {
        return nullptr;
    }
    *item = &items_[found->second.first];
    Copy &copy = (*item)->copies[found->second.second];
    return offset == copy.offset && size == (*item)->config->length + kChecksumSize ? &copy : nullptr;
}

CopyView Lookout::view_of(const Copy &copy) const {
    return {.part = copy.part->config().name,
            .condition = gives_bytes(*copy.part) ? copy.condition : Condition::kUnreachable,
            .content = copy.content};
}

Condition Lookout::judge(const Item &item) const {
    if (holds_byte(platform_.objects, item.handle, "Online", 0)) {
        return Condition::kOffline;
    }
    std::vector<CopyView> views;
    std::ranges::transform(item.copies, std::back_inserter(views), [this](const Copy &copy) { return view_of(copy); });
    return item_condition(holds_byte(platform_.objects, item.handle, "Ready", 1), loading_, views);
}

// Between the writes of a pair's copies they differ, as they do when another controller has written and one of them has
// been read: what is told waits until both have been read in the item's turn.
void Lookout::settle(Item &item, Changes *changes) {
    const Condition now = judge(item);
    if (now == Condition::kGood) {
        item.doubtful = false;
    }
    if (now == item.told || (item.doubtful && (now == Condition::kDiffer || now == Condition::kOneLeft))) {
        return;
    }
    item.told = now;
    changes->emplace_back(item.handle, "State");
}

void Lookout::tell(const Changes &changes) const {
    Observer observer;
    {
        const std::lock_guard lock(mutex_);
        observer = observer_;
    }
    for (const auto &[object, property] : changes) {
        if (observer) {
            observer(object, property);
        }
    }
}

// ---- What transfers show ----

void Lookout::note_read(OBJ_HANDLE chip, std::uint32_t offset, std::span<const std::uint8_t> bytes, gint32 status) {
    Changes changes;
    {
        const std::lock_guard lock(mutex_);
        Item *item = nullptr;
        Copy *const copy = copy_of(chip, offset, bytes.size(), &item);
        if (copy == nullptr) {
            return;
        }
        const Condition found = status == 0 ? condition_of_bytes(bytes) : Condition::kUnreachable;
        if (seen_now != nullptr) {
            ++seen_now->reads;
            seen_now->blank += found == Condition::kNeverWritten ? 1 : 0;
        }
        const std::uint64_t content = found == Condition::kGood ? content_of(bytes) : 0;
        const bool first = copy->condition == Condition::kNotLoaded;
        if (!first && (found != copy->condition || content != copy->content)) {
            item->doubtful = true;
        }
        if (std::exchange(copy->condition, found) != found) {
            changes.emplace_back(chip, "State");
        }
        copy->content = content;
        settle(*item, &changes);
    }
    tell(changes);
}

void Lookout::note_written(OBJ_HANDLE chip, std::uint32_t offset, std::span<const std::uint8_t> bytes, gint32 status) {
    Changes changes;
    {
        const std::lock_guard lock(mutex_);
        Item *item = nullptr;
        Copy *const copy = copy_of(chip, offset, bytes.size(), &item);
        if (item == nullptr) {
            return;
        }
        item->doubtful = true;
        if (copy == nullptr || status != 0) {
            return;
        }
        const Condition found = condition_of_bytes(bytes);
        if (std::exchange(copy->condition, found) != found) {
            changes.emplace_back(chip, "State");
        }
        copy->content = content_of(bytes);
        settle(*item, &changes);
    }
    tell(changes);
}

void Lookout::note_changed(OBJ_HANDLE item) {
    const std::lock_guard lock(mutex_);
    if (const auto found = by_item_.find(item); found != by_item_.end()) {
        items_[found->second].doubtful = true;
    }
}

void Lookout::note_ready(OBJ_HANDLE item) {
    Changes changes;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = by_item_.find(item); found != by_item_.end()) {
            settle(items_[found->second], &changes);
        }
    }
    tell(changes);
}

void Lookout::load_begins() {
    const std::lock_guard lock(mutex_);
    loading_ = true;
}

void Lookout::load_ends(std::chrono::milliseconds took, unsigned hidden) {
    {
        const std::lock_guard lock(mutex_);
        loading_ = false;
        loaded_ = true;
        load_ = Load{.took = took, .hidden = hidden};
    }
    rounds_.wake();
}

// ---- What is asked ----

std::optional<Condition> Lookout::condition_of(OBJ_HANDLE object) const {
    const std::lock_guard lock(mutex_);
    if (const auto item = by_item_.find(object); item != by_item_.end()) {
        return items_[item->second].told;
    }
    if (const auto chip = by_chip_.find(object); chip != by_chip_.end()) {
        return view_of(items_[chip->second.first].copies[chip->second.second]).condition;
    }
    return std::nullopt;
}

OBJ_HANDLE Lookout::item_of(OBJ_HANDLE chip) const {
    const std::lock_guard lock(mutex_);
    const auto found = by_chip_.find(chip);
    return found == by_chip_.end() ? 0 : items_[found->second.first].handle;
}

Picture Lookout::picture() const {
    Picture picture{.role = std::string(role_word(platform_.board.role())), .parts = {}, .items = {}};
    const std::lock_guard lock(mutex_);
    picture.parts = parts_;
    for (const Item &item : items_) {
        ItemView view{.name = item.config->name, .condition = item.told, .copies = {}};
        for (const Copy &copy : item.copies) {
            view.copies.push_back(view_of(copy));
        }
        picture.items.push_back(std::move(view));
    }
    return picture;
}

// ---- What is looked at ----

void Lookout::start() {
    std::string mistake;
    if (!rounds_.start(
            kLookEvery, [this](const Rounds::MustEnd &must_end) { round(must_end); }, &mistake)) {
        HOST_LOG(kLogError, "no thread to look after the parts: %s", mistake.c_str());
    }
    rounds_.wake();
}

void Lookout::round(const Rounds::MustEnd &must_end) {
    Changes changes;
    look_at_parts(must_end, &changes);
    for (const OBJ_HANDLE item : items_to_read()) {
        if (must_end()) {
            return;
        }
        read_copies(item, &changes);
    }
    tell_summary(&changes);
    tell(changes);
}

// Copies on a part that has come back are read anew: it may be another one.
void Lookout::look_at_parts(const Rounds::MustEnd &must_end, Changes *changes) {
    const bool probe = is_time(&next_probe_, kProbeEveryMs);
    const bool read_all = is_time(&next_reading_, kReadEveryMs);
    std::vector<PartView> parts;
    for (const PartConfig &config : platform_.enclosure.parts) {
        if (must_end()) {
            return;
        }
        Part &part = *platform_.parts.at(config.name);
        part.look(probe);
        const PartSight sight = part.sight();
        parts.push_back(
            {.name = config.name, .file = part.file().native(), .condition = sight.condition, .reason = sight.reason});
    }
    const std::lock_guard lock(mutex_);
    const auto was_out = [&](const Part &part) {
        const auto before = std::ranges::find(parts_, part.config().name, &PartView::name);
        return before != parts_.end() &&
               (before->condition == Condition::kSilent || before->condition == Condition::kWrongSize);
    };
    for (Item &item : items_) {
        for (Copy &copy : item.copies) {
            const bool back = gives_bytes(*copy.part) && was_out(*copy.part);
            const bool again = read_all || (probe && copy.condition == Condition::kUnreachable);
            item.doubtful = item.doubtful || ((back || again) && copy.condition != Condition::kNotLoaded);
        }
    }
    if (parts != parts_) {
        parts_ = std::move(parts);
        changes->emplace_back(kService, "Parts");
    }
}

std::vector<OBJ_HANDLE> Lookout::items_to_read() {
    std::vector<OBJ_HANDLE> items;
    const std::lock_guard lock(mutex_);
    for (const Item &item : items_) {
        const bool unread = loaded_ && std::ranges::any_of(item.copies, [](const Copy &copy) {
                                return copy.condition == Condition::kNotLoaded && gives_bytes(*copy.part);
                            });
        if ((item.doubtful || unread) && !holds_byte(platform_.objects, item.handle, "Online", 0)) {
            items.push_back(item.handle);
        }
    }
    return items;
}

// In the item's turn, so that no write is between the two copies.
void Lookout::read_copies(OBJ_HANDLE handle, Changes *changes) {
    const ItemTurn turn(handle, kLookTurn);
    if (!turn) {
        return; // the next round
    }
    std::vector<Copy> copies;
    std::size_t size = 0;
    {
        const std::lock_guard lock(mutex_);
        Item &item = items_[by_item_.at(handle)];
        item.doubtful = false; // unless it becomes so while it is read
        copies = item.copies;
        size = item.config->length + kChecksumSize;
    }
    for (Copy &copy : copies) {
        Bytes record(size);
        const gint32 status = gives_bytes(*copy.part) ? copy.part->read(copy.offset, record) : kPartAbsent;
        copy.condition = status == 0 ? condition_of_bytes(record) : Condition::kUnreachable;
        copy.content = status == 0 ? content_of(record) : 0;
    }
    const std::lock_guard lock(mutex_);
    Item &item = items_[by_item_.at(handle)];
    for (std::size_t i = 0; i < copies.size(); ++i) {
        if (item.copies[i].condition != copies[i].condition) {
            changes->emplace_back(copies[i].chip, "State");
        }
    }
    item.copies = std::move(copies);
    settle(item, changes);
}

void Lookout::tell_summary(Changes *changes) {
    {
        const std::lock_guard lock(mutex_);
        std::ranges::for_each(items_, [&](Item &item) { settle(item, changes); });
    }
    const Picture now = picture();
    std::string summary = summary_of(now);
    std::vector<Concern> concerns = concerns_of(now);
    std::optional<Load> load;
    bool news = false;
    {
        const std::lock_guard lock(mutex_);
        load = std::exchange(load_, std::nullopt);
        news = summary != summary_;
        summary_ = summary;
        if (concerns != concerns_) {
            concerns_ = std::move(concerns);
            changes->emplace_back(kService, "Concerns");
        }
    }
    if (load) {
        const std::string hidden =
            load->hidden == 0 ? ""
                              : " (" + std::to_string(load->hidden) +
                                    " lines on what was never written are left out; --log-level debug shows them)";
        HOST_LOG(anything_bad(now) ? kLogError : kLogInformation, "%s%s", load_summary_of(now, load->took).c_str(),
                 hidden.c_str());
    }
    if (news) {
        changes->emplace_back(kService, "Condition");
        manager_notify("STATUS=" + summary);
    }
}

// ---- A load ----

LoadWalk::~LoadWalk() {
    if (reads_) {
        const auto took = std::chrono::steady_clock::now() - began_;
        platform_.lookout.load_ends(std::chrono::duration_cast<std::chrono::milliseconds>(took), hidden_);
    }
}

gint32 LoadWalk::visit(OBJ_HANDLE item, gint32 (*callback)(OBJ_HANDLE, gpointer), gpointer data) {
    Seen seen;
    HeldLines lines;
    seen_now = &seen;
    const gint32 status = callback(item, data);
    seen_now = nullptr;
    if (seen.reads > 0 && !std::exchange(reads_, true)) {
        platform_.lookout.load_begins();
    }
    if (seen.reads > 0 && seen.blank == seen.reads) {
        hidden_ += lines.leave_out();
    }
    return status;
}

} // namespace asd_host
