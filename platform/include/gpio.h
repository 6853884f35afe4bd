// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// General-purpose output lines, by number. Any thread; 0, or why the line could not be reached. They may block for
// their bus. A line keeps its level until the next write.

#include "platform_types.h"

G_BEGIN_DECLS

gint32 gpio_init(guint32 line, guint32 mode);   /* prepares a line; mode 1: output, its level as it was */
gint32 gpio_write(guint32 line, guint32 level); /* drives a prepared line; level 0 or 1 */

G_END_DECLS
