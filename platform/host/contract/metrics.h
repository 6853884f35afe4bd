// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The service's figures for monitoring: OpenMetrics 1.0 text. Names and units are in docs/asdctl.md.

#include <string>

namespace asd_host {

struct Host;

// As they are now; "# EOF" is the last line. Any thread; touches no chip.
[[nodiscard]] std::string metrics_text(Host &platform);

} // namespace asd_host
