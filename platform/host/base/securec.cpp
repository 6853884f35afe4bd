// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "securec.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

// A size above this is a negative number in disguise (RSIZE_MAX of C11 Annex K).
constexpr size_t kSizeMax = SIZE_MAX / 2;

// Fills so that the compiler may not leave it out, even when nobody reads the memory again.
void fill(void *dest, int c, size_t count) {
    std::memset(dest, c, count);
    __asm__ __volatile__("" : : "r"(dest) : "memory");
}

// The caller's mistake must not leave half-valid bytes behind.
[[nodiscard]] int refuse(void *dest, size_t dest_max, int status) {
    if (dest != nullptr && dest_max <= kSizeMax) {
        fill(dest, 0, dest_max);
    }
    return status;
}

bool overlap(const void *a, const void *b, size_t count) {
    const auto first = reinterpret_cast<std::uintptr_t>(a);
    const auto second = reinterpret_cast<std::uintptr_t>(b);
    return first < second ? second - first < count : first - second < count;
}

} // namespace

int memcpy_s(void *dest, size_t dest_max, const void *src, size_t count) {
    if (dest == nullptr || src == nullptr || dest_max > kSizeMax) {
        return refuse(dest, dest_max, EINVAL);
    }
    if (count > dest_max) {
        return refuse(dest, dest_max, ERANGE);
    }
    if (overlap(dest, src, count)) {
        return refuse(dest, dest_max, EINVAL);
    }
    std::memcpy(dest, src, count);
    return 0;
}

int memset_s(void *dest, size_t dest_max, int c, size_t count) {
    if (dest == nullptr || dest_max > kSizeMax) {
        return EINVAL;
    }
    if (count > dest_max) {
        return refuse(dest, dest_max, ERANGE);
    }
    fill(dest, c, count);
    return 0;
}
