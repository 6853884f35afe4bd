// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is on the bus: objects, their interfaces and property values. Used on the bus thread alone.

#include "bus_names.h"
#include "gio_holders.h"
#include "host.h"

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

// The objects that are not in the object store.
inline constexpr OBJ_HANDLE kRootObject = Lookout::kService;
inline constexpr OBJ_HANDLE kBoardObject = -2;

inline constexpr const char *kServiceUniqueName = ":1.0"; // on the private socket

// Each class has a folder of that name below the root.
inline constexpr std::array<std::string_view, 2> kBusClasses = {kItemClass, kChipClass};

class BusObjects {
public:
    explicit BusObjects(Host &platform);

    [[nodiscard]] std::vector<OBJ_HANDLE> below_root() const;
    [[nodiscard]] std::vector<std::string> names_below(std::string_view class_folder) const;
    [[nodiscard]] std::optional<OBJ_HANDLE> at(std::string_view path) const;
    [[nodiscard]] std::string path_of(OBJ_HANDLE object) const;

    [[nodiscard]] GDBusInterfaceInfo *interface_of(OBJ_HANDLE object) const;
    [[nodiscard]] GDBusInterfaceInfo *interface_below(std::string_view class_folder) const;
    [[nodiscard]] GDBusInterfaceInfo *object_manager() const { return object_manager_; }
    [[nodiscard]] GDBusInterfaceInfo *bus_driver() const { return bus_driver_; }

    // New floating values. A property's is null when the object has no such property.
    [[nodiscard]] GVariant *property(OBJ_HANDLE object, std::string_view name) const;
    // What may be shown unasked: a{sv} without confidential values, and the same of all objects, (a{oa{sa{sv}}}).
    [[nodiscard]] GVariant *properties(OBJ_HANDLE object) const;
    [[nodiscard]] GVariant *managed_objects() const;
    [[nodiscard]] bool is_confidential(OBJ_HANDLE object, std::string_view property) const;
    [[nodiscard]] bool set_property(OBJ_HANDLE object, std::string_view name,
                                    GVariant *value) const; // false: read only

    [[nodiscard]] Host &platform() const { return platform_; }

private:
    [[nodiscard]] GDBusInterfaceInfo *load(const char *xml, const char *interface);
    [[nodiscard]] GVariant *root_property(std::string_view name) const;
    [[nodiscard]] GVariant *stored_property(OBJ_HANDLE object, std::string_view name) const;
    [[nodiscard]] GVariant *configured_property(OBJ_HANDLE object, std::string_view name) const;
    [[nodiscard]] const ItemConfig *item_config(OBJ_HANDLE object) const; // null: it is no item
    [[nodiscard]] bool has_confidential_value(OBJ_HANDLE object) const;
    [[nodiscard]] std::optional<std::size_t> class_index(OBJ_HANDLE object) const;

    Host &platform_;
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    std::vector<NodeInfoPtr> nodes_; // own the interfaces
    GDBusInterfaceInfo *root_;
    std::array<GDBusInterfaceInfo *, kBusClasses.size()> classes_;
    GDBusInterfaceInfo *board_;
    GDBusInterfaceInfo *object_manager_;
    GDBusInterfaceInfo *bus_driver_;
};

} // namespace asd_host
