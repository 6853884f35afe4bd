// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Between the object store's values and GVariants.

#include "object_store.h"

#include <glib.h>

namespace asd_host {

// A new floating value; null: a reference, which is no value of its own.
[[nodiscard]] GVariant *variant_of(const PropertyValue &value);
// The same as a reference that the caller releases.
[[nodiscard]] GVariant *held_variant_of(const PropertyValue &value);

// False: a type that no property has; *value is untouched.
[[nodiscard]] bool value_of(GVariant *variant, PropertyValue *value);

} // namespace asd_host
