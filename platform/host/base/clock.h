// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Time as the module sees it: real, or --time-scale times as fast.

#include <chrono>
#include <cstdint>

namespace asd_host {

void clock_set_scale(std::uint32_t scale); // called once before other threads exist

// How long a wait of that many of the module's milliseconds takes.
[[nodiscard]] std::chrono::nanoseconds clock_real(std::uint64_t milliseconds);

// The module's milliseconds since the machine booted; they run on while the machine sleeps.
[[nodiscard]] std::uint64_t clock_ticks();

} // namespace asd_host
