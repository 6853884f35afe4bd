// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "inventory.h"

#include "fru_image.h"
#include "host.h"
#include "ipmi_registry.h"
#include "printable.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <utility>

namespace asd_host {
namespace {

constexpr std::uint8_t kAppNetfn = 0x06;
constexpr std::uint8_t kStorageNetfn = 0x0A;
constexpr std::uint8_t kUser = 2; // privilege levels, as IPMI 2.0, table G-1 asks for
constexpr std::uint8_t kOperator = 3;
constexpr std::uint8_t kOnlyFru = 0;
constexpr std::uint8_t kEnglish = 25;
constexpr std::size_t kFruReadLimit = 240; // bytes of one answer: a bridge of SSIF carries 251
constexpr std::uint16_t kLastRecord = 0xFFFF;
constexpr std::uint8_t kSelfTestPassed = 0x55;
constexpr std::uint8_t kSelfTestFailed = 0x57;
constexpr std::uint8_t kNoAccessToFru = 0x20;
constexpr std::string_view kLocatorName = "Enclosure";

// ---- Texts ----

bool is_all(std::span<const std::uint8_t> bytes, std::uint8_t value) {
    return std::ranges::all_of(bytes, [value](std::uint8_t byte) { return byte == value; });
}

std::string in_hex(std::span<const std::uint8_t> bytes, std::string_view between) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text.append(text.empty() ? "" : between);
        text.push_back(kDigits[byte >> 4U]);
        text.push_back(kDigits[byte & 0xFU]);
    }
    return text;
}

std::string in_letters(std::span<const std::uint8_t> bytes) {
    std::string text(bytes.begin(), bytes.end());
    while (!text.empty() && (text.back() == '\0' || text.back() == ' ' || text.back() == '\xFF')) {
        text.pop_back();
    }
    return printable(text);
}

std::string field_text(const InventoryField &field, std::span<const std::uint8_t> bytes) {
    if (is_all(bytes, 0xFF)) {
        return {};
    }
    if (field.format == "text") {
        return in_letters(bytes);
    }
    return in_hex(bytes, field.format == "mac" ? ":" : "");
}

// Empty: the item has none that holds.
Bytes ready_value(const Host &platform, const std::string &item) {
    const auto object = platform.objects.find(item);
    PropertyValue ready;
    PropertyValue value;
    if (!object || platform.objects.get(*object, "Ready", &ready) != 0 || ready != PropertyValue(std::uint8_t{1}) ||
        platform.objects.get(*object, "Value", &value) != 0 || !std::holds_alternative<Bytes>(value)) {
        return {};
    }
    return std::get<Bytes>(std::move(value));
}

// All that is configured, in the file's order.
template <typename Visit>
void for_each_field(const Host &platform, Visit visit) {
    if (!platform.enclosure.inventory) {
        return;
    }
    for (const auto &area : platform.enclosure.inventory->areas) {
        if (area) {
            std::ranges::for_each(area->fields, visit);
            std::ranges::for_each(area->custom, visit);
        }
    }
    visit(platform.enclosure.inventory->guid);
}

// ---- What is answered ----

FruArea fru_area(const Host &platform, std::size_t index, const InventoryArea &area) {
    FruArea content;
    switch (index) {
    case kChassisArea:
        content.head = {area.chassis_type};
        break;
    case kBoardArea:
        content.head = {kEnglish, 0, 0, 0}; // the time of manufacturing is unknown
        break;
    default:
        content.head = {kEnglish};
        break;
    }
    const auto add = [&](const InventoryField &field) { content.fields.push_back(inventory_text(platform, field)); };
    std::ranges::for_each(area.fields, add);
    std::ranges::for_each(area.custom, add);
    return content;
}

std::vector<std::uint8_t> image_of(const Host &platform) {
    std::array<std::optional<FruArea>, kInventoryAreas> areas;
    for (std::size_t i = 0; i < areas.size(); ++i) {
        if (const auto &area = platform.enclosure.inventory->areas[i]) {
            areas[i] = fru_area(platform, i, *area);
        }
    }
    return fru_image(areas);
}

// Null: there is no inventory, or the platform does not run.
const Host *host_with_inventory() {
    const Host *const platform = host();
    return platform != nullptr && platform->enclosure.inventory ? platform : nullptr;
}

std::uint16_t number_at(const guint8 *bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8U);
}

gint32 answer_with(const IPMI_MSG_S *message, std::vector<std::uint8_t> head, std::span<const std::uint8_t> data = {}) {
    head.insert(head.begin(), kCompleted);
    head.insert(head.end(), data.begin(), data.end());
    return ipmi_send_response(message, static_cast<guint32>(std::uint64_t{head.size()}), head.data());
}

gint32 answer_fru_info(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const Host *const platform = host_with_inventory();
    if (platform == nullptr || message->data[0] != kOnlyFru) {
        return ipmi_send_simple_response(message, kDataAbsent);
    }
    const std::size_t size = image_of(*platform).size();
    return answer_with(message, {static_cast<std::uint8_t>(size & 0xFFU), static_cast<std::uint8_t>(size >> 8U), 0});
}

gint32 answer_fru_read(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const guint8 *const request = message->data;
    const Host *const platform = host_with_inventory();
    if (platform == nullptr || request[0] != kOnlyFru) {
        return ipmi_send_simple_response(message, kDataAbsent);
    }
    const std::vector<std::uint8_t> image = image_of(*platform);
    const std::size_t offset = number_at(request + 1);
    const std::size_t count = request[3];
    if (offset >= image.size() || count == 0) {
        return ipmi_send_simple_response(message, kOutOfRange);
    }
    const auto data = std::span(image).subspan(offset).first(std::min({count, image.size() - offset, kFruReadLimit}));
    return answer_with(message, {static_cast<std::uint8_t>(data.size())}, data);
}

// Who wants to change it sets the items.
gint32 answer_fru_write(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const bool here = host_with_inventory() != nullptr && message->data[0] == kOnlyFru;
    return ipmi_send_simple_response(message, here ? kWriteProtected : kDataAbsent);
}

// ---- The SDR repository: the one record that leads to the inventory ----

// A new reservation ends the one before. Relaxed: it guards nothing, the record never changes.
std::atomic<std::uint16_t> reservation{0};

gint32 answer_sdr_info(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    constexpr std::uint8_t kVersion = 0x51;
    constexpr std::uint8_t kReserves = 0x02;
    const std::uint8_t records = host_with_inventory() != nullptr ? 1 : 0;
    // No space is free; it was never filled nor erased at a time that is known.
    return answer_with(message, {kVersion, records, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, kReserves});
}

gint32 answer_sdr_reserve(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    std::uint16_t number = 0;
    while (number == 0) { // which stands for none
        number = static_cast<std::uint16_t>(reservation.fetch_add(1, std::memory_order_relaxed) + 1);
    }
    return answer_with(message, {static_cast<std::uint8_t>(number & 0xFFU), static_cast<std::uint8_t>(number >> 8U)});
}

gint32 answer_sdr(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const guint8 *const request = message->data;
    const std::uint16_t number = number_at(request + 2); // 0: the first one
    if (host_with_inventory() == nullptr || (number != 0 && number != kFruRecord && number != kLastRecord)) {
        return ipmi_send_simple_response(message, kDataAbsent);
    }
    const std::size_t offset = request[4];
    if (offset != 0 && number_at(request) != reservation.load(std::memory_order_relaxed)) {
        return ipmi_send_simple_response(message, kReservationLost);
    }
    const std::vector<std::uint8_t> record = fru_locator(kLocatorName);
    const std::size_t count = request[5];
    if (offset >= record.size() || count == 0) {
        return ipmi_send_simple_response(message, kOutOfRange);
    }
    return answer_with(message, {kLastRecord & 0xFFU, kLastRecord >> 8U},
                       std::span(record).subspan(offset).first(std::min(count, record.size() - offset)));
}

// ---- Identifiers and self test ----

gint32 answer_guid(const IPMI_MSG_S *message, bool of_device) {
    const Host *const platform = host_with_inventory();
    const std::string value = platform == nullptr ? "" : inventory_text(*platform, platform->enclosure.inventory->guid);
    if (value.empty()) {
        return ipmi_send_simple_response(message, kDataAbsent);
    }
    const std::string what = of_device ? "controller " + std::to_string(platform->options.slot) : "enclosure";
    return answer_with(message, {}, guid_of(what, value));
}

gint32 answer_device_guid(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    return answer_guid(message, true);
}

gint32 answer_system_guid(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    return answer_guid(message, false);
}

// Its value may still be in memory.
bool is_lost(const Host &platform, OBJ_HANDLE item) {
    const auto condition = platform.lookout.condition_of(item);
    return condition == Condition::kUnreachable || condition == Condition::kCorrupt;
}

gint32 answer_self_test(const IPMI_MSG_S *message, gconstpointer /*user_data*/) {
    const Host *const platform = host_with_inventory();
    const bool lost = platform != nullptr && std::ranges::any_of(inventory_items(*platform), [&](OBJ_HANDLE item) {
                          return is_lost(*platform, item);
                      });
    return answer_with(message, {lost ? kSelfTestFailed : kSelfTestPassed, lost ? kNoAccessToFru : std::uint8_t{0}});
}

constexpr IPMI_CMD_S standard_row(guint8 netfn, guint8 cmd, guint8 privilege, guint8 least, guint8 most,
                                  decltype(IPMI_CMD_S::ipmi_handler) handler) {
    return {.netfn = netfn,
            .cmd = cmd,
            .filter = "",
            .privilege = privilege,
            .role_func = "",
            .max_length = most,
            .min_length = least,
            .ipmi_handler = handler,
            .user_data = nullptr};
}

} // namespace

std::string inventory_text(const Host &platform, const InventoryField &field) {
    if (field.item.empty()) {
        return printable(field.text);
    }
    const Bytes value = ready_value(platform, field.item);
    if (value.size() <= field.offset) {
        return {};
    }
    const auto bytes = std::span(value).subspan(field.offset);
    const std::string text = field_text(field, bytes.first(std::min<std::size_t>(bytes.size(), field.length)));
    return text.empty() ? text : printable(field.text) + text;
}

std::string inventory_text(const Host &platform, std::string_view key, std::span<const InventoryAreaIndex> areas) {
    for (const InventoryAreaIndex index : areas) {
        const auto keys = area_fields(index);
        const auto found = std::ranges::find(keys, key);
        const auto &area = platform.enclosure.inventory->areas[index];
        if (!area || found == keys.end()) {
            continue;
        }
        std::string text = inventory_text(platform, area->fields[static_cast<std::size_t>(found - keys.begin())]);
        if (!text.empty()) {
            return text;
        }
    }
    return {};
}

std::set<OBJ_HANDLE> inventory_items(const Host &platform) {
    std::set<OBJ_HANDLE> items;
    for_each_field(platform, [&](const InventoryField &field) {
        if (const auto item = platform.objects.find(field.item)) {
            items.insert(*item);
        }
    });
    return items;
}

std::span<const IPMI_CMD_S> inventory_commands() {
    // clang-format off
    static constexpr std::array<IPMI_CMD_S, 9> kRows{{
        standard_row(kAppNetfn,     0x04, kUser,     0, 0,   answer_self_test),
        standard_row(kAppNetfn,     0x08, kUser,     0, 0,   answer_device_guid),
        standard_row(kAppNetfn,     0x37, 0,         0, 0,   answer_system_guid),
        standard_row(kStorageNetfn, 0x10, kUser,     1, 1,   answer_fru_info),
        standard_row(kStorageNetfn, 0x11, kUser,     4, 4,   answer_fru_read),
        standard_row(kStorageNetfn, 0x12, kOperator, 3, 255, answer_fru_write),
        standard_row(kStorageNetfn, 0x20, kUser,     0, 0,   answer_sdr_info),
        standard_row(kStorageNetfn, 0x22, kUser,     0, 0,   answer_sdr_reserve),
        standard_row(kStorageNetfn, 0x23, kUser,     6, 6,   answer_sdr),
    }};
    // clang-format on
    return kRows;
}

} // namespace asd_host
