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

// The data of the item's record on one chip. 0, or a status of reload_item.
gint32 copy_of(const Host &platform, OBJ_HANDLE item, const char *reference, std::uint32_t length, Bytes *data) {
    ObjectRef chip;
    if (const gint32 status = typed_property(platform, item, reference, &chip); status != 0) {
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
    Bytes record(length + kChecksumSize);
    if (const gint32 status = place->second.part->read(offset, record); status != 0) {
        return status;
    }
    if (!is_record(record)) {
        return kNoRecord;
    }
    record.resize(length);
    *data = std::move(record);
    return 0;
}

// The first good copy: chip 0 before chip 1, whatever a flag says, as the load takes them. A second chip that an item
// does not have says nothing about the first.
gint32 first_good_copy(const Host &platform, OBJ_HANDLE item, std::uint32_t length, Bytes *data) {
    const gint32 first = copy_of(platform, item, kChipKeys[0], length, data);
    if (first == 0) {
        return 0;
    }
    const gint32 second = copy_of(platform, item, kChipKeys[1], length, data);
    return second == kNoProperty ? first : second;
}

// The status that a method appends, or the one it returned without an output.
gint32 status_of(const MethodOutcome &outcome) {
    const auto *appended = outcome.outputs.empty() ? nullptr : std::get_if<std::int32_t>(&outcome.outputs.front());
    return appended == nullptr ? outcome.status : *appended;
}

} // namespace

gint32 reload_item(OBJ_HANDLE item) {
    const Host *platform = host();
    const ModuleRegistry::Method *method = module_registry().method(kItemClass, kMemoryMethod);
    if (platform == nullptr || method == nullptr) {
        return kBadArgument;
    }
    const std::string *class_name = platform->objects.class_of(item);
    if (class_name == nullptr || *class_name != kItemClass) {
        return kNoObject;
    }
    std::uint32_t length = 0;
    if (const gint32 status = typed_property(*platform, item, "Length", &length); status != 0) {
        return status;
    }
    if (length == 0 || length > kLongestItem) {
        return kBadArgument;
    }
    Bytes data;
    if (const gint32 status = first_good_copy(*platform, item, length, &data); status != 0) {
        return status;
    }
    return status_of(call_method(*method, item, {std::move(data)}));
}

} // namespace asd_host
