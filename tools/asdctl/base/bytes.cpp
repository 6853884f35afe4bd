// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "bytes.h"

#include "failure.h"
#include "fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

namespace asdctl {

namespace {

constexpr unsigned kOwnerOnly = 0600; // keys are among what is saved

[[nodiscard]] Failure file_failure(const std::string &path, const char *what, int error) {
    return Failure(path + ": " + what + ": " + g_strerror(error));
}

[[nodiscard]] bool write_all(int fd, const void *data, std::size_t size) {
    const char *next = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t written = ::write(fd, next, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return false;
        }
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// False: the reader has left.
bool print_bytes(const void *data, std::size_t size) {
    const bool written = write_all(STDOUT_FILENO, data, size);
    if (!written && errno != EPIPE) {
        throw file_failure("standard output", "cannot be written", errno);
    }
    return written;
}

[[nodiscard]] Bytes read_all(int fd, const std::string &name, std::size_t limit) {
    Bytes bytes;
    std::array<std::uint8_t, 4096> piece;
    for (;;) {
        const ssize_t count = ::read(fd, piece.data(), piece.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw file_failure(name, "cannot be read", errno);
        }
        if (count == 0) {
            return bytes;
        }
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
        if (bytes.size() > limit) {
            throw Failure(name + ": has more than " + std::to_string(limit) + " bytes");
        }
    }
}

[[nodiscard]] bool is_fill(std::uint8_t byte) {
    return byte == 0x00 || byte == 0xFF;
}

void append_digits(std::string &text, std::uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
}

[[nodiscard]] bool is_separator(char letter) {
    return letter == ' ' || letter == ':' || letter == '\n' || letter == '\t';
}

// One word without separators: "0x1b", "1b", "b", "000080".
void append_word(Bytes &bytes, std::string_view word) {
    std::string_view digits = word;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
    }
    if (digits.empty() || (digits.size() > 1 && digits.size() % 2 != 0)) {
        throw WrongUsage("'" + std::string(word) + "' is not whole bytes in hexadecimal",
                         "Two digits are a byte; one alone is, too.");
    }
    for (; !digits.empty(); digits.remove_prefix(std::min<std::size_t>(2, digits.size()))) {
        const std::string_view pair = digits.substr(0, 2);
        std::uint8_t byte = 0;
        const auto [end, error] = std::from_chars(pair.begin(), pair.end(), byte, 16);
        if (error != std::errc() || end != pair.end()) {
            throw WrongUsage("'" + std::string(word) + "' is not hexadecimal");
        }
        bytes.push_back(byte);
    }
}

} // namespace

Bytes parse_hex(std::string_view text) {
    Bytes bytes;
    while (!text.empty()) {
        const auto *const start = std::find_if_not(text.begin(), text.end(), is_separator);
        const auto *const end = std::find_if(start, text.end(), is_separator);
        if (start != end) {
            append_word(bytes, {start, end});
        }
        text = {end, text.end()};
    }
    return bytes;
}

std::string hex_number(std::uint32_t value, int digits) {
    std::array<char, 16> text;
    g_snprintf(text.data(), text.size(), "0x%0*X", digits, value);
    return text.data();
}

std::string to_hex(BytesView bytes, std::string_view separator) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += text.empty() ? "" : separator;
        append_digits(text, byte);
    }
    return text;
}

std::string to_text(BytesView bytes) {
    while (!bytes.empty() && is_fill(bytes.back())) {
        bytes = bytes.first(bytes.size() - 1);
    }
    std::string text;
    while (!bytes.empty()) {
        const auto *const here = static_cast<const char *>(static_cast<const void *>(bytes.data()));
        const gunichar letter = g_utf8_get_char_validated(here, static_cast<gssize>(bytes.size()));
        const bool valid = letter < 0x110000 && g_unichar_isprint(letter) != 0;
        if (!valid || letter == '\\') {
            append_digits(text += "\\x", bytes.front());
            bytes = bytes.subspan(1);
            continue;
        }
        const auto size = static_cast<std::size_t>(g_unichar_to_utf8(letter, nullptr));
        text.append(here, size);
        bytes = bytes.subspan(size);
    }
    return text;
}

Bytes read_file(const std::string &path, std::size_t limit) {
    if (path == "-") {
        return read_all(STDIN_FILENO, "standard input", limit);
    }
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        throw file_failure(path, "cannot be opened", errno);
    }
    return read_all(file.get(), path, limit);
}

void write_file(const std::string &path, BytesView bytes) {
    if (path == "-") {
        (void)print_bytes(bytes.data(), bytes.size());
        return;
    }
    Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kOwnerOnly));
    if (!file) {
        throw file_failure(path, "cannot be opened for writing", errno);
    }
    if (!write_all(file.get(), bytes.data(), bytes.size()) || !file.close()) {
        throw file_failure(path, "cannot be written", errno);
    }
}

void print(std::string_view text) {
    (void)print_bytes(text.data(), text.size());
}

bool print_to_reader(std::string_view text) {
    return print_bytes(text.data(), text.size());
}

} // namespace asdctl
