// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dummy_door.h"

#include "caller.h"
#include "dummy_protocol.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace asd_host {
namespace {

// A client that takes its leave: it does not read any more.
bool is_bye(const DummyRequest &header) {
    return header.netfn == kByeNetfn && header.cmd == kByeCmd && header.data_len == 0;
}

bool answer(StreamClient &client, const DummyRequest &request, const IpmiResponse &response) {
    DummyResponse header{};
    header.netfn = request.netfn | 1U;
    header.cmd = request.cmd;
    header.lun = request.lun;
    header.ccode = response.front();
    header.data_len = static_cast<std::int32_t>(response.size() - 1);
    std::vector<std::uint8_t> bytes(sizeof header + response.size() - 1);
    std::memcpy(bytes.data(), &header, sizeof header);
    std::copy(response.begin() + 1, response.end(), bytes.begin() + sizeof header);
    return client.send(bytes);
}

// Takes the request's data off the connection; keeps as much as a request may have.
bool read_data(StreamClient &client, std::size_t length, std::span<std::uint8_t> data) {
    if (!client.read(data.first(std::min(length, data.size())))) {
        return false;
    }
    std::array<std::uint8_t, 4096> rest;
    for (std::size_t left = length - std::min(length, data.size()); left > 0;) {
        const std::size_t count = std::min(left, rest.size());
        if (!client.read(std::span(rest).first(count))) {
            return false;
        }
        left -= count;
    }
    return true;
}

IpmiResponse serve(StreamClient &client, const IpmiRegistry &registry, const IpmiRequest &request) {
    if (!client.admitted()) {
        return {kNodeBusy};
    }
    const Caller caller("IPMI", [&client] { return client.user(); });
    return registry.serve(request);
}

// Serves one request. False: the connection is at its end.
bool serve_next(StreamClient &client, const IpmiRegistry &registry, std::uint8_t privilege) {
    std::array<std::uint8_t, sizeof(DummyRequest)> bytes;
    if (!client.await_request() || !client.read(bytes)) {
        return false;
    }
    DummyRequest header;
    std::memcpy(&header, bytes.data(), bytes.size());
    if (is_bye(header)) {
        return false;
    }
    std::array<std::uint8_t, kRequestLimit> data;
    if (!read_data(client, header.data_len, data)) {
        (void)answer(client, header, {kRequestLengthInvalid}); // in case it still listens; the connection ends anyway
        return false;
    }
    if (header.data_len > data.size()) {
        return answer(client, header, {kRequestLengthExceeded});
    }
    const IpmiRequest request{.netfn = header.netfn,
                              .lun = header.lun,
                              .cmd = header.cmd,
                              .data = std::span(data).first(header.data_len),
                              .privilege = privilege};
    return answer(client, header, serve(client, registry, request));
}

} // namespace

std::unique_ptr<StreamServer> open_dummy_door(const std::filesystem::path &socket, const IpmiRegistry &registry,
                                              std::uint8_t privilege, std::string *mistake) {
    const auto protocol = [&registry, privilege](StreamClient &client) {
        while (serve_next(client, registry, privilege)) {
        }
    };
    return StreamServer::open(socket, "asd-ipmi", protocol, mistake);
}

} // namespace asd_host
