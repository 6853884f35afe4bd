// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Text of unknown origin made fit for a log, a terminal or a message: printable UTF-8 stays, any other byte becomes
// \xHH.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace asd_host {

// Bytes of the printable UTF-8 character at the start of text, which is not empty; 0: none stands there (a control
// character, or no UTF-8).
[[nodiscard]] std::size_t printable_length(std::string_view text);

// Hands the printable form of text to add(std::string_view), piece by piece; allocates nothing.
template <typename Add>
void add_printable(std::string_view text, Add &&add) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    while (!text.empty()) {
        const std::size_t length = printable_length(text);
        if (length > 0) {
            add(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        const auto byte = static_cast<unsigned char>(text.front());
        const std::array<char, 4> escaped{'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
        add(std::string_view(escaped.data(), escaped.size()));
        text.remove_prefix(1);
    }
}

// The printable form of text. What is printable already stays as it is, so that twice is the same as once.
[[nodiscard]] std::string printable(std::string_view text);

} // namespace asd_host
