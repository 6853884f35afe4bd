// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The Board object on the bus: facts, states and faults of the board.

#include "dbus_values.h"
#include "host.h"

#include <functional>
#include <string_view>

#include <glib.h>

namespace asd_host {

// "master", "slave", or "error": as the module sees it, so that a fault of the operation hides the role.
[[nodiscard]] const char *role_name(BoardState &board);

// A property's value as a new floating GVariant; null: there is no such property.
[[nodiscard]] GVariant *board_property(Host &platform, std::string_view name);

// Sets one of the writable properties; the value has its type. False: there is no such property.
[[nodiscard]] bool set_board_property(Host &platform, std::string_view name, GVariant *value);

// What a method of the board does, ready to run on any thread; arguments have the method's types. Null: there is no
// such method.
[[nodiscard]] std::function<CallResult()> board_call(Host &platform, std::string_view method, GVariant *arguments);

} // namespace asd_host
