// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "cures.h"

#include "known_items.h"

#include <algorithm>

namespace asdctl {

Cure cure_of(const std::vector<Copy> &copies, std::optional<std::size_t> from, std::optional<std::size_t> trusted) {
    const auto good = [&](std::size_t i) { return copies[i].is(RecordState::kGood); };
    const auto unread = static_cast<std::size_t>(
        std::ranges::count_if(copies, [](const Copy &copy) { return !copy.check.has_value(); }));
    const bool bad = std::ranges::any_of(copies, [](const Copy &copy) { return copy.is(RecordState::kBad); });
    if (copies.size() != 2 || unread > 0) {
        return {.from = {},
                .hopeless = !bad         ? ""
                            : unread > 0 ? "damaged, and the part of the other copy was not read"
                                         : "damaged, and there is no other copy"};
    }
    if (!good(0) && !good(1)) {
        return {.from = {}, .hopeless = bad ? "damaged, and the other copy is no better" : ""};
    }
    if (good(0) != good(1)) {
        const std::size_t only = good(0) ? 0 : 1;
        const bool other = from && *from != only;
        return {.from = other ? std::nullopt : std::optional(only),
                .hopeless = other ? copies[only].place->chip + " is the only good copy" : ""};
    }
    if (std::ranges::equal(copies[0].data(), copies[1].data())) {
        return {};
    }
    const std::optional<std::size_t> choice = from ? from : trusted;
    return {.from = choice, .hopeless = choice ? "" : "both copies are good and differ; --from says which one stays"};
}

std::optional<std::uint8_t> flag_byte(const Copy &flag) {
    return flag.is(RecordState::kGood) ? std::optional(flag.data().front()) : std::nullopt;
}

std::optional<std::size_t> trusted_by(const std::vector<Copy> &flags) {
    const bool known = flags.size() == 2 && std::ranges::none_of(flags, [](const Copy &flag) {
                           return !flag.check || flag.is(RecordState::kBad);
                       });
    return known ? written_alone(flag_byte(flags[0]), flag_byte(flags[1])) : std::nullopt;
}

bool flags_agree(const std::vector<Copy> &flags) {
    const auto read = [](const Copy &flag) { return flag.check.has_value(); };
    const auto both = [](const Copy &flag) { return flag_byte(flag) == kStoredBoth; };
    const auto blank = [](const Copy &flag) { return flag.is(RecordState::kBlank); };
    return std::ranges::all_of(flags, [&](const Copy &flag) { return !read(flag) || both(flag); }) ||
           std::ranges::all_of(flags, [&](const Copy &flag) { return !read(flag) || blank(flag); });
}

const ItemCopies *flags_of(const std::vector<ItemCopies> &all, const ItemCopies &pair) {
    const auto flags = std::ranges::find_if(all, [&](const ItemCopies &other) {
        const KnownItem *const known = known_item(other.item);
        return known != nullptr && known->of == pair.item && (!other.slot || !pair.slot || other.slot == pair.slot) &&
               other.copies.front().place->length == 1;
    });
    return flags == all.end() || pair.copies.size() != 2 ? nullptr : &*flags;
}

bool is_flag_here(const std::vector<ItemCopies> &all, const ItemCopies &item) {
    return std::ranges::any_of(all, [&](const ItemCopies &other) { return flags_of(all, other) == &item; });
}

Bytes with_checksum(Bytes data) {
    const std::uint16_t checksum = crc16(data);
    data.push_back(static_cast<std::uint8_t>(checksum & 0xFFU));
    data.push_back(static_cast<std::uint8_t>(checksum >> 8U));
    return data;
}

} // namespace asdctl
