// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The IPMI commands that the platform answers itself: Get Device ID (IPMI 2.0, section 20.1).

#include "ipmi_stack.h"

#include <span>

namespace asd_host {

// Their rows, in static storage.
[[nodiscard]] std::span<const IPMI_CMD_S> standard_commands();

} // namespace asd_host
