// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "log_ration.h"

#include <algorithm>
#include <utility>

namespace asd_host {

namespace {

constexpr std::uint64_t kBasis = 0xCBF29CE484222325; // FNV-1a, 64 bits
constexpr std::uint64_t kPrime = 0x100000001B3;

std::uint64_t hash(std::uint64_t seed, std::string_view text) {
    for (const char character : text) {
        seed = (seed ^ static_cast<unsigned char>(character)) * kPrime;
    }
    return std::max<std::uint64_t>(seed, 1);
}

} // namespace

bool LogRation::admit(const Place &place, std::string_view text, Time now) {
    const std::uint64_t place_key = hash(kBasis, place.name);
    Entry &of_text = entry_of(hash(~place_key, text), now);
    const bool text_admitted = count(of_text, kOfText, now);
    Entry &of_place = entry_of(place_key, now);
    if (text_admitted && count(of_place, kOfPlace, now)) {
        return true;
    }
    of_place.left_out.name = {};
    std::copy_n(place.name.begin(), std::min(place.name.size(), of_place.left_out.name.size() - 1),
                of_place.left_out.name.begin());
    of_place.left_out.level = place.level;
    ++of_place.left_out.lines;
    return false;
}

// After a window that was used up the next one is narrower.
bool LogRation::count(Entry &entry, unsigned limit, Time now) {
    if (entry.over(now)) {
        const bool used_up = entry.admitted >= (entry.strict ? limit / kStricter : limit);
        entry.strict = used_up && now - entry.start < 2 * kWindow;
        entry.start = now;
        entry.admitted = 0;
    }
    if (entry.admitted >= (entry.strict ? limit / kStricter : limit)) {
        return false;
    }
    ++entry.admitted;
    return true;
}

LogRation::Entry &LogRation::entry_of(std::uint64_t key, Time now) {
    Entry *free = nullptr;
    for (Entry &entry : entries_) {
        if (entry.key == key) {
            return entry;
        }
        // One that was busy a window ago is kept a window longer, for the next one to be narrower.
        if (free == nullptr && (entry.key == 0 || (now - entry.start >= 2 * kWindow && entry.left_out.lines == 0))) {
            free = &entry;
        }
    }
    if (free == nullptr) {
        return entries_.back();
    }
    *free = {};
    free->key = key;
    free->start = now;
    return *free;
}

std::optional<LogRation::LeftOut> LogRation::settle(Time now, bool everything) {
    for (Entry &entry : entries_) {
        if (entry.left_out.lines > 0 && (everything || entry.over(now))) {
            return std::exchange(entry.left_out, {});
        }
    }
    return std::nullopt;
}

} // namespace asd_host
