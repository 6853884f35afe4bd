// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// General-purpose output lines.

#include "platform_types.h"

G_BEGIN_DECLS

gint32 gpio_init(guint32 line, guint32 mode); /* mode 1: output */
gint32 gpio_write(guint32 line, guint32 level);

G_END_DECLS
