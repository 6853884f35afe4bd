// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Registration and start, step by step, and requests that find their row.

#include "bmc_asd_common.h"
#include "fake_platform.h"

#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

using fake::Texts;

struct Step {
    const char *operation;
    const char *subject;
    std::string arguments;
    const char *what; // the failure's text names it so; empty: nothing is logged
    DFL_METHOD_FUNC method = nullptr;
};

// As many commands as the document's table numbers.
std::string command_count() {
    int count = 0;
    std::ifstream document(ASD_COMMANDS_DOC);
    for (std::string line; std::getline(document, line);) {
        count += line.starts_with("| " + std::to_string(count + 1) + " |") ? 1 : 0;
    }
    return " " + std::to_string(count);
}

// clang-format off
const std::vector<Step> kSteps = {
    {"static_register_module", "asd", "", "register module asd"},
    {"init_md_so", "", "", "init_md_so"},
    {"static_declaration_class", "AtomStorageData", "", "declaration class AtomStorageData"},
    {"static_declaration_class", "AtomStorageDataDev", "", "declaration class AtomStorageDataDev"},
    {"static_declaration_class", "Config9555", "", "declaration class Config9555"},
    {"static_declaration_class_method", "AtomStorageData.WriteAtomStorageData", "", "declaration method AtomStorageData.WriteAtomStorageData", asd_write_data},
    {"static_declaration_class_method", "AtomStorageData.UpdateMemProperty", "", "declaration method AtomStorageData.UpdateMemProperty", Asd_UpdateMemProperty},
    {"static_declaration_class_method", "AtomStorageData.ReadAtomStorageData", "", "declaration method AtomStorageData.ReadAtomStorageData", asd_read_data},
    {"static_declaration_class_method", "AtomStorageData.ClearMemData", "", "declaration method AtomStorageData.ClearMemData", asd_clear_memdata},
    {"static_declaration_class_method", "AtomStorageDataDev.SetAsdDevErrCode", "", "declaration method AtomStorageDataDev.SetAsdDevErrCode", Asd_SetErrCode},
    {"static_declaration_class_method", "AtomStorageData.ReadAsdMemData", "", "declaration method AtomStorageData.ReadAsdMemData", Asd_GetAsdMemData},
    {"static_declaration_class_method", "AtomStorageData.EqWriteAtomStorageData", "", "declaration method AtomStorageData.EqWriteAtomStorageData", asd_eqwrite_data},
    {"static_declaration_class", "CommPrevChip", "", "declaration class CommPrevChip"},
    {"static_register_reboot_handler", "", "", "register reboot handler"},
    {"dfl_add_object_handler", "", "", "register add object handler"},
    {"dfl_del_object_handler", "", "", "register del object handler"},
    {"static_implementation_ipmicmd", "", command_count(), "register ipmi command"},
    {"static_complete_module_register", "", "", "get object/class/route info"},
    {"static_module_init", "", " -1", "module asd init"},
    {"static_module_start", "", " 0", "module asd start"},
    {"static_start_rpc_service", "", "", ""},
};
// clang-format on

std::string journal_line(const Step &step) {
    return std::string("0 ") + step.operation + (*step.subject != '\0' ? " " : "") + step.subject + step.arguments;
}

// The registration calls made.
Texts registration() {
    return fake::timeline({"static_", "init_md_so", "dfl_add_", "dfl_del_"}, -1);
}

TEST(Main, TheFirstFailureEndsTheStart) {
    for (std::size_t failing = 0; failing <= kSteps.size(); ++failing) {
        const bool none = failing == kSteps.size();
        SCOPED_TRACE(none ? "no failure" : journal_line(kSteps[failing]));
        fake::reset();
        Texts expected;
        for (std::size_t i = 0; i < std::min(failing + 1, kSteps.size()); ++i) {
            expected.push_back(journal_line(kSteps[i]));
        }
        if (!none) {
            fake::inject({.operation = kSteps[failing].operation, .subject = kSteps[failing].subject, .status = 55});
        }
        const std::string what = none ? "" : kSteps[failing].what;
        const bool ends = !what.empty(); // the service's own result is ignored
        EXPECT_EQ(asd_module_main(0, nullptr), ends ? 55 : 0);
        EXPECT_EQ(registration(), expected);
        EXPECT_EQ(fake::logs(0), ends ? Texts{"0 " + what + " failed.errcode:55\r\n"} : Texts{});
        EXPECT_EQ(fake::world().violations, Texts{});
    }
}

TEST(Main, WhatIsRegisteredWorks) {
    fake::reset();
    EXPECT_EQ(asd_module_main(0, nullptr), 0);
    const fake::Registered &known = fake::world().registered;
    for (const Step &step : kSteps) {
        EXPECT_EQ(step.method, known.methods.contains(step.subject) ? known.methods.at(step.subject) : nullptr);
    }
    EXPECT_EQ(known.reboot, BSP_RebootRequestProcess);
    EXPECT_EQ(known.object_handlers.size(), 2U);
    for (const auto &handler : known.object_handlers) {
        EXPECT_EQ(handler("AtomStorageData", 4711), 0);
    }
    EXPECT_EQ(fake::world().tasks.size(), 4U);
}

// Rows that differ in one filter byte; a handler that finds no item says which it is.
TEST(Main, RequestsFindTheirRow) {
    fake::reset();
    ASSERT_EQ(asd_module_main(0, nullptr), 0);
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1B, 5, 0, 9, 0}, 0).response, fake::Bytes{0xCE});
    EXPECT_TRUE(fake::logged("2 user data is ASD5"));
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1C, 5, 0, 9, 0}, 0).response, fake::Bytes{0xCE});
    EXPECT_TRUE(fake::logged("0 Get object handle fail! result(-3001)."));
    EXPECT_EQ(fake::request(0x32, 0x12, {0, 0, 0x80, 0, 0x1D, 5, 0, 9, 0}).response, fake::Bytes{0xC1});
}

} // namespace
