// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "module_registry.h"

#include <algorithm>

namespace asd_host {

bool ModuleRegistry::declare_class(std::string_view class_name) {
    return classes_.try_emplace(std::string(class_name)).second;
}

bool ModuleRegistry::declare_method(std::string_view class_name, std::string_view method_name,
                                    DFL_METHOD_FUNC handler) {
    const auto found = classes_.find(class_name);
    if (found == classes_.end() ||
        std::ranges::find(found->second, method_name, &Method::name) != found->second.end()) {
        return false;
    }
    found->second.push_back({.name = std::string(method_name), .handler = handler});
    return true;
}

bool ModuleRegistry::has_class(std::string_view class_name) const {
    return classes_.contains(class_name);
}

const std::vector<ModuleRegistry::Method> *ModuleRegistry::methods(std::string_view class_name) const {
    const auto found = classes_.find(class_name);
    return found != classes_.end() ? &found->second : nullptr;
}

const ModuleRegistry::Method *ModuleRegistry::method(std::string_view class_name, std::string_view method_name) const {
    const std::vector<Method> *declared = methods(class_name);
    if (declared == nullptr) {
        return nullptr;
    }
    const auto found = std::ranges::find(*declared, method_name, &Method::name);
    return found == declared->end() ? nullptr : &*found;
}

ModuleRegistry &module_registry() {
    static ModuleRegistry &registry = *new ModuleRegistry;
    return registry;
}

} // namespace asd_host
