// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The whole service in this process: the module on the project's enclosure, whose parts take no time, as its master.

#include "fuzz.h"

#include <string_view>
#include <thread>

namespace fuzz {

class Service {
public:
    // Started with the first call, ended with the process. What one input changed is there for the next.
    [[nodiscard]] static const Service &running();

    // Where the socket of that name is.
    [[nodiscard]] std::filesystem::path door(std::string_view socket) const;

    // Says that to the socket as one client, and is a finding unless the service then ends the connection.
    void hear(std::string_view socket, std::string_view said) const;

    // A finding unless every part comes to be protected again.
    void require_protected() const;

    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

private:
    Service();

    asd_test::ScratchFolder folder_;
    std::thread main_;
};

} // namespace fuzz
