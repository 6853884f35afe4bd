// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "record.h"

#include <algorithm>

namespace asdctl {

RecordCheck check_record(BytesView record) {
    RecordCheck check{.stored = stored_checksum(record), .computed = computed_checksum(record)};
    if (check.stored == check.computed) {
        check.state = RecordState::kGood;
    } else if (std::ranges::all_of(record, [](std::uint8_t byte) { return byte == 0xFF; })) {
        check.state = RecordState::kBlank;
    }
    return check;
}

std::string_view state_name(RecordState state) {
    switch (state) {
    case RecordState::kGood:
        return "good";
    case RecordState::kBlank:
        return "blank";
    case RecordState::kBad:
        break;
    }
    return "bad";
}

bool strict_chip(std::string_view name) {
    return std::ranges::find(kStrictChips, name) != kStrictChips.end();
}

} // namespace asdctl
