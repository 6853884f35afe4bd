// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "property_variant.h"

#include <array>
#include <memory>
#include <variant>

namespace asd_host {

namespace {

// Trusted: any bytes are an array of bytes. g_variant_new_fixed_array would make the array's type anew each time.
GVariant *bytes_variant(const Bytes &bytes) {
    GBytes *const copy = g_bytes_new(bytes.data(), bytes.size());
    GVariant *const variant = g_variant_new_from_bytes(G_VARIANT_TYPE_BYTESTRING, copy, TRUE);
    g_bytes_unref(copy);
    return variant;
}

} // namespace

GVariant *variant_of(const PropertyValue &value) {
    if (const auto *byte = std::get_if<std::uint8_t>(&value)) {
        return g_variant_new_byte(*byte);
    }
    if (const auto *word = std::get_if<std::uint32_t>(&value)) {
        return g_variant_new_uint32(*word);
    }
    if (const auto *number = std::get_if<std::int32_t>(&value)) {
        return g_variant_new_int32(*number);
    }
    if (const auto *bytes = std::get_if<Bytes>(&value)) {
        // GLib describes an array's type to itself, and forgets that with the last such array: there always is this
        // one.
        static const std::unique_ptr<GVariant, void (*)(GVariant *)> kLast(g_variant_ref_sink(bytes_variant({})),
                                                                           g_variant_unref);
        return bytes_variant(*bytes);
    }
    if (const auto *text = std::get_if<std::string>(&value)) {
        return g_variant_new_string(text->c_str());
    }
    return nullptr;
}

// A flag takes three allocations, and a request reads two to find its record: there is one of each for all readers.
// Neither is ever freed, so that ThreadSanitizer, which does not see GLib count references, has nothing to find.
GVariant *held_variant_of(const PropertyValue &value) {
    static const std::array<GVariant *, 2> kFlags = {g_variant_ref_sink(g_variant_new_byte(0)),
                                                     g_variant_ref_sink(g_variant_new_byte(1))};
    if (const auto *byte = std::get_if<std::uint8_t>(&value); byte != nullptr && *byte < kFlags.size()) {
        return g_variant_ref(kFlags[*byte]);
    }
    GVariant *const variant = variant_of(value);
    return variant == nullptr ? nullptr : g_variant_ref_sink(variant);
}

bool value_of(GVariant *variant, PropertyValue *value) {
    if (g_variant_is_of_type(variant, G_VARIANT_TYPE_BYTE) != 0) {
        value->emplace<std::uint8_t>(g_variant_get_byte(variant));
        return true;
    }
    if (g_variant_is_of_type(variant, G_VARIANT_TYPE_UINT32) != 0) {
        value->emplace<std::uint32_t>(g_variant_get_uint32(variant));
        return true;
    }
    if (g_variant_is_of_type(variant, G_VARIANT_TYPE_INT32) != 0) {
        value->emplace<std::int32_t>(g_variant_get_int32(variant));
        return true;
    }
    if (g_variant_is_of_type(variant, G_VARIANT_TYPE_BYTESTRING) != 0) {
        gsize count = 0;
        const auto *bytes = static_cast<const guint8 *>(g_variant_get_fixed_array(variant, &count, 1));
        auto &held = value->emplace<Bytes>();
        if (count != 0) {
            held.assign(bytes, bytes + count);
        }
        return true;
    }
    return false;
}

} // namespace asd_host
