// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Bounds-checked memory functions after C11 Annex K: 0 on success; on a bad argument or a count over dest_max a
// non-zero status, and a valid destination is zeroed. Any thread.

#include <glib.h>
#include <stddef.h>

G_BEGIN_DECLS

/* Copies count bytes; the areas do not overlap. */
int memcpy_s(void *dest, size_t dest_max, const void *src, size_t count);
/* Sets count bytes to c. */
int memset_s(void *dest, size_t dest_max, int c, size_t count);

G_END_DECLS
