// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "object_store.h"

#include "status.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace asd_host {

namespace {

template <typename Properties>
auto *property_named(Properties &properties, std::string_view name) {
    const auto found = std::ranges::find(properties, name, &Property::name);
    return found == properties.end() ? nullptr : &*found;
}

} // namespace

OBJ_HANDLE ObjectStore::add(std::string class_name, std::string name, std::vector<Property> properties) {
    const auto handle = static_cast<OBJ_HANDLE>(objects_.size() + 1);
    [[maybe_unused]] const bool is_new = by_name_.emplace(name, handle).second;
    assert(is_new);
    objects_.push_back(
        {.class_name = std::move(class_name), .name = std::move(name), .properties = std::move(properties)});
    return handle;
}

void ObjectStore::set_observer(Observer observer) {
    const std::scoped_lock lock(mutex_);
    observer_ = std::move(observer);
}

std::optional<OBJ_HANDLE> ObjectStore::find(std::string_view name) const {
    const auto found = by_name_.find(name);
    return found == by_name_.end() ? std::nullopt : std::optional(found->second);
}

const std::string *ObjectStore::name_of(OBJ_HANDLE handle) const {
    const Object *found = object(handle);
    return found == nullptr ? nullptr : &found->name;
}

const std::string *ObjectStore::class_of(OBJ_HANDLE handle) const {
    const Object *found = object(handle);
    return found == nullptr ? nullptr : &found->class_name;
}

std::vector<OBJ_HANDLE> ObjectStore::of_class(std::string_view class_name) const {
    std::vector<OBJ_HANDLE> handles;
    for (std::size_t index = 0; index < objects_.size(); ++index) {
        if (objects_[index].class_name == class_name) {
            handles.push_back(static_cast<OBJ_HANDLE>(index + 1));
        }
    }
    return handles;
}

gint32 ObjectStore::locate(OBJ_HANDLE handle, std::string_view property, const Property **found) const {
    const Object *holder = object(handle);
    if (holder == nullptr) {
        return kNoObject;
    }
    *found = property_named(holder->properties, property);
    return *found == nullptr ? kNoProperty : 0;
}

gint32 ObjectStore::get(OBJ_HANDLE handle, std::string_view property, PropertyValue *value) const {
    return show(handle, property, [value](const PropertyValue &held) { *value = held; });
}

gint32 ObjectStore::set(OBJ_HANDLE handle, std::string_view property, PropertyValue value) {
    if (object(handle) == nullptr) {
        return kNoObject;
    }
    Property *wanted = property_named(objects_[static_cast<std::size_t>(handle) - 1].properties, property);
    if (wanted == nullptr) {
        return kNoProperty;
    }
    if (!wanted->writable) {
        return kReadOnly;
    }
    Observer observer;
    {
        const std::scoped_lock lock(mutex_);
        if (wanted->value.index() != value.index()) {
            return kWrongType;
        }
        if (wanted->value == value) {
            return 0;
        }
        wanted->value = std::move(value);
        observer = observer_;
    }
    if (observer) {
        observer(handle, wanted->name);
    }
    return 0;
}

gint32 ObjectStore::bind_alias(OBJ_HANDLE handle, std::uint32_t alias) {
    const Object *found = object(handle);
    if (found == nullptr) {
        return kNoObject;
    }
    const std::scoped_lock lock(mutex_);
    aliases_[{found->class_name, alias}] = handle;
    return 0;
}

std::optional<OBJ_HANDLE> ObjectStore::bound(std::string_view class_name, std::uint32_t alias) const {
    const std::scoped_lock lock(mutex_);
    const auto found = aliases_.find({std::string(class_name), alias});
    return found == aliases_.end() ? std::nullopt : std::optional(found->second);
}

const ObjectStore::Object *ObjectStore::object(OBJ_HANDLE handle) const {
    if (handle < 1 || static_cast<std::size_t>(handle) > objects_.size()) {
        return nullptr;
    }
    return &objects_[static_cast<std::size_t>(handle) - 1];
}

} // namespace asd_host
