// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Properties, values and names: what every file of the module reads and writes objects with. Keeps no state; any
// thread.

#include "bmc_asd.h"
#include "bmc_asd_holders.h"

#include <span>
#include <string_view>

// Reads a property of the given type into *value: 0, the framework's status, or kStatusFailed when it holds another
// type. *value is untouched on failure.
[[nodiscard]] gint32 property_read(OBJ_HANDLE object, const gchar *property, guint8 *value);
[[nodiscard]] gint32 property_read(OBJ_HANDLE object, const gchar *property, guint32 *value);

// Writes a property. 0 or the framework's status.
[[nodiscard]] gint32 property_write(OBJ_HANDLE object, const gchar *property, guint8 value, DF_OPTIONS options);
[[nodiscard]] gint32 property_write(OBJ_HANDLE object, const gchar *property, gint32 value, DF_OPTIONS options);

// The object that a reference property names, in *chip: 0, or the framework's status with *chip untouched.
[[nodiscard]] gint32 referenced_chip(OBJ_HANDLE item, const gchar *property, OBJ_HANDLE *chip);

// True when name is one of the names; a null name is none of them.
[[nodiscard]] bool name_in(const gchar *name, std::span<const std::string_view> names);

// The object's name for a log line; a text also when it has none, because not every log survives a null one.
[[nodiscard]] const gchar *logged_name(OBJ_HANDLE object);

// The bytes of an "ay" value, which live as long as the value; empty when it is null, of another type or holds no byte.
[[nodiscard]] std::span<const guint8> variant_bytes(GVariant *value);

// A new, floating "ay" value with a copy of the bytes; null when it could not be built.
[[nodiscard]] GVariant *new_byte_array(const guint8 *data, guint32 len);
