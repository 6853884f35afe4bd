// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The platform with as many items as are asked for, which no enclosure file has: what each of them costs.
//
//   asd_bench_items COUNT
//
// prints one line of JSON: nanoseconds an item, the best of some rounds, for the start, for finding items by name, for
// reading every record as the load does, for the state of all of them and for what is said of it.

#include "host.h"
#include "log.h"
#include "object_frame.h"
#include "scratch.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using asd_host::Enclosure;

// Of this thread's processor time: what else the machine does meanwhile is no cost of ours.
std::chrono::nanoseconds now() {
    timespec time{};
    (void)::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

constexpr std::uint32_t kPartSize = 65536;
constexpr std::uint32_t kSlot = 64; // bytes on a part for each record
constexpr std::uint32_t kData = 32;
constexpr std::size_t kOnPart = kPartSize / kSlot;
constexpr int kRounds = 7;

std::string item_name(std::size_t number) {
    return "item" + std::to_string(number);
}

Enclosure enclosure_of(std::size_t count) {
    Enclosure enclosure;
    enclosure.name = "many";
    for (std::size_t i = 0; i < count; ++i) {
        const std::string part = "part" + std::to_string(i / kOnPart);
        if (i % kOnPart == 0) {
            enclosure.parts.push_back(
                {.name = part, .file = part + ".bin", .size = kPartSize, .page_size = kSlot, .write_cycle_us = 0});
        }
        const std::string chip = "chip" + std::to_string(i);
        enclosure.chips.push_back(
            {.name = chip, .part = part, .offset = static_cast<std::uint32_t>(i % kOnPart) * kSlot});
        asd_host::ItemConfig item;
        item.name = item_name(i);
        item.num = static_cast<std::uint8_t>(i % 256);
        item.length = kData;
        item.chips = {chip};
        enclosure.items.push_back(std::move(item));
    }
    return enclosure;
}

gint32 read_record(OBJ_HANDLE item, gpointer /*user_data*/) {
    OBJ_HANDLE chip = 0;
    std::array<guint8, kData + 2> record{};
    gint32 status = dfl_get_referenced_object(item, "AtomStorageDataDev0", &chip);
    if (status == 0) {
        status = dfl_block_read(chip, "StorageLoc", 0, record.size(), record.data());
    }
    return status;
}

// Nanoseconds an item.
double cost(std::size_t count, int rounds, const std::function<void()> &work) {
    auto best = std::chrono::nanoseconds::max();
    for (int round = 0; round < rounds; ++round) {
        const auto began = now();
        work();
        best = std::min(best, now() - began);
    }
    return std::chrono::duration<double, std::nano>(best).count() / static_cast<double>(count);
}

int measure(std::size_t count) {
    const asd_test::ScratchFolder folder;
    asd_host::log_set(-1, false);
    std::vector<std::string> mistakes;
    const double start = cost(count, 1, [&] { // it can be started once
        asd_host::Options options;
        options.run_dir = folder.path() / "run";
        options.state_dir = folder.path() / "state";
        mistakes = asd_host::host_start(std::move(options), enclosure_of(count));
    });
    for (const std::string &mistake : mistakes) {
        (void)std::fprintf(stderr, "asd_bench_items: %s\n", mistake.c_str());
    }
    if (!mistakes.empty()) {
        return 1;
    }
    gint32 failed = 0;
    const double find = cost(count, kRounds, [&] {
        for (std::size_t i = 0; i < count; ++i) {
            OBJ_HANDLE item = 0;
            failed |= dfl_get_object_handle(item_name(i).c_str(), &item);
        }
    });
    const double walk =
        cost(count, kRounds, [&] { failed |= dfl_foreach_object("AtomStorageData", read_record, nullptr, 0); });
    asd_host::Picture picture;
    const double look = cost(count, kRounds, [&] { picture = asd_host::host()->lookout.picture(); });
    std::string summary;
    const double tell = cost(count, kRounds, [&] { summary = asd_host::summary_of(picture); });
    if (failed != 0 || picture.items.size() != count || summary.empty()) {
        (void)std::fprintf(stderr, "asd_bench_items: an item is missing\n");
        return 1;
    }
    (void)std::printf(
        "{\"items\": %zu, \"start\": %.1f, \"find\": %.1f, \"walk\": %.1f, \"look\": %.1f, \"tell\": %.1f}\n", count,
        start, find, walk, look, tell);
    return 0;
}

} // namespace

int main(int count, char **words) {
    const std::size_t items = count == 2 ? std::strtoull(words[1], nullptr, 10) : 0;
    if (items == 0) {
        (void)std::fprintf(stderr, "Usage: asd_bench_items COUNT\n");
        return 2;
    }
    return measure(items);
}
