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

} // namespace
