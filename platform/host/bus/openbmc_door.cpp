// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "openbmc_door.h"

#include "caller.h"
#include "dbus_standard.h"
#include "dbus_xml.h"
#include "log.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace asd_host {

namespace {

constexpr const char *kName = "xyz.openbmc_project.Ipmi.Host";
constexpr const char *kPath = "/xyz/openbmc_project/Ipmi";
constexpr const char *kServer = "xyz.openbmc_project.Ipmi.Server";

NodeInfoPtr description() {
    ErrorSlot error;
    NodeInfoPtr node(g_dbus_node_info_new_for_xml(kIpmiServerXml, error.out()));
    if (node == nullptr) {
        g_error("the description of %s: %s", kServer, error.text()); // part of the program; ends the process
    }
    return node;
}

void answer_request(OpenbmcRequests::Pending pending, const IpmiResponse &response) {
    GVariant *arguments = g_dbus_method_invocation_get_parameters(pending.invocation.get());
    guint8 netfn = 0;
    guint8 lun = 0;
    guint8 cmd = 0;
    g_variant_get(arguments, "(yyy@ay@a{sv})", &netfn, &lun, &cmd, nullptr, nullptr);
    const std::uint8_t code = code_for(pending.channel, response.front(), pending.command_exists);
    GVariant *data = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, response.data() + 1, response.size() - 1, 1);
    answer(std::move(pending.invocation), g_variant_new("((yyyy@ay))", netfn | 1U, lun, cmd, code, data));
}

} // namespace

void OpenbmcRequests::add(std::uint64_t number, Pending pending) {
    const std::lock_guard lock(mutex_);
    pending_.emplace(number, std::move(pending));
}

void OpenbmcRequests::finish(std::uint64_t number, const IpmiResponse &response) {
    Map::node_type pending;
    {
        const std::lock_guard lock(mutex_);
        pending = pending_.extract(number);
    }
    if (!pending.empty()) { // otherwise it has come too late
        answer_request(std::move(pending.mapped()), response);
    }
}

OpenbmcRequests::Map OpenbmcRequests::take_late(Time now) {
    Map late;
    const std::lock_guard lock(mutex_);
    while (!pending_.empty() && pending_.begin()->second.late_at <= now) {
        late.insert(pending_.extract(pending_.begin()));
    }
    return late;
}

std::optional<OpenbmcRequests::Time> OpenbmcRequests::next_late() const {
    const std::lock_guard lock(mutex_);
    return pending_.empty() ? std::nullopt : std::optional(pending_.begin()->second.late_at);
}

OpenbmcDoor::OpenbmcDoor(Bus bus, const IpmiRegistry &registry, std::uint8_t session_floor)
    : registry_(registry), session_floor_(session_floor), description_(description()),
      member_({.bus = bus,
               .name = kName,
               .duty = "requests of OpenBMC's IPMI bridges",
               .prepare = [this](const ConnectionPtr &connection,
                                 std::string *mistake) { return prepare(connection, mistake); },
               .needed_at_start = false}) {}

bool OpenbmcDoor::start(std::string *mistake) {
    if (!pool_.start(mistake)) {
        return false;
    }
    member_.start();
    return true;
}

bool OpenbmcDoor::stop(std::chrono::milliseconds limit) {
    return pool_.stop(limit);
}

void OpenbmcDoor::leave() {
    late_.reset();
    give_up(requests_->take_late(OpenbmcRequests::Time::max()));
    member_.leave();
}

// ---- Bridges ----

// The bus answers in order: when the name is had, the owners asked for before it are known, and a bridge's later change
// of names arrives before its next request.
bool OpenbmcDoor::prepare(const ConnectionPtr &connection, std::string *mistake) {
    static constexpr GDBusInterfaceVTable kCalls = {
        .method_call = on_call, .get_property = nullptr, .set_property = nullptr, .padding = {}};
    ErrorSlot error;
    if (g_dbus_connection_register_object(connection.get(), kPath,
                                          g_dbus_node_info_lookup_interface(description_.get(), kServer), &kCalls, this,
                                          nullptr, error.out()) == 0) {
        *mistake = std::string("the IPMI object cannot be put on the bus: ") + error.text();
        return false;
    }
    channels_.clear();
    (void)g_dbus_connection_signal_subscribe(connection.get(), kDriverName, kDriverName, "NameOwnerChanged",
                                             kDriverPath, std::string(kChannelNames).c_str(),
                                             G_DBUS_SIGNAL_FLAGS_MATCH_ARG0_NAMESPACE, on_owner_changed, this, nullptr);
    member_.call_bus("ListNames", nullptr, "(as)", [this](GVariant *reply, const std::string &failure) {
        if (reply == nullptr) {
            member_.give_up("the bus does not say who is on it: " + failure);
            return;
        }
        learn_channels(reply);
        member_.ask_for_name();
    });
    return true;
}

void OpenbmcDoor::learn_channels(GVariant *names) {
    const VariantPtr list(g_variant_get_child_value(names, 0));
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        std::string name;
        {
            const gchar *text = nullptr;
            g_variant_get_child(list.get(), i, "&s", &text);
            name = text;
        }
        if (!name.starts_with(kChannelNames)) {
            continue;
        }
        member_.call_bus("GetNameOwner", g_variant_new("(s)", name.c_str()), "(s)",
                         [this, name](GVariant *reply, const std::string & /*gone_again*/) {
                             const gchar *owner = "";
                             if (reply != nullptr) {
                                 g_variant_get(reply, "(&s)", &owner);
                             }
                             note_channel(name, owner);
                         });
    }
}

void OpenbmcDoor::note_channel(const std::string &name, const char *owner) {
    if (*owner == '\0') {
        channels_.erase(name);
        return;
    }
    channels_[name] = owner;
}

void OpenbmcDoor::on_owner_changed(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar * /*path*/,
                                   const gchar * /*interface*/, const gchar * /*signal*/, GVariant *parameters,
                                   gpointer self) {
    const gchar *name = nullptr;
    const gchar *owner = nullptr;
    g_variant_get(parameters, "(&s&s&s)", &name, nullptr, &owner);
    static_cast<OpenbmcDoor *>(self)->note_channel(name, owner);
}

// Who has several names is taken for the one that grants least.
Channel OpenbmcDoor::channel_of_sender(std::string_view sender) const {
    Channel channel = Channel::kSystem;
    for (const auto &[name, owner] : channels_) {
        channel = owner == sender ? std::max(channel, channel_of(name)) : channel;
    }
    return channel;
}

// ---- Requests ----

void OpenbmcDoor::on_call(GDBusConnection * /*connection*/, const gchar *sender, const gchar * /*path*/,
                          const gchar * /*interface*/, const gchar * /*method*/, GVariant * /*parameters*/,
                          GDBusMethodInvocation *invocation, gpointer self) {
    static_cast<OpenbmcDoor *>(self)->execute(sender, InvocationPtr(invocation));
}

// GDBus has checked the arguments' types.
void OpenbmcDoor::execute(const char *sender, InvocationPtr invocation) {
    GVariant *arguments = g_dbus_method_invocation_get_parameters(invocation.get());
    IpmiRequest request;
    g_variant_get_child(arguments, 0, "y", &request.netfn);
    g_variant_get_child(arguments, 1, "y", &request.lun);
    g_variant_get_child(arguments, 2, "y", &request.cmd);
    const VariantPtr data(g_variant_get_child_value(arguments, 3));
    const VariantPtr options(g_variant_get_child_value(arguments, 4));
    gsize size = 0;
    const auto *bytes = static_cast<const std::uint8_t *>(g_variant_get_fixed_array(data.get(), &size, 1));
    request.data = {bytes, size};

    OpenbmcRequests::Pending pending;
    pending.channel = channel_of_sender(sender);
    pending.command_exists = registry_.has_command(request.netfn, request.cmd);
    pending.invocation = std::move(invocation);
    const std::optional<std::uint8_t> privilege = requester_privilege(pending.channel, options.get());
    if (!privilege) {
        answer_request(std::move(pending), {kUnspecifiedError});
        return;
    }
    request.privilege = *privilege;
    if (is_below_floor(pending.channel, request, session_floor_)) {
        answer_request(std::move(pending), {kInsufficientPrivilege});
        return;
    }
    if (request.data.size() > kRequestLimit) {
        answer_request(std::move(pending), {kRequestLengthExceeded});
        return;
    }
    hand_over(request, std::move(pending));
}

// Requests that reach the same row keep their order: repetitions of one that hangs on a chip take no further worker,
// and frames of one record do not overtake each other.
void OpenbmcDoor::hand_over(const IpmiRequest &request, OpenbmcRequests::Pending pending) {
    const std::uint64_t number = ++last_number_;
    const auto work = [&registry = registry_, number, channel = pending.channel, requests = requests_, held = request,
                       data = std::vector<std::uint8_t>(request.data.begin(), request.data.end())]() mutable {
        held.data = data;
        IpmiResponse response;
        {
            const Caller caller("IPMI's bridge", [channel] {
                return std::string(channel == Channel::kSession ? "a session of the network" : "the host");
            });
            response = registry.serve(held);
        }
        requests->finish(number, response);
    };
    pending.late_at = std::chrono::steady_clock::now() + std::chrono::milliseconds(kAnswerMs);
    requests_->add(number, std::move(pending)); // it may be done before run() returns
    if (pool_.run(registry_.row_number(request), work, number) != CallPool::Taken::kYes) {
        requests_->finish(number, {kNodeBusy}); // too many wait, or the service is ending
    } else if (late_ == nullptr) {
        await_late();
    }
}

// One timer for all: setting one for each request and taking it away again would wake the loop for each answer.
void OpenbmcDoor::await_late() {
    late_.reset();
    if (const auto next = requests_->next_late()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - std::chrono::steady_clock::now());
        const auto wait = static_cast<guint>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        late_ = attached(g_timeout_source_new(wait), on_late, this);
    }
}

gboolean OpenbmcDoor::on_late(gpointer self) {
    auto *door = static_cast<OpenbmcDoor *>(self);
    door->give_up(door->requests_->take_late(std::chrono::steady_clock::now()));
    door->await_late();
    return G_SOURCE_REMOVE; // this one
}

// Busy: it is not carried out. Timeout: it has begun and goes on, only its answer has nowhere to go.
void OpenbmcDoor::give_up(OpenbmcRequests::Map requests) {
    for (auto &[number, pending] : requests) {
        const bool waiting = pool_.withdraw(number);
        HOST_LOG(waiting ? kLogDebug : kLogInformation,
                 "a request of an OpenBMC bridge is answered before it is done: %s",
                 waiting ? "C0, it is not carried out" : "C3, it goes on");
        answer_request(std::move(pending), {waiting ? kNodeBusy : kTimeout});
    }
}

} // namespace asd_host
