// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "transfer.h"

#include "failure.h"
#include "texts.h"

#include <algorithm>

namespace asdctl {

namespace {

constexpr std::uint8_t kNetfn = 0x32;
constexpr std::uint8_t kEkeyGet = 0x12;
constexpr std::uint8_t kEkeySet = 0x13;
constexpr std::uint8_t kBayGet = 0x91;
constexpr std::uint8_t kBaySet = 0x94;
constexpr std::uint8_t kEkeyFromMirror = 0x1B;
constexpr std::uint8_t kEkeyFromChip = 0x1C;
constexpr std::uint8_t kBayFrame = 0x70;
constexpr std::uint8_t kBayLength = 0x71;
constexpr std::uint8_t kBayErase = 0x72;

constexpr std::array<std::uint8_t, 3> kChassis = {0x00, 0x00, 0x80};
constexpr std::size_t kReadFrame = 228; // bytes in every answer; the last frame is filled up
constexpr std::size_t kWriteFrame = 220;
constexpr std::size_t kBayLengthSize = 4;
constexpr std::uint32_t kErased = 0xFFFFFFFF;

// What to do about a refused transfer.
struct Advice {
    std::uint8_t code;
    const char *text;
};

constexpr std::array kBayAdvice = {
    Advice{.code = 0xC7, .text = "A controller that is not the master refuses so; 'asdctl status' shows the role."},
    Advice{.code = 0xCE, .text = "There is none in memory, or the part failed: 'asdctl show ASD25' shows both."},
};
constexpr std::array kEkeyAdvice = {
    Advice{.code = 0x80, .text = "Another transfer may hold the service's buffer; the service's log says more."},
    Advice{.code = 0xCE,
           .text = "There is none in memory, which --chip passes by, or the part failed; the service's log says more."},
};
using Advices = std::span<const Advice, 2>;

// The five bytes in front of everything, and the frame's place in the transfer.
Bytes frame_head(const std::array<std::uint8_t, 3> &fru, std::uint8_t selector, std::size_t total, std::size_t number) {
    Bytes head(fru.begin(), fru.end());
    head.insert(head.end(),
                {0x00, selector, static_cast<std::uint8_t>(total & 0xFFU), static_cast<std::uint8_t>(total >> 8U),
                 static_cast<std::uint8_t>(number & 0xFFU), static_cast<std::uint8_t>(number >> 8U)});
    return head;
}

// The answer's data, which has to be of that size.
Bytes ask(IpmiClient &client, std::uint8_t command, BytesView data, std::size_t expected, const std::string &doing,
          Advices advice) {
    IpmiAnswer answer = client.request(kNetfn, command, data);
    if (answer.code != 0) {
        const auto known = std::ranges::find(advice, answer.code, &Advice::code);
        throw Failure(doing + ": " + completion_text(answer.code), known == advice.end() ? "" : known->text);
    }
    if (answer.data.size() != expected) {
        throw Failure(doing + ": the answer has " + std::to_string(answer.data.size()) + " bytes instead of " +
                      std::to_string(expected));
    }
    return std::move(answer.data);
}

std::string frame_of(std::size_t number, std::size_t total) {
    return "frame " + std::to_string(number) + " of " + std::to_string(total);
}

// Frames of 228 bytes each, of which the first size bytes are the record.
Bytes read_frames(IpmiClient &client, std::uint8_t command, const std::array<std::uint8_t, 3> &fru,
                  std::uint8_t selector, std::size_t frames, std::size_t size, const std::string &what, Advices advice,
                  const Progress &progress) {
    Bytes record;
    for (std::size_t number = 1; number <= frames; ++number) {
        const Bytes head = frame_head(fru, selector, frames, number);
        const Bytes frame =
            ask(client, command, head, kReadFrame, "reading " + what + ", " + frame_of(number, frames), advice);
        record.insert(record.end(), frame.begin(), frame.end());
        progress();
    }
    record.resize(size);
    return record;
}

void write_frame(IpmiClient &client, std::uint8_t command, Bytes head, BytesView data, const std::string &doing,
                 Advices advice) {
    head.insert(head.end(), data.begin(), data.end());
    (void)ask(client, command, head, 0, doing, advice); // nothing but its completion code
}

std::string key_of(const KeyPlace &place) {
    return "the key of " + std::string(place.name);
}

Bytes short_request(std::uint8_t selector) {
    Bytes request(kChassis.begin(), kChassis.end());
    request.insert(request.end(), {0x00, selector});
    return request;
}

} // namespace

Bytes ekey_read(IpmiClient &client, const KeyPlace &place, bool from_chip, const Progress &progress) {
    const std::uint8_t selector = from_chip ? kEkeyFromChip : kEkeyFromMirror;
    return read_frames(client, kEkeyGet, place.fru, selector, kKeyFrames, kKeySize, key_of(place), kEkeyAdvice,
                       progress);
}

void ekey_write(IpmiClient &client, const KeyPlace &place, BytesView key, const Progress &progress) {
    for (std::size_t number = 1; number <= kKeyFrames; ++number) {
        // The last frame takes all that is left: 144 bytes.
        const BytesView data = key.first(number < kKeyFrames ? kWriteFrame : key.size());
        key = key.subspan(data.size());
        write_frame(client, kEkeySet, frame_head(place.fru, kEkeyFromMirror, kKeyFrames, number), data,
                    "writing " + key_of(place) + ", " + frame_of(number, kKeyFrames), kEkeyAdvice);
        progress();
    }
}

std::optional<std::uint32_t> bay_length(IpmiClient &client) {
    const Bytes bytes = ask(client, kBayGet, short_request(kBayLength), kBayLengthSize,
                            "reading the bay configuration's length", kBayAdvice);
    std::uint32_t length = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) {
        length = length << 8U | bytes[i - 1];
    }
    return length == kErased ? std::nullopt : std::optional(length);
}

Bytes bay_read(IpmiClient &client, const Progress &progress) {
    return read_frames(client, kBayGet, kChassis, kBayFrame, kBayReadFrames, kBayFileLimit, "the bay configuration",
                       kBayAdvice, progress);
}

std::size_t bay_write_frames(std::size_t file_size) {
    return (kBayLengthSize + file_size + kWriteFrame - 1) / kWriteFrame;
}

void bay_write(IpmiClient &client, BytesView file, const Progress &progress) {
    Bytes record;
    for (std::size_t i = 0; i < kBayLengthSize; ++i) {
        record.push_back(static_cast<std::uint8_t>(file.size() >> (8 * i) & 0xFFU));
    }
    record.insert(record.end(), file.begin(), file.end());
    const std::size_t frames = bay_write_frames(file.size());
    BytesView rest = record;
    for (std::size_t number = 1; number <= frames; ++number) {
        const BytesView data = rest.first(std::min(kWriteFrame, rest.size()));
        rest = rest.subspan(data.size());
        write_frame(client, kBaySet, frame_head(kChassis, kBayFrame, frames, number), data,
                    "writing the bay configuration, " + frame_of(number, frames), kBayAdvice);
        progress();
    }
}

void bay_erase(IpmiClient &client) {
    (void)ask(client, kBaySet, short_request(kBayErase), 0, "erasing the bay configuration",
              kBayAdvice); // nothing but its completion code
}

} // namespace asdctl
