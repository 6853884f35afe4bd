// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "texts.h"

#include "bytes.h"
#include "status.h"

#include <algorithm>
#include <array>
#include <functional>
#include <string_view>

#include <glib.h>

namespace asdctl {

namespace {

struct CompletionRow {
    std::uint8_t code;
    std::string_view name;
};

// clang-format off
constexpr std::array kCompletions = {
    CompletionRow{.code = 0x00, .name = "completed normally"},
    CompletionRow{.code = 0xC0, .name = "node busy"},
    CompletionRow{.code = 0xC1, .name = "invalid command"},
    CompletionRow{.code = 0xC2, .name = "command invalid for this LUN"},
    CompletionRow{.code = 0xC3, .name = "timeout while processing the command"},
    CompletionRow{.code = 0xC4, .name = "out of space"},
    CompletionRow{.code = 0xC5, .name = "reservation cancelled or invalid"},
    CompletionRow{.code = 0xC6, .name = "request data truncated"},
    CompletionRow{.code = 0xC7, .name = "request data length invalid"},
    CompletionRow{.code = 0xC8, .name = "request data field length limit exceeded"},
    CompletionRow{.code = 0xC9, .name = "parameter out of range"},
    CompletionRow{.code = 0xCA, .name = "cannot return number of requested data bytes"},
    CompletionRow{.code = 0xCB, .name = "requested sensor, data or record not present"},
    CompletionRow{.code = 0xCC, .name = "invalid data field in request"},
    CompletionRow{.code = 0xCD, .name = "command illegal for this sensor or record type"},
    CompletionRow{.code = 0xCE, .name = "command response could not be provided"},
    CompletionRow{.code = 0xCF, .name = "cannot execute duplicated request"},
    CompletionRow{.code = 0xD0, .name = "SDR repository in update mode"},
    CompletionRow{.code = 0xD1, .name = "device in firmware update mode"},
    CompletionRow{.code = 0xD2, .name = "initialization in progress"},
    CompletionRow{.code = 0xD3, .name = "destination unavailable"},
    CompletionRow{.code = 0xD4, .name = "insufficient privilege level"},
    CompletionRow{.code = 0xD5, .name = "not supported in present state"},
    CompletionRow{.code = 0xD6, .name = "sub-function disabled or unavailable"},
    CompletionRow{.code = 0xFF, .name = "unspecified error"},
};
// clang-format on
static_assert(std::ranges::adjacent_find(kCompletions, std::ranges::greater_equal{}, &CompletionRow::code) ==
              kCompletions.end());

} // namespace

std::string status_text(std::int32_t status) {
    const std::string meaning = status_meaning(status);
    return std::to_string(status) + (meaning.empty() ? "" : ": " + meaning);
}

std::string completion_name(std::uint8_t code) {
    const auto *const row = std::ranges::find(kCompletions, code, &CompletionRow::code);
    if (row != kCompletions.end()) {
        return std::string(row->name);
    }
    if (code >= 0x80 && code <= 0xBE) {
        return "particular to the command";
    }
    return code >= 0x01 && code <= 0x7E ? "particular to the device" : "reserved";
}

// Letters to be changed, added, taken away or swapped with their neighbour between the two, whatever their case.
static std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::vector<std::size_t>> steps(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
    const auto same = [&](std::size_t i, std::size_t j) {
        return g_ascii_tolower(one[i - 1]) == g_ascii_tolower(other[j - 1]);
    };
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            steps[i][j] =
                std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + (same(i, j) ? 0U : 1U)});
            if (i > 1 && j > 1 && same(i, j - 1) && same(i - 1, j)) {
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
            }
        }
    }
    return steps.back().back();
}

std::string did_you_mean(std::string_view word, const std::vector<std::string> &names) {
    std::size_t least = 1 + word.size() / 4; // more would be another word
    std::string nearest;
    for (const std::string &name : names) {
        const bool begun = word.size() > 1 && name.starts_with(word);
        if (const std::size_t steps = begun ? 1 : distance(word, name); steps < least + (nearest.empty() ? 1 : 0)) {
            least = steps;
            nearest = name;
        }
    }
    return nearest.empty() ? "" : " Did you mean '" + nearest + "'?";
}

std::string completion_text(std::uint8_t code) {
    return "completion code " + hex_number(code, 2) + " (" + completion_name(code) + ")";
}

} // namespace asdctl
