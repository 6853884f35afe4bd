// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "bus_message.h"

#include <algorithm>
#include <array>

#include <gio/gio.h>

namespace asd_host {

namespace {

using BytesView = std::span<const std::uint8_t>;

constexpr std::size_t kFixedSize = 16; // up to and with the length of the header's fields
constexpr std::size_t kBodySizeAt = 4;
constexpr std::size_t kSerialAt = 8;
constexpr std::size_t kFieldsSizeAt = 12;
constexpr std::size_t kBoundary = 8; // of each field and of the body
constexpr int kDeepest = 32;         // of arrays, and of structs, in a signature

enum FieldCode : std::uint8_t {
    kPath = 1,
    kInterface,
    kMember,
    kErrorName,
    kReplySerial,
    kDestination,
    kSender,
    kSignature,
    kUnixFds,
    kFieldCodes
};
constexpr std::string_view kFieldTypes = "?osssussgu"; // by code

constexpr std::size_t up_to(std::size_t boundary, std::size_t at) {
    return (at + boundary - 1) / boundary * boundary;
}

std::uint32_t number_at(BytesView bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        number = number << 8U | bytes[at + (bytes[0] == 'B' ? i : 3 - i)];
    }
    return number;
}

// Reads values in their order; what does not fit makes it bad, and every value after that is empty.
class Cursor {
public:
    Cursor(BytesView message, std::size_t begin, std::size_t end) : message_(message), at_(begin), end_(end) {}

    [[nodiscard]] bool bad() const { return bad_; }
    [[nodiscard]] bool at_end() const { return at_ >= end_; }

    void align(std::size_t boundary) {
        for (const std::size_t next = up_to(boundary, at_); at_ < next && !bad_;) {
            if (byte() != 0) { // which is bad itself at the end
                bad_ = true;
            }
        }
    }
    std::uint8_t byte() {
        if (at_ >= end_) {
            bad_ = true;
            return 0;
        }
        return message_[at_++];
    }
    std::uint32_t number() {
        align(4);
        if (bad_ || end_ - at_ < 4) {
            bad_ = true;
            return 0;
        }
        at_ += 4;
        return number_at(message_, at_ - 4);
    }
    // Size bytes without a zero, and a zero.
    std::string text(std::size_t size) {
        if (bad_ || size >= end_ - at_ || message_[at_ + size] != 0) {
            bad_ = true;
            return {};
        }
        const BytesView bytes = message_.subspan(at_, size);
        at_ += size + 1;
        bad_ = std::ranges::find(bytes, 0) != bytes.end();
        return {bytes.begin(), bytes.end()};
    }

private:
    BytesView message_;
    std::size_t at_;
    std::size_t end_;
    bool bad_ = false;
};

struct Fields {
    std::array<std::string, kFieldCodes> texts;
    std::array<std::uint32_t, kFieldCodes> numbers{};
    std::array<bool, kFieldCodes> given{};
};

// Null, or what is wrong. Fields that are not known are passed over when they are numbers or texts.
const char *read_field(Cursor &cursor, Fields &fields) {
    cursor.align(kBoundary);
    const std::uint8_t code = cursor.byte();
    const std::string type = cursor.text(cursor.byte());
    if (cursor.bad() || code == 0 || type.size() != 1) {
        return "a header field is broken";
    }
    std::string text;
    std::uint32_t number = 0;
    switch (type.front()) {
    case 's':
    case 'o':
        text = cursor.text(cursor.number());
        break;
    case 'g':
        text = cursor.text(cursor.byte());
        break;
    case 'u':
        number = cursor.number();
        break;
    default:
        return "a header field has a type that none has";
    }
    if (cursor.bad()) {
        return "a header field is broken";
    }
    if (code >= kFieldCodes) {
        return nullptr;
    }
    if (fields.given.at(code) || kFieldTypes[code] != type.front()) {
        return "a header field comes twice, or has another's type";
    }
    fields.given.at(code) = true;
    fields.texts.at(code) = text;
    fields.numbers.at(code) = number;
    return nullptr;
}

bool is_signature(const std::string &signature) {
    int arrays = 0;
    int structs = 0;
    for (const char letter : signature) {
        arrays = letter == 'a' ? arrays + 1 : 0;
        structs += letter == '(' || letter == '{' ? 1 : letter == ')' || letter == '}' ? -1 : 0;
        if (arrays > kDeepest || structs > kDeepest || letter == 'h') { // no descriptors are passed here
            return false;
        }
    }
    return g_variant_is_signature(signature.c_str()) != 0;
}

using Syntax = gboolean(const gchar *);

// Null, or what is wrong with a field that is given.
const char *check_syntax(const Fields &fields) {
    static constexpr struct {
        FieldCode code;
        Syntax *is_valid;
        const char *mistake;
    } kRules[] = {
        {kPath, g_variant_is_object_path, "its path is none"},
        {kInterface, g_dbus_is_interface_name, "its interface is none"},
        {kMember, g_dbus_is_member_name, "its member is none"},
        {kErrorName, g_dbus_is_interface_name, "its error name is none"},
        {kDestination, g_dbus_is_name, "its destination is none"},
        {kSender, g_dbus_is_name, "its sender is none"},
    };
    for (const auto &rule : kRules) {
        if (fields.given.at(rule.code) && rule.is_valid(fields.texts.at(rule.code).c_str()) == 0) {
            return rule.mistake;
        }
    }
    if (!is_signature(fields.texts[kSignature])) {
        return "its signature is none";
    }
    if (fields.texts[kPath] == "/org/freedesktop/DBus/Local" ||
        fields.texts[kInterface] == "org.freedesktop.DBus.Local") {
        return "its path or interface is not for messages";
    }
    return fields.numbers[kUnixFds] != 0 ? "it announces descriptors" : nullptr;
}

// Null, or what the type must have and is missing.
const char *check_presence(BusMessage::Type type, const Fields &fields) {
    const bool answers = type == BusMessage::Type::kReturn || type == BusMessage::Type::kError;
    if (answers) {
        const bool named = type == BusMessage::Type::kReturn || fields.given[kErrorName];
        return named && fields.numbers[kReplySerial] != 0 ? nullptr : "an answer does not say to what, or which error";
    }
    const bool complete =
        fields.given[kPath] && fields.given[kMember] && (type == BusMessage::Type::kCall || fields.given[kInterface]);
    return complete ? nullptr : "it has no path, no member, or a signal no interface";
}

const char *read_fields(BytesView message, Fields &fields) {
    const std::size_t fields_end = kFixedSize + number_at(message, kFieldsSizeAt);
    Cursor cursor(message, kFixedSize, fields_end);
    while (!cursor.at_end()) {
        if (const char *mistake = read_field(cursor, fields); mistake != nullptr) {
            return mistake;
        }
    }
    Cursor padding(message, fields_end, up_to(kBoundary, fields_end));
    padding.align(kBoundary);
    return padding.bad() ? "the bytes between header and body are not 0" : nullptr;
}

} // namespace

BusFrame bus_frame(BytesView bytes, std::size_t limit) {
    if (!bytes.empty() && bytes[0] != 'l' && bytes[0] != 'B') {
        return {.size = 0, .mistake = "no message begins so"};
    }
    if (bytes.size() < kFixedSize) {
        return {};
    }
    // 64 bits: two numbers of 32 bits are added.
    const std::uint64_t header = up_to(kBoundary, std::uint64_t{kFixedSize} + number_at(bytes, kFieldsSizeAt));
    const std::uint64_t size = header + number_at(bytes, kBodySizeAt);
    if (size > limit) {
        return {.size = 0, .mistake = "it is longer than any that is needed"};
    }
    return {.size = static_cast<std::size_t>(size), .mistake = nullptr};
}

BusMessage read_bus_message(BytesView message) {
    BusMessage read;
    const std::uint8_t type = message[1];
    if (type < static_cast<std::uint8_t>(BusMessage::Type::kCall) ||
        type > static_cast<std::uint8_t>(BusMessage::Type::kSignal) || message[3] != 1) {
        read.mistake = "its type or the protocol's version is unknown";
        return read;
    }
    read.type = static_cast<BusMessage::Type>(type);
    read.serial = number_at(message, kSerialAt);
    read.wants_answer = (message[kBusFlagsAt] & kBusNoAnswer) == 0;
    Fields fields;
    const char *mistake = read.serial == 0 ? "its serial is 0" : read_fields(message, fields);
    mistake = mistake != nullptr ? mistake : check_syntax(fields);
    mistake = mistake != nullptr ? mistake : check_presence(read.type, fields);
    if (mistake == nullptr && fields.texts[kSignature].empty() != (number_at(message, kBodySizeAt) == 0)) {
        mistake = "its body is not what its signature says";
    }
    read.mistake = mistake == nullptr ? "" : mistake;
    read.reply_serial = fields.numbers[kReplySerial];
    read.member = std::move(fields.texts[kMember]);
    return read;
}

} // namespace asd_host
