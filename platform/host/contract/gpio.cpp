// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "gpio.h"

#include "host.h"
#include "status.h"

gint32 gpio_init(guint32 line, guint32 mode) {
    asd_host::Host *const platform = asd_host::host();
    return platform == nullptr ? asd_host::kUnsupported : platform->lines.init(line, mode);
}

gint32 gpio_write(guint32 line, guint32 level) {
    asd_host::Host *const platform = asd_host::host();
    return platform == nullptr ? asd_host::kUnsupported : platform->lines.write(line, level);
}
