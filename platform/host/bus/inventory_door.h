// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The standard inventory on a shared bus, as OpenBMC's web service and inventory tools look for it: objects of
// xyz.openbmc_project.Inventory interfaces below an ObjectManager. Read only; made from the enclosure file's Inventory
// section, which takes no confidential item.

#include "dbus_member.h"
#include "gio_holders.h"
#include "host.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace asd_host {

// On the bus thread.
class InventoryDoor {
public:
    // The platform outlives it, and its enclosure has an Inventory section.
    InventoryDoor(Bus bus, const Host &platform);

    // Begins to look for the bus; without it the door stays closed until there is one.
    void start() { member_.start(); }
    // The item has another value or readiness: clients are told of the properties that are others by it.
    void changed(OBJ_HANDLE item);
    void leave();
    void cut_off() { member_.cut_off(); }
    [[nodiscard]] bool gone() const { return member_.gone(); }

private:
    // An object, and the areas that its texts are looked for in.
    struct Thing {
        std::string path;
        std::string kind; // the interface that says what it is
        std::string name;
        std::vector<InventoryAreaIndex> areas;
        std::map<std::string, std::string, std::less<>> told = {}; // by property of the Asset interface
    };

    [[nodiscard]] bool prepare(const ConnectionPtr &connection, std::string *mistake);
    [[nodiscard]] bool put(const char *path, const char *interface, const GDBusInterfaceVTable &table,
                           std::string *mistake);
    void refresh(Thing &thing);
    [[nodiscard]] GVariant *property(const Thing &thing, std::string_view name) const;   // floating; null: none
    [[nodiscard]] GVariant *properties(const Thing &thing, const char *interface) const; // floating a{sv}
    [[nodiscard]] GVariant *managed_objects() const;                                     // floating

    static void on_call(GDBusConnection *connection, const gchar *sender, const gchar *path, const gchar *interface,
                        const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation, gpointer self);
    static GVariant *on_get(GDBusConnection *connection, const gchar *sender, const gchar *path, const gchar *interface,
                            const gchar *property, GError **error, gpointer self);

    const Host &platform_;
    const std::set<OBJ_HANDLE> items_;
    NodeInfoPtr interfaces_;
    NodeInfoPtr standard_;
    std::vector<Thing> things_;
    ConnectionPtr connection_; // the last one that the objects were put on; null: none yet
    bool served_ = false;      // under the name, by which the bus judges who may hear
    BusMember member_;
};

} // namespace asd_host
