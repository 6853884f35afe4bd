// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an enclosure file may say, but its writer will hardly have meant.

#include "enclosure.h"

#include <string>
#include <vector>

namespace asd_host {

// A sentence each: which part, chip or item, what comes of it, and what would be better. Empty: nothing is doubtful.
[[nodiscard]] std::vector<std::string> doubts_about(const Enclosure &enclosure);

} // namespace asd_host
