// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A call of a method that the module has declared.

#include "module_registry.h"
#include "object_store.h"

#include <vector>

namespace asd_host {

struct MethodOutcome {
    gint32 status = 0;                  // what the handler returned
    std::vector<PropertyValue> outputs; // what it appended; a value of a type that no method has is left out
};

// Runs the handler on this thread, which may wait for chips. Arguments are plain values, no references. Any thread;
// whoever wants the calls of one object in an order keeps that order.
[[nodiscard]] MethodOutcome call_method(const ModuleRegistry::Method &method, OBJ_HANDLE object,
                                        const std::vector<PropertyValue> &arguments);

// The status of a write: what it appended, or what it returned without an output.
[[nodiscard]] gint32 write_status(const MethodOutcome &outcome);

} // namespace asd_host
