// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_objects.h"

#include "dbus_board.h"
#include "dbus_standard.h"
#include "dbus_xml.h"
#include "property_variant.h"
#include "status.h"
#include "tasks.h"

#include <algorithm>
#include <cassert>
#include <variant>

namespace asd_host {

namespace {

constexpr const char *kNoPath = "/"; // a reference to nothing

GVariant *task_names() {
    GVariantBuilder names;
    g_variant_builder_init(&names, G_VARIANT_TYPE_STRING_ARRAY);
    for (const std::string &name : tasks_running()) {
        g_variant_builder_add(&names, "s", name.c_str());
    }
    return g_variant_builder_end(&names);
}

// Files and the like may hold any bytes.
GVariant *valid_text(const std::string &text) {
    const TextPtr valid(g_utf8_make_valid(text.c_str(), -1));
    return g_variant_new_string(valid.get());
}

GVariant *text_of(Condition condition) {
    return g_variant_new_string(std::string(word_of(condition).kind).c_str());
}

GVariant *parts_of(const Picture &picture) {
    GVariantBuilder parts;
    g_variant_builder_init(&parts, G_VARIANT_TYPE("a(ssss)"));
    for (const PartView &part : picture.parts) {
        g_variant_builder_add(&parts, "(@s@s@s@s)", valid_text(part.name), valid_text(part.file),
                              text_of(part.condition), valid_text(part.reason));
    }
    return g_variant_builder_end(&parts);
}

GVariant *variant_of_concerns(const Picture &picture) {
    GVariantBuilder concerns;
    g_variant_builder_init(&concerns, G_VARIANT_TYPE("a(ssas)"));
    for (const Concern &concern : concerns_of(picture)) {
        GVariantBuilder names;
        g_variant_builder_init(&names, G_VARIANT_TYPE_STRING_ARRAY);
        for (const std::string &name : concern.names) {
            g_variant_builder_add_value(&names, valid_text(name));
        }
        g_variant_builder_add(&concerns, "(s@sas)", concern.kind.c_str(), valid_text(concern.text), &names);
    }
    return g_variant_builder_end(&concerns);
}

guint32 count_of_class(const Host &platform, std::size_t index) {
    return static_cast<guint32>(platform.objects.of_class(kBusClasses[index]).size());
}

} // namespace

BusObjects::BusObjects(Host &platform)
    : platform_(platform),
      root_(load(kStorageXml, kServiceName)), classes_{load(kItemXml, kItemInterface), load(kChipXml, kChipInterface)},
      board_(load(kBoardXml, kBoardInterface)),
      object_manager_(load(kStandardXml, "org.freedesktop.DBus.ObjectManager")),
      bus_driver_(load(kStandardXml, kDriverName)) {}

// The texts are part of the program: one that cannot be read is a mistake of ours.
GDBusInterfaceInfo *BusObjects::load(const char *xml, const char *interface) {
    ErrorSlot error;
    nodes_.emplace_back(g_dbus_node_info_new_for_xml(xml, error.out()));
    if (nodes_.back() == nullptr) {
        g_error("the description of %s: %s", interface, error.text()); // ends the process
    }
    GDBusInterfaceInfo *info = g_dbus_node_info_lookup_interface(nodes_.back().get(), interface);
    assert(info != nullptr);
    return info;
}

// ---- Objects and paths ----

std::optional<std::size_t> BusObjects::class_index(OBJ_HANDLE object) const {
    const std::string *name = platform_.objects.class_of(object);
    const auto *found = name == nullptr ? kBusClasses.end() : std::ranges::find(kBusClasses, *name);
    return found == kBusClasses.end() ? std::nullopt
                                      : std::optional(static_cast<std::size_t>(found - kBusClasses.begin()));
}

std::vector<OBJ_HANDLE> BusObjects::below_root() const {
    std::vector<OBJ_HANDLE> objects;
    for (const std::string_view name : kBusClasses) {
        const std::vector<OBJ_HANDLE> members = platform_.objects.of_class(name);
        objects.insert(objects.end(), members.begin(), members.end());
    }
    objects.push_back(kBoardObject);
    return objects;
}

std::vector<std::string> BusObjects::names_below(std::string_view class_folder) const {
    std::vector<std::string> names;
    for (const OBJ_HANDLE object : platform_.objects.of_class(class_folder)) {
        names.push_back(*platform_.objects.name_of(object));
    }
    return names;
}

std::optional<OBJ_HANDLE> BusObjects::at(std::string_view path) const {
    if (path == kRootPath) {
        return kRootObject;
    }
    if (path == kBoardPath) {
        return kBoardObject;
    }
    const auto found = platform_.objects.find(path.substr(path.rfind('/') + 1));
    return found && path == path_of(*found) ? found : std::nullopt;
}

std::string BusObjects::path_of(OBJ_HANDLE object) const {
    if (object == kBoardObject) {
        return kBoardPath;
    }
    if (!class_index(object)) {
        return kRootPath;
    }
    return std::string(kRootPath) + "/" + *platform_.objects.class_of(object) + "/" +
           *platform_.objects.name_of(object);
}

GDBusInterfaceInfo *BusObjects::interface_of(OBJ_HANDLE object) const {
    if (object == kBoardObject) {
        return board_;
    }
    const auto index = class_index(object);
    return index ? classes_[*index] : root_;
}

GDBusInterfaceInfo *BusObjects::interface_below(std::string_view class_folder) const {
    const auto *found = std::ranges::find(kBusClasses, class_folder);
    return found == kBusClasses.end() ? nullptr : classes_[static_cast<std::size_t>(found - kBusClasses.begin())];
}

// ---- Property values ----

GVariant *BusObjects::root_property(std::string_view name) const {
    if (name == "Version") {
        return g_variant_new_string(ASD_VERSION);
    }
    if (name == "Enclosure") {
        return valid_text(platform_.enclosure.name);
    }
    if (name == "Slot") {
        return g_variant_new_byte(platform_.options.slot);
    }
    if (name == "TimeScale") {
        return g_variant_new_uint32(platform_.options.time_scale);
    }
    if (name == "Tasks") {
        return task_names();
    }
    if (name == "Items" || name == "Chips") {
        return g_variant_new_uint32(count_of_class(platform_, name == "Items" ? 0 : 1));
    }
    if (name == "Uptime") {
        const auto uptime = std::chrono::steady_clock::now() - started_;
        return g_variant_new_uint64(
            static_cast<guint64>(std::chrono::duration_cast<std::chrono::seconds>(uptime).count()));
    }
    if (name == "Parts") {
        return parts_of(platform_.lookout.picture());
    }
    if (name == "Concerns") {
        return variant_of_concerns(platform_.lookout.picture());
    }
    return name == "Condition" ? valid_text(summary_of(platform_.lookout.picture())) : nullptr;
}

const ItemConfig *BusObjects::item_config(OBJ_HANDLE object) const {
    const std::string *name = platform_.objects.name_of(object);
    const auto &items = platform_.enclosure.items;
    const auto item = name == nullptr ? items.end() : std::ranges::find(items, *name, &ItemConfig::name);
    return item == items.end() ? nullptr : &*item;
}

bool BusObjects::has_confidential_value(OBJ_HANDLE object) const {
    const ItemConfig *const item = item_config(object);
    return item != nullptr && item->confidential;
}

bool BusObjects::is_confidential(OBJ_HANDLE object, std::string_view property) const {
    return property == "Value" && has_confidential_value(object);
}

// What the object store has no property for.
GVariant *BusObjects::configured_property(OBJ_HANDLE object, std::string_view name) const {
    if (name == "Confidential") {
        return g_variant_new_byte(has_confidential_value(object) ? 1 : 0);
    }
    if (const ItemConfig *const item = item_config(object); item != nullptr && (name == "Label" || name == "Format")) {
        return g_variant_new_string((name == "Label" ? item->label : item->format).c_str());
    }
    if (name == "State") {
        return text_of(platform_.lookout.condition_of(object).value_or(Condition::kNotLoaded));
    }
    const auto chip = platform_.chips.find(object);
    if (chip == platform_.chips.end()) {
        return nullptr;
    }
    if (name == "Part") {
        return g_variant_new_string(chip->second.part->config().name.c_str());
    }
    return name == "PageCycles" ? g_variant_new_uint64(chip->second.part->page_cycles()) : nullptr;
}

GVariant *BusObjects::stored_property(OBJ_HANDLE object, std::string_view name) const {
    PropertyValue value;
    if (platform_.objects.get(object, name, &value) != 0) {
        // An item with one chip has no second reference.
        return name.starts_with("AtomStorageDataDev") ? g_variant_new_object_path(kNoPath)
                                                      : configured_property(object, name);
    }
    if (const auto *reference = std::get_if<ObjectRef>(&value)) {
        return g_variant_new_object_path(path_of(reference->handle).c_str());
    }
    return variant_of(value);
}

GVariant *BusObjects::property(OBJ_HANDLE object, std::string_view name) const {
    switch (object) {
    case kRootObject:
        return root_property(name);
    case kBoardObject:
        return board_property(platform_, name);
    default:
        return stored_property(object, name);
    }
}

bool BusObjects::set_property(OBJ_HANDLE object, std::string_view name, GVariant *value) const {
    return object == kBoardObject && set_board_property(platform_, name, value);
}

GVariant *BusObjects::properties(OBJ_HANDLE object) const {
    GVariantBuilder values;
    g_variant_builder_init(&values, G_VARIANT_TYPE_VARDICT);
    for (GDBusPropertyInfo **info = interface_of(object)->properties; *info != nullptr; ++info) {
        if (is_confidential(object, (*info)->name)) {
            continue;
        }
        if (GVariant *value = property(object, (*info)->name); value != nullptr) {
            g_variant_builder_add(&values, "{sv}", (*info)->name, value);
        }
    }
    return g_variant_builder_end(&values);
}

GVariant *BusObjects::managed_objects() const {
    GVariantBuilder objects;
    g_variant_builder_init(&objects, G_VARIANT_TYPE("a{oa{sa{sv}}}"));
    for (const OBJ_HANDLE object : below_root()) {
        g_variant_builder_open(&objects, G_VARIANT_TYPE("{oa{sa{sv}}}"));
        g_variant_builder_add(&objects, "o", path_of(object).c_str());
        g_variant_builder_open(&objects, G_VARIANT_TYPE("a{sa{sv}}"));
        g_variant_builder_add(&objects, "{s@a{sv}}", interface_of(object)->name, properties(object));
        g_variant_builder_close(&objects);
        g_variant_builder_close(&objects);
    }
    GVariant *all_objects = g_variant_builder_end(&objects);
    return g_variant_new_tuple(&all_objects, 1);
}

} // namespace asd_host
