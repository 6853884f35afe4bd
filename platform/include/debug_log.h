// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The debug log and the maintenance log. Levels: 0 error, 1 information, 2 debug. Any thread, before the registration
// too; a line may be longer than 1000 bytes and end in CR LF. They have no failure and call nothing back.

#include "platform_types.h"

G_BEGIN_DECLS

/* A line of the debug log; file is the source file's bare name. */
void debug_log_func(gint32 level, const gchar *file, gint32 line, const gchar *format, ...) G_GNUC_PRINTF(4, 5);

/* A maintenance line is dbg_log(level, "%s(%d)(%lu): %s", file_name, line, tick, text). */
void dbg_log(gint32 level, const gchar *format, ...) G_GNUC_PRINTF(2, 3);

G_END_DECLS
