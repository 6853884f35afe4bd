// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The enclosure's state as one page of HTML that needs nothing else: no network, no scripts.

#include "inspection.h"

#include <string>
#include <vector>

namespace asdctl {

struct PageFacts {
    const EnclosurePlan &enclosure;
    const std::vector<LoadedPart> &parts;
    Json status; // of 'asdctl status --json'; null: no service answers
    std::string when;
    std::string on_parts; // options that make a command work on these parts; empty: the service does
};

[[nodiscard]] std::string page_of(const PageFacts &facts);

} // namespace asdctl
