// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "inventory_door.h"

#include "dbus_calls.h"
#include "dbus_standard.h"
#include "dbus_xml.h"
#include "inventory.h"

#include <algorithm>
#include <array>
#include <utility>

namespace asd_host {

namespace {

constexpr const char *kInventoryName = "xyz.openbmc_project.Inventory.Enclosure";
constexpr const char *kInventoryRoot = "/xyz/openbmc_project/inventory";
constexpr const char *kEnclosurePath = "/xyz/openbmc_project/inventory/system/chassis/enclosure";
constexpr const char *kBackplanePath = "/xyz/openbmc_project/inventory/system/board/enclosure_board";
constexpr const char *kInventoryItem = "xyz.openbmc_project.Inventory.Item";
constexpr const char *kInventoryChassis = "xyz.openbmc_project.Inventory.Item.Chassis";
constexpr const char *kInventoryBoard = "xyz.openbmc_project.Inventory.Item.Board";
constexpr const char *kInventoryAsset = "xyz.openbmc_project.Inventory.Decorator.Asset";
constexpr const char *kObjectManager = "org.freedesktop.DBus.ObjectManager";

// The properties of the Asset interface and the fields that they are.
constexpr std::array<std::pair<const char *, std::string_view>, 4> kAssetFields = {{
    {"Manufacturer", "Manufacturer"},
    {"Model", "ProductName"},
    {"PartNumber", "PartNumber"},
    {"SerialNumber", "SerialNumber"},
}};

NodeInfoPtr node_of(const char *xml) {
    ErrorSlot error;
    NodeInfoPtr node(g_dbus_node_info_new_for_xml(xml, error.out()));
    if (node == nullptr) {
        g_error("the description of the inventory's interfaces: %s", error.text()); // part of the program
    }
    return node;
}

} // namespace

InventoryDoor::InventoryDoor(Bus bus, const Host &platform)
    : platform_(platform), items_(inventory_items(platform)), interfaces_(node_of(kInventoryXml)),
      standard_(node_of(kStandardXml)),
      member_({.bus = bus,
               .name = kInventoryName,
               .duty = "the inventory",
               .prepare = [this](const ConnectionPtr &connection,
                                 std::string *mistake) { return prepare(connection, mistake); },
               .served = [this] { served_ = true; },
               .needed_at_start = false}) {
    const auto &areas = platform_.enclosure.inventory->areas;
    things_.push_back({.path = kEnclosurePath,
                       .kind = kInventoryChassis,
                       .name = platform_.enclosure.name,
                       .areas = {kProductArea, kChassisArea}});
    if (areas[kBoardArea]) {
        things_.push_back({.path = kBackplanePath, .kind = kInventoryBoard, .name = "Board", .areas = {kBoardArea}});
    }
}

bool InventoryDoor::prepare(const ConnectionPtr &connection, std::string *mistake) {
    static constexpr GDBusInterfaceVTable kReads = {
        .method_call = nullptr, .get_property = on_get, .set_property = nullptr, .padding = {}};
    static constexpr GDBusInterfaceVTable kCalls = {
        .method_call = on_call, .get_property = nullptr, .set_property = nullptr, .padding = {}};
    served_ = false;
    connection_.reset(G_DBUS_CONNECTION(g_object_ref(connection.get())));
    if (!put(kInventoryRoot, kObjectManager, kCalls, mistake)) {
        return false;
    }
    for (Thing &thing : things_) {
        refresh(thing);
        for (const char *interface : {kInventoryItem, thing.kind.c_str(), kInventoryAsset}) {
            if (!put(thing.path.c_str(), interface, kReads, mistake)) {
                return false;
            }
        }
    }
    member_.ask_for_name();
    return true;
}

bool InventoryDoor::put(const char *path, const char *interface, const GDBusInterfaceVTable &table,
                        std::string *mistake) {
    ErrorSlot error;
    GDBusInterfaceInfo *info = g_dbus_node_info_lookup_interface(interfaces_.get(), interface);
    if (info == nullptr) {
        info = g_dbus_node_info_lookup_interface(standard_.get(), interface);
    }
    if (g_dbus_connection_register_object(connection_.get(), path, info, &table, this, nullptr, error.out()) == 0) {
        *mistake = std::string("the object ") + path + " cannot be put on the bus: " + error.text();
        return false;
    }
    return true;
}

void InventoryDoor::refresh(Thing &thing) {
    for (const auto &[property, field] : kAssetFields) {
        thing.told[property] = inventory_text(platform_, field, thing.areas);
    }
}

void InventoryDoor::changed(OBJ_HANDLE item) {
    if (connection_ == nullptr || !items_.contains(item)) {
        return;
    }
    for (Thing &thing : things_) {
        const auto before = thing.told;
        refresh(thing);
        GVariantBuilder changes;
        g_variant_builder_init(&changes, G_VARIANT_TYPE_VARDICT);
        for (const auto &[property, text] : thing.told) {
            if (before.at(property) != text) {
                g_variant_builder_add(&changes, "{sv}", property.c_str(), g_variant_new_string(text.c_str()));
            }
        }
        const VariantPtr signal =
            sunk(g_variant_new("(s@a{sv}as)", kInventoryAsset, g_variant_builder_end(&changes), nullptr));
        if (served_ && before != thing.told) { // a connection that has gone needs no signal
            g_dbus_connection_emit_signal(connection_.get(), nullptr, thing.path.c_str(), kPropertiesInterface,
                                          "PropertiesChanged", signal.get(), nullptr);
        }
    }
}

void InventoryDoor::leave() {
    connection_.reset();
    member_.leave();
}

GVariant *InventoryDoor::property(const Thing &thing, std::string_view name) const {
    if (name == "Present") {
        return g_variant_new_boolean(TRUE);
    }
    if (name == "PrettyName") {
        return g_variant_new_string(thing.name.c_str());
    }
    const auto found = thing.told.find(name);
    return found == thing.told.end() ? nullptr : g_variant_new_string(found->second.c_str());
}

GVariant *InventoryDoor::properties(const Thing &thing, const char *interface) const {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    const GDBusInterfaceInfo *const info = g_dbus_node_info_lookup_interface(interfaces_.get(), interface);
    for (GDBusPropertyInfo **one = info->properties; one != nullptr && *one != nullptr; ++one) {
        g_variant_builder_add(&builder, "{sv}", (*one)->name, property(thing, (*one)->name));
    }
    return g_variant_builder_end(&builder);
}

GVariant *InventoryDoor::managed_objects() const {
    GVariantBuilder objects;
    g_variant_builder_init(&objects, G_VARIANT_TYPE("a{oa{sa{sv}}}"));
    for (const Thing &thing : things_) {
        GVariantBuilder one;
        g_variant_builder_init(&one, G_VARIANT_TYPE("a{sa{sv}}"));
        for (const char *interface : {kInventoryItem, thing.kind.c_str(), kInventoryAsset}) {
            g_variant_builder_add(&one, "{s@a{sv}}", interface, properties(thing, interface));
        }
        g_variant_builder_add(&objects, "{o@a{sa{sv}}}", thing.path.c_str(), g_variant_builder_end(&one));
    }
    return g_variant_new("(@a{oa{sa{sv}}})", g_variant_builder_end(&objects));
}

void InventoryDoor::on_call(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar * /*path*/,
                            const gchar * /*interface*/, const gchar * /*method*/, GVariant * /*parameters*/,
                            GDBusMethodInvocation *invocation, gpointer self) {
    answer(InvocationPtr(invocation), static_cast<const InventoryDoor *>(self)->managed_objects());
}

GVariant *InventoryDoor::on_get(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar *path,
                                const gchar * /*interface*/, const gchar *property, GError ** /*error*/,
                                gpointer self) {
    const auto *door = static_cast<const InventoryDoor *>(self);
    return door->property(*std::ranges::find(door->things_, path, &Thing::path), property);
}

} // namespace asd_host
