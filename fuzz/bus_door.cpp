// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// A client of the private D-Bus socket, with the whole service behind it. The first byte of an input is even when the
// handshake is done for the client and its messages follow, odd when all that it says follows.

#include "dbus_service.h"
#include "log.h"
#include "status.h"
#include "unix_socket.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace asd_host;

constexpr int kEndLimitMs = 20'000;

[[noreturn]] void give_up(const char *what) {
    (void)std::fprintf(stderr, "bus_door: %s\n", what);
    std::abort();
}

gint32 count_bytes(const OBJ_HANDLE /*object*/, GSList * /*caller*/, GSList *input, GSList **output) {
    const gsize count = input == nullptr ? 0 : g_variant_n_children(static_cast<GVariant *>(input->data));
    *output = g_slist_append(*output, g_variant_new_int32(static_cast<gint32>(count)));
    return 0;
}

gint32 nothing(const OBJ_HANDLE /*object*/, GSList * /*caller*/, GSList * /*input*/, GSList ** /*output*/) {
    return 0;
}

// A service in a folder that goes with the process.
class World {
public:
    World() {
        std::string name = (std::filesystem::temp_directory_path() / "asd-fuzz-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            give_up("no folder");
        }
        log_set(-1, false);
        host_.options.run_dir = host_.options.state_dir = folder_ = name;
        std::filesystem::create_directory(host_.options.slot_run_dir());
        host_.objects.add("AtomStorageData", "ASD5",
                          {{.name = "Online", .value = std::uint8_t{1}, .writable = true},
                           {.name = "Value", .value = Bytes(1024, 1), .writable = true}});
        (void)module_.declare_class("AtomStorageData");                                         // there is none
        (void)module_.declare_method("AtomStorageData", "EqWriteAtomStorageData", count_bytes); // as yet
        (void)module_.declare_method("AtomStorageData", "ClearMemData", nothing);
        std::string mistake;
        service_ = DbusService::open(host_, module_, commands_, &mistake);
        if (service_ == nullptr) {
            give_up(mistake.c_str());
        }
    }
    ~World() {
        (void)service_->stop(std::chrono::seconds(5)); // what hangs has been seen before
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    [[nodiscard]] Fd connect() const {
        int error = 0;
        Fd client = unix_connect(host_.options.slot_run_dir() / "bus", &error);
        if (!client) {
            give_up("nobody listens");
        }
        return client;
    }

private:
    std::filesystem::path folder_;
    Host host_;
    ModuleRegistry module_;
    IpmiRegistry commands_;
    std::unique_ptr<DbusService> service_;
};

void wait_for_end(const Fd &client) {
    std::array<char, 65536> piece{};
    pollfd ready{.fd = client.get(), .events = POLLIN, .revents = 0};
    int there = 0;
    do {
        there = ::poll(&ready, 1, kEndLimitMs);
        if (there == 0) {
            give_up("a client that has ended is not let go");
        }
        // The fuzzer's own alarm may interrupt the wait.
    } while (there < 0 || ::recv(client.get(), piece.data(), piece.size(), 0) > 0);
}

} // namespace

// The fuzzer's name for it, and its declaration.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const World world;
    if (size == 0) {
        return 0;
    }
    const Fd client = world.connect();
    std::string said;
    if (data[0] % 2 == 0) {
        said = std::string(1, '\0') + "AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n";
    }
    said.append(reinterpret_cast<const char *>(data) + 1, size - 1);
    // It may have been cut off before all is sent.
    [[maybe_unused]] const ssize_t sent = ::send(client.get(), said.data(), said.size(), MSG_NOSIGNAL);
    (void)::shutdown(client.get(), SHUT_WR); // the service sees the end all the same
    wait_for_end(client);
    return 0;
}
