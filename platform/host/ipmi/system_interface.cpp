// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "system_interface.h"

#include <algorithm>
#include <array>

namespace asd_host {
namespace {

constexpr std::uint8_t kNetfnApp = 0x06;
constexpr std::uint8_t kSetGlobalEnables = 0x2E;
constexpr std::uint8_t kGetGlobalEnables = 0x2F;
constexpr std::uint8_t kClearMessageFlags = 0x30;
constexpr std::uint8_t kGetMessageFlags = 0x31;
constexpr std::uint8_t kGetMessage = 0x33;
constexpr std::uint8_t kSendMessage = 0x34;
constexpr std::uint8_t kReadEventMessageBuffer = 0x35;
constexpr std::uint8_t kGetChannelInfo = 0x42;

constexpr std::uint8_t kNothingWaits = 0x80; // completion code of the two commands that fetch a message

constexpr std::uint8_t kInterruptOfMessages = 0x01; // global enables
constexpr std::uint8_t kInterruptOfEvents = 0x02;
constexpr std::uint8_t kSettable = 0xE0 | kInterruptOfMessages | kInterruptOfEvents; // 0xE0: OEM's, kept for the host

constexpr std::uint8_t kThisChannel = 0x0E;
constexpr std::uint8_t kSystemChannel = 0x0F;
constexpr std::uint8_t kMediumSystemInterface = 0x0C;
constexpr std::uint8_t kProtocolKcs = 0x05;
constexpr std::uint8_t kUnspecifiedInterrupt = 0xFF;

struct Command {
    std::uint8_t cmd;
    std::uint8_t least; // bytes of data
    std::uint8_t most;
};
// clang-format off
constexpr std::array kCommands = {
    Command{.cmd = kSetGlobalEnables,       .least = 1, .most = 1},
    Command{.cmd = kGetGlobalEnables,       .least = 0, .most = 0},
    Command{.cmd = kClearMessageFlags,      .least = 1, .most = 1},
    Command{.cmd = kGetMessageFlags,        .least = 0, .most = 0},
    Command{.cmd = kGetMessage,             .least = 0, .most = 0},
    Command{.cmd = kSendMessage,            .least = 1, .most = kRequestLimit},
    Command{.cmd = kReadEventMessageBuffer, .least = 0, .most = 0},
    Command{.cmd = kGetChannelInfo,         .least = 1, .most = 1},
};
// clang-format on

IpmiResponse channel_info(std::uint8_t channel) {
    channel &= 0x0FU;
    if (channel != kThisChannel && channel != kSystemChannel) {
        return {kInvalidField};
    }
    return {kCompleted, kSystemChannel, kMediumSystemInterface, kProtocolKcs,
            0x00, // no sessions
            0xF2, // who defined the protocol: IPMI's own number, 7154, low byte first
            0x1B,       0x00,           kUnspecifiedInterrupt,  kUnspecifiedInterrupt};
}

} // namespace

void SystemInterface::set_enables(std::uint8_t enables) {
    enables_ = enables;
    interrupts_ = (enables & kInterruptOfMessages) != 0;
}

std::optional<IpmiResponse> SystemInterface::answer(const IpmiRequest &request) {
    const Command *const command =
        std::ranges::find(kCommands, request.cmd, &Command::cmd); // one of few, in the order of their numbers
    if (request.netfn != kNetfnApp || command == kCommands.end()) {
        return std::nullopt;
    }
    if (request.data.size() < command->least || request.data.size() > command->most) {
        return IpmiResponse{kRequestLengthInvalid};
    }
    switch (request.cmd) {
    case kSetGlobalEnables:
        if ((request.data[0] & ~kSettable) != 0) { // an event message buffer, a log
            return IpmiResponse{kInvalidField};
        }
        set_enables(request.data[0]);
        return IpmiResponse{kCompleted};
    case kGetGlobalEnables:
        return IpmiResponse{kCompleted, enables_};
    case kClearMessageFlags:
        return IpmiResponse{kCompleted};
    case kGetMessageFlags:
        return IpmiResponse{kCompleted, 0x00};
    case kSendMessage:
        return IpmiResponse{kInvalidField}; // no such channel
    case kGetChannelInfo:
        return channel_info(request.data[0]);
    default:
        return IpmiResponse{kNothingWaits};
    }
}

} // namespace asd_host
