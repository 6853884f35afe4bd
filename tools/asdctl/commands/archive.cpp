// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "archive.h"

#include "failure.h"
#include "gio_holders.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>

namespace asdctl {

namespace {

constexpr std::size_t kBlock = 512; // of POSIX.1-1988's ustar

struct Field {
    std::size_t offset;
    std::size_t size; // with a zero behind the text
};
constexpr Field kName{.offset = 0, .size = 100};
constexpr Field kMode{.offset = 100, .size = 8};
constexpr Field kOwner{.offset = 108, .size = 8};
constexpr Field kGroup{.offset = 116, .size = 8};
constexpr Field kSize{.offset = 124, .size = 12};
constexpr Field kTime{.offset = 136, .size = 12};
constexpr Field kSum{.offset = 148, .size = 8};
constexpr Field kType{.offset = 156, .size = 2};
constexpr Field kMagic{.offset = 257, .size = 8};

using Header = std::array<std::uint8_t, kBlock>;

void put(Header *header, Field field, std::string_view text) {
    std::copy_n(text.begin(), std::min(text.size(), field.size),
                header->begin() + static_cast<std::ptrdiff_t>(field.offset));
}

void put_octal(Header *header, Field field, std::uint64_t value) {
    std::array<char, 24> text{};
    (void)std::snprintf(text.data(), text.size(), "%0*llo", static_cast<int>(field.size - 1),
                        static_cast<unsigned long long>(value));
    put(header, field, text.data());
}

} // namespace

void Archive::add(const std::string &name, const std::string &text) {
    add(name, Bytes(text.begin(), text.end()));
}

void Archive::add(const std::string &name, BytesView bytes) {
    const std::string path = folder_ + "/" + name;
    if (path.size() >= kName.size) {
        throw Failure(path + ": the name is too long for an archive");
    }
    Header header{};
    put(&header, kName, path);
    put_octal(&header, kMode, 0600);
    put_octal(&header, kOwner, 0);
    put_octal(&header, kGroup, 0);
    put_octal(&header, kSize, bytes.size());
    put_octal(&header, kTime, static_cast<std::uint64_t>(when_));
    put(&header, kType, "0");
    put(&header, kMagic,
        std::string_view("ustar\0"
                         "00",
                         kMagic.size));
    put(&header, kSum, "        "); // counts as spaces
    put_octal(&header, {.offset = kSum.offset, .size = kSum.size - 1},
              std::accumulate(header.begin(), header.end(), std::uint64_t{0}));
    header.at(kSum.offset + kSum.size - 2) = 0;
    tar_.insert(tar_.end(), header.begin(), header.end());
    tar_.insert(tar_.end(), bytes.begin(), bytes.end());
    tar_.resize((tar_.size() + kBlock - 1) / kBlock * kBlock);
}

Bytes Archive::packed() const {
    Bytes whole = tar_;
    whole.resize(whole.size() + 2 * kBlock); // an archive's end
    const ObjectPtr<GOutputStream> memory(g_memory_output_stream_new_resizable());
    const ObjectPtr<GZlibCompressor> compressor(g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, -1));
    const ObjectPtr<GOutputStream> stream(g_converter_output_stream_new(memory.get(), G_CONVERTER(compressor.get())));
    ErrorSlot error;
    if (g_output_stream_write_all(stream.get(), whole.data(), whole.size(), nullptr, nullptr, error.out()) == FALSE ||
        g_output_stream_close(stream.get(), nullptr, error.out()) == FALSE) {
        throw Failure("the archive cannot be packed: " + std::string(error.text()));
    }
    auto *const packed = G_MEMORY_OUTPUT_STREAM(memory.get());
    const auto *const data = static_cast<const std::uint8_t *>(g_memory_output_stream_get_data(packed));
    return {data, data + g_memory_output_stream_get_data_size(packed)};
}

} // namespace asdctl
