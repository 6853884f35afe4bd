// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "record.h"

#include <algorithm>
#include <array>

#include <boost/crc.hpp>

namespace asdctl {

namespace {

// In the order of docs/record-format.md, which a test compares.
constexpr std::array<std::string_view, 18> kStrictChips = {"ASDDev5a",
                                                           "ASDDev5b",
                                                           "ASDDev21a",
                                                           "ASDDev21b",
                                                           "ASDDev24a",
                                                           "ASDDev25a",
                                                           "ASDDev26a",
                                                           "ASDDev27a",
                                                           "ASDDev52a",
                                                           "ASDDev52b",
                                                           "ASDDev53a",
                                                           "ASDDev53b",
                                                           "ASD_FrameLedRuleDeva",
                                                           "ASD_FrameLedRuleDevb",
                                                           "ASD_CCDBa",
                                                           "ASD_CCDBb",
                                                           "ASD_PRODUCT_CFGINFO_VALIDa",
                                                           "ASD_PRODUCT_CFGINFO_VALIDb"};

} // namespace

RecordCheck check_record(BytesView record) {
    const BytesView data = record.first(record.size() - kChecksumSize);
    boost::crc_optimal<16, 0x1021, 0x0000, 0xFFFF, false, false> crc;
    crc.process_bytes(data.data(), data.size());
    const BytesView behind = record.last(kChecksumSize);
    RecordCheck check;
    check.stored = static_cast<std::uint16_t>(behind[0] | behind[1] << 8U);
    check.computed = crc.checksum();
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
