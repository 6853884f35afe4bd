// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "printable.h"

namespace asd_host {

static bool is_continuation(std::string_view text, std::size_t index) {
    return index < text.size() && (static_cast<unsigned char>(text[index]) & 0xC0U) == 0x80U;
}

std::size_t printable_length(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    if (first < 0xC2 || first > 0xF4 || !is_continuation(text, 1)) {
        return 0;
    }
    const auto second = static_cast<unsigned char>(text[1]);
    if (first < 0xE0) {
        return first == 0xC2 && second < 0xA0 ? 0 : 2; // U+0080 to U+009F are control characters too
    }
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool no_character = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    if (overlong || no_character || !is_continuation(text, 2)) {
        return 0;
    }
    if (first < 0xF0) {
        return 3;
    }
    return is_continuation(text, 3) ? 4 : 0;
}

std::string printable(std::string_view text) {
    std::string result;
    add_printable(text, [&result](std::string_view piece) { result += piece; });
    return result;
}

} // namespace asd_host
