// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "fake_state.h"

#include <algorithm>
#include <cstdlib>

namespace fake {

// ---- The world -----------------------------------------------------------------------------------------------------

World &world() {
    static World instance;
    return instance;
}

std::mutex &world_mutex() {
    static std::mutex instance;
    return instance;
}

std::condition_variable &semaphore_freed() {
    static std::condition_variable instance;
    return instance;
}

void reset() {
    const std::lock_guard lock(world_mutex());
    world() = World{};
}

void violate(const std::string &text) {
    world().violations.push_back(text);
}

template <typename T>
static T copy_of(T World::*member) {
    const std::lock_guard lock(world_mutex());
    return world().*member;
}

Texts violations() {
    return copy_of(&World::violations);
}
guint32 fired() {
    return copy_of(&World::fired);
}
guint64 ticks() {
    return copy_of(&World::ticks);
}
std::vector<Task> tasks() {
    return copy_of(&World::tasks);
}
Board board() {
    return copy_of(&World::board);
}
Registered registered() {
    return copy_of(&World::registered);
}
std::vector<SentRequest> sent_requests() {
    return copy_of(&World::sent);
}

Object *object_of(OBJ_HANDLE handle) {
    const auto index = static_cast<std::size_t>(handle - kFirstHandle);
    return handle >= kFirstHandle && index < world().objects.size() ? &world().objects[index] : nullptr;
}

OBJ_HANDLE handle_of(std::string_view name) {
    const auto found = std::ranges::find(world().objects, name, &Object::name);
    return found == world().objects.end() ? 0 : kFirstHandle + static_cast<OBJ_HANDLE>(found - world().objects.begin());
}

Object &object_named(const std::string &name) {
    Object *object = object_of(handle_of(name));
    if (object == nullptr) {
        std::abort(); // a mistake of the test
    }
    return *object;
}

std::string name_of(OBJ_HANDLE handle) {
    const Object *object = object_of(handle);
    return object != nullptr ? object->name : "?";
}

std::string text_of(const gchar *text) {
    return text != nullptr ? text : "(null)";
}

// ---- Faults --------------------------------------------------------------------------------------------------------

void Call::enter(const std::string &operation, const std::string &subject, std::string line) {
    world().events.push_back({.tick = world().ticks, .operation = operation, .line = std::move(line)});
    for (PendingFault &pending : world().faults) {
        const Fault &fault = pending.fault;
        if ((!fault.operation.empty() && fault.operation != operation) ||
            (!fault.subject.empty() && fault.subject != subject)) {
            continue;
        }
        ++pending.seen;
        const bool hit = pending.seen >= fault.nth && (fault.count == 0 || pending.seen - fault.nth < fault.count);
        if (hit && !fault_.has_value()) {
            fault_ = fault;
        }
    }
    if (fault_.has_value()) {
        ++world().fired;
        world().ticks += fault_->delay_ms;
    }
}

void inject(const Fault &fault) {
    const std::lock_guard lock(world_mutex());
    world().faults.push_back({.fault = fault});
}

void lift_faults() {
    const std::lock_guard lock(world_mutex());
    world().faults.clear();
}

// ---- Journal -------------------------------------------------------------------------------------------------------

template <typename Wanted>
static Texts lines(const Wanted &wanted) {
    const std::lock_guard lock(world_mutex());
    Texts texts;
    for (const Event &event : world().events) {
        if (wanted(event)) {
            texts.push_back(event.line);
        }
    }
    return texts;
}

static bool is_log(const Event &event, gint32 max_level) {
    return event.operation.empty() && event.level <= max_level;
}

Texts journal(std::initializer_list<std::string_view> operations) {
    return lines([&](const Event &event) {
        return operations.size() == 0 ? !event.operation.empty()
                                      : std::ranges::find(operations, event.operation) != operations.end();
    });
}

std::size_t calls(std::string_view operation) {
    return journal({operation}).size();
}

void clear_journal() {
    const std::lock_guard lock(world_mutex());
    world().events.clear();
}

Texts timeline(const Texts &prefixes, gint32 max_level) {
    const std::lock_guard lock(world_mutex());
    Texts told;
    std::string delay; // the one told last
    guint32 times = 0; // that it followed itself
    for (const Event &event : world().events) {
        const auto starts = [&event](const std::string &prefix) { return event.line.starts_with(prefix); };
        if (event.operation.empty() ? event.level > max_level : std::ranges::none_of(prefixes, starts)) {
            continue;
        }
        if (event.line == delay) {
            told.back() = told.back().substr(0, told.back().find(" x")) + " x" + std::to_string(++times);
            continue;
        }
        told.push_back(std::to_string(event.tick) + " " + event.line);
        delay = event.operation == "vos_task_delay" ? event.line : "";
        times = 1;
    }
    return told;
}

Texts logs(gint32 max_level) {
    return lines([=](const Event &event) { return is_log(event, max_level); });
}

Texts log_texts(gint32 level) {
    Texts texts = lines([=](const Event &event) {
        return event.operation.empty() && event.level == level && !event.line.starts_with('M');
    });
    for (std::string &text : texts) {
        text.erase(0, text.find(' ') + 1);
    }
    return texts;
}

bool logged(gint32 level, std::string_view text) {
    const Texts texts = log_texts(level);
    return std::ranges::find(texts, text) != texts.end();
}

// ---- Time, board, peers -------------------------------------------------------------------------------------

void set_ticks(guint64 ticks) {
    const std::lock_guard lock(world_mutex());
    world().ticks = ticks;
}

void on_delay(std::function<void(guint32)> hook) {
    const std::lock_guard lock(world_mutex());
    world().on_delay = std::move(hook);
}

void change_board(const std::function<void(Board &)> &change) {
    const std::lock_guard lock(world_mutex());
    change(world().board);
}

void set_peer(guint8 slot, const Peer &answer) {
    const std::lock_guard lock(world_mutex());
    world().peers[slot] = answer;
}

} // namespace fake
