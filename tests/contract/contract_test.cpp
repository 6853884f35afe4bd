// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What the module relies on, whatever platform is below it. Statuses other than 0 are each platform's own.

#include "arith.h"
#include "board.h"
#include "gpio.h"
#include "object_frame.h"
#include "securec.h"
#include "vos.h"
#include "world.h"

#include <array>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<guint8>;

class Contract : public testing::Test {
protected:
    void SetUp() override { contract::world_start(); }
};

OBJ_HANDLE handle_of(const char *name) {
    OBJ_HANDLE handle = 0;
    EXPECT_EQ(dfl_get_object_handle(name, &handle), 0) << name;
    EXPECT_NE(handle, 0) << name;
    return handle;
}

struct Unref {
    void operator()(GVariant *value) const { g_variant_unref(value); }
};
using Value = std::unique_ptr<GVariant, Unref>;

Value sink(GVariant *value) {
    return Value(g_variant_ref_sink(value));
}

std::string text_of(GVariant *value) {
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_variant_print(value, TRUE), g_free);
    return text.get();
}

// The property as text with its type, or "" when it cannot be read.
std::string read(OBJ_HANDLE handle, const char *property) {
    GVariant *value = nullptr;
    return dfl_get_property_value(handle, property, &value) == 0 ? text_of(Value(value).get()) : "";
}

TEST_F(Contract, ObjectsHaveNamesPropertiesAndReferences) {
    const OBJ_HANDLE item = handle_of("ASD14");
    EXPECT_STREQ(dfl_get_object_name(item), "ASD14");
    const std::pair<const char *, const char *> rows[] = {
        {"Online", "byte 0x01"},    {"DevCount", "uint32 2"}, {"Length", "uint32 4"}, {"Num", "byte 0x0e"},
        {"NeedSync", "byte 0x00"},  {"Ready", "byte 0x00"},   {"Value", "@ay []"},    {"Offset", ""},
        {"AtomStorageDataDev0", ""}}; // a reference is no value
    for (const auto &[property, text] : rows) {
        EXPECT_EQ(read(item, property), text) << property;
    }
    OBJ_HANDLE chip = 0;
    EXPECT_EQ(dfl_get_referenced_object(item, "AtomStorageDataDev1", &chip), 0);
    EXPECT_EQ(chip, handle_of("ASDDev14b"));
    EXPECT_EQ(read(chip, "Offset"), "uint32 32");
    guint8 byte = 77;
    EXPECT_EQ(dfl_get_property_ubyte(item, "Num", &byte), 0);
    EXPECT_EQ(byte, 14);
}

TEST_F(Contract, WhatIsNotThereIsRefusedAndOutputsStay) {
    const OBJ_HANDLE item = handle_of("ASD14");
    OBJ_HANDLE handle = 77;
    EXPECT_NE(dfl_get_object_handle("asd14", &handle), 0); // names are compared exactly
    EXPECT_NE(dfl_get_object_handle("", &handle), 0);
    EXPECT_NE(dfl_get_referenced_object(item, "Length", &handle), 0);
    EXPECT_NE(dfl_get_referenced_object(item, "AtomStorageDataDev2", &handle), 0);
    EXPECT_NE(dfl_get_binded_object("AtomStorageData", 200, &handle), 0);
    EXPECT_EQ(handle, 77);
    for (const OBJ_HANDLE unknown : {0, -1, 12345}) {
        EXPECT_EQ(dfl_get_object_name(unknown), nullptr);
        EXPECT_EQ(read(unknown, "Length"), "");
    }
    guint8 byte = 77;
    EXPECT_NE(dfl_get_property_ubyte(item, "Length", &byte), 0); // of another type
    EXPECT_NE(dfl_get_property_ubyte(item, "Absent", &byte), 0);
    EXPECT_EQ(byte, 77);
}

TEST_F(Contract, OnlyStatesCanBeWrittenAndTheCallerKeepsItsValue) {
    const OBJ_HANDLE item = handle_of("ASD14");
    const OBJ_HANDLE chip = handle_of("ASDDev1000");
    const struct {
        OBJ_HANDLE object;
        const char *property, *written, *after; // the same when it is accepted
    } rows[] = {
        // clang-format off
        {item, "Value", "[byte 0x01, 0x00, 0xff]", "[byte 0x01, 0x00, 0xff]"},
        {item, "Value", "@ay []", "@ay []"},      {item, "Value", "'text'", "@ay []"},
        {item, "Ready", "uint32 1", "byte 0x00"}, {item, "Ready", "byte 0x01", "byte 0x01"},
        {item, "Num", "byte 0x02", "byte 0x0e"},  {item, "DevCount", "uint32 7", "uint32 2"},
        {chip, "ErrorCode", "-5", "-5"},          {chip, "StgWp", "byte 0x00", "byte 0x00"},
        {chip, "Offset", "uint32 9", "uint32 0"}, {chip, "Absent", "byte 0x01", ""}, {12345, "Ready", "byte 0x01", ""},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.property) + " = " + row.written);
        const Value value = sink(g_variant_new_parsed(row.written));
        EXPECT_EQ(dfl_set_property_value(row.object, row.property, value.get(), 16) == 0,
                  std::string_view(row.written) == row.after);
        EXPECT_EQ(text_of(value.get()), row.written);
        EXPECT_EQ(read(row.object, row.property), row.after);
    }
}

TEST_F(Contract, IterationVisitsAllInOrderAndGivesTheFirstFailure) {
    std::vector<std::string> visited;
    const auto callback = [](OBJ_HANDLE handle, gpointer user_data) -> gint32 {
        auto &names = *static_cast<std::vector<std::string> *>(user_data);
        names.emplace_back(dfl_get_object_name(handle));
        return names.size() == 1 ? 0 : -static_cast<gint32>(names.size());
    };
    EXPECT_EQ(dfl_foreach_object("AtomStorageData", callback, &visited, 0), -2);
    EXPECT_EQ(visited, (std::vector<std::string>{"ASD14", "ASD7", "ASD1000"}));
    EXPECT_EQ(dfl_foreach_object("Config9555", callback, &visited, 0), 0);
    EXPECT_EQ(dfl_bind_object_alias(handle_of("ASD7"), 7), 0);
    OBJ_HANDLE bound = 0;
    EXPECT_EQ(dfl_get_binded_object("AtomStorageData", 7, &bound), 0);
    EXPECT_EQ(bound, handle_of("ASD7"));
    EXPECT_EQ(dfl_bind_object_alias(handle_of("ASD14"), 7), 0);
    EXPECT_EQ(dfl_get_binded_object("AtomStorageData", 7, &bound), 0);
    EXPECT_EQ(bound, handle_of("ASD14")) << "the last binding wins";
    EXPECT_NE(dfl_bind_object_alias(12345, 7), 0);
    EXPECT_NE(dfl_get_binded_object("AtomStorageDataDev", 7, &bound), 0);
}

// A block as the part holds it.
Bytes block(const char *chip, guint32 offset, guint32 length) {
    Bytes bytes(length, 0x77);
    EXPECT_EQ(dfl_block_read(handle_of(chip), "StorageLoc", offset, length, bytes.data()), 0);
    return bytes;
}

gint32 write_block(const char *chip, guint32 offset, const Bytes &bytes) {
    return dfl_block_write(handle_of(chip), "StorageLoc", offset, static_cast<guint32>(bytes.size()), bytes.data());
}

TEST_F(Contract, BlocksAreKeptWholeAndNeighboursStay) {
    EXPECT_EQ(block("ASDDev7", 0, 256), Bytes(256, 0xFF));
    Bytes bytes(40);
    std::iota(bytes.begin(), bytes.end(), guint8{77});
    EXPECT_EQ(write_block("ASDDev7", 13, bytes), 0); // across page borders
    EXPECT_EQ(block("ASDDev7", 13, 40), bytes);
    EXPECT_EQ(block("ASDDev7", 0, 13), Bytes(13, 0xFF));
    EXPECT_EQ(block("ASDDev7", 53, 203), Bytes(203, 0xFF));
}

TEST_F(Contract, ImpossibleTransfersAreRefused) {
    const OBJ_HANDLE chip = handle_of("ASDDev7");
    Bytes bytes(16, 0x77);
    EXPECT_NE(dfl_block_read(chip, "StorageLoc", 241, 16, bytes.data()), 0);
    EXPECT_NE(dfl_block_read(chip, "StorageLoc", 0xFFFFFFFF, 16, bytes.data()), 0);
    EXPECT_NE(dfl_block_write(chip, "StorageLoc", 241, 16, bytes.data()), 0);
    EXPECT_NE(dfl_block_read(chip, "Value", 0, 16, bytes.data()), 0);
    EXPECT_NE(dfl_block_read(chip, nullptr, 0, 16, bytes.data()), 0);
    EXPECT_NE(dfl_block_read(chip, "StorageLoc", 0, 16, nullptr), 0);
    EXPECT_NE(dfl_block_read(12345, "StorageLoc", 0, 16, bytes.data()), 0);
    EXPECT_NE(dfl_block_write(handle_of("ASD7"), "StorageLoc", 0, 16, bytes.data()), 0);
    EXPECT_EQ(bytes, Bytes(16, 0x77));
    EXPECT_EQ(block("ASDDev7", 0, 256), Bytes(256, 0xFF));
}

// A part acknowledges what it must not store; the platform finds out.
TEST_F(Contract, AProtectedWriteIsNoSuccessAndStoresNothing) {
    const Bytes bytes = {1, 2, 3, 4};
    EXPECT_NE(write_block("ASDDev14a", 32, bytes), 0);
    EXPECT_EQ(block("ASDDev14a", 32, 4), Bytes(4, 0xFF));
    EXPECT_EQ(gpio_init(55, 1), 0);
    EXPECT_EQ(gpio_write(55, 1), 0);
    EXPECT_EQ(write_block("ASDDev14a", 32, bytes), 0);
    EXPECT_EQ(gpio_write(55, 0), 0);
    EXPECT_NE(write_block("ASDDev14a", 32, {5, 6, 7, 8}), 0);
    EXPECT_EQ(block("ASDDev14a", 32, 4), bytes);
}

TEST_F(Contract, StgWpProtectsItsOwnPart) {
    const OBJ_HANDLE chip = handle_of("ASDDev1000");
    EXPECT_EQ(dfl_set_property_value(chip, "StgWp", sink(g_variant_new_byte(1)).get(), 16), 0);
    EXPECT_NE(write_block("ASDDev1000", 0, {1, 2}), 0);
    EXPECT_EQ(block("ASDDev1000", 0, 2), Bytes(2, 0xFF));
    EXPECT_EQ(dfl_set_property_value(chip, "StgWp", sink(g_variant_new_byte(0)).get(), 16), 0);
    EXPECT_EQ(write_block("ASDDev1000", 0, {1, 2}), 0);
    EXPECT_EQ(block("ASDDev1000", 0, 2), (Bytes{1, 2}));
}

TEST_F(Contract, ChecksumsAreTheOnesOnEveryChip) {
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(arith_make_crc_checksum(0, digits.data(), 9), 0xCE3C);
    EXPECT_EQ(arith_make_crc_checksum(0xFFFF, digits.data(), 9), 0xD64E); // start is the register itself
    EXPECT_EQ(BSP_CalCrc8(0, digits.data(), 9), 0xF4);
    EXPECT_EQ(BSP_CalCrc8(0xFF, digits.data(), 9), 0xFB);
    for (const guint32 length : {1U, 2U, 32U, 1024U, 8192U}) {
        EXPECT_NE(arith_make_crc_checksum(0, Bytes(length, 0x00).data(), length), 0x0000) << length;
        EXPECT_NE(arith_make_crc_checksum(0, Bytes(length, 0xFF).data(), length), 0xFFFF) << length;
    }
}

// Places in one buffer of 16 bytes 1, 2, ...; the destination begins at 4. A refused copy zeroes it.
TEST_F(Contract, BoundedCopiesFailClosed) {
    constexpr int kNone = -1;
    const struct {
        const char *name;
        int src;
        size_t dest_max, count;
        bool good;
        const char *held; // by the buffer after the call
    } rows[] = {
        // clang-format off
        {"whole destination",   8,     4, 4, true,  "\1\2\3\4\x9\xA\xB\xC\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"nothing",             8,     4, 0, true,  "\1\2\3\4\5\6\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"just below",          2,     4, 2, true,  "\1\2\3\4\3\4\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"too much",            8,     3, 4, false, "\1\2\3\4\0\0\0\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"no source",           kNone, 3, 2, false, "\1\2\3\4\0\0\0\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"negative count", 8, 2, SIZE_MAX, false,   "\1\2\3\4\0\0\7\x8\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"overlap from below",  3,     4, 2, false, "\1\2\3\4\0\0\0\0\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"overlap from above",  5,     4, 2, false, "\1\2\3\4\0\0\0\0\x9\xA\xB\xC\xD\xE\xF\x10"},
        {"onto itself",         4,     4, 2, false, "\1\2\3\4\0\0\0\0\x9\xA\xB\xC\xD\xE\xF\x10"},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        std::string buffer(16, 0);
        std::iota(buffer.begin(), buffer.end(), char{1});
        const char *src = row.src == kNone ? nullptr : buffer.data() + row.src;
        EXPECT_EQ(memcpy_s(buffer.data() + 4, row.dest_max, src, row.count) == 0, row.good);
        EXPECT_EQ(buffer, std::string(row.held, 16));
    }
    EXPECT_NE(memcpy_s(nullptr, 4, "abcd", 4), 0);
    std::string buffer = "abcdef";
    EXPECT_EQ(memset_s(buffer.data(), 5, 0x100 + 'x', 3), 0); // as unsigned char
    EXPECT_EQ(buffer, "xxxdef");
    EXPECT_NE(memset_s(buffer.data(), 4, 'x', 5), 0);
    EXPECT_EQ(buffer, std::string("\0\0\0\0ef", 6));
    EXPECT_NE(memset_s(nullptr, 4, 'x', 1), 0);
}

TEST_F(Contract, SemaphoresExcludeAndTimeOut) {
    gulong semaphore = 0;
    ASSERT_EQ(vos_thread_mutex_sem4_create("ekey", &semaphore), 0);
    EXPECT_EQ(vos_thread_sem4_p(semaphore, 0), 0);
    EXPECT_NE(vos_thread_sem4_p(semaphore, 20), 0); // not even by its holder
    EXPECT_EQ(vos_thread_sem4_v(semaphore), 0);
    EXPECT_EQ(vos_thread_sem4_p(semaphore, 20), 0);
    EXPECT_EQ(vos_thread_sem4_v(semaphore), 0);
    EXPECT_EQ(vos_thread_sem4_delete(semaphore), 0);
}

TEST_F(Contract, BoardStatesAreThereFromTheStart) {
    EXPECT_EQ(BSP_Diff_Uint32(0xFFFFFFF0U, 0x10U), 0x20U); // across a wrap
    guint8 byte = 77;
    EXPECT_EQ(BSP_GetEquipMode(&byte), 0);
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(BSP_SetCpldRam(0xCFC1, 0xAA), 0);
    EXPECT_EQ(BSP_GetCpldRam(0xCFC1, &byte), 0);
    EXPECT_EQ(byte, 0xAA);
    byte = 77;
    EXPECT_NE(BMC_FlashReadCfgPara(0x11, 1, &byte), 0); // nothing was ever stored
    const guint8 model = 0x33;
    EXPECT_EQ(BMC_FlashWriteCfgPara(0x11, 1, &model), 0);
    EXPECT_EQ(BMC_FlashReadCfgPara(0x11, 1, &byte), 0);
    EXPECT_EQ(byte, 0x33);
    EXPECT_EQ(BSP_bPcieorsasModelValid(0x55), 1);
    EXPECT_NE(BSP_bPcieorsasModelValid(0x56), 1);
}

// Answers with the request's length and whether the 255-byte buffer is zero past it.
gint32 describe_request(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const guint8 *data = get_ipmi_src_data(message);
    const guint8 length = get_ipmi_src_data_len(message);
    guint8 zero = 1;
    for (guint32 i = length; i < 255; ++i) {
        zero = data[i] == 0 ? zero : guint8{0};
    }
    const std::array<guint8, 3> response = {0, length, zero};
    return ipmi_send_response(message, response.size(), response.data());
}

TEST_F(Contract, ARequestLiesInABufferOfZeros) {
    for (const guint8 length : Bytes{0, 5, 255}) {
        EXPECT_EQ(contract::world_request(describe_request, Bytes(length, 0x77)), (Bytes{0, length, 1}));
    }
}

} // namespace
