// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_log.h"

#include "vos.h"

#include <array>
#include <cstdarg>

void maintenance_log(gint32 level, const gchar *file, gint32 line, const gchar *format, ...) {
    std::array<gchar, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    (void)g_vsnprintf(text.data(), text.size(), format, arguments); // a longer text is cut
    va_end(arguments);
    dbg_log(level, "%s(%d)(%lu): %s", file, line, vos_tick_get(), text.data());
}
