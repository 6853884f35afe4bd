// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The records that IPMI reads and writes in one message: their sizes, commands and texts, a row each. A new record is a
// row of kRecords, a line of ASD_RECORD_HANDLERS and its two commands in bmc_asd_main.cpp.

#include "platform_types.h"

#include <algorithm>
#include <array>
#include <string_view>

// The handlers of the records: the item, the read's name, the write's name. The names are interface.
// clang-format off
#define ASD_RECORD_HANDLERS(HANDLERS)                                                        \
    HANDLERS("ASD10", ipmi_cmd_get_mac, ipmi_cmd_set_mac)                                    \
    HANDLERS("ASD11", ipmi_cmd_get_sn, ipmi_cmd_set_sn)                                      \
    HANDLERS("ASD13", ipmi_cmd_get_model, ipmi_cmd_set_model)                                \
    HANDLERS("ASD14", ipmi_cmd_get_brand, ipmi_cmd_set_brand)                                \
    HANDLERS("ASD15", ipmi_cmd_get_vendor, ipmi_cmd_set_vendor)                              \
    HANDLERS("ASD20", ipmi_cmd_get_oem_model, ipmi_cmd_set_oem_model)                        \
    HANDLERS("ASD21", ipmi_cmd_get_logo, ipmi_cmd_set_logo)                                  \
    HANDLERS("ASD24", ipmi_cmd_get_baycfg, ipmi_cmd_set_baycfg)                              \
    HANDLERS("ASD26", ipmi_cmd_get_spec, ipmi_cmd_set_spec)                                  \
    HANDLERS("ASD27", ipmi_cmd_get_frameinfo, ipmi_cmd_set_frameinfo)                        \
    HANDLERS("ASD_PowerConfig", ipmi_cmd_get_powerconfig, ipmi_cmd_set_powerconfig)          \
    HANDLERS("ASD_IOCARD_PCIE4", ASD_IPMI_GetIocardPCIE4, ASD_IPMI_SetIocardPCIE4)           \
    HANDLERS("ASD_OVERSEAS", ipmi_cmd_get_overseas, ipmi_cmd_set_overseas)                   \
    HANDLERS("ASD_PRODUCT_FRAMECFG", Ipmi_cmdGetProductFrameCfg, Ipmi_cmdSetProductFrameCfg)
// clang-format on

// How a record is read, and what that logs. A text that is null is not logged.
struct RecordRead {
    const gchar *null_message = nullptr;
    const gchar *no_data = "get ipmi src data failed!";
    const gchar *leave = nullptr; // before the item's name, before a successful answer
    // Null: from Value when it is loaded, else from the chip. Else from Value on the master and as zeros on any other
    // board; the text names the buffer whose zeros could not be set.
    const gchar *zeros = nullptr;
    bool names_item = true;      // "user data is <item>" on entry
    bool refuses_erased = false; // a loaded record that is all 0xFF is not returned
};

// How a record is written, and what that logs. Unless said otherwise its bytes are stored from the payload's start,
// whatever the request's length; a short request stores the zeros behind it.
struct RecordWrite {
    const gchar *name = nullptr; // null: neither "Begin to set <name>." nor "Set <name> success."
    const gchar *null_message = nullptr;
    const gchar *no_data = "get ipmi src data failed!";
    const gchar *payload = nullptr; // before the payload as text, when the request has data
    const gchar *no_item = "Call dfl_get_object_handle failed! result: %d."; // the failure's status at %d
    const gchar *not_written = "Call asd_write_equip failed! result: %d.";   // the same
    const gchar *suffix = "";                                                // behind every failure's text
    const gchar *copy = nullptr;  // stored from a copy; the text names it when copying failed
    guint8 failed_code = 0xCE;    // when not written
    bool measured = false;        // 0xC9 for a payload of another size
    bool as_sent = false;         // stores the payload as long as it came
    bool chip_of_request = false; // stores on the one chip that the request's DeviceId names
};

// A command of a record; the filter is the stack's.
struct RecordCommand {
    guint8 number;
    const gchar *filter;
};

// The requests of the enclosure's records with a selector, whatever their FruId.
#define ASD_SELECTOR(selector) "data[1]=00h,data[2]=80h,data[4]=" selector "h"

struct Record {
    const gchar *item;
    guint8 size; // bytes
    RecordCommand get;
    RecordCommand set;
    guint8 privilege = 0;   // 0 anyone, 4 administrator
    bool short_set = false; // a write may carry less than the record
    guint8 longest_set = 0; // request data of the longest write; 0: head and record
    RecordRead read = {};
    RecordWrite write = {};
};

inline constexpr guint32 kRecordMax = 128;
inline constexpr guint32 kRecordCopyMax = 16;

// clang-format off
inline constexpr auto kRecords = std::to_array<Record>({
    {.item = "ASD10", .size = 6, .get = {0x16, ASD_SELECTOR("10")}, .set = {0x17, ASD_SELECTOR("10")},
     .read = {.refuses_erased = true},
     .write = {.name = "MAC", .suffix = " Set MAC fail."}},
    {.item = "ASD11", .size = 20, .get = {0x16, ASD_SELECTOR("11")}, .set = {0x17, ASD_SELECTOR("11")},
     .read = {.refuses_erased = true},
     .write = {.name = "SN", .suffix = " Set SN fail."}},
    {.item = "ASD13", .size = 16, .get = {0x16, ASD_SELECTOR("19")}, .set = {0x17, ASD_SELECTOR("19")}, .short_set = true,
     .read = {.leave = "Leave user data is ", .refuses_erased = true},
     .write = {.name = "Model", .suffix = " Set Model fail."}},
    {.item = "ASD14", .size = 32, .get = {0x16, ASD_SELECTOR("14")}, .set = {0x17, ASD_SELECTOR("14")}, .short_set = true,
     .read = {.null_message = "Get brand: input parameter is null.", .leave = "Leave user data is ", .refuses_erased = true},
     .write = {.name = "Brand", .suffix = " Set Brand fail."}},
    {.item = "ASD15", .size = 32, .get = {0x16, ASD_SELECTOR("13")}, .set = {0x17, ASD_SELECTOR("13")}, .short_set = true,
     .read = {.null_message = "Get vendor: input parameter is null.", .leave = "Leave user data is ", .refuses_erased = true},
     .write = {.name = "Vendor", .suffix = " Set Vendor fail."}},
    {.item = "ASD20", .size = 16, .get = {0x16, ASD_SELECTOR("1a")}, .set = {0x17, ASD_SELECTOR("1a")}, .short_set = true,
     .read = {.leave = "Leave user data is ", .refuses_erased = true},
     .write = {.name = "OEM Model", .suffix = " Set OEM Model fail."}},
    {.item = "ASD21", .size = 8, .get = {0x16, ASD_SELECTOR("15")}, .set = {0x17, ASD_SELECTOR("15")},
     .read = {.zeros = "logo"},
     .write = {.name = "Logo", .suffix = " Set Logo fail."}},
    {.item = "ASD24", .size = 128, .get = {0x92, "data[0]=00h,data[1]=00h,data[2]=80h"}, .set = {0x93, "data[0]=00h,data[1]=00h,data[2]=80h"}, .short_set = true, .longest_set = 229,
     .read = {.zeros = "bayconfig"},
     .write = {.name = "Baycfg", .suffix = " Set Baycfg fail.", .failed_code = 0xCA, .as_sent = true}},
    {.item = "ASD26", .size = 16, .get = {0x16, ASD_SELECTOR("1e")}, .set = {0x17, ASD_SELECTOR("1e")}, .short_set = true,
     .read = {.leave = "Leave user data is ", .zeros = "spec"},
     .write = {.name = "spec"}},
    {.item = "ASD27", .size = 32, .get = {0x16, ASD_SELECTOR("1f")}, .set = {0x17, ASD_SELECTOR("1f")}, .short_set = true,
     .read = {.leave = "Leave user data is ", .zeros = "frame"},
     .write = {.name = "FrameInfo"}},
    {.item = "ASD_PowerConfig", .size = 128, .get = {0xb4, ASD_SELECTOR("56")}, .set = {0xb5, ASD_SELECTOR("56")}, .short_set = true, .longest_set = 255,
     .read = {.no_data = "data pointer is null!", .leave = "Leave user data is ", .zeros = "config"},
     .write = {.no_data = "data pointer is null!", .payload = "Begin to set powerconfig, config is "}},
    {.item = "ASD_E2PWP", .size = 32, .get = {0xb4, ASD_SELECTOR("62")}, .set = {0xb5, ASD_SELECTOR("62")}, .short_set = true, .longest_set = 255,
     .write = {.no_data = "data pointer is null!", .payload = "Begin to set E2pwp, E2pwp is ",
               .not_written = "Call asd_write_equip_one failed! result: %d.", .chip_of_request = true}},
    {.item = "ASD_IOCARD_PCIE4", .size = 8, .get = {0xbb, ASD_SELECTOR("25")}, .set = {0xbc, ASD_SELECTOR("1e")}, .privilege = 4,
     .read = {.null_message = "Get backboard iocard pcie4.0 data failed, input parameter pointer is null.",
              .no_data = "Get backboard iocard pcie4.0 data failed(get ipmi src data failed)", .names_item = false},
     .write = {.no_data = "Set backboard iocard pcie4.0 data failed(get ipmi src data failed).",
               .no_item = "Set backboard iocard pcie4.0 data failed(Call dfl_get_object_handle failed, ret=%d).",
               .not_written = "Set backboard iocard pcie4.0 data failed(Call asd_write_equip failed,ret=%d).",
               .copy = "pcie4.0", .measured = true}},
    {.item = "ASD_OVERSEAS", .size = 16, .get = {0xbb, ASD_SELECTOR("36")}, .set = {0xbc, ASD_SELECTOR("36")},
     .read = {.null_message = "Get overseas flag, input parameter pointer is null.",
              .no_data = "Get overseas flag, get ipmi src data failed!", .leave = "Get overseas flag is ", .names_item = false},
     .write = {.null_message = "Set overseas flag, input parameter pointer is null.",
               .no_data = "Set overseas flag, get ipmi src data failed",
               .no_item = "Set overseas flag get handle failed(ret=%d)",
               .not_written = "Set overseas flag write eeprom failed(ret=%d).",
               .copy = "overseas", .failed_code = 0xFF}},
    {.item = "ASD_PRODUCT_FRAMECFG", .size = 16, .get = {0xbb, ASD_SELECTOR("5a")}, .set = {0xbc, ASD_SELECTOR("4c")},
     .read = {.null_message = "Get product frame cfg failed(input parameter is null)",
              .no_data = "Get product frame cfg failed(get ipmi src data failed)", .names_item = false},
     .write = {.null_message = "Set product frame cfg failed(input parameter is null)",
               .no_data = "Set product frame cfg failed(get ipmi src data failed)",
               .no_item = "Set product frame cfg failed(get handle failed ret=%d)",
               .not_written = "Set product frame cfg failed(write failed ret=%d)"}},
});
// clang-format on

static_assert(std::ranges::all_of(kRecords, [](const Record &record) {
    return record.size <= (record.write.copy != nullptr ? kRecordCopyMax : kRecordMax) &&
           std::ranges::count(kRecords, std::string_view(record.item),
                              [](const Record &other) { return std::string_view(other.item); }) == 1;
}));

// The row of an item. What takes it does not compile for an item that has none.
consteval std::size_t row_of(std::string_view item) {
    const auto *row =
        std::ranges::find(kRecords, item, [](const Record &record) { return std::string_view(record.item); });
    return static_cast<std::size_t>(row - kRecords.begin());
}
