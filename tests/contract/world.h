// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A small enclosure on the platform under test: item "ASD14" (number 14, 4 bytes) on the pair "ASDDev14a", "ASDDev14b"
// at offset 32 of two parts of 256 bytes behind line 55; item "ASD7" (number 7, 4 bytes) on "ASDDev7" without a line;
// item "ASD1000" (number 100, 4 bytes) on "ASDDev1000" without a line, protected by its StgWp. All parts are erased.

#include "ipmi_stack.h"

#include <cstdint>
#include <vector>

namespace contract {

void world_start();

// A request with these data to the handler; the answer, completion code first.
std::vector<std::uint8_t> world_request(IPMI_CMD_FUNC handler, const std::vector<std::uint8_t> &data);

} // namespace contract
