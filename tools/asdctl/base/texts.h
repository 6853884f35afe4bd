// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the numbers mean that the service and its IPMI commands answer with.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace asdctl {

// "-1007: the item is not online"; the errno of a chip transfer by its name; an unknown status as its number alone.
[[nodiscard]] std::string status_text(std::int32_t status);

// The name of an IPMI completion code (IPMI 2.0, table 5-2).
[[nodiscard]] std::string completion_name(std::uint8_t code);

// "completion code 0xC7 (request data length invalid)"
[[nodiscard]] std::string completion_text(std::uint8_t code);

// " Did you mean 'list'?" when one of the names is so much like the word that it was meant; else nothing.
[[nodiscard]] std::string did_you_mean(std::string_view word, const std::vector<std::string> &names);

} // namespace asdctl
