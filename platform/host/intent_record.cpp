// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "intent_record.h"

#include "atomic_file.h"
#include "byte_codec.h"
#include "log.h"

#include <cerrno>
#include <string_view>

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr std::string_view kMagic = "ASDINTNT";
constexpr std::uint32_t kVersion = 1;
constexpr unsigned kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;

// A part's name is free text; as a file name it must stay in its folder and be no other part's.
std::string file_name_of(const std::string &part) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string name;
    for (const char character : part) {
        const auto byte = static_cast<unsigned char>(character);
        if (g_ascii_isalnum(character) || character == '_' || character == '-') {
            name += character;
            continue;
        }
        name += '%';
        name += kHex[byte >> 4U];
        name += kHex[byte & 0x0FU];
    }
    return name + ".intent";
}

} // namespace

std::vector<std::uint8_t> encode_intent(const Intent &intent) {
    ByteWriter writer;
    writer.text(kMagic);
    writer.u32(kVersion);
    writer.u32(u32_of(intent.part.size()));
    writer.text(intent.part);
    writer.u32(intent.offset);
    writer.u32(u32_of(intent.new_bytes.size()));
    writer.bytes(intent.old_bytes);
    writer.bytes(intent.new_bytes);
    return writer.sealed();
}

std::optional<Intent> decode_intent(std::span<const std::uint8_t> file) {
    const auto content = unsealed(file);
    if (!content) {
        return std::nullopt;
    }
    ByteReader reader(*content);
    const auto magic = reader.bytes(u32_of(kMagic.size()));
    const auto version = reader.u32();
    if (!magic || !same_text(*magic, kMagic) || version != kVersion) {
        return std::nullopt;
    }
    const auto part = reader.bytes(reader.u32().value_or(0));
    const auto offset = reader.u32();
    const auto length = reader.u32();
    const auto old_bytes = reader.bytes(length.value_or(0));
    const auto new_bytes = reader.bytes(length.value_or(0));
    if (!part || !offset || !length || !old_bytes || !new_bytes || !reader.at_end()) {
        return std::nullopt;
    }
    return Intent{{part->begin(), part->end()},
                  *offset,
                  {old_bytes->begin(), old_bytes->end()},
                  {new_bytes->begin(), new_bytes->end()}};
}

IntentFile::IntentFile(const std::filesystem::path &folder, const std::string &part)
    : file_(folder / file_name_of(part)) {}

bool IntentFile::exists() const {
    return ::access(file_.c_str(), F_OK) == 0;
}

std::optional<Intent> IntentFile::load() {
    remove_leftover_temporary(file_);
    int error = 0;
    const auto bytes = read_file(file_, &error);
    if (error == ENOENT) {
        return std::nullopt;
    }
    std::optional<Intent> intent;
    if (bytes) {
        intent = decode_intent(*bytes);
    }
    if (!intent) {
        HOST_LOG(kLogError, "%s is %s; a write that was cut short is not finished.", file_.c_str(),
                 bytes ? "damaged" : g_strerror(error));
        (void)drop(); // a file that stays is damaged the next time too
    }
    return intent;
}

int IntentFile::save(const Intent &intent) {
    const std::vector<std::uint8_t> bytes = encode_intent(intent);
    int error = replace_file(file_, bytes, kFileMode);
    if (error == ENOENT && ::mkdir(file_.parent_path().c_str(), kFolderMode) == 0) {
        error = replace_file(file_, bytes, kFileMode);
    }
    return error;
}

int IntentFile::drop() {
    return remove_file(file_);
}

} // namespace asd_host
