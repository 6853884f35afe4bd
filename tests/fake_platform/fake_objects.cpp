// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "arith.h"
#include "fake_state.h"
#include "object_frame.h"

#include <algorithm>
#include <span>

namespace fake {

// ---- Values --------------------------------------------------------------------------------------------------------

static Value plain_value(GVariant *variant) {
    Value value{.type = g_variant_get_type_string(variant), .bytes = Bytes(g_variant_get_size(variant))};
    if (!value.bytes.empty()) {
        g_variant_store(variant, value.bytes.data());
    }
    return value;
}

static Value plain_value_of_floating(GVariant *variant) {
    g_variant_ref_sink(variant);
    Value value = plain_value(variant);
    g_variant_unref(variant);
    return value;
}

static GVariant *new_variant(const Value &value) {
    gpointer copy = g_memdup2(value.bytes.data(), value.bytes.size());
    return g_variant_ref_sink(
        g_variant_new_from_data(G_VARIANT_TYPE(value.type.c_str()), copy, value.bytes.size(), TRUE, g_free, copy));
}

template <typename Number>
static Number number_in(const Value &value) {
    Number number{};
    std::copy_n(value.bytes.begin(), std::min(sizeof(number), value.bytes.size()), reinterpret_cast<guint8 *>(&number));
    return number;
}

static std::string property_subject(OBJ_HANDLE object, const gchar *property) {
    return name_of(object) + "." + text_of(property);
}

// ---- Building the world --------------------------------------------------------------------------------------------

static OBJ_HANDLE add_object(Object object) {
    world().objects.push_back(std::move(object));
    return kFirstHandle + static_cast<OBJ_HANDLE>(world().objects.size()) - 1;
}

OBJ_HANDLE add_chip(const std::string &name, const ChipConfig &config) {
    const std::lock_guard lock(world_mutex());
    auto &part = world().parts[config.part.empty() ? name : config.part];
    if (part == nullptr) {
        part = std::make_shared<Bytes>(config.size, guint8{0xFF});
    }
    Object chip{.class_name = "AtomStorageDataDev",
                .name = name,
                .properties = {},
                .part = part,
                .lines = config.lines,
                .own_protection = config.own_protection};
    chip.properties["Offset"] = plain_value_of_floating(g_variant_new_uint32(config.offset));
    if (config.retry.has_value()) {
        chip.properties["RetryNumber"] = plain_value_of_floating(g_variant_new_uint32(*config.retry));
    }
    // States start with values that no operation leaves behind, so that a missing update shows.
    chip.properties["Health"] = plain_value_of_floating(g_variant_new_byte(77));
    chip.properties["ErrorCode"] = plain_value_of_floating(g_variant_new_int32(777));
    chip.properties["StgWp"] = plain_value_of_floating(g_variant_new_byte(1));
    chip.properties["StgIsWp"] = plain_value_of_floating(g_variant_new_byte(config.stg_is_wp));
    return add_object(std::move(chip));
}

static GVariant *new_bytes(const Bytes &bytes) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

OBJ_HANDLE add_item(const std::string &name, const ItemConfig &config) {
    const std::lock_guard lock(world_mutex());
    Object item{.class_name = "AtomStorageData", .name = name, .properties = {}, .part = {}, .lines = {}};
    const auto set = [&item](const std::string &property, GVariant *value) {
        item.properties[property] = plain_value_of_floating(value);
    };
    set("Length", g_variant_new_uint32(config.length));
    set("DevCount", g_variant_new_uint32(static_cast<guint32>(config.chips.size())));
    set("Num", g_variant_new_byte(config.num));
    set("Online", g_variant_new_byte(config.online));
    set("Ready", g_variant_new_byte(config.ready));
    set("NeedSync", g_variant_new_byte(config.need_sync));
    set("Value", new_bytes(config.value));
    for (std::size_t i = 0; i < config.chips.size(); ++i) {
        set("AtomStorageDataDev" + std::to_string(i), g_variant_new_string(config.chips[i].c_str()));
    }
    return add_object(std::move(item));
}

void set_property(const std::string &object, const std::string &property, GVariant *value) {
    const std::lock_guard lock(world_mutex());
    object_named(object).properties[property] = plain_value_of_floating(value);
}

void remove_property(const std::string &object, const std::string &property) {
    const std::lock_guard lock(world_mutex());
    object_named(object).properties.erase(property);
}

gint64 number(const std::string &object, const std::string &property) {
    const std::lock_guard lock(world_mutex());
    const Value &value = object_named(object).properties.at(property);
    if (value.type == "y") {
        return number_in<guint8>(value);
    }
    return value.type == "u" ? gint64{number_in<guint32>(value)} : gint64{number_in<gint32>(value)};
}

Bytes value(const std::string &item) {
    const std::lock_guard lock(world_mutex());
    return object_named(item).properties.at("Value").bytes;
}

Bytes chip_bytes(const std::string &chip, guint32 offset, guint32 length) {
    const std::lock_guard lock(world_mutex());
    const auto bytes = std::span(*object_named(chip).part).subspan(offset, length);
    return {bytes.begin(), bytes.end()};
}

void set_chip_bytes(const std::string &chip, guint32 offset, const Bytes &bytes) {
    const std::lock_guard lock(world_mutex());
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

// ---- Chips ---------------------------------------------------------------------------------------------------------

static bool is_protected(const Object &chip) {
    const auto low = [](guint32 line) {
        const auto found = world().board.lines.find(line);
        return found == world().board.lines.end() || found->second != 1;
    };
    return std::ranges::any_of(chip.lines, low) ||
           (chip.own_protection && number_in<guint8>(chip.properties.at("StgWp")) != 0);
}

// Stores the bytes, or those before the place where a torn write is cut.
static gint32 program(Bytes &part, guint32 offset, const Bytes &data, const std::optional<Fault> &fault) {
    const bool torn = fault.has_value() && fault->kind == FaultKind::kTornPage;
    const std::size_t count = torn ? std::min(fault->at, data.size()) : data.size();
    std::ranges::copy(std::span(data).first(count), std::span(part).subspan(offset).begin());
    return torn || (fault.has_value() && fault->kind == FaultKind::kLostAck) ? fault->status : 0;
}

static gint32 transfer_refused(const Object *chip, const gchar *property, guint32 offset, guint32 length,
                               const guint8 *buffer) {
    if (chip == nullptr || chip->part == nullptr) {
        return kNoObject;
    }
    if (text_of(property) != "StorageLoc") {
        return kNoProperty;
    }
    if (buffer == nullptr || length == 0) {
        violate("block transfer of nothing on " + chip->name);
        return kOutOfRange;
    }
    return guint64{offset} + length > chip->part->size() ? kOutOfRange : 0;
}

static void spoil(const std::optional<Fault> &fault, Bytes &bytes) {
    if (fault.has_value() && fault->kind == FaultKind::kFlippedBit) {
        guint8 &byte = bytes.at(fault->at / 8 % bytes.size());
        byte = static_cast<guint8>(byte ^ (1U << fault->at % 8));
    }
}

} // namespace fake

using namespace fake; // NOLINT(google-build-using-namespace): the operations below have C linkage and global names

// ---- Object framework ----------------------------------------------------------------------------------------------

gint32 dfl_get_object_handle(const gchar *object_name, OBJ_HANDLE *object_handle) {
    Call call("dfl_get_object_handle", text_of(object_name));
    if (call.fails()) {
        return call.status();
    }
    const OBJ_HANDLE handle = object_name != nullptr ? handle_of(object_name) : 0;
    if (handle == 0 || object_handle == nullptr) {
        return kNoObject;
    }
    *object_handle = handle;
    return 0;
}

const gchar *dfl_get_object_name(OBJ_HANDLE object_handle) {
    Call call("dfl_get_object_name", name_of(object_handle));
    const Object *object = object_of(object_handle);
    return call.fails() || object == nullptr ? nullptr : object->name.c_str();
}

gint32 dfl_get_referenced_object(OBJ_HANDLE object_handle, const gchar *property_name, OBJ_HANDLE *referenced) {
    Call call("dfl_get_referenced_object", property_subject(object_handle, property_name));
    if (call.fails()) {
        return call.status();
    }
    const Object *object = object_of(object_handle);
    if (object == nullptr || referenced == nullptr) {
        return kNoObject;
    }
    const auto property = object->properties.find(text_of(property_name));
    if (property == object->properties.end()) {
        return kNoProperty;
    }
    if (property->second.type != "s") {
        return kWrongType;
    }
    // A GVariant text carries its terminator.
    const OBJ_HANDLE found = handle_of(reinterpret_cast<const char *>(property->second.bytes.data()));
    if (found == 0) {
        return kNoObject;
    }
    *referenced = found;
    return 0;
}

static gint32 find_property(OBJ_HANDLE handle, const gchar *property_name, Value **value) {
    Object *object = object_of(handle);
    if (object == nullptr) {
        return kNoObject;
    }
    const auto property = object->properties.find(text_of(property_name));
    if (property == object->properties.end()) {
        return kNoProperty;
    }
    *value = &property->second;
    return 0;
}

gint32 dfl_get_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant **value) {
    Call call("dfl_get_property_value", property_subject(object_handle, property_name));
    if (call.fails()) {
        return call.status();
    }
    Value *found = nullptr;
    if (const gint32 ret = find_property(object_handle, property_name, &found); ret != 0) {
        return ret;
    }
    *value = new_variant(*found);
    return 0;
}

gint32 dfl_get_property_ubyte(OBJ_HANDLE object_handle, const gchar *property_name, guint8 *value) {
    Call call("dfl_get_property_ubyte", property_subject(object_handle, property_name));
    if (call.fails()) {
        return call.status();
    }
    Value *found = nullptr;
    if (const gint32 ret = find_property(object_handle, property_name, &found); ret != 0) {
        return ret;
    }
    if (found->type != "y") {
        return kWrongType;
    }
    *value = number_in<guint8>(*found);
    return 0;
}

static std::string printed(GVariant *value) {
    if (value == nullptr || g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING)) {
        return value == nullptr ? "(null)" : "ay[" + std::to_string(g_variant_get_size(value)) + "]";
    }
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_variant_print(value, FALSE), g_free);
    return text.get();
}

gint32 dfl_set_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant *value,
                              DF_OPTIONS options) {
    Call call("dfl_set_property_value", property_subject(object_handle, property_name), printed(value).c_str(),
              options);
    const std::string subject = property_subject(object_handle, property_name);
    if (value == nullptr || g_variant_is_floating(value) != 0) {
        violate("null or floating value for " + subject);
        return kWrongType;
    }
    if (call.fails()) {
        return call.status();
    }
    Value *found = nullptr;
    if (const gint32 ret = find_property(object_handle, property_name, &found); ret != 0) {
        return ret;
    }
    static const std::set<std::string> states = {"Value", "Ready", "Health", "ErrorCode", "StgWp"};
    if (!states.contains(property_name)) {
        violate("write of configuration: " + subject);
        return kReadOnly;
    }
    if (found->type != g_variant_get_type_string(value)) {
        violate("wrong type for " + subject);
        return kWrongType;
    }
    *found = plain_value(value);
    return 0;
}

gint32 dfl_foreach_object(const gchar *class_name, DFL_FOREACH_FUNC callback, gpointer user_data, guint32 options) {
    Call call("dfl_foreach_object", text_of(class_name), options);
    if (call.fails()) {
        return call.status();
    }
    std::vector<OBJ_HANDLE> members;
    for (std::size_t i = 0; i < world().objects.size(); ++i) {
        if (world().objects[i].class_name == text_of(class_name)) {
            members.push_back(kFirstHandle + static_cast<OBJ_HANDLE>(i));
        }
    }
    call.lock().unlock();
    gint32 first = 0;
    for (const OBJ_HANDLE member : members) {
        const gint32 ret = callback(member, user_data);
        first = first != 0 ? first : ret;
    }
    return first;
}

gint32 dfl_bind_object_alias(OBJ_HANDLE object_handle, guint32 alias) {
    Call call("dfl_bind_object_alias", name_of(object_handle), alias);
    if (call.fails()) {
        return call.status();
    }
    const Object *object = object_of(object_handle);
    if (object == nullptr) {
        return kNoObject;
    }
    world().aliases[{object->class_name, alias}] = object_handle;
    return 0;
}

gint32 dfl_get_binded_object(const gchar *class_name, guint32 alias, OBJ_HANDLE *object_handle) {
    Call call("dfl_get_binded_object", text_of(class_name), alias);
    if (call.fails()) {
        return call.status();
    }
    const auto found = world().aliases.find({text_of(class_name), alias});
    if (found == world().aliases.end() || object_handle == nullptr) {
        return kNoObject;
    }
    *object_handle = found->second;
    return 0;
}

gint32 dfl_block_read(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                      guint8 *buffer) {
    Call call("dfl_block_read", name_of(object_handle), offset, length);
    const Object *chip = object_of(object_handle);
    if (const gint32 ret = transfer_refused(chip, property_name, offset, length, buffer); ret != 0 || call.fails()) {
        return call.fails() ? call.status() : ret;
    }
    const auto stored = std::span(*chip->part).subspan(offset, length);
    Bytes bytes(stored.begin(), stored.end());
    spoil(call.fault(), bytes);
    std::ranges::copy(bytes, buffer);
    return 0;
}

gint32 dfl_block_write(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                       const guint8 *buffer) {
    Call call("dfl_block_write", name_of(object_handle), offset, length);
    Object *chip = object_of(object_handle);
    if (const gint32 ret = transfer_refused(chip, property_name, offset, length, buffer); ret != 0 || call.fails()) {
        return call.fails() ? call.status() : ret;
    }
    if (is_protected(*chip)) {
        return kRefused; // acknowledged and not stored, which the read-back finds out
    }
    Bytes bytes(buffer, buffer + length);
    spoil(call.fault(), bytes);
    return program(*chip->part, offset, bytes, call.fault());
}
