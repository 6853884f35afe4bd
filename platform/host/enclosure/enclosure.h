// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an enclosure file says: the board, its EEPROM parts, the chips (records on a part) and the items (records'
// owners).

#include "inventory_config.h"
#include "options.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace asd_host {

struct BoardFacts {
    bool management_module = false;                                 // BSP_IsSmmBoard
    bool manufacturing_build = false;                               // BSP_IsManuVersion
    bool four_u_four_controller = false;                            // BSP_Is4U4CBoard
    bool equipment_frame = false;                                   // BSP_isEquipFrameBoard
    bool tarn_four_u_four_controller = false;                       // BSP_IsTarn4U4CBoard
    bool two_u_expansion = false;                                   // BSP_Is2UExpBoard
    std::uint32_t backplane_eeproms = 2;                            // BSP_GetBpEepromCount
    std::vector<std::uint8_t> pcie_sas_models = {0x33, 0x55, 0xAA}; // valid backplane model codes
};

// What Get Device ID (IPMI 2.0, 20.1) answers.
struct DeviceIdentity {
    std::uint8_t device_id = 0x20;
    std::uint8_t device_revision = 1;
    std::uint8_t firmware_major = 0;   // 0 to 127
    std::uint8_t firmware_minor = 1;   // BCD
    std::uint32_t manufacturer_id = 0; // IANA enterprise number, 20 bits
    std::uint16_t product_id = 0;
};

enum class PartKind {
    kImage,  // an image file, emulated as the part would behave; created erased when it does not exist
    kDevice, // an existing file that leads to the part, such as at24's sysfs eeprom; never created
};

struct PartConfig {
    std::string name;
    PartKind kind = PartKind::kImage;
    std::filesystem::path file;  // as written; relative: below the state folder (shared) or the slot's (private)
    bool shared = false;         // reached by every controller of the enclosure
    std::uint32_t size = 0;      // bytes
    std::uint32_t page_size = 0; // bytes; a power of two
    std::uint32_t write_cycle_us = 5000; // time a page write takes; image parts only
    // The line that must be at level 1 for a write; none: not protected.
    std::optional<std::uint32_t> write_protect_line = {};
};

// A write-protect line that is a line of a GPIO chip.
struct GpioLineConfig {
    std::uint32_t line = 0;                   // the number that the module and the parts know it by
    std::string chip;                         // path, name or label
    std::optional<std::uint32_t> offset = {}; // on the chip; none: the chip's line of this name
    std::string name = {};
    bool active_low = false; // level 1 is the lower voltage
};

struct ChipConfig {
    std::string name;
    std::string part;
    std::uint32_t offset = 0; // of the record in the part
    std::uint32_t retry_number = 5;
    std::uint8_t stg_is_wp = 0;
    std::uint8_t stg_wp = 0; // at start; 1 protects the record until it is written 0
};

struct ItemConfig {
    std::string name;
    std::uint8_t num = 0;
    std::uint32_t length = 0; // data bytes, 1 to 8192; the record on each chip is 2 longer
    std::uint8_t online = 1;
    bool need_sync = false;
    bool erased_value = false;      // Value before the first load: Length bytes 0xFF; else none
    bool confidential = false;      // Value leaves the service only when it is asked for by name
    std::string label = {};         // what operators call it; empty: nothing
    std::string format = {};        // how they write its values, of kFormatNames
    std::vector<std::string> chips; // one, or two for a mirrored item
};

struct Enclosure {
    std::string name;
    Role role = Role::kAuto;
    BoardFacts board;
    DeviceIdentity device;
    std::uint8_t ipmi_privilege = 4;        // of the local IPMI socket: 1 callback to 4 administrator
    std::uint8_t session_privilege = 4;     // least for the module's commands over network sessions
    std::vector<GpioLineConfig> gpio_lines; // lines that are not among them are emulated
    std::vector<PartConfig> parts;
    std::vector<ChipConfig> chips;
    std::vector<ItemConfig> items;
    std::optional<InventoryConfig> inventory; // none: no standard inventory is served
};

// An enclosure, or every mistake in its file as one line each: "FILE:LINE: /place: what is wrong; what would be right".
struct LoadedEnclosure {
    std::optional<Enclosure> enclosure; // set exactly when mistakes is empty
    std::vector<std::string> mistakes;
};
[[nodiscard]] LoadedEnclosure load_enclosure(const std::filesystem::path &file);

} // namespace asd_host
