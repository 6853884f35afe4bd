// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the service manager is told, as sd_notify(3) describes it.

#include <string_view>

namespace asd_host {

// Sends a state such as "READY=1" to the socket that NOTIFY_SOCKET names; nothing without the variable. A manager that
// cannot be told within five seconds is logged. Any thread.
void manager_notify(std::string_view state);

} // namespace asd_host
