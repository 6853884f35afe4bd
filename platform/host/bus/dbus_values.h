// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a call on the bus comes back with, as plain data that may cross threads.

#include "bus_names.h"
#include "object_store.h"

#include <string>
#include <vector>

namespace asd_host {

struct CallResult {
    std::vector<PropertyValue> outputs;
    const char *error = nullptr; // one of bus_names.h; null: it succeeded
    std::string message;
};

[[nodiscard]] CallResult refusal(const char *error, std::string message);

// What a non-zero status of the module or the host is called, with its number and meaning.
[[nodiscard]] CallResult refusal_of(gint32 status);

} // namespace asd_host
