// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the fake's own files share: the world behind one lock, and the entry that every operation passes.

#include "fake_platform.h"

#include <condition_variable>
#include <mutex>
#include <sstream>
#include <thread>

namespace fake {

// A property's value as plain bytes: each reader gets a GVariant of its own, because one shared between threads would
// hide its reference count from ThreadSanitizer.
struct Value {
    std::string type;
    Bytes bytes;
};

struct Object {
    std::string class_name;
    std::string name;
    std::map<std::string, Value, std::less<>> properties;
    std::shared_ptr<Bytes> part; // of a chip
    std::vector<guint32> lines;
    bool own_protection = false;
};

struct Semaphore {
    std::string name;
    bool held = false;
    bool by_others = false; // held by hold_semaphore()
    std::thread::id holder = {};
};

// A call or a log line.
struct Event {
    guint64 tick;
    std::string operation; // empty: a log line
    std::string line;      // a log line: "0 text" or "M1 file: text"
    gint32 level = -1;     // of a log line
};

struct PendingFault {
    Fault fault;
    guint32 seen = 0;
};

inline constexpr OBJ_HANDLE kFirstHandle = 1000;

struct World {
    std::vector<Object> objects; // objects[handle - kFirstHandle]
    std::map<std::string, std::shared_ptr<Bytes>> parts;
    std::map<std::pair<std::string, guint32>, OBJ_HANDLE> aliases;
    std::vector<PendingFault> faults;
    guint32 fired = 0;
    std::vector<Event> events;
    Texts violations;
    guint64 ticks = 0;
    std::function<void(guint32)> on_delay;
    std::vector<Task> tasks;
    std::map<gulong, Semaphore> semaphores;
    Board board;
    std::vector<SentRequest> sent;
    std::map<guint8, Peer> peers;
    Registered registered;
    std::set<std::string> classes;
};

// Guarded by world_mutex().
[[nodiscard]] World &world();
[[nodiscard]] std::mutex &world_mutex();
[[nodiscard]] std::condition_variable &semaphore_freed();

// The rest needs the lock held.
void violate(const std::string &text);
[[nodiscard]] Object *object_of(OBJ_HANDLE handle);
[[nodiscard]] Object &object_named(const std::string &name); // must exist
[[nodiscard]] OBJ_HANDLE handle_of(std::string_view name);   // 0: none
[[nodiscard]] std::string name_of(OBJ_HANDLE handle);
[[nodiscard]] std::string text_of(const gchar *text); // "(null)" for null

// One call of the contract: takes the lock, writes the journal, meets the fault that waits for it.
class Call {
public:
    template <typename... Arguments>
    explicit Call(const char *operation, const std::string &subject = {}, const Arguments &...arguments)
        : lock_(world_mutex()) {
        std::ostringstream line;
        line << operation;
        if (!subject.empty()) {
            line << ' ' << subject;
        }
        ((line << ' ' << +arguments), ...);
        enter(operation, subject, line.str());
    }

    [[nodiscard]] bool fails() const { return fault_.has_value() && fault_->kind == FaultKind::kStatus; }
    [[nodiscard]] gint32 status() const { return fault_->status; }
    [[nodiscard]] const std::optional<Fault> &fault() const { return fault_; }
    [[nodiscard]] std::unique_lock<std::mutex> &lock() { return lock_; }

private:
    void enter(const std::string &operation, const std::string &subject, std::string line);

    std::unique_lock<std::mutex> lock_;
    std::optional<Fault> fault_;
};

} // namespace fake
