// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "object_frame.h"

#include "caller.h"
#include "host.h"
#include "item_request.h"
#include "late_load.h"
#include "property_variant.h"
#include "status.h"

#include <string_view>
#include <utility>
#include <variant>

using asd_host::held_variant_of;
using asd_host::host;
using asd_host::ObjectRef;
using asd_host::Part;
using asd_host::PropertyValue;
using asd_host::value_of;

namespace {

constexpr std::string_view kStorage = "StorageLoc";
constexpr std::string_view kWriteProtect = "StgWp";
constexpr std::string_view kReady = "Ready";
constexpr std::string_view kValue = "Value";
constexpr std::string_view kRetryNumber = "RetryNumber";

// The property's value; 0, kBadArgument or the store's status.
gint32 property_of(OBJ_HANDLE object_handle, const gchar *property_name, PropertyValue *value) {
    if (property_name == nullptr || host() == nullptr) {
        return asd_host::kBadArgument;
    }
    return host()->objects.get(object_handle, property_name, value);
}

// The part that carries the chip's bytes; null with *status: there is none.
Part *part_of(OBJ_HANDLE object_handle, const gchar *property_name, const void *buffer, gint32 *status) {
    *status = asd_host::kBadArgument;
    if (property_name == nullptr || buffer == nullptr || host() == nullptr) {
        return nullptr;
    }
    *status = asd_host::kNoObject;
    if (host()->objects.name_of(object_handle) == nullptr) {
        return nullptr;
    }
    *status = asd_host::kNoProperty;
    const auto chip = host()->chips.find(object_handle);
    if (chip == host()->chips.end() || kStorage != property_name) {
        return nullptr;
    }
    *status = 0;
    return chip->second.part;
}

// Of a part that is known not to answer more than one attempt is a waste: each costs the caller a pause. Never 0, which
// would mean none, and success.
bool one_attempt_will_do(OBJ_HANDLE object_handle, std::string_view property_name) {
    if (kRetryNumber != property_name) {
        return false;
    }
    const auto chip = host()->chips.find(object_handle);
    return chip != host()->chips.end() && !chip->second.part->answering();
}

bool chip_protected(OBJ_HANDLE chip) {
    PropertyValue value;
    return host()->objects.get(chip, kWriteProtect, &value) == 0 && value == PropertyValue(std::uint8_t{1});
}

} // namespace

gint32 dfl_get_object_handle(const gchar *object_name, OBJ_HANDLE *object_handle) {
    if (object_name == nullptr || object_handle == nullptr || host() == nullptr) {
        return asd_host::kBadArgument;
    }
    const auto found = host()->objects.find(object_name);
    if (!found) {
        return asd_host::kNoObject;
    }
    *object_handle = *found;
    return 0;
}

const gchar *dfl_get_object_name(OBJ_HANDLE object_handle) {
    const std::string *name = host() == nullptr ? nullptr : host()->objects.name_of(object_handle);
    return name == nullptr ? nullptr : name->c_str();
}

gint32 dfl_get_referenced_object(OBJ_HANDLE object_handle, const gchar *property_name, OBJ_HANDLE *referenced) {
    if (referenced == nullptr) {
        return asd_host::kBadArgument;
    }
    PropertyValue value;
    if (const gint32 status = property_of(object_handle, property_name, &value); status != 0) {
        return status;
    }
    const auto *reference = std::get_if<ObjectRef>(&value);
    if (reference == nullptr) {
        return asd_host::kWrongType;
    }
    *referenced = reference->handle;
    return 0;
}

gint32 dfl_get_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant **value) {
    if (value == nullptr) {
        return asd_host::kBadArgument;
    }
    if (property_name == nullptr || host() == nullptr) {
        return asd_host::kBadArgument;
    }
    GVariant *variant = nullptr;
    const auto convert = [&](const PropertyValue &held) {
        const auto *number = std::get_if<std::uint32_t>(&held);
        const bool once = number != nullptr && *number > 1 && one_attempt_will_do(object_handle, property_name);
        variant = once ? held_variant_of(std::uint32_t{1}) : held_variant_of(held);
    };
    if (const gint32 status = host()->objects.show(object_handle, property_name, convert); status != 0) {
        return status;
    }
    if (variant == nullptr) {
        return asd_host::kWrongType;
    }
    *value = variant;
    return 0;
}

gint32 dfl_get_property_ubyte(OBJ_HANDLE object_handle, const gchar *property_name, guint8 *value) {
    if (value == nullptr) {
        return asd_host::kBadArgument;
    }
    PropertyValue held;
    if (const gint32 status = property_of(object_handle, property_name, &held); status != 0) {
        return status;
    }
    const auto *byte = std::get_if<std::uint8_t>(&held);
    if (byte == nullptr) {
        return asd_host::kWrongType;
    }
    *value = *byte;
    return 0;
}

// The options say how other frameworks spread the value; here every write is the same.
gint32 dfl_set_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant *value,
                              DF_OPTIONS /*options*/) {
    if (property_name == nullptr || value == nullptr || host() == nullptr) {
        return asd_host::kBadArgument;
    }
    PropertyValue wanted;
    if (!value_of(value, &wanted)) {
        return asd_host::kWrongType;
    }
    asd_host::Caller *const caller = kValue == property_name ? asd_host::Caller::here() : nullptr;
    PropertyValue before;
    const auto *now = std::get_if<asd_host::Bytes>(&wanted);
    if (caller != nullptr && now != nullptr && host()->objects.get(object_handle, property_name, &before) == 0 &&
        std::holds_alternative<asd_host::Bytes>(before)) {
        caller->note_value(object_handle, std::get<asd_host::Bytes>(before), *now);
    }
    const gint32 status = host()->objects.set(object_handle, property_name, std::move(wanted)); // which hardly fails
    if (status == 0 && kReady == property_name) {
        host()->lookout.note_ready(object_handle);
    }
    return status;
}

gint32 dfl_foreach_object(const gchar *class_name, DFL_FOREACH_FUNC callback, gpointer user_data, guint32 /*options*/) {
    if (class_name == nullptr || callback == nullptr || host() == nullptr) {
        return asd_host::kBadArgument;
    }
    gint32 first_failure = 0;
    asd_host::LoadWalk walk(*host());
    for (const OBJ_HANDLE handle : host()->objects.of_class(class_name)) {
        const gint32 status = walk.visit(handle, callback, user_data);
        first_failure = first_failure == 0 ? status : first_failure;
    }
    return first_failure;
}

gint32 dfl_bind_object_alias(OBJ_HANDLE object_handle, guint32 alias) {
    return host() == nullptr ? asd_host::kBadArgument : host()->objects.bind_alias(object_handle, alias);
}

gint32 dfl_get_binded_object(const gchar *class_name, guint32 alias, OBJ_HANDLE *object_handle) {
    if (class_name == nullptr || object_handle == nullptr || host() == nullptr) {
        return asd_host::kBadArgument;
    }
    const auto found = host()->objects.bound(class_name, alias);
    if (!found) {
        return asd_host::kNoObject;
    }
    *object_handle = *found;
    return 0;
}

// Objects come from the enclosure file alone: none comes or goes at run time, and no handler is called.
gint32 dfl_add_object_handler(DFL_OBJECT_HANDLER handler) {
    return handler == nullptr || host() == nullptr ? asd_host::kBadArgument : 0;
}

gint32 dfl_del_object_handler(DFL_OBJECT_HANDLER handler) {
    return dfl_add_object_handler(handler);
}

gint32 dfl_block_read(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                      guint8 *buffer) {
    gint32 status = 0;
    Part *part = part_of(object_handle, property_name, buffer, &status);
    if (part != nullptr) {
        status = part->read(offset, {buffer, length});
        asd_host::note_chip_read(object_handle, status);
        host()->lookout.note_read(object_handle, offset, {buffer, length}, status);
    }
    return status;
}

gint32 dfl_block_write(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                       const guint8 *buffer) {
    gint32 status = 0;
    Part *part = part_of(object_handle, property_name, buffer, &status);
    if (part != nullptr) {
        status = part->write(offset, {buffer, length}, chip_protected(object_handle));
        host()->lookout.note_written(object_handle, offset, {buffer, length}, status);
    }
    if (status == 0) {
        const OBJ_HANDLE item = host()->lookout.item_of(object_handle);
        if (asd_host::Caller *const caller = asd_host::Caller::here(); caller != nullptr && item != 0) {
            caller->note_stored(item, {buffer, buffer + length});
        }
        asd_host::note_chip_written(object_handle);
    }
    return status;
}
