// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The sentences for a line that cannot be had.

#include "gpio_lines.h"

#include <cerrno>

#include <glib.h>

namespace asd_host {

std::string gpio_mistake(const GpioLineConfig &config, GpioStep step, int error, const char *consumer) {
    const std::string head = "write-protect line " + std::to_string(config.line) + ": ";
    const std::string chip = "the GPIO chip \"" + config.chip + "\"";
    const std::string place = config.offset ? std::to_string(*config.offset) : "\"" + config.name + "\"";
    const std::string reason = g_strerror(error);
    const bool denied = error == EACCES || error == EPERM;
    if (step == GpioStep::kOpenChip) {
        return head + chip + " cannot be opened: " + reason +
               (denied ? "; let the service's user read and write it" : "; gpiodetect lists the chips");
    }
    if (step == GpioStep::kFindLine) {
        return head + chip + " has no line " + place + ": " + reason + "; gpioinfo lists the lines";
    }
    if (error == EBUSY) {
        const bool named = consumer != nullptr && *consumer != '\0';
        return head + "line " + place + " of " + chip + " is held by " +
               (named ? "\"" + std::string(consumer) + "\"" : "another program or driver") +
               "; stop that, or name another line in GpioLines";
    }
    return head + "line " + place + " of " + chip + " cannot be driven: " + reason +
           (denied ? "; let the service's user read and write it" : "; it must be a line that can be an output");
}

} // namespace asd_host
