// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "service.h"

#include "bus_names.h"
#include "failure.h"
#include "records.h"
#include "texts.h"
#include "values.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>
#include <string_view>

namespace asdctl {

namespace {

constexpr int kCallTimeoutMs = 30'000;
constexpr unsigned kConnectTimeoutS = 5;

// ---- Errors in an operator's words ----

struct ErrorRow {
    std::string_view name;
    const char *text;
};

// clang-format off
constexpr std::array kErrors = {
    ErrorRow{.name = kErrorFailed,                                    .text = "the service refused it"},
    ErrorRow{.name = kErrorArguments,                                 .text = "the service cannot use these arguments"},
    ErrorRow{.name = kErrorNoObject,                                  .text = "the service has no such object"},
    ErrorRow{.name = kErrorNotOnline,                                 .text = "the item is not online"},
    ErrorRow{.name = kErrorNotReady,                                  .text = "the item is not ready"},
    ErrorRow{.name = kErrorStorage,                                   .text = "the parts could not be read or written"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.AccessDenied",       .text = "this user may not do it"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.InvalidArgs",        .text = "the service cannot use these arguments"},
    ErrorRow{.name = kErrorLimits,                                    .text = "the service has too much to do"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.NoReply",            .text = "the service did not answer"},
    ErrorRow{.name = kErrorMethod,                                    .text = "the service does not know this operation"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.UnknownObject",      .text = "the service has no such object"},
    ErrorRow{.name = "org.freedesktop.DBus.Error.UnknownProperty",    .text = "the service has no such property"},
};
// clang-format on
static_assert(std::ranges::is_sorted(kErrors, {}, &ErrorRow::name));

// What the error means and, when it says more than that, what the service says.
std::string error_text(const ErrorSlot &error) {
    if (error.is_io(G_IO_ERROR_TIMED_OUT)) {
        return "the service did not answer within 30 seconds";
    }
    if (error.is_io(G_IO_ERROR_CLOSED)) {
        return "the service closed the connection";
    }
    const TextPtr name(g_dbus_error_get_remote_error(error.get()));
    if (name == nullptr) {
        return error.text();
    }
    (void)g_dbus_error_strip_remote_error(error.get()); // whether it was there does not matter
    const auto *const row = std::ranges::find(kErrors, std::string_view(name.get()), &ErrorRow::name);
    const std::string meaning = row == kErrors.end() ? name.get() : row->text;
    return *error.text() == '\0' ? meaning : meaning + ": " + error.text();
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
        const auto cancel = [](gpointer cancellable) -> gboolean {
            g_cancellable_cancel(static_cast<GCancellable *>(cancellable));
            return G_SOURCE_REMOVE;
        };
        const SourcePtr limit = attached(g_timeout_source_new_seconds(kConnectTimeoutS), cancel, cancellable_.get());
        while (!result_) {
            g_main_context_iteration(context_.get(), TRUE);
        }
        return result_.get();
    }

private:
    ContextPtr context_;
    ObjectPtr<GCancellable> cancellable_;
    ObjectPtr<GAsyncResult> result_;
};

std::string connect_error_text(const ErrorSlot &error) {
    return error.is_io(G_IO_ERROR_CANCELLED) ? "it does not answer" : error.text();
}

// ---- Values ----

// Of an object's path; empty for "/".
std::string last_word(std::string_view path) {
    return std::string(path.substr(path.rfind('/') + 1));
}

Bytes bytes_of(GVariant *value) {
    gsize size = 0;
    const auto *const bytes = static_cast<const std::uint8_t *>(g_variant_get_fixed_array(value, &size, 1));
    return {bytes, bytes + size};
}

// One interface's properties. Those that are not there, or of another type, are as if they were empty.
class Properties {
public:
    explicit Properties(GVariant *dictionary) : dictionary_(dictionary) {}

    // Leaves *value as it is when there is no such property of this type.
    template <typename Number>
    void get(const char *name, const char *type, Number *value) const {
        (void)g_variant_lookup(dictionary_, name, type, value);
    }
    [[nodiscard]] bool flag(const char *name) const {
        std::uint8_t value = 0;
        get(name, "y", &value);
        return value != 0;
    }
    [[nodiscard]] std::string text(const char *name) const {
        const gchar *text = "";
        (void)g_variant_lookup(dictionary_, name, "&s", &text);
        return text;
    }
    [[nodiscard]] std::vector<std::string> texts(const char *name) const {
        std::vector<std::string> texts;
        for_each(name, "as", [&](GVariant *text) { texts.emplace_back(g_variant_get_string(text, nullptr)); });
        return texts;
    }
    // What the service calls a condition; *value stays when it is none that is known here.
    void get(const char *name, Condition *value) const {
        if (const ConditionWord *const word = condition_called(text(name)); word != nullptr) {
            *value = word->condition;
        }
    }
    [[nodiscard]] Bytes bytes(const char *name) const {
        const VariantPtr value = lookup(name, "ay");
        return value ? bytes_of(value.get()) : Bytes();
    }
    // The last word of an object's path; empty for "/".
    [[nodiscard]] std::string reference(const char *name) const {
        const gchar *path = "/";
        (void)g_variant_lookup(dictionary_, name, "&o", &path);
        return last_word(path);
    }
    // Calls each(value) for the values in a property of that type.
    template <typename Each>
    void for_each(const char *name, const char *type, const Each &each) const {
        const VariantPtr all = lookup(name, type);
        for (gsize i = 0; all && i < g_variant_n_children(all.get()); ++i) {
            each(VariantPtr(g_variant_get_child_value(all.get(), i)).get());
        }
    }

private:
    [[nodiscard]] VariantPtr lookup(const char *name, const char *type) const {
        return VariantPtr(g_variant_lookup_value(dictionary_, name, G_VARIANT_TYPE(type)));
    }

    GVariant *dictionary_;
};

Chip chip_of(const std::string &name, const Properties &properties) {
    Chip chip;
    chip.name = name;
    chip.part = properties.text("Part");
    properties.get("Offset", "u", &chip.offset);
    properties.get("RetryNumber", "u", &chip.retry_number);
    properties.get("Health", "y", &chip.health);
    properties.get("ErrorCode", "i", &chip.error_code);
    properties.get("StgWp", "y", &chip.stg_wp);
    properties.get("StgIsWp", "y", &chip.stg_is_wp);
    properties.get("PageCycles", "t", &chip.page_cycles);
    properties.get("State", &chip.condition);
    return chip;
}

// Its chips have their names alone.
Item item_of(const std::string &name, const Properties &properties) {
    Item item;
    item.name = name;
    properties.get("Num", "y", &item.num);
    properties.get("Length", "u", &item.length);
    properties.get("State", &item.condition);
    item.value = properties.bytes("Value");
    item.online = properties.flag("Online");
    item.ready = properties.flag("Ready");
    item.need_sync = properties.flag("NeedSync");
    item.confidential = properties.flag("Confidential");
    learn_item(name, properties.text("Label"), properties.text("Format"));
    for (const char *reference : kChipKeys) {
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
    board.role = properties.text("Role");
    properties.get("BackplaneEeproms", "u", &board.backplane_eeproms);
    board.kinds = properties.texts("Kind");
    properties.for_each("WriteProtectLines", "a{uu}", [&board](GVariant *entry) {
        std::uint32_t line = 0;
        std::uint32_t level = 0;
        g_variant_get(entry, "{uu}", &line, &level);
        board.write_protect_lines[line] = level;
    });
    properties.for_each("Faults", "a{si}", [&board](GVariant *entry) {
        const gchar *operation = nullptr;
        std::int32_t status = 0;
        g_variant_get(entry, "{&si}", &operation, &status);
        board.faults[operation] = status;
    });
    properties.get("EquipmentMode", "y", &board.equipment_mode);
    properties.get("CpldUpgrading", "y", &board.cpld_upgrading);
    properties.get("PowerStandBy", "i", &board.power_standby);
    return board;
}

void take_interface(Snapshot *snapshot, const std::string &path, std::string_view interface,
                    const Properties &properties) {
    const std::string name = last_word(path);
    if (interface == kItemInterface) {
        snapshot->items.push_back(item_of(name, properties));
    } else if (interface == kChipInterface) {
        snapshot->chips.push_back(chip_of(name, properties));
    } else if (interface == kBoardInterface) {
        snapshot->board = board_of(properties);
    }
}

void take_service(Snapshot *snapshot, const Properties &properties) {
    snapshot->version = properties.text("Version");
    snapshot->enclosure = properties.text("Enclosure");
    properties.get("Slot", "y", &snapshot->slot);
    properties.get("TimeScale", "u", &snapshot->time_scale);
    properties.get("Uptime", "t", &snapshot->uptime_s);
    snapshot->tasks = properties.texts("Tasks");
    properties.for_each("Parts", "a(ssss)", [snapshot](GVariant *entry) {
        const gchar *name = nullptr;
        const gchar *file = nullptr;
        const gchar *kind = nullptr;
        const gchar *reason = nullptr;
        g_variant_get(entry, "(&s&s&s&s)", &name, &file, &kind, &reason);
        const ConditionWord *const word = condition_called(kind);
        snapshot->parts.push_back({.name = name,
                                   .file = file,
                                   .condition = word == nullptr ? Condition::kAnswers : word->condition,
                                   .reason = reason});
    });
    properties.for_each("Concerns", "a(ssas)", [snapshot](GVariant *entry) {
        const gchar *kind = nullptr;
        const gchar *text = nullptr;
        GVariant *names = nullptr;
        g_variant_get(entry, "(&s&s@as)", &kind, &text, &names);
        const VariantPtr held(names);
        Concern concern{.kind = kind, .text = text, .names = {}};
        for (gsize i = 0; i < g_variant_n_children(names); ++i) {
            const VariantPtr one(g_variant_get_child_value(names, i));
            concern.names.emplace_back(g_variant_get_string(one.get(), nullptr));
        }
        snapshot->concerns.push_back(std::move(concern));
    });
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
        return to_hex(bytes_of(value));
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE("ar")) != 0 ||
        g_variant_is_of_type(value, G_VARIANT_TYPE_TUPLE) != 0 ||
        g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY) != 0) {
        Json all = Json::array();
        for (gsize i = 0; i < g_variant_n_children(value); ++i) {
            all.push_back(json_of(VariantPtr(g_variant_get_child_value(value, i)).get()));
        }
        return all;
    }
    return TextPtr(g_variant_print(value, FALSE)).get();
}

// A PropertiesChanged signal.
void take_signal(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar *path,
                 const gchar * /*interface*/, const gchar * /*signal*/, GVariant *parameters, gpointer changes) {
    if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)")) == 0) {
        return;
    }
    const std::string object = last_word(path);
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
    return std::string(kRootPath) + "/" + class_name + "/" + object;
}

template <typename Named>
const Named &find_named(const std::vector<Named> &all, const std::string &name, const char *kind, const char *advice,
                        std::vector<std::string> names = {}) {
    const auto found = std::ranges::find(all, name, &Named::name);
    if (found != all.end()) {
        return *found;
    }
    std::ranges::transform(all, std::back_inserter(names), &Named::name);
    throw Failure("there is no " + std::string(kind) + " '" + name + "'", advice + did_you_mean(name, names));
}

} // namespace

const Item &Snapshot::item(const std::string &name) const {
    const KnownItem *const known = known_named(name);
    return find_named(items, known == nullptr ? name : std::string(known->item), "item",
                      "'asdctl list' shows the items.", known_labels());
}

const Chip &Snapshot::chip(const std::string &name) const {
    return find_named(chips, name, "copy", "'asdctl list' shows the items and their copies.");
}

Service::Service(const Context &context) : who_may_(context.who_may()) {
    if (context.bus.value_or(Bus::kPrivate) != Bus::kPrivate) {
        connect_shared(context, *context.bus);
    } else {
        try {
            connect_private(context);
        } catch (const Failure &) {
            const auto served = context.serving.slots.find(context.slot);
            if (context.bus || served == context.serving.slots.end() || !connect_shared_of(context, served->second)) {
                throw;
            }
        }
    }
    g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
}

// The bus on which the process has the slot's name; it may be another service's there.
bool Service::connect_shared_of(const Context &context, pid_t service) {
    for (const Bus bus : {Bus::kSystem, Bus::kSession}) {
        if (bus == Bus::kSession && g_getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
            continue; // GLib would try to start one
        }
        try {
            connect_shared(context, bus);
            const VariantPtr reply = call("asking for the name's owner", "/org/freedesktop/DBus",
                                          "org.freedesktop.DBus", "GetConnectionUnixProcessID",
                                          g_variant_new("(s)", destination_.c_str()), "(u)", "org.freedesktop.DBus");
            std::uint32_t owner = 0;
            g_variant_get(reply.get(), "(u)", &owner);
            if (owner == static_cast<std::uint32_t>(service)) {
                return true;
            }
        } catch (const Failure &) { // no such bus, or the name is nobody's there
            continue;
        }
    }
    return false;
}

void Service::connect_private(const Context &context) {
    const std::string socket = context.bus_socket().string();
    where_ = socket;
    advice_ = context.how_to_start();
    const TextPtr escaped(g_dbus_address_escape_value(socket.c_str()));
    TimedStep step;
    g_dbus_connection_new_for_address((std::string("unix:path=") + escaped.get()).c_str(),
                                      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, step.cancellable(),
                                      TimedStep::finish, &step);
    ErrorSlot error;
    connection_.reset(g_dbus_connection_new_for_address_finish(step.wait(), error.out()));
    if (!connection_) {
        throw context.unreachable(socket, connect_error_text(error));
    }
}

void Service::connect_shared(const Context &context, Bus bus) {
    destination_ = bus_name(context.slot);
    const std::string name = bus == Bus::kSession ? "session bus" : "system bus";
    where_ = destination_ + " on the " + name;
    advice_ = context.how_to_start();
    TimedStep step;
    g_bus_get(bus == Bus::kSession ? G_BUS_TYPE_SESSION : G_BUS_TYPE_SYSTEM, step.cancellable(), TimedStep::finish,
              &step);
    ErrorSlot error;
    connection_.reset(g_bus_get_finish(step.wait(), error.out()));
    if (!connection_) {
        throw Failure("the " + name + " cannot be connected to: " + connect_error_text(error),
                      "Without --bus the service is found wherever it is.");
    }
}

VariantPtr Service::call(const std::string &doing, const std::string &path, const char *interface, const char *method,
                         GVariant *arguments, const char *reply_type, const char *destination) {
    ErrorSlot error;
    if (destination == nullptr && !destination_.empty()) {
        destination = destination_.c_str();
    }
    VariantPtr reply(g_dbus_connection_call_sync(connection_.get(), destination, path.c_str(), interface, method,
                                                 arguments, G_VARIANT_TYPE(reply_type), G_DBUS_CALL_FLAGS_NONE,
                                                 kCallTimeoutMs, nullptr, error.out()));
    if (reply != nullptr) {
        return reply;
    }
    const bool absent = g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != 0;
    const bool denied = g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) != 0;
    if (absent) {
        throw Failure(where_ + ": nobody has this name", advice_);
    }
    throw Failure(doing + ": " + error_text(error), denied ? who_may_ : "");
}

Snapshot Service::snapshot() {
    const VariantPtr reply = call("asking for the objects", kRootPath, "org.freedesktop.DBus.ObjectManager",
                                  "GetManagedObjects", nullptr, "(a{oa{sa{sv}}})");
    Snapshot snapshot;
    const VariantPtr objects(g_variant_get_child_value(reply.get(), 0));
    GVariantIter all;
    g_variant_iter_init(&all, objects.get());
    const gchar *path = nullptr;
    for (GVariant *interfaces = nullptr; g_variant_iter_next(&all, "{&o@a{sa{sv}}}", &path, &interfaces) != 0;) {
        const VariantPtr held(interfaces);
        GVariantIter each;
        g_variant_iter_init(&each, interfaces);
        const gchar *interface = nullptr;
        for (GVariant *properties = nullptr; g_variant_iter_next(&each, "{&s@a{sv}}", &interface, &properties) != 0;) {
            const VariantPtr held_properties(properties);
            take_interface(&snapshot, path, interface, Properties(properties));
        }
    }
    complete(&snapshot);
    // The root itself is not among its objects.
    const VariantPtr own = call("asking for the service's properties", kRootPath, "org.freedesktop.DBus.Properties",
                                "GetAll", g_variant_new("(s)", kServiceName), "(a{sv})");
    take_service(&snapshot, Properties(VariantPtr(g_variant_get_child_value(own.get(), 0)).get()));
    return snapshot;
}

void Service::subscribe(std::vector<Change> *changes) {
    // Until the connection ends, which is when the command does.
    (void)g_dbus_connection_signal_subscribe(connection_.get(), destination_.empty() ? nullptr : destination_.c_str(),
                                             "org.freedesktop.DBus.Properties", "PropertiesChanged", nullptr, nullptr,
                                             G_DBUS_SIGNAL_FLAGS_NONE, take_signal, changes, nullptr);
}

std::string Service::role() {
    const VariantPtr reply = call("asking for the role", kBoardPath, "org.freedesktop.DBus.Properties", "Get",
                                  g_variant_new("(ss)", kBoardInterface, "Role"), "(v)");
    const VariantPtr boxed(g_variant_get_child_value(reply.get(), 0));
    const VariantPtr role(g_variant_get_variant(boxed.get()));
    return g_variant_is_of_type(role.get(), G_VARIANT_TYPE_STRING) != 0 ? g_variant_get_string(role.get(), nullptr)
                                                                        : "unknown";
}

bool Service::answers() {
    if (destination_.empty()) {
        return g_dbus_connection_is_closed(connection_.get()) == 0;
    }
    try {
        return !role().empty();
    } catch (const Failure &) {
        return false;
    }
}

std::string Service::metrics() {
    const VariantPtr reply = call("asking for the metrics", kRootPath, kServiceName, "Metrics", nullptr, "(s)");
    const gchar *text = nullptr;
    g_variant_get(reply.get(), "(&s)", &text);
    return text;
}

std::vector<ValueEvent> Service::history(const std::string &item) {
    const VariantPtr reply =
        call("asking for the history", kRootPath, kServiceName, "History", g_variant_new("(s)", item.c_str()), "(s)");
    const gchar *lines = nullptr;
    g_variant_get(reply.get(), "(&s)", &lines);
    std::vector<ValueEvent> events;
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        std::array<std::string, 9> fields;
        std::istringstream rest(line);
        for (std::string &field : fields) {
            std::getline(rest, field, '\t');
        }
        const auto value = [&](std::size_t at) {
            return ChangedValue{.length = std::strtoul(fields[at].c_str(), nullptr, 10),
                                .bytes = fields[at + 1].empty() ? Bytes() : parse_hex(fields[at + 1])};
        };
        events.push_back({.time_ms = std::strtoll(fields[0].c_str(), nullptr, 10),
                          .door = fields[1],
                          .user = fields[2],
                          .item = fields[3],
                          .where = fields[4],
                          .before = value(5),
                          .now = value(7)});
    }
    return events;
}

std::int32_t Service::write_item(const std::string &item, const char *method, BytesView data) {
    GVariant *bytes = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data.data(), data.size(), 1);
    const VariantPtr reply = call("writing " + item, object_path(kItemClass, item), kItemInterface, method,
                                  g_variant_new("(@ay)", bytes), "(i)");
    std::int32_t status = 0;
    g_variant_get(reply.get(), "(i)", &status);
    return status;
}

Bytes Service::read_item(const std::string &item, const char *method) {
    const VariantPtr reply =
        call("reading " + item, object_path(kItemClass, item), kItemInterface, method, nullptr, "(ay)");
    return bytes_of(VariantPtr(g_variant_get_child_value(reply.get(), 0)).get());
}

void Service::clear_item(const std::string &item) {
    (void)call("clearing " + item, object_path(kItemClass, item), kItemInterface, "ClearMemData", nullptr,
               "()"); // an empty reply
}

void Service::reload_item(const std::string &item) {
    (void)call("reloading " + item, kRootPath, kServiceName, "ReloadItem", g_variant_new("(s)", item.c_str()), "()");
}

Repaired Service::repair_item(const std::string &item, std::uint8_t from, bool dry_run) {
    const VariantPtr reply = call("repairing " + item, kRootPath, kServiceName, "RepairItem",
                                  g_variant_new("(syb)", item.c_str(), from, dry_run ? TRUE : FALSE), "(yy)");
    Repaired repaired;
    g_variant_get(reply.get(), "(yy)", &repaired.taken, &repaired.copies);
    return repaired;
}

void Service::set_error_code(const std::string &chip, std::int32_t code) {
    (void)call("setting the error code of " + chip, object_path(kChipClass, chip), kChipInterface, "SetAsdDevErrCode",
               g_variant_new("(i)", code), "()"); // an empty reply
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
