// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The items that the sweep's worlds are made of, and the conditions that an operation meets them in.

#include "sweep.h"

#include <string_view>

struct SweepItem {
    const char *name;
    guint32 length;
    const char *chip0;
    const char *chip1 = nullptr;
    const char *check = nullptr; // the item that holds its flag
};

// clang-format off
inline const std::vector<SweepItem> kSweepItems = {
    {"ASD0", 64, "ASDDev0A"}, {"ASD1", 64, "ASDDev1"}, {"ASD2", 64, "ASDDev2"}, {"ASD3", 64, "ASDDev3"}, {"ASD8", 64, "ASDDev8"}, {"ASD9", 64, "ASDDev9"},
    {"ASD5", 1024, "ASDDev5a", "ASDDev5b"},
    {"ASD7", 1024, "ASDDev7"},
    {"ASD10", 6, "ASDDev10a", "ASDDev10b"},
    {"ASD11", 20, "ASDDev11a", "ASDDev11b"},
    {"ASD13", 16, "ASDDev13a", "ASDDev13b"},
    {"ASD14", 32, "ASDDev14a", "ASDDev14b"},
    {"ASD15", 32, "ASDDev15a", "ASDDev15b"},
    {"ASD16", 8, "ASDDev16a", "ASDDev16b", "ASD17"}, {"ASD17", 1, "ASDDev17a", "ASDDev17b"},
    {"ASD20", 16, "ASDDev20a", "ASDDev20b"},
    {"ASD21", 8, "ASDDev21a", "ASDDev21b"},
    {"ASD22", 8, "ASDDev22a", "ASDDev22b", "ASD23"}, {"ASD23", 1, "ASDDev23a", "ASDDev23b"},
    {"ASD24", 128, "ASDDev24a"},
    {"ASD25", 2052, "ASDDev25a"},
    {"ASD26", 16, "ASDDev26a"},
    {"ASD27", 32, "ASDDev27a"},
    {"ASD52", 8, "ASDDev52a", "ASDDev52b", "ASD53"}, {"ASD53", 1, "ASDDev53a", "ASDDev53b"},
    {"ASD1000", 1024, "ASDDev1000"}, {"ASD1001", 1024, "ASDDev1001"},
    {"ASD_CCDB", 128, "ASD_CCDBa", "ASD_CCDBb", "ASD_CCDB_VALID"}, {"ASD_CCDB_VALID", 1, "ASD_CCDB_VALIDa", "ASD_CCDB_VALIDb"},
    {"ASD_NODE_VIEW", 64, "ASD_NODE_VIEWa", "ASD_NODE_VIEWb", "ASD_NODE_VIEW_VALID"}, {"ASD_NODE_VIEW_VALID", 1, "ASD_NODE_VIEW_VALIDa", "ASD_NODE_VIEW_VALIDb"},
    {"ASD_PRODUCT_CFGINFO", 64, "ASD_PRODUCT_CFGINFOa", "ASD_PRODUCT_CFGINFOb", "ASD_PRODUCT_CFGINFO_VALID"},
    {"ASD_PRODUCT_CFGINFO_VALID", 1, "ASD_PRODUCT_CFGINFO_VALIDa", "ASD_PRODUCT_CFGINFO_VALIDb"},
    {"ASD_FrameLedRule", 8, "ASD_FrameLedRuleDeva", "ASD_FrameLedRuleDevb", "ASD_FrameLedRuleValid"},
    {"ASD_FrameLedRuleValid", 1, "ASD_FrameLedRuleValidDeva", "ASD_FrameLedRuleValidDevb"},
    {"ASD_BBUSWITCH", 4, "ASD_BBUSWITCHa", "ASD_BBUSWITCHb", "ASD_BBUSWITCH1"}, {"ASD_BBUSWITCH1", 1, "ASD_BBUSWITCH1a", "ASD_BBUSWITCH1b"},
    {"ASD_BBUSWITCHTIME", 4, "ASD_BBUSWITCHTIMEa", "ASD_BBUSWITCHTIMEb", "ASD_BBUSWITCHTIME1"}, {"ASD_BBUSWITCHTIME1", 1, "ASD_BBUSWITCHTIME1a", "ASD_BBUSWITCHTIME1b"},
    {"ASD_PCIEORSAS", 4, "ASD_PCIEORSASa"},
    {"ASD_IOCARD_PCIE4", 8, "ASD_IOCARD_PCIE4a"},
    {"ASD_PRODUCT_FRAMECFG", 16, "ASD_PRODUCT_FRAMECFGa"},
    {"ASD_PowerConfig", 128, "ASD_PowerConfiga"},
    {"ASD_PowerThreshold", 16, "ASDDevPowerThresholda"},
    {"ASD_E2PWP", 32, "ASD_E2PWPa", "ASD_E2PWPb"},
    {"ASD_OVERSEAS", 16, "ASD_OVERSEASa"},
    {"ASD_Bucklecard0Eeprom", 4, "ASD_Bucklecard0Eeproma"}, {"ASD_Bucklecard1Eeprom", 4, "ASD_Bucklecard1Eeproma"}, {"ASD_Bucklecard0EepromSub", 4, "ASD_Bucklecard0EepromSuba"},
};
// clang-format on

const SweepItem &sweep_item(std::string_view name);

// The item, loaded, online, numbered by its place, on its chips, which hold its record and are tried twice; with the
// item that holds its flag.
OBJ_HANDLE build_sweep_item(std::string_view name);

// What a chip holds at first, and what Value does.
Bytes sweep_record(const SweepItem &item);
Bytes sweep_value(const SweepItem &item);

guint8 sweep_number(std::string_view name);

// The role whose transition the role monitor did last.
Arrange was(BOARD_MOS_E role);

struct Condition {
    const char *name;
    Arrange arrange;
    bool disturbed = false; // worth a second failure
};

// Of the item, its chips and the board; the first is as built.
std::vector<Condition> conditions(const SweepItem &item);
