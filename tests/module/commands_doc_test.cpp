// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The command table of docs/ipmi-commands.md against the rows that the module registers.

#include "fake_platform.h"

#include <fstream>
#include <sstream>

#include <dlfcn.h>
#include <gtest/gtest.h>

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

using fake::Texts;

// The name of a handler, from the program's own symbols.
std::string name_of(IPMI_CMD_FUNC handler) {
    Dl_info info{};
    return dladdr(reinterpret_cast<void *>(handler), &info) != 0 && info.dli_sname != nullptr ? info.dli_sname : "?";
}

// The cells of a table's line, without blanks and back quotes around them.
Texts cells(const std::string &line) {
    Texts found;
    std::istringstream stream(line.substr(1));
    for (std::string cell; std::getline(stream, cell, '|');) {
        const std::size_t first = cell.find_first_not_of(" `");
        found.push_back(first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(" `") - first + 1));
    }
    return found;
}

std::vector<Texts> documented_rows() {
    std::vector<Texts> rows;
    std::ifstream document(ASD_COMMANDS_DOC);
    bool in_table = false;
    for (std::string line; std::getline(document, line);) {
        in_table = line.starts_with("| # |") || (in_table && line.starts_with("|"));
        if (in_table && line.starts_with("| ") && !line.starts_with("| #")) {
            rows.push_back(cells(line));
        }
    }
    return rows;
}

// The filter for a head as the document shows it: "00 00 80 any 1b".
std::string filter_of(const std::string &head) {
    std::string filter;
    std::istringstream bytes(head);
    std::string byte;
    for (int i = 0; bytes >> byte; ++i) {
        if (byte != "any") {
            filter += (filter.empty() ? "" : ",") + ("data[" + std::to_string(i) + "]=") + byte + "h";
        }
    }
    return filter;
}

TEST(CommandsDoc, TheTableIsWhatTheModuleRegisters) {
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    const std::vector<IPMI_CMD_S> &rows = fake::world().registered.rows;
    const std::vector<Texts> documented = documented_rows();
    ASSERT_EQ(rows.size(), documented.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i + 1));
        const Texts &doc = documented[i];
        ASSERT_EQ(doc.size(), 11U);
        EXPECT_EQ(doc[0], std::to_string(i + 1));
        EXPECT_EQ(rows[i].netfn, 0x32);
        EXPECT_EQ(rows[i].cmd, std::stoul(doc[1], nullptr, 16));
        EXPECT_EQ(rows[i].filter, filter_of(doc[2]));
        EXPECT_EQ(rows[i].privilege, std::stoul(doc[3]));
        EXPECT_STREQ(rows[i].role_func, "");
        EXPECT_EQ(rows[i].min_length, std::stoul(doc[4]));
        EXPECT_EQ(rows[i].max_length, std::stoul(doc[5]));
        EXPECT_EQ(name_of(rows[i].ipmi_handler), doc[6]);
        const auto *item = static_cast<const char *>(rows[i].user_data);
        EXPECT_EQ(item != nullptr ? std::string(item) : "", doc[7]);
    }
}

// A null message is never answered; what it logs, by handler.
TEST(CommandsDoc, NullMessages) {
    const std::string pointer = "0 Input parameter pointer is null!";
    const std::string message = "0 MsgData is (nil).";
    // clang-format off
    const std::map<std::string, Texts> logged = {
        {"ipmi_cmd_get_brand", {"0 Get brand: input parameter is null."}},
        {"ipmi_cmd_get_vendor", {"0 Get vendor: input parameter is null."}},
        {"ipmi_cmd_get_overseas", {"0 Get overseas flag, input parameter pointer is null."}},
        {"ipmi_cmd_set_overseas", {"0 Set overseas flag, input parameter pointer is null."}},
        {"ASD_IpmiGetBayconfig", {"1 enter get bayconfig.", message}},
        {"ASD_IpmiGetBayconfigFileLen", {"1 enter get bayconfig len.", message}},
        {"ASD_IpmiSetBayconfig", {"1 enter set bayconfig. 0", message}},
        {"ASD_IpmiClearBayconfig", {"1 clear bayconfig.", message}},
        {"ASD_GetEEPromData", {"0 Input Parameter is Null."}},
        {"ipmi_cmd_get_ccdb", {"2 getting ccdb data starts", pointer}},
        {"ipmi_cmd_set_ccdb", {"2 setting ccdb data starts.", pointer}},
        {"IpmiCmdGetNodeView", {"0 Get nodeView: input parameter is null."}},
        {"IpmiCmdSetNodeView", {"0 Set nodeView: input parameter is null."}},
        {"ASD_IPMI_GetIocardPCIE4", {"0 Get backboard iocard pcie4.0 data failed, input parameter pointer is null."}},
        {"Ipmi_cmdGetProductFrameCfg", {"0 Get product frame cfg failed(input parameter is null)"}},
        {"Ipmi_cmdGetProductCfgInfo", {"0 Get product cfg info failed(input parameter is null)"}},
        {"Ipmi_cmdSetProductFrameCfg", {"0 Set product frame cfg failed(input parameter is null)"}},
        {"Ipmi_cmdSetProductCfgInfo", {"0 Set product cfg info failed(input parameter is null)"}},
    };
    // clang-format on
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    const std::vector<IPMI_CMD_S> rows = fake::world().registered.rows;
    for (const IPMI_CMD_S &row : rows) {
        const std::string name = name_of(row.ipmi_handler);
        SCOPED_TRACE(name);
        fake::reset();
        EXPECT_EQ(row.ipmi_handler(nullptr, "ASD14"), -1);
        EXPECT_EQ(fake::logs(2), logged.contains(name) ? logged.at(name) : Texts{});
        EXPECT_EQ(fake::calls("ipmi_send_simple_response") + fake::calls("ipmi_send_response"), 0U);
    }
}

} // namespace
