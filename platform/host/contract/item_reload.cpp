// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_reload.h"

#include "host.h"
#include "module_call.h"
#include "module_registry.h"
#include "record_format.h"
#include "records.h"
#include "status.h"

#include <utility>
#include <variant>
#include <vector>

namespace asd_host {

namespace {

constexpr const char *kMemoryMethod = "UpdateMemProperty";

// A property of one type; 0, the store's status or kWrongType.
template <typename T>
gint32 typed_property(const Host &platform, OBJ_HANDLE object, const char *name, T *value) {
    PropertyValue held;
    if (const gint32 status = platform.objects.get(object, name, &held); status != 0) {
        return status;
    }
    const T *typed = std::get_if<T>(&held);
    if (typed == nullptr) {
        return kWrongType;
    }
    *value = *typed;
    return 0;
}

// The first good copy: chip 0 before chip 1, whatever a flag says, as the load takes them. A second chip that an item
// does not have says nothing about the first.
gint32 first_good_copy(const Host &platform, OBJ_HANDLE item, std::uint32_t length, Bytes *data) {
    const auto copy_of = [&](std::size_t copy) {
        const gint32 status = read_copy(platform, item, copy, length, data);
        if (status != 0 || !is_record(*data)) {
            return status != 0 ? status : kNoRecord;
        }
        data->resize(length);
        return 0;
    };
    const gint32 first = copy_of(0);
    if (first == 0) {
        return 0;
    }
    const gint32 second = copy_of(1);
    return second == kNoProperty ? first : second;
}

} // namespace

gint32 item_length(const Host &platform, OBJ_HANDLE item, std::uint32_t *length) {
    const std::string *class_name = platform.objects.class_of(item);
    if (class_name == nullptr || *class_name != kItemClass) {
        return kNoObject;
    }
    if (const gint32 status = typed_property(platform, item, "Length", length); status != 0) {
        return status;
    }
    return *length == 0 || *length > kLongestItem ? kBadArgument : 0;
}

gint32 read_copy(const Host &platform, OBJ_HANDLE item, std::size_t copy, std::uint32_t length, Bytes *record) {
    ObjectRef chip;
    if (const gint32 status = typed_property(platform, item, kChipKeys.at(copy), &chip); status != 0) {
        return status;
    }
    const auto place = platform.chips.find(chip.handle);
    std::uint32_t offset = 0;
    if (place == platform.chips.end() || place->second.part == nullptr) {
        return kNoProperty;
    }
    if (const gint32 status = typed_property(platform, chip.handle, "Offset", &offset); status != 0) {
        return status;
    }
    record->resize(length + kChecksumSize);
    const gint32 status = place->second.part->read(offset, *record);
    host()->lookout.note_read(chip.handle, offset, *record, status);
    return status;
}

gint32 reload_item(OBJ_HANDLE item) {
    Host *const platform = host();
    const ModuleRegistry::Method *method = module_registry().method(kItemClass, kMemoryMethod);
    if (platform == nullptr || method == nullptr) {
        return kBadArgument;
    }
    std::uint32_t length = 0;
    if (const gint32 status = item_length(*platform, item, &length); status != 0) {
        return status;
    }
    platform->lookout.note_changed(item);
    Bytes data;
    if (const gint32 status = first_good_copy(*platform, item, length, &data); status != 0) {
        return status;
    }
    return write_status(call_method(*method, item, {std::move(data)}));
}

} // namespace asd_host
