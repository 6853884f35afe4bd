// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_service.h"

#include "dbus_calls.h"
#include "dbus_clients.h"
#include "dbus_door.h"
#include "dbus_objects.h"
#include "log.h"
#include "loop_queue.h"

#include <future>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include <pthread.h>

namespace asd_host {

// Kept by the service, by its threads and by the object store's observer: none of them can outlive it.
struct BusShared {
    BusShared(Host &host, const ModuleRegistry &module)
        : platform(host), objects(host), calls(objects, module, queue), clients(objects, calls) {
        calls.faults_changed = [this] { clients.changed(kBoardObject, {"Faults"}); };
    }

    Host &platform;
    std::shared_ptr<LoopQueue> queue = std::make_shared<LoopQueue>();

    std::mutex mutex;                            // guards changes
    std::map<OBJ_HANDLE, PropertyNames> changes; // properties that changed and the bus thread has not yet seen

    // The bus thread's.
    BusObjects objects;
    BusCalls calls;
    BusClients clients;
    LoopPtr loop;

    void note_change(OBJ_HANDLE object, const std::string &property);
    void announce_changes();
};

namespace {

constexpr guint kCloseLimitMs = 1000; // for clients that do not take their last answers
constexpr guint32 kDoNotQueue = 4;    // flag of RequestName
constexpr guint32 kNowOwner = 1;      // its answer

// ---- The bus thread ----

bool own_name(GDBusConnection *connection, const std::string &name, const std::string &bus, std::string *mistake) {
    ErrorSlot error;
    const VariantPtr reply(
        g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue),
                                    G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
    if (reply == nullptr) {
        *mistake = "the name " + name + " cannot be had on the " + bus + " bus: " + error.text();
        return false;
    }
    guint32 answer = 0;
    g_variant_get(reply.get(), "(u)", &answer);
    if (answer != kNowOwner) {
        *mistake = "the name " + name + " is taken on the " + bus +
                   " bus; stop the service that has it, or choose another --slot or --bus";
        return false;
    }
    return true;
}

bool join_bus(BusShared &shared, Bus bus, std::string *mistake) {
    const std::string bus_word = bus == Bus::kSession ? "session" : "system";
    ErrorSlot error;
    const TextPtr address(g_dbus_address_get_for_bus_sync(bus == Bus::kSession ? G_BUS_TYPE_SESSION : G_BUS_TYPE_SYSTEM,
                                                          nullptr, error.out()));
    constexpr auto kFlags =
        static_cast<GDBusConnectionFlags>(static_cast<unsigned>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT) |
                                          static_cast<unsigned>(G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION));
    ConnectionPtr connection;
    if (address != nullptr) {
        connection.reset(g_dbus_connection_new_for_address_sync(address.get(), kFlags, nullptr, nullptr, error.out()));
    }
    if (connection == nullptr) {
        *mistake = "cannot reach the " + bus_word + " bus: " + error.text();
        return false;
    }
    GDBusConnection *raw = connection.get();
    // The name comes last: who finds it finds the objects too.
    return shared.clients.add(std::move(connection), BusClients::Kind::kBus, mistake) &&
           own_name(raw, bus_name(shared.platform.options.slot), bus_word, mistake);
}

gboolean cut_clients(gpointer shared) {
    static_cast<BusShared *>(shared)->clients.cut_all();
    return G_SOURCE_CONTINUE;
}

// Cut connections report their end, as closed ones do.
void close_clients(BusShared &shared) {
    const SourcePtr limit = attached(g_timeout_source_new(kCloseLimitMs), cut_clients, &shared);
    bool closed = false;
    shared.clients.close_all([&closed, &shared] {
        closed = true;
        g_main_loop_quit(shared.loop.get());
    });
    if (!closed) {
        g_main_loop_run(shared.loop.get());
    }
}

// Serves until it is told to end. What keeps it from that, or nothing, goes to started.
void serve(const std::shared_ptr<BusShared> &shared, std::promise<std::string> &started) {
    BusDoor door(shared->clients);
    const Options &options = shared->platform.options;
    std::string mistake;
    const bool open = options.bus == Bus::kPrivate ? door.open(options.slot_run_dir() / "bus", &mistake)
                                                   : join_bus(*shared, options.bus, &mistake);
    if (!open || !shared->calls.start(&mistake)) {
        started.set_value(mistake);
        return;
    }
    shared->queue->attach();
    started.set_value({});
    g_main_loop_run(shared->loop.get());
    door.close();
    shared->calls.refuse_rest();
    close_clients(*shared);
    shared->queue->detach();
}

void run_bus(const std::shared_ptr<BusShared> &shared, std::promise<std::string> started) {
    (void)pthread_setname_np(pthread_self(), "bus"); // a name for people
    const ContextPtr context(g_main_context_new());
    g_main_context_push_thread_default(context.get());
    shared->loop.reset(g_main_loop_new(context.get(), FALSE));
    serve(shared, started);
    g_main_context_pop_thread_default(context.get());
}

} // namespace

// ---- Any thread ----

// One task announces everything that changes until it runs.
void BusShared::note_change(OBJ_HANDLE object, const std::string &property) {
    bool first = false;
    {
        const std::lock_guard lock(mutex);
        first = changes.empty();
        changes[object].insert(property);
    }
    if (first) {
        queue->post([this] { announce_changes(); });
    }
}

void BusShared::announce_changes() {
    std::map<OBJ_HANDLE, PropertyNames> seen;
    {
        const std::lock_guard lock(mutex);
        seen.swap(changes);
    }
    for (const auto &[object, properties] : seen) {
        clients.changed(object, properties);
    }
}

std::unique_ptr<DbusService> DbusService::open(Host &platform, const ModuleRegistry &module, std::string *mistake) {
    std::unique_ptr<DbusService> service(new DbusService);
    if (platform.options.bus == Bus::kNone) {
        return service;
    }
    auto shared = std::make_shared<BusShared>(platform, module);
    if (!shared->queue->open()) {
        *mistake = "no descriptor is left for the D-Bus service";
        return nullptr;
    }
    std::promise<std::string> promise;
    std::future<std::string> started = promise.get_future();
    // From before the first client on; what changes until then waits in the queue.
    platform.objects.set_observer(
        [shared](OBJ_HANDLE object, const std::string &property) { shared->note_change(object, property); });
    service->platform_ = &platform;
    try {
        service->thread_ = std::thread(run_bus, shared, std::move(promise));
    } catch (const std::system_error &failure) {
        *mistake = std::string("no thread for the D-Bus service: ") + failure.what();
        platform.objects.set_observer({});
        return nullptr;
    }
    *mistake = started.get();
    if (!mistake->empty()) {
        service->thread_.join();
        platform.objects.set_observer({});
        return nullptr;
    }
    service->shared_ = shared;
    return service;
}

DbusService::~DbusService() {
    (void)stop(std::chrono::seconds(1)); // a call that still runs keeps what it uses
}

bool DbusService::stop(std::chrono::milliseconds limit) {
    if (shared_ == nullptr) {
        return true;
    }
    platform_->objects.set_observer({});
    const bool idle = shared_->calls.stop(limit);
    shared_->queue->post([shared = shared_.get()] { g_main_loop_quit(shared->loop.get()); });
    thread_.join();
    // What still runs answers into the queue, which nobody empties any more.
    shared_.reset();
    return idle;
}

} // namespace asd_host
