// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What this room declares is used by both programs without a prefix.

namespace asd_shared {}

namespace asd_host {
using namespace asd_shared;
}

namespace asdctl {
using namespace asd_shared;
}
