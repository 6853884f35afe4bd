// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A record as it lies on a part: docs/record-format.md.

#include "bytes.h"
#include "record_format.h"

#include <string_view>

namespace asdctl {

enum class RecordState { kGood, kBlank, kBad };

struct RecordCheck {
    std::uint16_t stored = 0;
    std::uint16_t computed = 0;
    RecordState state = RecordState::kBad;
};

// The verdict on a record, its two bytes of checksum included.
[[nodiscard]] RecordCheck check_record(BytesView record);

[[nodiscard]] std::string_view state_name(RecordState state); // "good", "blank", "bad"

// Whether a wrong checksum fails the service's reads of this chip. Of all other chips it delivers the bytes as they
// are.
[[nodiscard]] bool strict_chip(std::string_view name);

} // namespace asdctl
