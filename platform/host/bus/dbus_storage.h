// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The methods of the service itself on the bus.

#include "dbus_values.h"
#include "host.h"

#include <functional>
#include <string_view>

#include <glib.h>

namespace asd_host {

// What a method of the service does, ready to run on any thread but the bus thread, for it waits for chips; arguments
// have the method's types. Null: there is no such method.
[[nodiscard]] std::function<CallResult()> storage_call(Host &platform, std::string_view method, GVariant *arguments);

} // namespace asd_host
