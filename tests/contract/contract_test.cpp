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

// The property as text with its type, or "" when it cannot be read.
std::string read(OBJ_HANDLE handle, const char *property) {
    GVariant *value = nullptr;
    if (dfl_get_property_value(handle, property, &value) != 0) {
        return {};
    }
    const Value owned(value);
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_variant_print(value, TRUE), g_free);
    return text.get();
}

TEST_F(Contract, ObjectsHaveNamesPropertiesAndReferences) {
    const OBJ_HANDLE item = handle_of("ASD14");
    EXPECT_STREQ(dfl_get_object_name(item), "ASD14");
    struct Row {
        const char *property;
        const char *text;
    };
    for (const Row &row :
         {Row{"Online", "byte 0x01"}, Row{"DevCount", "uint32 2"}, Row{"Length", "uint32 4"}, Row{"Num", "byte 0x0e"},
          Row{"NeedSync", "byte 0x00"}, Row{"Ready", "byte 0x00"}, Row{"Value", "@ay []"}, Row{"Offset", ""}}) {
        EXPECT_EQ(read(item, row.property), row.text) << row.property;
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

TEST_F(Contract, StatesCanBeWrittenAndTheCallerKeepsItsValue) {
    const OBJ_HANDLE item = handle_of("ASD14");
    const std::array<guint8, 3> bytes = {1, 0, 0xFF};
    const Value value = sink(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
    EXPECT_EQ(dfl_set_property_value(item, "Value", value.get(), 0), 0);
    EXPECT_EQ(read(item, "Value"), "[byte 0x01, 0x00, 0xff]");
    EXPECT_EQ(g_variant_n_children(value.get()), 3U);
    const OBJ_HANDLE chip = handle_of("ASDDev1000");
    EXPECT_EQ(dfl_set_property_value(chip, "ErrorCode", sink(g_variant_new_int32(-5)).get(), 0), 0);
    EXPECT_EQ(read(chip, "ErrorCode"), "-5");
    EXPECT_EQ(dfl_set_property_value(chip, "StgWp", sink(g_variant_new_byte(0)).get(), 16), 0);
    EXPECT_EQ(read(chip, "StgWp"), "byte 0x00");
}

TEST_F(Contract, IterationVisitsAllInOrderAndGivesTheFirstFailure) {
    struct Visit {
        std::vector<std::string> names;
    } visit;
    const auto callback = [](OBJ_HANDLE handle, gpointer user_data) -> gint32 {
        auto &names = static_cast<Visit *>(user_data)->names;
        names.emplace_back(dfl_get_object_name(handle));
        return names.size() == 1 ? 0 : -static_cast<gint32>(names.size());
    };
    EXPECT_EQ(dfl_foreach_object("AtomStorageData", callback, &visit, 0), -2);
    EXPECT_EQ(visit.names, (std::vector<std::string>{"ASD14", "ASD7", "ASD1000"}));
    EXPECT_EQ(dfl_bind_object_alias(handle_of("ASD7"), 7), 0);
    OBJ_HANDLE bound = 0;
    EXPECT_EQ(dfl_get_binded_object("AtomStorageData", 7, &bound), 0);
    EXPECT_EQ(bound, handle_of("ASD7"));
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
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<guint8>(i + 77);
    }
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
    EXPECT_EQ(BSP_CalCrc8(0, digits.data(), 9), 0xF4);
    for (const guint32 length : {1U, 2U, 32U, 1024U, 8192U}) {
        EXPECT_NE(arith_make_crc_checksum(0, Bytes(length, 0x00).data(), length), 0x0000) << length;
        EXPECT_NE(arith_make_crc_checksum(0, Bytes(length, 0xFF).data(), length), 0xFFFF) << length;
    }
}

TEST_F(Contract, BoundedCopiesFailClosed) {
    std::array<guint8, 4> dest = {9, 9, 9, 9};
    const std::array<guint8, 5> src = {1, 2, 3, 4, 5};
    EXPECT_EQ(memcpy_s(dest.data(), 4, src.data(), 3), 0);
    EXPECT_EQ(dest, (std::array<guint8, 4>{1, 2, 3, 9}));
    EXPECT_EQ(memcpy_s(dest.data(), 4, src.data(), 0), 0);
    EXPECT_NE(memcpy_s(dest.data(), 4, src.data(), 5), 0);
    EXPECT_EQ(dest, (std::array<guint8, 4>{}));
    EXPECT_EQ(memset_s(dest.data(), 4, 0x1FF, 4), 0); // as unsigned char
    EXPECT_EQ(dest, (std::array<guint8, 4>{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_NE(memcpy_s(dest.data(), 4, nullptr, 1), 0);
    EXPECT_EQ(dest, (std::array<guint8, 4>{}));
    EXPECT_NE(memset_s(nullptr, 4, 0, 4), 0);
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

TEST_F(Contract, RequestsReachAHandlerOnlyWhenTheirRowFits) {
    static const std::array<IPMI_CMD_S, 1> kRows = {{{.netfn = 0x32,
                                                      .cmd = 0x16,
                                                      .filter = "data[1]=00h,data[2]=80h",
                                                      .privilege = 4,
                                                      .role_func = "",
                                                      .max_length = 255,
                                                      .min_length = 5,
                                                      .ipmi_handler = describe_request,
                                                      .user_data = nullptr}}};
    Bytes longest(255, 0x77);
    longest[1] = 0x00;
    longest[2] = 0x80;
    struct Row {
        const char *name;
        guint8 cmd;
        Bytes data;
        guint8 privilege;
        Bytes answer;
    };
    const std::vector<Row> rows = {
        {"fits", 0x16, {9, 0, 0x80, 9, 9}, 4, {0, 5, 1}},
        {"longest", 0x16, longest, 4, {0, 255, 1}},
        {"no such command", 0x17, {9, 0, 0x80, 9, 9}, 4, {0xC1}},
        {"filter does not match", 0x16, {9, 0, 0x81, 9, 9}, 4, {0xC1}},
        {"too short", 0x16, {9, 0, 0x80, 9}, 4, {0xC7}},
        {"privilege too low", 0x16, {9, 0, 0x80, 9, 9}, 3, {0xD4}},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(contract::world_request(kRows, row.cmd, row.data, row.privilege), row.answer) << row.name;
    }
}

} // namespace
