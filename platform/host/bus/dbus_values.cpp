// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_values.h"

#include "status.h"

#include <utility>

namespace asd_host {

CallResult refusal(const char *error, std::string message) {
    return {.outputs = {}, .error = error, .message = std::move(message)};
}

CallResult refusal_of(gint32 status) {
    const std::string meaning = status_meaning(status);
    return refusal(status_error(status), "status " + std::to_string(status) + (meaning.empty() ? "" : ": " + meaning));
}

} // namespace asd_host
