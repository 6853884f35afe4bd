// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "arith.h"
#include "fake_state.h"
#include "object_frame.h"
#include "property_variant.h"

#include <algorithm>
#include <cstdlib>
#include <span>

using asd_host::ObjectRef;
using asd_host::Property;
using asd_host::PropertyValue;

namespace fake {

// ---- Building the world --------------------------------------------------------------------------------------------

// What tests name exists, and what they set is of the right type; else it is a mistake of theirs.
static void must(bool right) {
    if (!right) {
        std::abort();
    }
}

static Chip &chip_named(const std::string &name) {
    const auto found = world().chips.find(handle_of(name));
    must(found != world().chips.end());
    return found->second;
}

static PropertyValue property_named(const std::string &object, const std::string &property) {
    PropertyValue value;
    must(world().objects->get(handle_of(object), property, &value) == 0);
    return value;
}

// All are writable for tests; what the module may write is looked at when it does.
static OBJ_HANDLE add_object(const char *class_name, const std::string &name, std::vector<Property> properties) {
    for (Property &property : properties) {
        property.writable = true;
    }
    return world().objects->add(class_name, name, std::move(properties));
}

OBJ_HANDLE add_chip(const std::string &name, const ChipConfig &config) {
    auto &part = world().parts[config.part.empty() ? name : config.part];
    if (part == nullptr) {
        part = std::make_shared<Bytes>(config.size, guint8{0xFF});
    }
    // States start with values that no operation leaves behind, so that a missing update shows.
    const OBJ_HANDLE chip = add_object("AtomStorageDataDev", name,
                                       {{.name = "Offset", .value = config.offset},
                                        {.name = "RetryNumber", .value = config.retry.value_or(0)},
                                        {.name = "Health", .value = guint8{77}},
                                        {.name = "ErrorCode", .value = gint32{777}},
                                        {.name = "StgWp", .value = guint8{1}},
                                        {.name = "StgIsWp", .value = config.stg_is_wp}});
    if (!config.retry.has_value()) {
        remove_property(name, "RetryNumber");
    }
    world().chips[chip] = {.part = part, .lines = config.lines, .own_protection = config.own_protection};
    return chip;
}

OBJ_HANDLE add_item(const std::string &name, const ItemConfig &config) {
    std::vector<Property> properties = {{.name = "Length", .value = config.length},
                                        {.name = "DevCount", .value = static_cast<guint32>(config.chips.size())},
                                        {.name = "Num", .value = config.num},
                                        {.name = "Online", .value = config.online},
                                        {.name = "Ready", .value = config.ready},
                                        {.name = "NeedSync", .value = config.need_sync},
                                        {.name = "Value", .value = config.value}};
    for (std::size_t i = 0; i < config.chips.size(); ++i) {
        properties.push_back({.name = "AtomStorageDataDev" + std::to_string(i),
                              .value = ObjectRef{.handle = handle_of(config.chips[i])}});
    }
    return add_object("AtomStorageData", name, std::move(properties));
}

void set_property(const std::string &object, const std::string &property, const PropertyValue &value) {
    must(world().objects->set(handle_of(object), property, value) == 0);
}

void remove_property(const std::string &object, const std::string &property) {
    world().missing.insert(object + "." + property);
}

gint64 number(const std::string &object, const std::string &property) {
    const PropertyValue value = property_named(object, property);
    if (const auto *byte = std::get_if<guint8>(&value); byte != nullptr) {
        return *byte;
    }
    const auto *word = std::get_if<guint32>(&value);
    return word != nullptr ? gint64{*word} : std::get<gint32>(value);
}

Bytes value(const std::string &item) {
    return std::get<Bytes>(property_named(item, "Value"));
}

Bytes chip_bytes(const std::string &chip, guint32 offset, guint32 length) {
    const auto bytes = std::span(*chip_named(chip).part).subspan(offset, length);
    return {bytes.begin(), bytes.end()};
}

void set_chip_bytes(const std::string &chip, guint32 offset, const Bytes &bytes) {
    std::ranges::copy(bytes, std::span(*chip_named(chip).part).subspan(offset).begin());
}

Bytes record(const Bytes &data) {
    const guint16 checksum = arith_make_crc_checksum(0, data.data(), static_cast<guint32>(data.size()));
    Bytes bytes = data;
    bytes.push_back(static_cast<guint8>(checksum & 0xFFU));
    bytes.push_back(static_cast<guint8>(checksum >> 8U));
    return bytes;
}

void put_record(const std::string &chip, const Bytes &data) {
    set_chip_bytes(chip, static_cast<guint32>(number(chip, "Offset")), record(data));
}

// ---- Lookups ----

static bool is_protected(OBJ_HANDLE handle, const Chip &chip) {
    const auto low = [](guint32 line) {
        const auto found = world().board.lines.find(line);
        return found == world().board.lines.end() || found->second != 1;
    };
    return std::ranges::any_of(chip.lines, low) || (chip.own_protection && number(name_of(handle), "StgWp") != 0);
}

// The part's bytes; empty: the transfer is not possible.
static std::span<guint8> transfer_place(OBJ_HANDLE handle, const gchar *property, guint32 offset, guint32 length,
                                        const guint8 *buffer) {
    const auto chip = world().chips.find(handle);
    if (chip == world().chips.end() || text_of(property) != "StorageLoc") {
        return {};
    }
    if (buffer == nullptr || length == 0) {
        violate("block transfer of nothing on " + name_of(handle));
        return {};
    }
    Bytes &part = *chip->second.part;
    return guint64{offset} + length <= part.size() ? std::span(part).subspan(offset, length) : std::span<guint8>{};
}

static std::string property_subject(OBJ_HANDLE object, const gchar *property) {
    return name_of(object) + "." + text_of(property);
}

// 0, else the fault's status or kNotFound.
static gint32 property_get(const Call &call, OBJ_HANDLE object, const gchar *property, PropertyValue *value) {
    const bool missing = world().missing.contains(property_subject(object, property)) ||
                         world().objects->get(object, text_of(property), value) != 0;
    return call.fails() || missing ? call.status(kNotFound) : 0;
}

// The value as the journal shows it.
static std::string printed(GVariant *value) {
    if (value == nullptr || g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING)) {
        return value == nullptr ? "(null)" : "ay[" + std::to_string(g_variant_get_size(value)) + "]";
    }
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_variant_print(value, FALSE), g_free);
    return text.get();
}

} // namespace fake

using namespace fake; // NOLINT(google-build-using-namespace): the operations below have C linkage and global names

// ---- Object framework ----------------------------------------------------------------------------------------------

gint32 dfl_get_object_handle(const gchar *object_name, OBJ_HANDLE *object_handle) {
    const Call call(__func__, text_of(object_name));
    const OBJ_HANDLE handle = handle_of(text_of(object_name));
    if (call.fails() || handle == 0) {
        return call.status(kNotFound);
    }
    *object_handle = handle;
    return 0;
}

const gchar *dfl_get_object_name(OBJ_HANDLE object_handle) {
    const Call call(__func__, name_of(object_handle));
    const std::string *name = world().objects->name_of(object_handle);
    return call.fails() || name == nullptr ? nullptr : name->c_str();
}

gint32 dfl_get_referenced_object(OBJ_HANDLE object_handle, const gchar *property_name, OBJ_HANDLE *referenced) {
    PropertyValue value;
    const gint32 ret = property_get(Call(__func__, property_subject(object_handle, property_name)), object_handle,
                                    property_name, &value);
    const auto *reference = std::get_if<ObjectRef>(&value);
    if (ret != 0 || reference == nullptr || reference->handle == 0) {
        return ret != 0 ? ret : kNotFound;
    }
    *referenced = reference->handle;
    return 0;
}

gint32 dfl_get_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant **value) {
    const Call call(__func__, property_subject(object_handle, property_name));
    PropertyValue held;
    const gint32 ret = property_get(call, object_handle, property_name, &held);
    if (ret != 0 || std::holds_alternative<ObjectRef>(held)) {
        return ret != 0 ? ret : kNotFound;
    }
    *value = g_variant_ref_sink(call.mistypes() ? g_variant_new_string("?") : asd_host::variant_of(held));
    return 0;
}

gint32 dfl_get_property_ubyte(OBJ_HANDLE object_handle, const gchar *property_name, guint8 *value) {
    PropertyValue held;
    const gint32 ret = property_get(Call(__func__, property_subject(object_handle, property_name)), object_handle,
                                    property_name, &held);
    const auto *byte = std::get_if<guint8>(&held);
    if (ret != 0 || byte == nullptr) {
        return ret != 0 ? ret : kNotFound;
    }
    *value = *byte;
    return 0;
}

gint32 dfl_set_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant *value,
                              DF_OPTIONS options) {
    const std::string subject = property_subject(object_handle, property_name);
    const Call call(__func__, subject, printed(value).c_str(), options);
    if (value == nullptr || g_variant_is_floating(value) != 0) {
        violate("null or floating value for " + subject);
        return kRefused;
    }
    PropertyValue wanted;
    if (const gint32 ret = property_get(call, object_handle, property_name, &wanted); ret != 0) {
        return ret;
    }
    static const std::set<std::string> states = {"Value", "Ready", "Health", "ErrorCode", "StgWp"};
    if (!states.contains(property_name) || !asd_host::value_of(value, &wanted) ||
        world().objects->set(object_handle, property_name, wanted) != 0) {
        violate("write of configuration or with a wrong type: " + subject);
        return kRefused;
    }
    return 0;
}

gint32 dfl_foreach_object(const gchar *class_name, DFL_FOREACH_FUNC callback, gpointer user_data, guint32 options) {
    const Call call(__func__, text_of(class_name), options);
    if (call.fails()) {
        return call.status();
    }
    gint32 first = 0;
    for (const OBJ_HANDLE handle : world().objects->of_class(text_of(class_name))) {
        const gint32 ret = callback(handle, user_data);
        first = first != 0 ? first : ret;
    }
    return first;
}

gint32 dfl_bind_object_alias(OBJ_HANDLE object_handle, guint32 alias) {
    const Call call(__func__, name_of(object_handle), alias);
    return call.fails() || world().objects->bind_alias(object_handle, alias) != 0 ? call.status(kNotFound) : 0;
}

gint32 dfl_get_binded_object(const gchar *class_name, guint32 alias, OBJ_HANDLE *object_handle) {
    const Call call(__func__, text_of(class_name), alias);
    const std::optional<OBJ_HANDLE> found = world().objects->bound(text_of(class_name), alias);
    if (call.fails() || !found.has_value()) {
        return call.status(kNotFound);
    }
    *object_handle = *found;
    return 0;
}

gint32 dfl_block_read(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                      guint8 *buffer) {
    const Call call(__func__, name_of(object_handle), offset, length);
    const std::span<guint8> place = transfer_place(object_handle, property_name, offset, length, buffer);
    if (call.fails() || place.empty()) {
        return call.status(kRefused);
    }
    std::ranges::copy(place, buffer);
    buffer[0] = static_cast<guint8>(buffer[0] ^ (call.flips_bit() ? 8U : 0U));
    return 0;
}

gint32 dfl_block_write(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                       const guint8 *buffer) {
    const Call call(__func__, name_of(object_handle), offset, length);
    const std::span<guint8> place = transfer_place(object_handle, property_name, offset, length, buffer);
    if (call.fails() || place.empty() || is_protected(object_handle, world().chips.at(object_handle))) {
        return call.status(kRefused);
    }
    std::copy_n(buffer, length, place.begin());
    return 0;
}
