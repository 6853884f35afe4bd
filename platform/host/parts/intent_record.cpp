// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "intent_record.h"

#include "atomic_file.h"
#include "byte_codec.h"
#include "log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {

namespace {

constexpr std::string_view kMagic = "ASDINTNT";
constexpr std::uint32_t kVersion = 1;
constexpr unsigned kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;
constexpr std::size_t kFrame = 32; // bytes of an intent beside the name and the two times data
constexpr std::array<std::uint8_t, kMagic.size()> kNothing{}; // in the magic's place: the intent's write has ended

bool holds_nothing(std::span<const std::uint8_t> file) {
    return file.empty() ||
           (file.size() >= kNothing.size() && std::ranges::equal(file.first(kNothing.size()), kNothing));
}

// The intent at the beginning of the file, to the end of its checksum: what is behind it is left from longer ones.
std::optional<std::span<const std::uint8_t>> intent_in(std::span<const std::uint8_t> file) {
    constexpr std::size_t kFixed = 28; // magic, version, two lengths, offset, checksum
    ByteReader reader(file);
    (void)reader.bytes(u32_of(kMagic.size())); // looked at when the checksum has been
    (void)reader.u32();
    const auto part = reader.bytes(reader.u32().value_or(0));
    (void)reader.u32();
    const std::uint64_t length = reader.u32().value_or(0);
    const std::uint64_t size = kFixed + (part ? part->size() : 0) + 2 * length;
    if (!part || size > file.size()) {
        return std::nullopt;
    }
    return file.first(static_cast<std::size_t>(size));
}

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

// Something is in the file that may be an intent; none: it is no plain file, or cannot be read.
std::optional<bool> holds_something(const std::filesystem::path &file) {
    const Fd fd(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        return errno == ENOENT ? std::optional(false) : std::nullopt;
    }
    std::array<std::uint8_t, kNothing.size()> first{};
    const ssize_t count = ::pread(fd.get(), first.data(), first.size(), 0);
    if (count < 0) {
        return std::nullopt;
    }
    return !holds_nothing(std::span(first).first(static_cast<std::size_t>(count)));
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
    const auto intent = intent_in(file);
    const auto content = intent ? unsealed(*intent) : std::nullopt;
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

IntentFile::IntentFile(const std::filesystem::path &folder, const std::string &part, std::uint32_t part_size)
    : file_(folder / file_name_of(part)), limit_(std::size_t{2} * part_size + part.size() + kFrame) {}

bool IntentFile::exists() const {
    return holds_something(file_).value_or(!refused_);
}

bool IntentFile::leftover() const {
    return has_leftover_temporary(file_);
}

void IntentFile::remove_leftover() const {
    remove_leftover_temporary(file_);
}

int IntentFile::load(std::optional<Intent> *intent) {
    intent->reset();
    if (holds_something(file_) == false) {
        refused_ = false;
        return 0;
    }
    int error = 0;
    const auto bytes = read_file(file_, &error, limit_);
    if (!bytes && is_short_of_resources(error)) {
        return error;
    }
    if (bytes) {
        *intent = decode_intent(*bytes);
    }
    if (*intent) {
        refused_ = false;
    } else {
        refuse(bytes ? "it is damaged" : read_failure(error));
    }
    return 0;
}

void IntentFile::refuse(const char *reason) {
    const int error = drop(Drop::kNow);
    if (!refused_) {
        HOST_LOG(kLogError, "%s is no intent (%s): it is dropped, and if a write was cut short, that is not finished.",
                 file_.c_str(), reason);
    }
    if (error != 0 && !refused_) {
        HOST_LOG(kLogError, "%s could not be removed (%s); move it away: until then a power cut may tear a record.",
                 file_.c_str(), g_strerror(error));
    }
    refused_ = error != 0;
}

int IntentFile::save(const Intent &intent) {
    Fd fd;
    if (const int error = open_to_write(&fd); error != 0) {
        return error;
    }
    int error = pwrite_all(fd.get(), encode_intent(intent), 0);
    if (error == 0 && ::fdatasync(fd.get()) != 0) {
        error = errno;
    }
    if (error != 0 && ::ftruncate(fd.get(), 0) == 0) {
        (void)::fdatasync(fd.get()); // the failure is told already
    }
    return error;
}

// Opens the file; makes it, to stay, when there is none. It keeps its length and its blocks, so that a write needs
// nothing of the file system but these bytes.
int IntentFile::open_to_write(Fd *fd) const {
    constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    *fd = Fd(::open(file_.c_str(), kFlags));
    if (*fd || errno != ENOENT) {
        return *fd ? 0 : errno;
    }
    const std::filesystem::path folder = file_.parent_path();
    if (::mkdir(folder.c_str(), kFolderMode) == 0) {
        (void)sync_folder_of(folder); // the file's own sync tells of a folder that cannot keep anything
    }
    *fd = Fd(::open(file_.c_str(), kFlags | O_CREAT | O_EXCL, kFileMode));
    return *fd ? sync_folder_of(file_) : errno;
}

int IntentFile::drop(Drop when) {
    const Fd fd(::open(file_.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd && errno == ENOENT) {
        return 0;
    }
    if (fd && when == Drop::kSoon && pwrite_all(fd.get(), kNothing, 0) == 0) {
        to_wipe_ = true;
        return 0;
    }
    if (!fd || ::ftruncate(fd.get(), 0) != 0) {
        return remove_file(file_); // it may be no plain file
    }
    return ::fdatasync(fd.get()) == 0 ? 0 : errno;
}

void IntentFile::wipe() {
    int error = 0;
    const auto bytes = read_file(file_, &error, limit_);
    to_wipe_ = !bytes && error != ENOENT;
    if (!bytes || !holds_nothing(*bytes) || std::ranges::count(*bytes, 0) == std::ssize(*bytes)) {
        return;
    }
    const Fd fd(::open(file_.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    to_wipe_ = pwrite_all(fd.get(), std::vector<std::uint8_t>(bytes->size()), 0) != 0;
}

void say_strange_intents(const std::filesystem::path &folder, const std::vector<std::string> &parts) {
    std::size_t count = 0;
    std::string example;
    std::error_code end; // a folder that is not there yet has no files
    for (std::filesystem::directory_iterator file(folder, end); !end && file != std::filesystem::directory_iterator();
         file.increment(end)) {
        const std::string name = file->path().filename().native();
        if (holds_something(file->path()) == false) {
            continue;
        }
        if (std::ranges::none_of(parts, [&](const auto &part) { return name.starts_with(file_name_of(part)); })) {
            example = name;
            ++count;
        }
    }
    if (count > 0) {
        HOST_LOG(kLogError,
                 "%s: files of no part in the enclosure: %zu, such as %s. What they would finish stays as it is, and "
                 "they may "
                 "hold keys; remove them unless the part comes back.",
                 folder.c_str(), count, example.c_str());
    }
}

} // namespace asd_host
