// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "host.h"
#include "host_test.h"
#include "world.h"

namespace contract {

using namespace asd_host;

// The platform starts once a process; each test runs in its own.
void world_start() {
    static const asd_test::ScratchFolder kFolder;
    if (host() != nullptr) {
        return;
    }
    Enclosure enclosure;
    enclosure.name = "contract";
    enclosure.role = Role::kMaster;
    for (const char *name : {"a", "b", "ear", "psu"}) {
        enclosure.parts.push_back({.name = name, .file = name, .size = 256, .page_size = 16, .write_cycle_us = 0});
    }
    enclosure.parts[0].write_protect_line = enclosure.parts[1].write_protect_line = 55;
    enclosure.chips = {{.name = "ASDDev14a", .part = "a", .offset = 32},
                       {.name = "ASDDev14b", .part = "b", .offset = 32},
                       {.name = "ASDDev7", .part = "ear"},
                       {.name = "ASDDev1000", .part = "psu", .stg_wp = 1}};
    enclosure.items = {{.name = "ASD14", .num = 14, .length = 4, .chips = {"ASDDev14a", "ASDDev14b"}},
                       {.name = "ASD7", .num = 7, .length = 4, .chips = {"ASDDev7"}},
                       {.name = "ASD1000", .num = 100, .length = 4, .chips = {"ASDDev1000"}}};
    Options options;
    options.run_dir = kFolder.path() / "run";
    options.state_dir = kFolder.path() / "state";
    ASSERT_EQ(host_start(options, enclosure), asd_test::Texts{});
}

std::vector<std::uint8_t> world_request(IPMI_CMD_FUNC handler, const std::vector<std::uint8_t> &data) {
    const std::array rows{asd_test::ipmi_row(0x16, "", 0, 0, 255, nullptr, handler)};
    IpmiRegistry registry;
    EXPECT_TRUE(registry.add(rows));
    return registry.serve({.netfn = 0x32, .cmd = 0x16, .data = data});
}

} // namespace contract
