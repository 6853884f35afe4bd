// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The standard inventory as the items in memory make it now. Nothing is kept: who asks gets what holds at that moment,
// and no chip is touched. Any thread.

#include "inventory_config.h"
#include "ipmi_stack.h"
#include "platform_types.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

struct Host;

// Printable UTF-8. Empty: the field is, or its item has no value in memory (Ready is not 1) or a blank one: 0xFF, or
// zeros and spaces where it is a text.
[[nodiscard]] std::string inventory_text(const Host &platform, const InventoryField &field);
// Of the field that has this key in the first of these areas where it is not empty.
[[nodiscard]] std::string inventory_text(const Host &platform, std::string_view key,
                                         std::span<const InventoryAreaIndex> areas);

// The items that its fields are taken from; none without an Inventory section.
[[nodiscard]] std::set<OBJ_HANDLE> inventory_items(const Host &platform);

// The commands that show it, in static storage: FRU inventory, SDR repository, identifiers, self test (IPMI 2.0,
// chapters 20, 33 and 34). They need an Inventory section and answer 0xCB without one.
[[nodiscard]] std::span<const IPMI_CMD_S> inventory_commands();

} // namespace asd_host
