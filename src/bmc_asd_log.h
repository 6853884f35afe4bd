// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// How the module logs. The texts are interface: other software and people search for them, so they stay as they are,
// misspellings included.

#include "debug_log.h"

#define ASD_LOG_ERROR(...) debug_log_func(0, __FILE_NAME__, __LINE__, __VA_ARGS__)
#define ASD_LOG_INFO(...) debug_log_func(1, __FILE_NAME__, __LINE__, __VA_ARGS__)
#define ASD_LOG_DEBUG(...) debug_log_func(2, __FILE_NAME__, __LINE__, __VA_ARGS__)

// A line of the maintenance log: "file(line)(tick): text", the text cut at 1023 bytes.
#define ASD_LOG_MAINTENANCE(level, ...) maintenance_log((level), __FILE_NAME__, __LINE__, __VA_ARGS__)

void maintenance_log(gint32 level, const gchar *file, gint32 line, const gchar *format, ...) G_GNUC_PRINTF(4, 5);
