// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "fake_state.h"

#include <algorithm>

namespace fake {

// ---- The world -----------------------------------------------------------------------------------------------------

World &world() {
    static World instance;
    return instance;
}

void reset() {
    world() = World{};
}

void inject(const Fault &fault) {
    world().faults.push_back(fault);
}

void lift_faults() {
    world().faults.clear();
    for (auto &[handle, semaphore] : world().semaphores) {
        semaphore.held = semaphore.held && !semaphore.by_others;
        semaphore.by_others = false;
    }
}

void violate(const std::string &text) {
    world().violations.push_back(text);
}

OBJ_HANDLE handle_of(std::string_view name) {
    return world().objects->find(name).value_or(0);
}

std::string name_of(OBJ_HANDLE handle) {
    const std::string *name = world().objects->name_of(handle);
    return name != nullptr ? *name : "?";
}

std::string text_of(const gchar *text) {
    return text != nullptr ? text : "(null)";
}

void Call::enter(const std::string &operation, const std::string &subject, std::string line) {
    world().events.push_back({.tick = world().ticks, .operation = operation, .line = std::move(line)});
    for (Fault &fault : world().faults) {
        if ((!fault.operation.empty() && fault.operation != operation) ||
            (!fault.subject.empty() && fault.subject != subject)) {
            continue;
        }
        ++fault.seen;
        const bool hit = fault.seen >= fault.nth && (fault.count == 0 || fault.seen - fault.nth < fault.count);
        if (!hit || fault_.has_value()) {
            continue;
        }
        fault_ = fault;
        if (fault.sticks) {
            fault.operation = operation;
            fault.subject = subject;
            fault.count = 0;
        }
    }
    world().fired += fault_.has_value() ? 1U : 0U;
}

// ---- Journal -------------------------------------------------------------------------------------------------------

template <typename Wanted>
static Texts lines(const Wanted &wanted) {
    Texts texts;
    for (const Event &event : world().events) {
        if (wanted(event)) {
            texts.push_back(event.line);
        }
    }
    return texts;
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
    world().events.clear();
}

Texts logs(gint32 max_level) {
    return lines([=](const Event &event) { return event.operation.empty() && event.level <= max_level; });
}

Texts timeline(const Texts &prefixes, gint32 max_level) {
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

} // namespace fake
