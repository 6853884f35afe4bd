// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Objects and their properties: what the object framework keeps. Safe for many threads.

#include "platform_types.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace asd_host {

// A reference to another object.
struct ObjectRef {
    OBJ_HANDLE handle = 0;
    bool operator==(const ObjectRef &) const = default;
};

// Values are kept as plain bytes and numbers and become GVariants at the contract, one per reader: one that several
// threads count and the last of them frees would hide that count from ThreadSanitizer.
using Bytes = std::vector<std::uint8_t>;
using PropertyValue = std::variant<std::uint8_t, std::uint32_t, std::int32_t, Bytes, ObjectRef, std::string>;

struct Property {
    std::string name;
    PropertyValue value;
    bool writable = false; // false: configuration
};

class ObjectStore {
public:
    // Told after a property took a new value, outside the store's lock, on the writer's thread.
    using Observer = std::function<void(OBJ_HANDLE, const std::string &property)>;

    // Adds an object; the name must be new. Returns its handle (1, 2, ...). Not while other threads use the store.
    OBJ_HANDLE add(std::string class_name, std::string name, std::vector<Property> properties);
    void set_observer(Observer observer);

    [[nodiscard]] std::optional<OBJ_HANDLE> find(std::string_view name) const;
    [[nodiscard]] const std::string *name_of(OBJ_HANDLE handle) const;  // null: no such object; lives with the store
    [[nodiscard]] const std::string *class_of(OBJ_HANDLE handle) const; // the same
    [[nodiscard]] std::vector<OBJ_HANDLE> of_class(std::string_view class_name) const; // in the order they were added

    // 0, kNoObject or kNoProperty; *value untouched unless 0.
    [[nodiscard]] gint32 get(OBJ_HANDLE handle, std::string_view property, PropertyValue *value) const;
    // The same, without a copy: shows the value with the store's lock held, so look must not come back here.
    template <typename Look>
    [[nodiscard]] gint32 show(OBJ_HANDLE handle, std::string_view property, Look look) const {
        const Property *wanted = nullptr;
        if (const gint32 status = locate(handle, property, &wanted); status != 0) {
            return status;
        }
        const std::scoped_lock lock(mutex_);
        look(wanted->value);
        return 0;
    }
    // 0, kNoObject, kNoProperty, kWrongType or kReadOnly.
    [[nodiscard]] gint32 set(OBJ_HANDLE handle, std::string_view property, PropertyValue value);

    // Binds (class, alias) to the object; a later binding of the same pair replaces it. 0 or kNoObject.
    [[nodiscard]] gint32 bind_alias(OBJ_HANDLE handle, std::uint32_t alias);
    [[nodiscard]] std::optional<OBJ_HANDLE> bound(std::string_view class_name, std::uint32_t alias) const;

private:
    struct Object {
        std::string class_name;
        std::string name;
        std::vector<Property> properties;
    };
    // Finds names without making strings of them.
    struct NameHash {
        using is_transparent = void; // NOLINT(readability-identifier-naming): the containers' name
        std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
    };
    [[nodiscard]] const Object *object(OBJ_HANDLE handle) const; // under mutex_ or for the fixed fields
    [[nodiscard]] gint32 locate(OBJ_HANDLE handle, std::string_view property, const Property **found) const;

    mutable std::mutex mutex_;   // guards property values and aliases_; classes and names are fixed after add
    std::deque<Object> objects_; // objects_[handle - 1]
    std::unordered_map<std::string, OBJ_HANDLE, NameHash, std::equal_to<>> by_name_;
    std::map<std::pair<std::string, std::uint32_t>, OBJ_HANDLE> aliases_;
    Observer observer_;
};

} // namespace asd_host
