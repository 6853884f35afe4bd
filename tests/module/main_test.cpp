// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// What the module registers at its start: its commands are those of docs/ipmi-commands.md. Methods are the sweep's.

#include "bmc_asd_init.h"
#include "fake_platform.h"

#include <fstream>
#include <sstream>

#include <dlfcn.h>
#include <gtest/gtest.h>

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

using fake::Texts;

TEST(Main, WhatIsRegistered) {
    const std::map<std::string, VOS_TASK_ENTRY> tasks = {{"asd_master_check", asd_master_check_task},
                                                         {"asd_eeprom_check", asd_eeprom_check_task},
                                                         {"ccdb_set_eeprom", ASD_ROUTINE_SYS_CCDB_Task},
                                                         {"asd_eeprom_sync", ASD_EEprom_Sync_Task}};
    fake::reset();
    EXPECT_EQ(asd_module_main(0, nullptr), 0);
    const fake::Registered &known = fake::world().registered;
    EXPECT_EQ(known.reboot, BSP_RebootRequestProcess);
    EXPECT_EQ(known.object_handlers.size(), 2U);
    for (const auto &handler : known.object_handlers) {
        EXPECT_EQ(handler("AtomStorageData", 4711), 0);
    }
    EXPECT_EQ(known.tasks, tasks);
    EXPECT_EQ(fake::semaphores(false), (Texts{"ekey", "bayconfig", "eeprom", "CcdbSetEn", "SetNodeview"}));
}

// The row as the document's table begins it; a handler's name is looked up in the program's own symbols.
std::string documented(std::size_t number, const IPMI_CMD_S &row) {
    std::string head;
    std::string filter;
    for (const char index : {'0', '1', '2', '3', '4'}) {
        const std::string term = std::string("data[") + index + "]=";
        const std::size_t place = std::string_view(row.filter).find(term);
        const std::string byte = place == std::string::npos ? "any" : std::string(row.filter + place + 8, 2);
        head += byte + " ";
        filter += byte == "any" ? "" : (filter.empty() ? "" : ",") + term + byte + "h";
    }
    EXPECT_EQ(filter, row.filter) << "there is nothing else in it";
    Dl_info handler{};
    EXPECT_NE(dladdr(reinterpret_cast<void *>(row.ipmi_handler), &handler), 0);
    const auto *item = static_cast<const char *>(row.user_data);
    std::ostringstream line;
    line << "| " << number << " | " << std::hex << +row.cmd << std::dec << " | " << head << "| " << +row.privilege
         << " | " << +row.min_length << " | " << +row.max_length << " | `" << handler.dli_sname << "` | "
         << (item != nullptr ? item : "") << " | ";
    return line.str();
}

TEST(Main, TheCommandsAreTheDocuments) {
    Texts lines;
    std::ifstream document(ASD_COMMANDS_DOC);
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("| " + std::to_string(lines.size() + 1) + " | ")) {
            lines.push_back(line);
        }
    }
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    const std::vector<IPMI_CMD_S> &rows = fake::world().registered.rows;
    ASSERT_EQ(rows.size(), lines.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::string begin = documented(i + 1, rows[i]);
        EXPECT_EQ(lines[i].substr(0, begin.size()), begin);
        EXPECT_EQ(rows[i].netfn, 0x32);
        EXPECT_STREQ(rows[i].role_func, "");
    }
}

} // namespace
