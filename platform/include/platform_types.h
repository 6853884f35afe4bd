// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Types that every platform service shares.

#include <glib.h>

G_BEGIN_DECLS

typedef gint32 OBJ_HANDLE;  /* an object of the object framework; 0: none */
typedef guint32 DF_OPTIONS; /* options of a property write; passed on to the framework */
typedef guint8 UINT8;
typedef guint32 UINT32;
typedef gint32 INT32;
typedef gint32 BOOL;

G_END_DECLS
