// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the module has declared: its classes, their methods and its reboot handler. Filled on the main thread before the
// service starts, read by any thread after.

#include "module_frame.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace asd_host {

class ModuleRegistry {
public:
    struct Method {
        std::string name;
        DFL_METHOD_FUNC handler = nullptr;
    };

    // False: it has been declared already.
    [[nodiscard]] bool declare_class(std::string_view class_name);
    // False: the class has not been declared, or has a method of that name.
    [[nodiscard]] bool declare_method(std::string_view class_name, std::string_view method_name,
                                      DFL_METHOD_FUNC handler);

    [[nodiscard]] bool has_class(std::string_view class_name) const;
    // In the order they were declared; null: no such class.
    [[nodiscard]] const std::vector<Method> *methods(std::string_view class_name) const;
    // Null: no such class, or no such method in it. Lives as long as the registry.
    [[nodiscard]] const Method *method(std::string_view class_name, std::string_view method_name) const;

private:
    std::map<std::string, std::vector<Method>, std::less<>> classes_;
};

// Never destroyed.
[[nodiscard]] ModuleRegistry &module_registry();

} // namespace asd_host
