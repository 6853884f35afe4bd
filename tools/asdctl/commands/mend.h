// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// repair through the running service.

#include "context.h"

#include <string>

namespace asdctl {

// Without a name every item. from: "a", "b", "memory", or empty for the copy that is good. Returns the exit status;
// throws Failure.
[[nodiscard]] int repair_online(const Context &context, const std::string &name, const std::string &from, bool dry_run);

} // namespace asdctl
