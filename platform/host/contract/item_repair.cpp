// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_repair.h"

#include "conditions.h"
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
    [[nodiscard]] bool blank() const { return status == 0 && is_blank(record); }
    [[nodiscard]] bool damaged() const { return status == 0 && !good() && !blank(); }
    [[nodiscard]] bool holds(const Bytes &data) const {
        return good() && std::ranges::equal(data, std::span(record).first(data.size()));
    }
};
using FoundCopies = std::vector<FoundCopy>;

FoundCopies copies_of(const Host &platform, OBJ_HANDLE item) {
    std::uint32_t length = 0;
    FoundCopies copies;
    if (item_length(platform, item, &length) != 0) {
        return copies;
    }
    for (std::size_t number = 0; number < kChipKeys.size(); ++number) {
        FoundCopy copy;
        copy.status = read_copy(platform, item, number, length, &copy.record);
        if (copy.status != kNoProperty) {
            copies.push_back(std::move(copy));
        }
    }
    return copies;
}

// ---- Check flags ----

// The flag's two copies; none: the pair has no flag, or it cannot be read.
FoundCopies flags_of(const Host &platform, OBJ_HANDLE item) {
    const KnownItem *known = flag_item(*platform.objects.name_of(item));
    const auto flag = known == nullptr ? std::nullopt : platform.objects.find(known->item);
    const FoundCopies flags = flag ? copies_of(platform, *flag) : FoundCopies();
    const bool read = std::ranges::all_of(flags, [](const FoundCopy &copy) { return copy.status == 0; });
    return read && flags.size() == 2 ? flags : FoundCopies();
}

std::optional<std::uint8_t> flag_byte(const FoundCopy &flag) {
    return flag.good() ? std::optional(flag.record.front()) : std::nullopt;
}

std::optional<std::size_t> trusted_by(const FoundCopies &flags) {
    return flags.empty() || std::ranges::any_of(flags, &FoundCopy::damaged)
               ? std::nullopt
               : written_alone(flag_byte(flags[0]), flag_byte(flags[1]));
}

// Whether the flags say what they should not when both copies are equal.
bool flags_mislead(const FoundCopies &flags) {
    return std::ranges::any_of(flags,
                               [](const FoundCopy &flag) { return flag.damaged() || flag_byte(flag) == kStoredAlone; });
}

// ---- What is taken ----

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

// Chooses what is taken where nobody has said it; what there is to say when nothing can be, or need be.
std::optional<Repair> choose(const FoundCopies &copies, const FoundCopies &flags, RepairSource *from) {
    if (std::ranges::none_of(copies, &FoundCopy::good)) {
        if (std::ranges::all_of(copies, &FoundCopy::blank)) {
            return Repair(); // never written
        }
        return refused(kNoRecord, copies.size() == 1 ? "its only copy cannot be taken: " + trouble_of(copies.front())
                                                     : "neither copy can be taken");
    }
    std::size_t taken = copies.front().good() ? 0 : 1;
    if (copies.size() == 2 && copies[0].good() && copies[1].good() && copies[0].record != copies[1].record) {
        const auto trusted = trusted_by(flags);
        if (!trusted) {
            return refused(kBadArgument, "both copies are good and differ, and nothing says which one stays");
        }
        taken = *trusted;
    }
    *from = static_cast<RepairSource>(taken);
    return std::nullopt;
}

// Whether the copy that was named can be taken.
std::optional<Repair> check_choice(const FoundCopies &copies, RepairSource from) {
    const auto number = static_cast<std::size_t>(from);
    if (number >= copies.size()) {
        return refused(kBadArgument, "the item has no such copy");
    }
    return copies[number].good()
               ? std::nullopt
               : std::optional(refused(kNoRecord, "that copy cannot be taken: " + trouble_of(copies[number])));
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

std::string not_written(const FoundCopies &after, const FoundCopies &flags, const Bytes &data, gint32 status) {
    for (const FoundCopy &copy : after) {
        if (!copy.holds(data)) {
            return "a copy was not written: " +
                   (copy.status != 0 ? status_meaning(copy.status) : "it holds something else");
        }
    }
    return status != 0            ? "the write was refused: " + status_meaning(status)
           : flags_mislead(flags) ? "the check flag was not written"
                                  : "";
}

} // namespace

OBJ_HANDLE repaired_with(const Host &platform, OBJ_HANDLE item) {
    const std::string *name = platform.objects.name_of(item);
    const KnownItem *known = name == nullptr ? nullptr : known_item(*name);
    return known == nullptr || known->of.empty() ? item : platform.objects.find(known->of).value_or(item);
}

Repair repair_item(OBJ_HANDLE item, RepairSource from, bool dry_run) {
    Host *const platform = host();
    std::uint32_t length = 0;
    if (const gint32 status = platform == nullptr ? kBadArgument : item_length(*platform, item, &length); status != 0) {
        return refused(status, status_meaning(status));
    }
    platform->lookout.note_changed(item);
    const FoundCopies copies = copies_of(*platform, item);
    const FoundCopies flags = flags_of(*platform, item);
    const bool memory = from == RepairSource::kMemory;
    if (auto ended = from == RepairSource::kGood ? choose(copies, flags, &from)
                     : memory                    ? std::nullopt
                                                 : check_choice(copies, from)) {
        return *ended;
    }
    std::optional<Bytes> data =
        memory ? memory_of(*platform, item, length) : std::optional(copies[static_cast<std::size_t>(from)].record);
    if (!data) {
        return refused(kNoRecord, "there is no value in memory");
    }
    data->resize(length);
    Repair repair;
    repair.source = from;
    for (std::size_t number = 0; number < copies.size(); ++number) {
        if (copies[number].status != 0) {
            return refused(copies[number].status, "a copy cannot be reached: " + status_meaning(copies[number].status));
        }
        repair.copies |= static_cast<std::uint8_t>(copies[number].holds(*data) ? 0U : 1U << number);
    }
    repair.copies |= flags_mislead(flags) ? kRepairedFlag : std::uint8_t{0};
    if (repair.copies == 0) {
        return {};
    }
    if (dry_run) {
        return repair;
    }
    const gint32 status = write_through_module(*platform->objects.name_of(item), item, copies.size(), *data);
    repair.refusal = not_written(copies_of(*platform, item), flags_of(*platform, item), *data, status);
    repair.status = repair.refusal.empty() ? 0 : status != 0 ? status : kStorageFailed;
    return repair;
}

} // namespace asd_host
