// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "arith.h"
#include "fake_state.h"
#include "object_frame.h"

#include <algorithm>
#include <span>

namespace fake {

// ---- Building the world --------------------------------------------------------------------------------------------

// Of a value that may be floating.
static Value held(GVariant *variant) {
    return {g_variant_ref_sink(variant), g_variant_unref};
}

static Bytes bytes_of(const Value &value) {
    const auto *data = static_cast<const guint8 *>(g_variant_get_data(value.get()));
    return {data, data + g_variant_get_size(value.get())};
}

static bool is_type(const Value &value, const char *type) {
    return g_variant_is_of_type(value.get(), G_VARIANT_TYPE(type)) != 0;
}

static OBJ_HANDLE add_object(Object object) {
    world().objects.push_back(std::move(object));
    return kFirstHandle + static_cast<OBJ_HANDLE>(world().objects.size()) - 1;
}

OBJ_HANDLE add_chip(const std::string &name, const ChipConfig &config) {
    auto &part = world().parts[config.part.empty() ? name : config.part];
    if (part == nullptr) {
        part = std::make_shared<Bytes>(config.size, guint8{0xFF});
    }
    Object chip{.class_name = "AtomStorageDataDev",
                .name = name,
                .part = part,
                .lines = config.lines,
                .own_protection = config.own_protection};
    chip.properties["Offset"] = held(g_variant_new_uint32(config.offset));
    if (config.retry.has_value()) {
        chip.properties["RetryNumber"] = held(g_variant_new_uint32(*config.retry));
    }
    // States start with values that no operation leaves behind, so that a missing update shows.
    chip.properties["Health"] = held(g_variant_new_byte(77));
    chip.properties["ErrorCode"] = held(g_variant_new_int32(777));
    chip.properties["StgWp"] = held(g_variant_new_byte(1));
    chip.properties["StgIsWp"] = held(g_variant_new_byte(config.stg_is_wp));
    return add_object(std::move(chip));
}

OBJ_HANDLE add_item(const std::string &name, const ItemConfig &config) {
    Object item{.class_name = "AtomStorageData", .name = name};
    const auto set = [&item](const std::string &property, GVariant *value) { item.properties[property] = held(value); };
    set("Length", g_variant_new_uint32(config.length));
    set("DevCount", g_variant_new_uint32(static_cast<guint32>(config.chips.size())));
    set("Num", g_variant_new_byte(config.num));
    set("Online", g_variant_new_byte(config.online));
    set("Ready", g_variant_new_byte(config.ready));
    set("NeedSync", g_variant_new_byte(config.need_sync));
    set("Value", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, config.value.data(), config.value.size(), 1));
    for (std::size_t i = 0; i < config.chips.size(); ++i) {
        set("AtomStorageDataDev" + std::to_string(i), g_variant_new_string(config.chips[i].c_str()));
    }
    return add_object(std::move(item));
}

void set_property(const std::string &object, const std::string &property, GVariant *value) {
    object_named(object).properties[property] = held(value);
}

void remove_property(const std::string &object, const std::string &property) {
    object_named(object).properties.erase(property);
}

gint64 number(const std::string &object, const std::string &property) {
    const Value &value = object_named(object).properties.at(property);
    if (is_type(value, "y")) {
        return g_variant_get_byte(value.get());
    }
    return is_type(value, "u") ? gint64{g_variant_get_uint32(value.get())} : g_variant_get_int32(value.get());
}

Bytes value(const std::string &item) {
    return bytes_of(object_named(item).properties.at("Value"));
}

Bytes chip_bytes(const std::string &chip, guint32 offset, guint32 length) {
    const auto bytes = std::span(*object_named(chip).part).subspan(offset, length);
    return {bytes.begin(), bytes.end()};
}

void set_chip_bytes(const std::string &chip, guint32 offset, const Bytes &bytes) {
    std::ranges::copy(bytes, std::span(*object_named(chip).part).subspan(offset).begin());
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

static bool is_protected(const Object &chip) {
    const auto low = [](guint32 line) {
        const auto found = world().board.lines.find(line);
        return found == world().board.lines.end() || found->second != 1;
    };
    return std::ranges::any_of(chip.lines, low) ||
           (chip.own_protection && g_variant_get_byte(chip.properties.at("StgWp").get()) != 0);
}

static bool transfer_possible(const Object *chip, const gchar *property, guint32 offset, guint32 length,
                              const guint8 *buffer) {
    if (chip == nullptr || chip->part == nullptr || text_of(property) != "StorageLoc") {
        return false;
    }
    if (buffer == nullptr || length == 0) {
        violate("block transfer of nothing on " + chip->name);
        return false;
    }
    return guint64{offset} + length <= chip->part->size();
}

static Value *property_of(OBJ_HANDLE handle, const gchar *property_name) {
    Object *object = object_of(handle);
    if (object == nullptr) {
        return nullptr;
    }
    const auto property = object->properties.find(text_of(property_name));
    return property == object->properties.end() ? nullptr : &property->second;
}

static std::string property_subject(OBJ_HANDLE object, const gchar *property) {
    return name_of(object) + "." + text_of(property);
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
    const Object *object = object_of(object_handle);
    return call.fails() || object == nullptr ? nullptr : object->name.c_str();
}

gint32 dfl_get_referenced_object(OBJ_HANDLE object_handle, const gchar *property_name, OBJ_HANDLE *referenced) {
    const Call call(__func__, property_subject(object_handle, property_name));
    const Value *value = property_of(object_handle, property_name);
    if (call.fails() || value == nullptr || !is_type(*value, "s")) {
        return call.status(kNotFound);
    }
    const OBJ_HANDLE found = handle_of(g_variant_get_string(value->get(), nullptr));
    if (found == 0) {
        return kNotFound;
    }
    *referenced = found;
    return 0;
}

gint32 dfl_get_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant **value) {
    const Call call(__func__, property_subject(object_handle, property_name));
    const Value *found = property_of(object_handle, property_name);
    if (call.fails() || found == nullptr) {
        return call.status(kNotFound);
    }
    *value = call.mistypes() ? g_variant_ref_sink(g_variant_new_string("?")) : g_variant_ref(found->get());
    return 0;
}

gint32 dfl_get_property_ubyte(OBJ_HANDLE object_handle, const gchar *property_name, guint8 *value) {
    const Call call(__func__, property_subject(object_handle, property_name));
    const Value *found = property_of(object_handle, property_name);
    if (call.fails() || found == nullptr || !is_type(*found, "y")) {
        return call.status(kNotFound);
    }
    *value = g_variant_get_byte(found->get());
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
    Value *found = property_of(object_handle, property_name);
    if (call.fails() || found == nullptr) {
        return call.status(kNotFound);
    }
    static const std::set<std::string> states = {"Value", "Ready", "Health", "ErrorCode", "StgWp"};
    if (!states.contains(property_name) || !g_variant_is_of_type(value, g_variant_get_type(found->get()))) {
        violate("write of configuration or with a wrong type: " + subject);
        return kRefused;
    }
    *found = held(value);
    return 0;
}

gint32 dfl_foreach_object(const gchar *class_name, DFL_FOREACH_FUNC callback, gpointer user_data, guint32 options) {
    const Call call(__func__, text_of(class_name), options);
    gint32 first = call.status();
    for (std::size_t i = 0; !call.fails() && i < world().objects.size(); ++i) {
        if (world().objects[i].class_name == text_of(class_name)) {
            const gint32 ret = callback(kFirstHandle + static_cast<OBJ_HANDLE>(i), user_data);
            first = first != 0 ? first : ret;
        }
    }
    return first;
}

gint32 dfl_bind_object_alias(OBJ_HANDLE object_handle, guint32 alias) {
    const Call call(__func__, name_of(object_handle), alias);
    const Object *object = object_of(object_handle);
    if (call.fails() || object == nullptr) {
        return call.status(kNotFound);
    }
    world().aliases[{object->class_name, alias}] = object_handle;
    return 0;
}

gint32 dfl_get_binded_object(const gchar *class_name, guint32 alias, OBJ_HANDLE *object_handle) {
    const Call call(__func__, text_of(class_name), alias);
    const auto found = world().aliases.find({text_of(class_name), alias});
    if (call.fails() || found == world().aliases.end()) {
        return call.status(kNotFound);
    }
    *object_handle = found->second;
    return 0;
}

gint32 dfl_block_read(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                      guint8 *buffer) {
    const Call call(__func__, name_of(object_handle), offset, length);
    const Object *chip = object_of(object_handle);
    if (!transfer_possible(chip, property_name, offset, length, buffer) || call.fails()) {
        return call.status(kRefused);
    }
    std::ranges::copy(std::span(*chip->part).subspan(offset, length), buffer);
    buffer[0] = static_cast<guint8>(buffer[0] ^ (call.flips_bit() ? 8U : 0U));
    return 0;
}

gint32 dfl_block_write(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                       const guint8 *buffer) {
    const Call call(__func__, name_of(object_handle), offset, length);
    Object *chip = object_of(object_handle);
    if (!transfer_possible(chip, property_name, offset, length, buffer) || call.fails() || is_protected(*chip)) {
        return call.status(kRefused);
    }
    std::copy_n(buffer, length, std::span(*chip->part).subspan(offset).begin());
    return 0;
}
