// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the host platform's tests share.

#include "atomic_file.h"
#include "fd.h"
#include "ipmi_registry.h"
#include "log.h"
#include "scratch.h"
#include "status.h"
#include "unix_socket.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace asd_test {

namespace fs = std::filesystem;
using asd_host::Fd;
using Bytes = std::vector<std::uint8_t>;
using Texts = std::vector<std::string>;
using std::chrono::milliseconds;

// What the file holds; nothing when it cannot be read.
template <typename Sequence = Bytes>
Sequence content_of(const fs::path &file) {
    int error = 0;
    const Bytes bytes = asd_host::read_file(file, &error).value_or(Bytes());
    return {bytes.begin(), bytes.end()};
}

// The lines that the action logs.
inline Texts logged(const std::function<void()> &action) {
    testing::internal::CaptureStderr();
    action();
    EXPECT_TRUE(asd_host::log_flush(milliseconds(kLimitMs)));
    std::istringstream log(testing::internal::GetCapturedStderr());
    Texts lines;
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The action logs one line, which has that text in it.
inline void expect_line(const std::string &text, const std::function<void()> &action) {
    const Texts lines = logged(action);
    EXPECT_TRUE(lines.size() == 1 && lines[0].find(text) != std::string::npos) << testing::PrintToString(lines);
}

// Does an action without a free descriptor for half a second, and then what comes after: both log one line, that there
// were too many.
inline void without_descriptors(const std::function<void()> &action, const std::function<void()> &after) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    // A thread's start and the first look at an object's type take descriptors under sanitizers: the log's have to come
    // before.
    const std::string reason = std::generic_category().message(EMFILE);
    HOST_LOG(asd_host::kLogError, "%s", reason.c_str());
    expect_line(reason, [&] {
        const auto lowest_free = static_cast<rlim_t>(Fd(::dup(0)).get());
        const rlimit none{.rlim_cur = lowest_free, .rlim_max = usual.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        action();
        const auto end = std::chrono::steady_clock::now() + milliseconds(500);
        EXPECT_TRUE(eventually([end] { return std::chrono::steady_clock::now() > end; }));
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
        after();
    });
}

inline void unix_connect_to(const Fd &fd, const fs::path &path) {
    const auto address = asd_host::unix_address(path);
    EXPECT_EQ(::connect(fd.get(), asd_host::common(*address), sizeof *address), 0);
}

inline Fd unix_stream() {
    return Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

inline void send_all(const Fd &socket, const auto &bytes) {
    EXPECT_EQ(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

// True when bytes can be read, or the end has come.
inline bool readable(const Fd &socket, int limit_ms = kLimitMs) {
    pollfd poll_fd{.fd = socket.get(), .events = POLLIN, .revents = 0};
    return ::poll(&poll_fd, 1, limit_ms) == 1;
}

// Answers with the row's text, then the request's data.
inline gint32 echo(const IPMI_MSG_S *message, gconstpointer user_data) {
    Bytes response{asd_host::kCompleted};
    const std::string_view text(static_cast<const char *>(user_data));
    response.insert(response.end(), text.begin(), text.end());
    const guint8 *data = get_ipmi_src_data(message);
    response.insert(response.end(), data, data + get_ipmi_src_data_len(message));
    return ipmi_send_response(message, static_cast<guint32>(std::uint64_t{response.size()}), response.data());
}

constexpr IPMI_CMD_S ipmi_row(std::uint8_t cmd, const char *filter, std::uint8_t privilege, std::uint8_t min_length,
                              std::uint8_t max_length, const char *text, IPMI_CMD_FUNC handler = echo) {
    // clang-format off
    return {.netfn = 0x32, .cmd = cmd, .filter = filter, .privilege = privilege, .role_func = "",
            .max_length = max_length, .min_length = min_length, .ipmi_handler = handler, .user_data = text};
    // clang-format on
}

} // namespace asd_test
