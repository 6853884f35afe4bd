// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_property.h"

#include "object_frame.h"

#include <algorithm>
#include <cassert>

// Reads a property that must be of the given type.
static gint32 typed_read(OBJ_HANDLE object, const gchar *property, const GVariantType *type, Variant *value) {
    if (const gint32 ret = dfl_get_property_value(object, property, value->out()); ret != 0) {
        return ret;
    }
    assert(*value); // success yields a value; of which type is the board's configuration
    return *value && g_variant_is_of_type(value->get(), type) ? kStatusOk : kStatusFailed;
}

gint32 property_read(OBJ_HANDLE object, const gchar *property, guint8 *value) {
    Variant holder;
    const gint32 ret = typed_read(object, property, G_VARIANT_TYPE_BYTE, &holder);
    if (ret == 0) {
        *value = g_variant_get_byte(holder.get());
    }
    return ret;
}

gint32 property_read(OBJ_HANDLE object, const gchar *property, guint32 *value) {
    Variant holder;
    const gint32 ret = typed_read(object, property, G_VARIANT_TYPE_UINT32, &holder);
    if (ret == 0) {
        *value = g_variant_get_uint32(holder.get());
    }
    return ret;
}

gint32 property_write(OBJ_HANDLE object, const gchar *property, guint8 value, DF_OPTIONS options) {
    return dfl_set_property_value(object, property, Variant::sink(g_variant_new_byte(value)).get(), options);
}

gint32 property_write(OBJ_HANDLE object, const gchar *property, gint32 value, DF_OPTIONS options) {
    return dfl_set_property_value(object, property, Variant::sink(g_variant_new_int32(value)).get(), options);
}

gint32 referenced_chip(OBJ_HANDLE item, const gchar *property, OBJ_HANDLE *chip) {
    const gint32 ret = dfl_get_referenced_object(item, property, chip);
    assert(ret != 0 || *chip != 0); // success names an object
    return ret;
}

bool name_in(const gchar *name, std::span<const std::string_view> names) {
    return name != nullptr && std::ranges::find(names, std::string_view(name)) != names.end();
}

const gchar *logged_name(OBJ_HANDLE object) {
    const gchar *name = dfl_get_object_name(object);
    return name != nullptr ? name : "(null)";
}

std::span<const guint8> variant_bytes(GVariant *value) {
    if (value == nullptr || !g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING)) {
        return {};
    }
    gsize count = 0;
    const auto *bytes = static_cast<const guint8 *>(g_variant_get_fixed_array(value, &count, sizeof(guint8)));
    return bytes != nullptr ? std::span(bytes, count) : std::span<const guint8>();
}

GVariant *new_byte_array(const guint8 *data, guint32 len) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data, len, sizeof(guint8));
}
