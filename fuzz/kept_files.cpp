// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// What a start finds in the state folder: a noted write (the first byte is even) or a file of the board's values (odd).
// With bit 1 of the first byte the rest gets its checksum. Bytes 2 and 3: how much of the noted write was done, and
// where the part holds something else.

#include "byte_codec.h"
#include "fuzz.h"
#include "intent_record.h"
#include "log.h"
#include "part.h"
#include "state_store.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace {

using namespace asd_host;
using Content = std::vector<std::uint8_t>;

constexpr std::uint32_t kSize = 256;

void write(const std::filesystem::path &file, const Content &bytes) {
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// The part is as it was, or the noted write is done, all of it; nothing is left to do.
void find_intent(const std::filesystem::path &folder, const Content &file, std::uint8_t done, std::uint8_t torn) {
    Content before(kSize, 0x5A);
    Content after = before;
    const auto noted = decode_intent(file);
    if (noted && noted->offset < kSize && noted->new_bytes.size() <= kSize - noted->offset) {
        std::ranges::copy(noted->old_bytes, before.begin() + noted->offset);
        std::copy_n(noted->new_bytes.begin(), std::min<std::size_t>(done, noted->new_bytes.size()),
                    before.begin() + noted->offset);
        before[torn] ^= torn;
        after = before;
        std::ranges::copy(noted->new_bytes, after.begin() + noted->offset);
    }
    write(folder / "part", before);
    std::filesystem::create_directory(folder / "intents");
    write(folder / "intents" / "p.intent", file);
    std::string mistake;
    const PartConfig config{.name = "p", .file = {}, .size = kSize, .page_size = 16, .write_cycle_us = 0};
    const auto part = Part::open(
        config, {.file = folder / "part", .intent_dir = folder / "intents"}, [] { return false; }, &mistake);
    fuzz::require(part != nullptr, mistake);
    Content now(kSize);
    fuzz::require(part->read(0, now) == 0 && (now == before || now == after), "a write was half undone");
    fuzz::require(!IntentFile(folder / "intents", "p", kSize).exists(), "a noted write is left");
}

// The values are read, or none is and nothing is lost; and they can be changed.
void find_values(const std::filesystem::path &folder, const Content &file) {
    write(folder / "values", file);
    StateStore store;
    std::string mistake;
    if (!store.open(folder / "values", &mistake)) {
        fuzz::require(!mistake.empty() && std::filesystem::file_size(folder / "values") == file.size(),
                      "a file is lost");
        return;
    }
    const Content value = {1, 2, 3};
    fuzz::require(store.put(7, value) == 0, "a value cannot be written");
    StateStore again;
    fuzz::require(again.open(folder / "values", &mistake) && again.get(7) == value, "a value is lost");
    for (std::uint32_t key = 0; key < 256; ++key) {
        fuzz::require(again.get(key) == store.get(key), "values change by themselves");
    }
    std::filesystem::remove(folder / "values.damaged");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const asd_test::ScratchFolder folder;
    log_set(-1, false);
    if (size < 3) {
        return 0;
    }
    ByteWriter file;
    file.bytes({data + 3, size - 3});
    const Content bytes = (data[0] & 2U) != 0 ? file.sealed() : Content(data + 3, data + size);
    if (data[0] % 2 == 0) {
        find_intent(folder.path(), bytes, data[1], data[2]);
    } else {
        find_values(folder.path(), bytes);
    }
    return 0;
}
