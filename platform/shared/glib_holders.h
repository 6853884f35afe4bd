// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Holders of what GLib wants given back.

#include "names.h"

#include <memory>

#include <glib.h>

namespace asd_shared {

template <auto Release>
struct Releaser {
    template <typename T>
    void operator()(T *held) const {
        Release(held);
    }
};

using VariantPtr = std::unique_ptr<GVariant, Releaser<g_variant_unref>>;
using TextPtr = std::unique_ptr<gchar, Releaser<g_free>>;

// Takes a floating value.
[[nodiscard]] inline VariantPtr sunk(GVariant *floating) {
    return VariantPtr(g_variant_ref_sink(floating));
}

} // namespace asd_shared
