// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Checksums and bounds-checked memory: what every record and every copy of the module relies on.

#include "arith.h"
#include "board.h"
#include "securec.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(Checksum, KnownAnswers) {
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(arith_make_crc_checksum(0, digits.data(), 9), 0xCE3C);
    EXPECT_EQ(arith_make_crc_checksum(0xFFFF, digits.data(), 9), 0xD64E); // start is the register itself
    EXPECT_EQ(BSP_CalCrc8(0, digits.data(), 9), 0xF4);
    EXPECT_EQ(BSP_CalCrc8(0xFF, digits.data(), 9), 0xFB);
}

TEST(Checksum, NeitherZeroedNorErasedRecordsAreValid) {
    const Bytes zeros(8192, 0x00);
    const Bytes ones(8192, 0xFF);
    for (guint32 length = 1; length <= 8192; ++length) {
        ASSERT_NE(arith_make_crc_checksum(0, zeros.data(), length), 0x0000) << length;
        ASSERT_NE(arith_make_crc_checksum(0, ones.data(), length), 0xFFFF) << length;
    }
}

constexpr size_t kHuge = SIZE_MAX / 2 + 1;
constexpr int kNone = -1;

TEST(Securec, CopiesOrZeroesTheDestination) {
    // Places in one buffer of 16 bytes 1, 2, ...; the destination begins at 4.
    const struct {
        const char *name;
        int src;
        size_t dest_max;
        size_t count;
        const char *held; // by the buffer after the call
    } rows[] = {
        // clang-format off
        {"whole destination",   8,     4, 4,     "\1\2\3\4\x9\xA\xB\xC\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"nothing",             8,     4, 0,     "\1\2\3\4\5\6\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"too much",            8,     3, 4,     "\1\2\3\4\0\0\0\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"no source",           kNone, 3, 2,     "\1\2\3\4\0\0\0\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"negative count",      8,     2, kHuge, "\1\2\3\4\0\0\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"overlap from below",  3,     4, 2,     "\1\2\3\4\0\0\0\0\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"overlap from above",  5,     4, 2,     "\1\2\3\4\0\0\0\0\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"onto itself",         4,     4, 2,     "\1\2\3\4\0\0\0\0\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"just below",          2,     4, 2,     "\1\2\3\4\3\4\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"negative room",       8, kHuge, 2,     "\1\2\3\4\5\6\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        std::string buffer;
        for (int i = 1; i <= 16; ++i) {
            buffer += static_cast<char>(i);
        }
        const char *src = row.src == kNone ? nullptr : buffer.data() + row.src;
        const bool good =
            src != nullptr && row.count <= row.dest_max && row.dest_max < kHuge && (row.src >= 8 || row.src <= 2);
        EXPECT_EQ(memcpy_s(buffer.data() + 4, row.dest_max, src, row.count) == 0, good);
        EXPECT_EQ(buffer, std::string(row.held, 16));
    }
    EXPECT_NE(memcpy_s(nullptr, 4, "abcd", 4), 0);
}

TEST(Securec, FillsOrZeroesTheDestination) {
    std::string buffer = "abcdef";
    EXPECT_EQ(memset_s(buffer.data(), 5, 'x', 3), 0);
    EXPECT_EQ(buffer, "xxxdef");
    EXPECT_NE(memset_s(buffer.data(), 4, 'x', 5), 0);
    EXPECT_EQ(buffer, std::string("\0\0\0\0ef", 6));
    EXPECT_NE(memset_s(buffer.data(), kHuge, 'x', 1), 0);
    EXPECT_NE(memset_s(nullptr, 4, 'x', 1), 0);
    EXPECT_EQ(buffer, std::string("\0\0\0\0ef", 6));
}

} // namespace
