// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Work within one process, and beside it the least that the same work takes: rows NAME/asd and NAME/floor of Google
// Benchmark. For programs that count instead of timing,
//
//   asd_bench_process --times NAME COUNT
//
// does one of them COUNT times, all within the function `measured`, and prints how often it allocated.

#include "arith.h"
#include "bmc_asd_read.h"
#include "enclosure.h"
#include "ipmi_registry.h"
#include "object_frame.h"
#include "part.h"
#include "service.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

// ---- What is allocated ----

namespace {
thread_local bool counting = false; // what the service's other threads allocate meanwhile is not the work's
thread_local std::uint64_t allocations = 0;

void note_allocation() {
    allocations += counting ? 1 : 0;
}
} // namespace

// The C library's own, under the names that it keeps for those who replace them: GLib's allocations are seen, too.
extern "C" {
void *__libc_malloc(std::size_t size);                    // NOLINT(bugprone-reserved-identifier): the library's name
void *__libc_calloc(std::size_t count, std::size_t size); // NOLINT(bugprone-reserved-identifier): as above
void *__libc_realloc(void *block, std::size_t size);      // NOLINT(bugprone-reserved-identifier): as above

void *malloc(std::size_t size) {
    note_allocation();
    return __libc_malloc(size);
}
void *calloc(std::size_t count, std::size_t size) {
    note_allocation();
    return __libc_calloc(count, size);
}
void *realloc(void *block, std::size_t size) {
    note_allocation();
    return __libc_realloc(block, size);
}

// A name that programs which count instructions are told of.
void measured(const std::function<void()> &work, std::uint64_t times);
[[gnu::noinline]] void measured(const std::function<void()> &work, std::uint64_t times) {
    for (std::uint64_t i = 0; i < times; ++i) {
        work();
    }
}
} // extern "C"

namespace {

using asd_host::Part;
using Bytes = std::vector<std::uint8_t>;
using Work = std::function<void()>;

void require(bool holds, const char *otherwise) {
    fuzz::require(holds, otherwise);
}

// ---- An identity read: request bytes to response bytes ----

constexpr std::size_t kBrandSize = 32;
constexpr std::array<std::uint8_t, 5> kGetBrand = {0x00, 0x00, 0x80, 0x00, 0x14};

asd_host::IpmiRequest request_of(std::uint8_t cmd, std::span<const std::uint8_t> data) {
    return {.netfn = 0x32, .lun = 0, .cmd = cmd, .data = data, .privilege = asd_host::kAdministrator};
}

Work identity_asd() {
    (void)fuzz::Service::running();
    Bytes brand(kGetBrand.begin(), kGetBrand.end());
    brand.resize(kGetBrand.size() + kBrandSize, 'B');
    require(asd_host::ipmi_registry().serve(request_of(0x17, brand)).front() == asd_host::kCompleted,
            "the brand cannot be set");
    return [] {
        const asd_host::IpmiResponse response = asd_host::ipmi_registry().serve(request_of(0x16, kGetBrand));
        require(response.size() == kBrandSize + 1 && response[1] == 'B', "no brand");
        benchmark::DoNotOptimize(response.data());
    };
}

// Finds the record by its item's name, and copies it into an answer of its own.
Work identity_floor() {
    const auto records = std::make_shared<std::unordered_map<std::string, std::array<std::uint8_t, kBrandSize>>>();
    for (std::uint8_t number = 0; number < 54; ++number) {
        (*records)["ASD" + std::to_string(number)].fill(static_cast<std::uint8_t>(number + 77));
    }
    return [records] {
        const char *name = "ASD14";
        benchmark::DoNotOptimize(name);
        const auto &record = records->find(name)->second;
        asd_host::IpmiResponse response(1 + kBrandSize);
        std::memcpy(response.data() + 1, record.data(), kBrandSize);
        benchmark::DoNotOptimize(response.data());
    };
}

// ---- A record read from an image ----

constexpr guint32 kLong = 1024;
constexpr guint32 kCrc = 2;

Bytes record_of(std::size_t length, std::uint8_t seed) {
    Bytes record(length);
    for (std::size_t i = 0; i < length; ++i) {
        record[i] = static_cast<std::uint8_t>(i + seed);
    }
    const guint16 checksum = arith_make_crc_checksum(0, record.data(), static_cast<guint32>(length));
    record.push_back(static_cast<std::uint8_t>(checksum & 0xFFU));
    record.push_back(static_cast<std::uint8_t>(checksum >> 8U));
    return record;
}

Work read_asd() {
    (void)fuzz::Service::running();
    OBJ_HANDLE item = 0;
    OBJ_HANDLE chip = 0;
    require(dfl_get_object_handle("ASD7", &item) == 0 && dfl_get_object_handle("ASDDev7", &chip) == 0, "no ASD7");
    const Bytes record = record_of(kLong, 77);
    require(dfl_block_write(chip, "StorageLoc", 0, kLong + kCrc, record.data()) == 0, "the record cannot be written");
    return [item, held = std::make_shared<Bytes>(kLong)] {
        require(asd_read_one_chip(item, held->data(), kLong) == 0 && held->front() == 77, "the record cannot be read");
    };
}

class File {
public:
    File(const char *name, std::size_t size) {
        const std::filesystem::path path = folder_.path() / name;
        fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        require(fd_ >= 0, "a file cannot be made");
        put(Bytes(size, 0xFF), 0);
        sync();
    }
    ~File() { (void)::close(fd_); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    void put(std::span<const std::uint8_t> bytes, std::size_t at) const {
        require(::pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(at)) == static_cast<ssize_t>(bytes.size()),
                "a file cannot be written");
    }
    void get(std::span<std::uint8_t> bytes) const {
        require(::pread(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
                "a file cannot be read");
    }
    void sync() const { require(::fdatasync(fd_) == 0, "a file cannot be synced"); }

private:
    asd_test::ScratchFolder folder_;
    int fd_ = -1;
};

Work read_floor() {
    const auto file = std::make_shared<File>("image", 8192);
    file->put(record_of(kLong, 77), 0);
    return [file, held = std::make_shared<Bytes>(kLong + kCrc)] {
        file->get(*held);
        const guint16 checksum = arith_make_crc_checksum(0, held->data(), kLong);
        require(((*held)[kLong] | (*held)[kLong + 1] << 8) == checksum, "the record is damaged");
    };
}

// ---- A record written to an image ----

constexpr std::uint32_t kImageSize = 32768;
constexpr std::uint32_t kPageSize = 64;

struct Image {
    asd_test::ScratchFolder folder;
    std::unique_ptr<Part> part;
    std::uint8_t seed = 0;
};

std::shared_ptr<Image> image_of(std::uint32_t page_size, std::uint32_t cycle_us) {
    auto image = std::make_shared<Image>();
    asd_host::PartConfig config{.name = "part", .file = "part.bin", .size = kImageSize, .page_size = page_size};
    config.write_cycle_us = cycle_us;
    std::string mistake;
    asd_host::PartPaths paths;
    paths.file = image->folder.path() / "part.bin";
    paths.intent_dir = image->folder.path() / "intents";
    image->part = Part::open(
        config, paths, [] { return false; }, &mistake);
    require(image->part != nullptr, mistake.c_str());
    return image;
}

// Every byte is another one than before, so that every page is written.
Work write_asd(std::size_t length, std::uint32_t page_size, std::uint32_t cycle_us) {
    return [length, image = image_of(page_size, cycle_us)] {
        require(image->part->write(0, record_of(length, ++image->seed), false) == 0, "the record cannot be written");
    };
}

// What a cut write is finished from is noted in a file that is there already, synced, and then the pages are.
Work write_floor(std::size_t length) {
    struct Files {
        File note{"note", 65536};
        File image{"image", kImageSize};
        std::size_t end = 0;
        std::uint8_t seed = 0;
    };
    return [length, files = std::make_shared<Files>()] {
        const Bytes record = record_of(length, ++files->seed);
        files->end = files->end + record.size() > 65536 ? 0 : files->end;
        files->note.put(record, files->end);
        files->end += record.size();
        files->note.sync();
        for (std::size_t at = 0; at < record.size(); at += kPageSize) {
            files->image.put(std::span(record).subspan(at, std::min<std::size_t>(kPageSize, record.size() - at)), at);
        }
        files->image.sync();
    };
}

// ---- The same on a part that takes its time ----

constexpr std::uint32_t kSlowPage = 32;
constexpr std::uint32_t kSlowCycleUs = 5000;

// A wait for each page, as the part makes the writer wait.
Work cycles_floor() {
    return [] {
        constexpr std::uint32_t kPages = (kLong + kCrc + kSlowPage - 1) / kSlowPage;
        for (std::uint32_t page = 0; page < kPages; ++page) {
            std::this_thread::sleep_for(std::chrono::microseconds(kSlowCycleUs));
        }
    };
}

// ---- The rows ----

struct Row {
    std::string name;
    std::function<Work()> prepare;
};

std::vector<Row> all_rows() {
    std::vector<Row> all = {
        {.name = "identity/asd", .prepare = identity_asd},
        {.name = "identity/floor", .prepare = identity_floor},
        {.name = "read-1024/asd", .prepare = read_asd},
        {.name = "read-1024/floor", .prepare = read_floor},
        {.name = "chip-time/asd", .prepare = [] { return write_asd(kLong, kSlowPage, kSlowCycleUs); }},
        {.name = "chip-time/floor", .prepare = cycles_floor},
    };
    for (const std::size_t length : {32U, 128U, 512U, 1024U, 4096U}) {
        const std::string name = "write-" + std::to_string(length);
        all.push_back({.name = name + "/asd", .prepare = [length] { return write_asd(length, kPageSize, 0); }});
        all.push_back({.name = name + "/floor", .prepare = [length] { return write_floor(length); }});
    }
    return all;
}

const std::vector<Row> &rows() {
    static const std::vector<Row> all = all_rows();
    return all;
}

int count_of(std::string_view name, std::uint64_t times) {
    for (const Row &row : rows()) {
        if (row.name != name || times == 0) {
            continue;
        }
        const Work work = row.prepare();
        work(); // what is done once is done
        (void)std::fprintf(stderr, "measured\n");
        counting = true;
        measured(work, times);
        counting = false;
        (void)std::fprintf(stderr, "done\n");
        (void)std::printf("{\"times\": %llu, \"allocations\": %llu}\n", static_cast<unsigned long long>(times),
                          static_cast<unsigned long long>(allocations));
        return 0;
    }
    (void)std::fprintf(stderr, "Usage: asd_bench_process --times NAME COUNT\n");
    return 2;
}

} // namespace

int main(int count, char **words) {
    if (count > 1 && std::string_view(words[1]) == "--times") {
        return count == 4 ? count_of(words[2], std::strtoull(words[3], nullptr, 10)) : count_of("", 0);
    }
    benchmark::Initialize(&count, words);
    for (const Row &row : rows()) {
        benchmark::RegisterBenchmark(row.name.c_str(), [&row](benchmark::State &state) {
            static std::unordered_map<std::string, Work> works; // prepared once, whatever the number of rounds
            Work &work = works[row.name];
            if (!work) {
                work = row.prepare();
            }
            for (auto round : state) {
                work();
            }
        })->UseRealTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
