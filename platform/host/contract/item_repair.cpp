// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_repair.h"

#include "host.h"
#include "item_reload.h"
#include "known_items.h"
#include "module_call.h"
#include "module_registry.h"
#include "record_format.h"
#include "records.h"
#include "status.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

namespace asd_host {

namespace {

struct FoundCopy {
    gint32 status = 0;
    Bytes record; // data and checksum
    [[nodiscard]] bool good() const { return status == 0 && is_record(record); }
    [[nodiscard]] bool blank() const {
        return status == 0 && std::ranges::all_of(record, [](std::uint8_t byte) { return byte == 0xFF; });
    }
};

std::vector<FoundCopy> copies_of(const Host &platform, OBJ_HANDLE item, std::uint32_t length) {
    std::vector<FoundCopy> copies;
    for (std::size_t number = 0; number < kChipKeys.size(); ++number) {
        FoundCopy copy;
        copy.status = read_copy(platform, item, number, length, &copy.record);
        if (copy.status != kNoProperty) {
            copies.push_back(std::move(copy));
        }
    }
    return copies;
}

Repair refused(gint32 status, std::string why) {
    return {.source = RepairSource::kGood, .copies = 0, .status = status, .refusal = std::move(why)};
}

std::string trouble_of(const FoundCopy &copy) {
    return copy.status != 0 ? status_meaning(copy.status) : copy.blank() ? "it was never written" : "it is damaged";
}

// The value in memory, when it is one of the item's length.
std::optional<Bytes> memory_of(const Host &platform, OBJ_HANDLE item, std::uint32_t length) {
    PropertyValue ready;
    PropertyValue value;
    if (platform.objects.get(item, "Ready", &ready) != 0 || ready != PropertyValue(std::uint8_t{1}) ||
        platform.objects.get(item, "Value", &value) != 0) {
        return std::nullopt;
    }
    const auto *bytes = std::get_if<Bytes>(&value);
    return bytes == nullptr || bytes->size() != length ? std::nullopt : std::optional(*bytes);
}

// Chooses what is taken; what there is to say when nothing can be, or need be.
std::optional<Repair> choose(const std::vector<FoundCopy> &copies, RepairSource *from) {
    const auto good = std::ranges::count_if(copies, &FoundCopy::good);
    if (*from == RepairSource::kMemory) {
        return std::nullopt;
    }
    if (*from != RepairSource::kGood) {
        const auto number = static_cast<std::size_t>(*from);
        if (number >= copies.size()) {
            return refused(kBadArgument, "the item has no such copy");
        }
        return copies[number].good()
                   ? std::nullopt
                   : std::optional(refused(kNoRecord, "that copy cannot be taken: " + trouble_of(copies[number])));
    }
    if (good == 0) {
        if (std::ranges::all_of(copies, &FoundCopy::blank)) {
            return Repair(); // never written
        }
        return refused(kNoRecord, copies.size() == 1 ? "its only copy cannot be taken: " + trouble_of(copies.front())
                                                     : "neither copy can be taken");
    }
    if (good == 2 && copies[0].record != copies[1].record) {
        return refused(kBadArgument, "both copies are good and hold different values: say which one is to be kept");
    }
    *from = copies.front().good() ? RepairSource::kCopy0 : RepairSource::kCopy1;
    return std::nullopt;
}

// The module's write of all copies: of a pair without a flag the one that needs none.
gint32 write_through_module(const std::string &name, OBJ_HANDLE item, std::size_t copies, Bytes data) {
    const bool flagless = copies == 2 && !has_flag(name);
    const ModuleRegistry::Method *method =
        module_registry().method(kItemClass, flagless ? "EqWriteAtomStorageData" : "WriteAtomStorageData");
    if (method == nullptr) {
        return kUnsupported;
    }
    return write_status(call_method(*method, item, {std::move(data)}));
}

std::string not_written(const std::vector<FoundCopy> &after, const Bytes &data, gint32 status) {
    for (const FoundCopy &copy : after) {
        if (!copy.good() || !std::ranges::equal(data, std::span(copy.record).first(data.size()))) {
            return "a copy was not written: " +
                   (copy.status != 0 ? status_meaning(copy.status) : "it holds something else");
        }
    }
    return status == 0 ? std::string() : "the write was refused: " + status_meaning(status);
}

} // namespace

Repair repair_item(OBJ_HANDLE item, RepairSource from, bool dry_run) {
    const Host *platform = host();
    std::uint32_t length = 0;
    if (const gint32 status = platform == nullptr ? kBadArgument : item_length(*platform, item, &length); status != 0) {
        return refused(status, status_meaning(status));
    }
    const std::vector<FoundCopy> copies = copies_of(*platform, item, length);
    if (auto ended = choose(copies, &from)) {
        return *ended;
    }
    std::optional<Bytes> data = from == RepairSource::kMemory
                                    ? memory_of(*platform, item, length)
                                    : std::optional(copies[static_cast<std::size_t>(from)].record);
    if (!data) {
        return refused(kNoRecord, "there is no value in memory");
    }
    data->resize(length);
    Repair repair;
    repair.source = from;
    for (std::size_t number = 0; number < copies.size(); ++number) {
        const FoundCopy &copy = copies[number];
        if (!copy.good() || !std::ranges::equal(*data, std::span(copy.record).first(length))) {
            repair.copies |= static_cast<std::uint8_t>(1U << number);
        }
        if (copy.status != 0) {
            return refused(copy.status, "a copy cannot be reached: " + status_meaning(copy.status));
        }
    }
    if (repair.copies == 0) {
        return {};
    }
    if (dry_run) {
        return repair;
    }
    const gint32 status = write_through_module(*platform->objects.name_of(item), item, copies.size(), *data);
    repair.refusal = not_written(copies_of(*platform, item, length), *data, status);
    repair.status = repair.refusal.empty() ? 0 : status != 0 ? status : kStorageFailed;
    return repair;
}

} // namespace asd_host
