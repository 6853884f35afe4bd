// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_service.h"

#include "dbus_board.h"
#include "dbus_calls.h"
#include "dbus_clients.h"
#include "dbus_door.h"
#include "dbus_member.h"
#include "dbus_objects.h"
#include "inventory_door.h"
#include "log.h"
#include "loop_queue.h"
#include "openbmc_door.h"
#include "places.h"
#include "thread_start.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <future>
#include <map>
#include <mutex>
#include <utility>

#include <pthread.h>

namespace asd_host {

namespace {

bool shows_inventory(const Host &host) {
    return host.options.inventory != Bus::kNone && host.enclosure.inventory;
}

} // namespace

// Kept by the service, by its threads and by the object store's observer: none of them can outlive it.
struct BusShared {
    BusShared(Host &host, const ModuleRegistry &module, const IpmiRegistry &commands)
        : platform(host), objects(host), calls(objects, module, queue), clients(objects, calls) {
        calls.faults_changed = [this] { clients.changed(kBoardObject, {"Faults"}); };
        if (host.options.ipmi_host != Bus::kNone) {
            ipmi = std::make_unique<OpenbmcDoor>(host.options.ipmi_host, commands, host.enclosure.session_privilege,
                                                 queue);
        }
        if (shows_inventory(host)) {
            inventory = std::make_unique<InventoryDoor>(host.options.inventory, host);
        }
    }

    Host &platform;
    std::shared_ptr<LoopQueue> queue = std::make_shared<LoopQueue>();

    std::mutex mutex;                            // guards changes
    std::map<OBJ_HANDLE, PropertyNames> changes; // properties that changed and the bus thread has not yet seen

    // The bus thread's.
    BusObjects objects;
    BusCalls calls;
    BusClients clients;
    std::unique_ptr<OpenbmcDoor> ipmi;        // null: not asked for; its stop is any thread's
    std::unique_ptr<InventoryDoor> inventory; // null: not asked for
    LoopPtr loop;
    std::string role = role_name(platform.board); // as told

    std::atomic<std::uint64_t> beats{0}; // of the bus thread; relaxed: guards nothing
    std::uint64_t beats_asked = 0;       // the looking thread's

    void note_change(OBJ_HANDLE object, const std::string &property);
    void announce_changes();
    void look_at_role();
};

namespace {

constexpr guint kRoleEveryMs = 500;            // as often as the module asks
constexpr guint kCloseLimitMs = 500;           // for clients that do not take their last answers
constexpr std::chrono::seconds kBeatBound{20}; // the machine may be busy

// ---- The bus thread ----

// What is there while the bus thread serves.
struct BusDoors {
    explicit BusDoors(BusShared &owner) : shared(owner), socket(owner.clients), member(plan(owner)) {}

    BusShared &shared;
    BusDoor socket;
    BusMember member;

    [[nodiscard]] BusMember::Plan plan(BusShared &owner) {
        const Options &options = owner.platform.options;
        // The name comes last: who finds it finds the objects too.
        const auto put_objects = [this, &owner](const ConnectionPtr &connection, std::string *mistake) {
            ConnectionPtr held(G_DBUS_CONNECTION(g_object_ref(connection.get())));
            if (!owner.clients.add(std::move(held), BusClients::Kind::kBus, {}, mistake)) {
                return false;
            }
            member.ask_for_name();
            return true;
        };
        return {.bus = options.bus,
                .name = bus_name(options.slot),
                .duty = "methods and properties",
                .prepare = put_objects,
                .served = [&owner] { owner.clients.announce(); },
                .needed_at_start = true};
    }
    [[nodiscard]] bool gone() const {
        return shared.clients.count() == 0 && socket.gone() && member.gone() &&
               (shared.ipmi == nullptr || shared.ipmi->gone()) &&
               (shared.inventory == nullptr || shared.inventory->gone());
    }
};

bool join_bus(BusMember &member, std::string *mistake) {
    member.start();
    while (!member.settled()) {
        (void)g_main_context_iteration(g_main_context_get_thread_default(), TRUE);
    }
    *mistake = member.mistake();
    return mistake->empty();
}

bool open_doors(BusDoors &doors, std::string *mistake) {
    const Options &options = doors.shared.platform.options;
    if (options.bus != Bus::kNone) {
        const bool open = options.bus == Bus::kPrivate ? doors.socket.open(options.slot_run_dir() / kBusSocket, mistake)
                                                       : join_bus(doors.member, mistake);
        if (!open || !doors.shared.calls.start(mistake)) {
            return false;
        }
    }
    if (doors.shared.inventory != nullptr) {
        doors.shared.inventory->start();
    }
    return doors.shared.ipmi == nullptr || doors.shared.ipmi->start(mistake);
}

// Who has the role is known to the kernel, which is asked for it.
gboolean on_role_time(gpointer shared) {
    static_cast<BusShared *>(shared)->look_at_role();
    return G_SOURCE_CONTINUE;
}

gboolean cut_off(gpointer doors) {
    auto *open = static_cast<BusDoors *>(doors);
    open->socket.cut_off();
    open->shared.clients.cut_all();
    open->member.cut_off();
    if (open->shared.ipmi != nullptr) {
        open->shared.ipmi->cut_off();
    }
    if (open->shared.inventory != nullptr) {
        open->shared.inventory->cut_off();
    }
    return G_SOURCE_CONTINUE;
}

// Cut connections report their end, as closed ones do.
void close_doors(BusDoors &doors) {
    doors.socket.close();
    doors.shared.calls.refuse_rest();
    doors.member.leave();
    doors.shared.clients.close_all();
    if (doors.shared.ipmi != nullptr) {
        doors.shared.ipmi->leave();
    }
    if (doors.shared.inventory != nullptr) {
        doors.shared.inventory->leave();
    }
    const SourcePtr limit = attached(g_timeout_source_new(kCloseLimitMs), cut_off, &doors);
    while (!doors.gone()) {
        (void)g_main_context_iteration(g_main_context_get_thread_default(), TRUE);
    }
}

// Serves until it is told to end. What keeps it from that, or nothing, goes to started.
void serve(const std::shared_ptr<BusShared> &shared, std::promise<std::string> &started) {
    BusDoors doors(*shared);
    std::string mistake;
    const bool open = open_doors(doors, &mistake);
    shared->queue->attach();
    started.set_value(mistake);
    if (open) {
        const SourcePtr role = attached(g_timeout_source_new(kRoleEveryMs), on_role_time, shared.get());
        g_main_loop_run(shared->loop.get());
    }
    close_doors(doors);
    shared->queue->detach();
}

void run_bus(const std::shared_ptr<BusShared> &shared, std::promise<std::string> &started) {
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
        if (inventory != nullptr) {
            inventory->changed(object);
        }
    }
}

void BusShared::look_at_role() {
    if (const std::string now = role_name(platform.board); now != role) {
        role = now;
        clients.changed(kBoardObject, {"Role"});
    }
}

// The store's objects, and what is known of parts and copies.
static void observe(Host &platform, const ObjectStore::Observer &observer) {
    platform.objects.set_observer(observer);
    platform.lookout.set_observer(observer);
}

std::unique_ptr<DbusService> DbusService::open(Host &platform, const ModuleRegistry &module,
                                               const IpmiRegistry &commands, std::string *mistake) {
    std::unique_ptr<DbusService> service(new DbusService);
    if (platform.options.inventory != Bus::kNone && !platform.enclosure.inventory) {
        HOST_LOG(kLogError, "the enclosure file has no Inventory section, so --inventory shows nothing");
    }
    if (platform.options.bus == Bus::kNone && platform.options.ipmi_host == Bus::kNone && !shows_inventory(platform)) {
        return service;
    }
    auto shared = std::make_shared<BusShared>(platform, module, commands);
    if (!shared->queue->open()) {
        *mistake = "no descriptor is left for the D-Bus service";
        return nullptr;
    }
    const auto promise = std::make_shared<std::promise<std::string>>();
    std::future<std::string> started = promise->get_future();
    // From before the first client on; what changes until then waits in the queue.
    observe(platform,
            [shared](OBJ_HANDLE object, const std::string &property) { shared->note_change(object, property); });
    service->platform_ = &platform;
    const int error = start_thread(&service->thread_, [shared, promise] { run_bus(shared, *promise); });
    *mistake = error == 0 ? started.get() : std::string("no thread for the D-Bus service: ") + g_strerror(error);
    if (error == 0 && !mistake->empty()) {
        service->thread_.join();
    }
    if (!mistake->empty()) {
        observe(platform, {});
        return nullptr;
    }
    service->shared_ = shared;
    return service;
}

DbusService::~DbusService() {
    (void)stop(std::chrono::seconds(1)); // a call that still runs keeps what it uses
}

// One task at a time: a thread that hangs is not given more and more.
std::optional<Pulse> DbusService::pulse() {
    if (shared_ == nullptr) {
        return std::nullopt;
    }
    const std::uint64_t beats = shared_->beats.load(std::memory_order_relaxed);
    if (beats == shared_->beats_asked) {
        ++shared_->beats_asked;
        shared_->queue->post([shared = shared_.get()] { shared->beats.fetch_add(1, std::memory_order_relaxed); });
    }
    return Pulse{.name = "the D-Bus thread", .count = beats, .bound = kBeatBound};
}

bool DbusService::stop(std::chrono::milliseconds limit) {
    if (shared_ == nullptr) {
        return true;
    }
    observe(*platform_, {});
    const auto end = std::chrono::steady_clock::now() + limit;
    bool idle = shared_->calls.stop(limit);
    if (shared_->ipmi != nullptr) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        idle = shared_->ipmi->stop(std::max(left, std::chrono::milliseconds(0))) && idle;
    }
    shared_->queue->post([shared = shared_.get()] { g_main_loop_quit(shared->loop.get()); });
    thread_.join();
    // What still runs answers into the queue, which nobody empties any more.
    shared_.reset();
    return idle;
}

} // namespace asd_host
