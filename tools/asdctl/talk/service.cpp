// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "service.h"

#include "failure.h"
#include "texts.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace asdctl {

namespace {

constexpr int kCallTimeoutMs = 30'000;
constexpr unsigned kConnectTimeoutS = 5;

constexpr const char *kRoot = "/org/asd/Storage1";
constexpr const char *kBoardPath = "/org/asd/Storage1/Board";
constexpr const char *kBoardInterface = "org.asd.Board1";
constexpr const char *kItemInterface = "org.asd.AtomStorageData1";
constexpr const char *kChipInterface = "org.asd.AtomStorageDataDev1";

struct ErrorFree {
    void operator()(GError *error) const { g_error_free(error); }
};
using Error = std::unique_ptr<GError, ErrorFree>;

struct ContextUnref {
    void operator()(GMainContext *context) const { g_main_context_unref(context); }
};
struct ObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct SourceUnref {
    void operator()(GSource *source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};

// ---- Errors in an operator's words ----

struct ErrorRow {
    std::string_view name;
    const char *text;
};

// clang-format off
constexpr std::array kErrors = {
    ErrorRow{.name = "org.asd.Error.Failed",                          .text = "the service refused it"},
    ErrorRow{.name = "org.asd.Error.InvalidArguments",                .text = "the service cannot use these arguments"},
    ErrorRow{.name = "org.asd.Error.NoSuchObject",                    .text = "the service has no such object"},
    ErrorRow{.name = "org.asd.Error.NotOnline",                       .text = "the item is not online"},
    ErrorRow{.name = "org.asd.Error.NotReady",                        .text = "the item is not ready"},
    ErrorRow{.name = "org.asd.Error.StorageFailed",                   .text = "the chips could not be read or written"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.AccessDenied",       .text = "this user may not do it"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.InvalidArgs",        .text = "the service cannot use these arguments"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.LimitsExceeded",     .text = "the service has too much to do"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.NoReply",            .text = "the service did not answer"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.ServiceUnknown",     .text = "no service has this name on the bus"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.UnknownMethod",      .text = "the service does not know this operation"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.UnknownObject",      .text = "the service has no such object"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.UnknownProperty",    .text = "the service has no such property"},
};
// clang-format on
static_assert(std::ranges::is_sorted(kErrors, {}, &ErrorRow::name));

// What the error means and, when it says more than that, what the service says.
std::string error_text(const Error &error) {
    if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != 0) {
        return "the service did not answer within 30 seconds";
    }
    if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CLOSED) != 0) {
        return "the service closed the connection";
    }
    if (g_dbus_error_is_remote_error(error.get()) == 0) {
        return error->message;
    }
    const std::unique_ptr<gchar, decltype(&g_free)> name(g_dbus_error_get_remote_error(error.get()), g_free);
    (void)g_dbus_error_strip_remote_error(error.get()); // whether it was there does not matter
    const auto *const row = std::ranges::find(kErrors, std::string_view(name.get()), &ErrorRow::name);
    const std::string meaning = row == kErrors.end() ? name.get() : row->text;
    return error->message[0] == '\0' ? meaning : meaning + ": " + error->message;
}

// ---- Connecting ----

// Waits for one asynchronous step on a main context of its own, so that its time can be limited.
class TimedStep {
public:
    TimedStep() : context_(g_main_context_new()), cancellable_(g_cancellable_new()) {
        g_main_context_push_thread_default(context_.get());
    }
    ~TimedStep() { g_main_context_pop_thread_default(context_.get()); }
    TimedStep(const TimedStep &) = delete;
    TimedStep &operator=(const TimedStep &) = delete;

    [[nodiscard]] GCancellable *cancellable() const { return cancellable_.get(); }

    static void finish(GObject * /*source*/, GAsyncResult *result, gpointer self) {
        static_cast<TimedStep *>(self)->result_.reset(g_object_ref(result));
    }

    // The step's result; of a cancelled step when the time is over.
    [[nodiscard]] GAsyncResult *wait() {
        const std::unique_ptr<GSource, SourceUnref> limit(g_timeout_source_new_seconds(kConnectTimeoutS));
        const auto cancel = [](gpointer cancellable) -> gboolean {
            g_cancellable_cancel(static_cast<GCancellable *>(cancellable));
            return G_SOURCE_REMOVE;
        };
        g_source_set_callback(limit.get(), cancel, cancellable_.get(), nullptr);
        g_source_attach(limit.get(), context_.get());
        while (!result_) {
            g_main_context_iteration(context_.get(), TRUE);
        }
        return result_.get();
    }

private:
    std::unique_ptr<GMainContext, ContextUnref> context_;
    std::unique_ptr<GCancellable, ObjectUnref> cancellable_;
    std::unique_ptr<GAsyncResult, ObjectUnref> result_;
};

std::string connect_error_text(const Error &error) {
    return g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) != 0 ? "it does not answer" : error->message;
}

// ---- Values ----

template <typename T>
T from_variant(GVariant *value);
template <>
std::uint8_t from_variant(GVariant *value) {
    return g_variant_get_byte(value);
}
template <>
std::uint32_t from_variant(GVariant *value) {
    return g_variant_get_uint32(value);
}
template <>
std::int32_t from_variant(GVariant *value) {
    return g_variant_get_int32(value);
}
template <>
std::uint64_t from_variant(GVariant *value) {
    return g_variant_get_uint64(value);
}
template <>
std::string from_variant(GVariant *value) {
    return g_variant_get_string(value, nullptr);
}
template <>
Bytes from_variant(GVariant *value) {
    gsize size = 0;
    const auto *const bytes = static_cast<const std::uint8_t *>(g_variant_get_fixed_array(value, &size, 1));
    return {bytes, bytes + size};
}
template <>
std::vector<std::string> from_variant(GVariant *value) {
    std::vector<std::string> texts;
    GVariantIter all;
    g_variant_iter_init(&all, value);
    for (const gchar *text = nullptr; g_variant_iter_next(&all, "&s", &text) != 0;) {
        texts.emplace_back(text);
    }
    return texts;
}

// One interface's properties.
class Properties {
public:
    explicit Properties(GVariant *dictionary) : dictionary_(dictionary) {}

    // Leaves *value as it is when there is no such property of this type.
    template <typename T>
    void get(const char *name, const char *type, T *value) const {
        const auto found = lookup(name, type);
        if (found) {
            *value = from_variant<T>(found.get());
        }
    }
    [[nodiscard]] bool flag(const char *name) const {
        std::uint8_t value = 0;
        get(name, "y", &value);
        return value != 0;
    }
    // The last word of an object's path; empty for "/".
    [[nodiscard]] std::string reference(const char *name) const {
        const auto found = lookup(name, "o");
        const std::string path = found ? g_variant_get_string(found.get(), nullptr) : "/";
        return path.substr(path.rfind('/') + 1);
    }
    template <typename Key, typename Value>
    void get_map(const char *name, const char *type, const char *entry, std::map<Key, Value> *map) const {
        const auto found = lookup(name, type);
        if (!found) {
            return;
        }
        GVariantIter all;
        g_variant_iter_init(&all, found.get());
        std::conditional_t<std::is_same_v<Key, std::string>, const gchar *, Key> key{};
        for (Value value{}; g_variant_iter_next(&all, entry, &key, &value) != 0;) {
            (*map)[key] = value;
        }
    }

private:
    struct Unref {
        void operator()(GVariant *value) const { g_variant_unref(value); }
    };
    [[nodiscard]] std::unique_ptr<GVariant, Unref> lookup(const char *name, const char *type) const {
        return std::unique_ptr<GVariant, Unref>(g_variant_lookup_value(dictionary_, name, G_VARIANT_TYPE(type)));
    }

    GVariant *dictionary_;
};

Chip chip_of(const std::string &name, const Properties &properties) {
    Chip chip;
    chip.name = name;
    properties.get("Part", "s", &chip.part);
    properties.get("Offset", "u", &chip.offset);
    properties.get("RetryNumber", "u", &chip.retry_number);
    properties.get("Health", "y", &chip.health);
    properties.get("ErrorCode", "i", &chip.error_code);
    properties.get("StgWp", "y", &chip.stg_wp);
    properties.get("StgIsWp", "y", &chip.stg_is_wp);
    properties.get("PageCycles", "t", &chip.page_cycles);
    return chip;
}

// Its chips have their names alone.
Item item_of(const std::string &name, const Properties &properties) {
    Item item;
    item.name = name;
    properties.get("Num", "y", &item.num);
    properties.get("Length", "u", &item.length);
    properties.get("Value", "ay", &item.value);
    item.online = properties.flag("Online");
    item.ready = properties.flag("Ready");
    item.need_sync = properties.flag("NeedSync");
    item.confidential = properties.flag("Confidential");
    for (const char *reference : {"AtomStorageDataDev0", "AtomStorageDataDev1"}) {
        Chip chip;
        chip.name = properties.reference(reference);
        if (!chip.name.empty()) {
            item.chips.push_back(std::move(chip));
        }
    }
    return item;
}

Board board_of(const Properties &properties) {
    Board board;
    properties.get("Role", "s", &board.role);
    properties.get("BackplaneEeproms", "u", &board.backplane_eeproms);
    properties.get("Kind", "as", &board.kinds);
    properties.get_map("WriteProtectLines", "a{uu}", "{uu}", &board.write_protect_lines);
    properties.get_map("Faults", "a{si}", "{&si}", &board.faults);
    properties.get("EquipmentMode", "y", &board.equipment_mode);
    properties.get("CpldUpgrading", "y", &board.cpld_upgrading);
    properties.get("PowerStandBy", "i", &board.power_standby);
    return board;
}

void take_interface(Snapshot *snapshot, const std::string &path, std::string_view interface,
                    const Properties &properties) {
    const std::string name = path.substr(path.rfind('/') + 1);
    if (interface == kItemInterface) {
        snapshot->items.push_back(item_of(name, properties));
    } else if (interface == kChipInterface) {
        snapshot->chips.push_back(chip_of(name, properties));
    } else if (interface == kBoardInterface) {
        snapshot->board = board_of(properties);
    }
}

void take_service(Snapshot *snapshot, const Properties &properties) {
    properties.get("Version", "s", &snapshot->version);
    properties.get("Enclosure", "s", &snapshot->enclosure);
    properties.get("Slot", "y", &snapshot->slot);
    properties.get("TimeScale", "u", &snapshot->time_scale);
    properties.get("Uptime", "t", &snapshot->uptime_s);
    properties.get("Tasks", "as", &snapshot->tasks);
}

void complete(Snapshot *snapshot) {
    std::ranges::sort(snapshot->items, {}, &Item::num);
    std::ranges::sort(snapshot->chips, {}, &Chip::name);
    for (Item &item : snapshot->items) {
        for (Chip &chip : item.chips) {
            const auto found = std::ranges::lower_bound(snapshot->chips, chip.name, {}, &Chip::name);
            if (found != snapshot->chips.end() && found->name == chip.name) {
                chip = *found;
            }
        }
    }
}

// What a client sees of a property's value.
Json json_of(GVariant *value) {
    switch (g_variant_classify(value)) {
    case G_VARIANT_CLASS_BYTE:
        return g_variant_get_byte(value);
    case G_VARIANT_CLASS_INT32:
        return g_variant_get_int32(value);
    case G_VARIANT_CLASS_UINT32:
        return g_variant_get_uint32(value);
    case G_VARIANT_CLASS_UINT64:
        return g_variant_get_uint64(value);
    case G_VARIANT_CLASS_STRING:
        return g_variant_get_string(value, nullptr);
    default:
        break;
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING) != 0) {
        return to_hex(from_variant<Bytes>(value));
    }
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_variant_print(value, FALSE), g_free);
    return text.get();
}

// A PropertiesChanged signal.
void take_signal(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar *path,
                 const gchar * /*interface*/, const gchar * /*signal*/, GVariant *parameters, gpointer changes) {
    if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)")) == 0) {
        return;
    }
    const std::string_view whole = path;
    const std::string object(whole.substr(whole.rfind('/') + 1));
    GVariantIter *all = nullptr;
    GVariantIter *unsaid = nullptr;
    g_variant_get(parameters, "(sa{sv}as)", nullptr, &all, &unsaid);
    const gchar *name = nullptr;
    for (GVariant *value = nullptr; g_variant_iter_loop(all, "{&sv}", &name, &value) != 0;) {
        static_cast<std::vector<Change> *>(changes)->push_back(
            {.object = object, .property = name, .value = json_of(value)});
    }
    while (g_variant_iter_loop(unsaid, "&s", &name) != 0) {
        static_cast<std::vector<Change> *>(changes)->push_back({.object = object, .property = name, .value = nullptr});
    }
    g_variant_iter_free(unsaid);
    g_variant_iter_free(all);
}

std::string object_path(const char *class_name, const std::string &object) {
    return std::string(kRoot) + "/" + class_name + "/" + object;
}

template <typename Named>
const Named &find_named(const std::vector<Named> &all, const std::string &name, const char *kind, const char *advice) {
    const auto found = std::ranges::find(all, name, &Named::name);
    if (found != all.end()) {
        return *found;
    }
    const auto near = std::ranges::find_if(
        all, [&](const Named &other) { return g_ascii_strcasecmp(other.name.c_str(), name.c_str()) == 0; });
    throw Failure("there is no " + std::string(kind) + " '" + name + "'",
                  near == all.end() ? advice : "Did you mean " + near->name + "?");
}

} // namespace

const Item &Snapshot::item(const std::string &name) const {
    return find_named(items, name, "item", "'asdctl list' shows the items.");
}

const Chip &Snapshot::chip(const std::string &name) const {
    return find_named(chips, name, "chip", "'asdctl list' shows the items and their chips.");
}

Service::Service(const Context &context) {
    if (context.bus == Bus::kPrivate) {
        connect_private(context);
    } else {
        destination_ = "org.asd.Storage1.Slot" + std::to_string(context.slot);
        connect_shared(context.bus);
    }
    g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
}

void Service::connect_private(const Context &context) {
    const std::string socket = context.bus_socket().string();
    where_ = socket;
    advice_ = context.how_to_start();
    const std::unique_ptr<gchar, decltype(&g_free)> escaped(g_dbus_address_escape_value(socket.c_str()), g_free);
    TimedStep step;
    g_dbus_connection_new_for_address((std::string("unix:path=") + escaped.get()).c_str(),
                                      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, step.cancellable(),
                                      TimedStep::finish, &step);
    GError *failed = nullptr;
    connection_.reset(g_dbus_connection_new_for_address_finish(step.wait(), &failed));
    if (!connection_) {
        throw Failure(socket + ": cannot be connected to: " + connect_error_text(Error(failed)), advice_);
    }
}

void Service::connect_shared(Bus bus) {
    const std::string name = bus == Bus::kSession ? "session bus" : "system bus";
    where_ = destination_ + " on the " + name;
    advice_ = "Is asd running with --bus " + std::string(bus == Bus::kSession ? "session" : "system") + "?";
    TimedStep step;
    g_bus_get(bus == Bus::kSession ? G_BUS_TYPE_SESSION : G_BUS_TYPE_SYSTEM, step.cancellable(), TimedStep::finish,
              &step);
    GError *failed = nullptr;
    connection_.reset(g_bus_get_finish(step.wait(), &failed));
    if (!connection_) {
        throw Failure("the " + name + " cannot be connected to: " + connect_error_text(Error(failed)),
                      "Without a bus, asd and asdctl use a private socket: leave --bus out.");
    }
}

Service::Variant Service::call(const std::string &doing, const std::string &path, const char *interface,
                               const char *method, GVariant *arguments, const char *reply_type) {
    GError *failed = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        connection_.get(), destination_.empty() ? nullptr : destination_.c_str(), path.c_str(), interface, method,
        arguments, G_VARIANT_TYPE(reply_type), G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &failed);
    if (reply != nullptr) {
        return Variant(reply);
    }
    const Error error(failed);
    const bool absent = g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != 0;
    const std::string text = error_text(error);
    throw Failure(absent ? where_ + ": " + text : doing + ": " + text, absent ? advice_ : "");
}

Snapshot Service::snapshot() {
    const Variant reply = call("asking for the objects", kRoot, "org.freedesktop.DBus.ObjectManager",
                               "GetManagedObjects", nullptr, "(a{oa{sa{sv}}})");
    Snapshot snapshot;
    const Variant objects(g_variant_get_child_value(reply.get(), 0));
    GVariantIter all;
    g_variant_iter_init(&all, objects.get());
    const gchar *path = nullptr;
    for (GVariant *interfaces = nullptr; g_variant_iter_next(&all, "{&o@a{sa{sv}}}", &path, &interfaces) != 0;) {
        const Variant held(interfaces);
        GVariantIter each;
        g_variant_iter_init(&each, interfaces);
        const gchar *interface = nullptr;
        for (GVariant *properties = nullptr; g_variant_iter_next(&each, "{&s@a{sv}}", &interface, &properties) != 0;) {
            const Variant held_properties(properties);
            take_interface(&snapshot, path, interface, Properties(properties));
        }
    }
    complete(&snapshot);
    // The root itself is not among its objects.
    const Variant own = call("asking for the service's properties", kRoot, "org.freedesktop.DBus.Properties", "GetAll",
                             g_variant_new("(s)", "org.asd.Storage1"), "(a{sv})");
    take_service(&snapshot, Properties(Variant(g_variant_get_child_value(own.get(), 0)).get()));
    return snapshot;
}

void Service::subscribe(std::vector<Change> *changes) {
    // Until the connection ends, which is when the command does.
    (void)g_dbus_connection_signal_subscribe(connection_.get(), destination_.empty() ? nullptr : destination_.c_str(),
                                             "org.freedesktop.DBus.Properties", "PropertiesChanged", nullptr, nullptr,
                                             G_DBUS_SIGNAL_FLAGS_NONE, take_signal, changes, nullptr);
}

std::string Service::role() {
    const Variant reply = call("asking for the role", kBoardPath, "org.freedesktop.DBus.Properties", "Get",
                               g_variant_new("(ss)", kBoardInterface, "Role"), "(v)");
    const Variant boxed(g_variant_get_child_value(reply.get(), 0));
    const Variant role(g_variant_get_variant(boxed.get()));
    return g_variant_is_of_type(role.get(), G_VARIANT_TYPE_STRING) != 0 ? g_variant_get_string(role.get(), nullptr)
                                                                        : "unknown";
}

std::int32_t Service::write_item(const std::string &item, const char *method, BytesView data) {
    GVariant *bytes = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data.data(), data.size(), 1);
    const Variant reply = call("writing " + item, object_path("AtomStorageData", item), kItemInterface, method,
                               g_variant_new("(@ay)", bytes), "(i)");
    std::int32_t status = 0;
    g_variant_get(reply.get(), "(i)", &status);
    return status;
}

Bytes Service::read_item(const std::string &item, const char *method) {
    const Variant reply =
        call("reading " + item, object_path("AtomStorageData", item), kItemInterface, method, nullptr, "(ay)");
    return from_variant<Bytes>(Variant(g_variant_get_child_value(reply.get(), 0)).get());
}

void Service::clear_item(const std::string &item) {
    (void)call("clearing " + item, object_path("AtomStorageData", item), kItemInterface, "ClearMemData", nullptr,
               "()"); // an empty reply
}

void Service::set_error_code(const std::string &chip, std::int32_t code) {
    (void)call("setting the error code of " + chip, object_path("AtomStorageDataDev", chip), kChipInterface,
               "SetAsdDevErrCode", g_variant_new("(i)", code), "()"); // an empty reply
}

void Service::set_board(const char *property, GVariant *value) {
    (void)call(std::string("setting the board's ") + property, kBoardPath, "org.freedesktop.DBus.Properties", "Set",
               g_variant_new("(ssv)", kBoardInterface, property, value), "()"); // an empty reply
}

void Service::set_cpld_bit(std::uint32_t reg, std::uint32_t bit, std::uint8_t value) {
    (void)call("setting the CPLD's bit", kBoardPath, kBoardInterface, "SetCpldBit",
               g_variant_new("(uuy)", reg, bit, value), "()"); // an empty reply
}

void Service::set_fault(const std::string &operation, std::int32_t status) {
    (void)call("setting the fault", kBoardPath, kBoardInterface, "SetFault",
               g_variant_new("(si)", operation.c_str(), status), "()"); // an empty reply
}

} // namespace asdctl
