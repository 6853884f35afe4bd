// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "openbmc_door.h"

#include "caller.h"
#include "dbus_standard.h"
#include "dbus_xml.h"
#include "log.h"

#include <algorithm>
#include <cstring>
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
    guint8 netfn = 0;
    guint8 lun = 0;
    guint8 cmd = 0;
    g_variant_get(pending.call.arguments(), "(yyy@ay@a{sv})", &netfn, &lun, &cmd, nullptr, nullptr);
    const std::uint8_t code = code_for(pending.channel, response.front(), pending.command_exists);
    GVariant *data = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, response.data() + 1, response.size() - 1, 1);
    pending.call.answer(g_variant_new("((yyyy@ay))", netfn | 1U, lun, cmd, code, data));
}

// Guards the doors' ears. The process's own: GDBus gives an ear to its thread under locks of GLib's, and what the ear
// holds is to be seen there without them.
std::mutex ears_mutex;

bool equal_text(const char *text, const char *wanted) {
    return text != nullptr && std::strcmp(text, wanted) == 0;
}

// The bus alone can send a signal in its own name.
void hear_owner(GDBusMessage *signal, BridgeNames &names) {
    GVariant *body = g_dbus_message_get_body(signal);
    if (!equal_text(g_dbus_message_get_sender(signal), kDriverName) ||
        !equal_text(g_dbus_message_get_member(signal), "NameOwnerChanged") ||
        !equal_text(g_dbus_message_get_interface(signal), kDriverName) ||
        !equal_text(g_dbus_message_get_signature(signal), "sss") || body == nullptr) {
        return;
    }
    const gchar *name = nullptr;
    const gchar *owner = nullptr;
    g_variant_get(body, "(&s&s&s)", &name, nullptr, &owner);
    if (std::string_view(name).starts_with(kChannelNames)) {
        names.heard(name, owner);
    }
}

} // namespace

// ---- Names ----

void BridgeNames::heard(const std::string &name, const std::string &owner) {
    const std::lock_guard lock(mutex_);
    if (!all_known_) {
        heard_.insert(name);
    }
    owner.empty() ? (void)owners_.erase(name) : (void)owners_.insert_or_assign(name, owner);
}

void BridgeNames::known(const std::string &name, const std::string &owner) {
    const std::lock_guard lock(mutex_);
    if (!heard_.contains(name) && !owner.empty()) {
        owners_[name] = owner;
    }
}

void BridgeNames::all_known() {
    const std::lock_guard lock(mutex_);
    all_known_ = true;
    heard_.clear();
}

Channel BridgeNames::channel_of_sender(std::string_view sender) const {
    Channel channel = Channel::kSystem;
    const std::lock_guard lock(mutex_);
    for (const auto &[name, owner] : owners_) {
        channel = owner == sender ? std::max(channel, channel_of(name)) : channel;
    }
    return channel;
}

bool BridgeNames::passes_by() {
    const std::lock_guard lock(mutex_);
    const bool may = all_known_ && on_their_way_ == 0;
    on_their_way_ += may ? 0U : 1U;
    return may;
}

void BridgeNames::has_come() {
    const std::lock_guard lock(mutex_);
    on_their_way_ -= on_their_way_ > 0 ? 1U : 0U;
}

// ---- Requests without their answers ----

bool OpenbmcRequests::add(std::uint64_t number, Pending pending) {
    const std::lock_guard lock(mutex_);
    pending_.emplace(number, std::move(pending));
    return !std::exchange(looked_after_, true);
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

std::optional<OpenbmcRequests::Time> OpenbmcRequests::next_late() {
    const std::lock_guard lock(mutex_);
    looked_after_ = !pending_.empty();
    return pending_.empty() ? std::nullopt : std::optional(pending_.begin()->second.late_at);
}

// ---- The door ----

OpenbmcDoor::OpenbmcDoor(Bus bus, const IpmiRegistry &registry, std::uint8_t session_floor,
                         const std::shared_ptr<LoopQueue> &queue)
    : intake_(registry, session_floor, [this, queue] { queue->post([this] { await_late(); }); }),
      member_({.bus = bus,
               .name = kName,
               .duty = "requests of OpenBMC's IPMI bridges",
               .prepare = [this](const ConnectionPtr &connection,
                                 std::string *mistake) { return prepare(connection, mistake); },
               .served = [this] { names_->all_known(); },
               .needed_at_start = false}) {}

bool OpenbmcDoor::start(std::string *mistake) {
    if (!intake_.pool.start(mistake)) {
        return false;
    }
    member_.start();
    return true;
}

bool OpenbmcDoor::stop(std::chrono::milliseconds limit) {
    return intake_.pool.stop(limit);
}

void OpenbmcDoor::leave() {
    late_.reset();
    give_up(intake_.requests->take_late(OpenbmcRequests::Time::max()));
    member_.leave();
}

// ---- Bridges ----

// The bus answers in order: when the name is had, the owners asked for before it are known, and a bridge's later change
// of names arrives before its next request. GDBus's thread hears both; until the name is had, all go to the bus thread.
bool OpenbmcDoor::prepare(const ConnectionPtr &connection, std::string *mistake) {
    static constexpr GDBusInterfaceVTable kCalls = {
        .method_call = on_call, .get_property = nullptr, .set_property = nullptr, .padding = {}};
    ErrorSlot error;
    if (g_dbus_connection_register_object(connection.get(), kPath, intake_.interface(), &kCalls, this, nullptr,
                                          error.out()) == 0) {
        *mistake = std::string("the IPMI object cannot be put on the bus: ") + error.text();
        return false;
    }
    names_ = std::make_shared<BridgeNames>();
    Ear *ear = nullptr;
    {
        const std::lock_guard lock(ears_mutex);
        ear = &ears_.emplace_back(Ear{.door = this, .names = names_});
    }
    (void)g_dbus_connection_add_filter(connection.get(), on_message, ear, on_deaf); // as long as the connection
    (void)g_dbus_connection_signal_subscribe(
        connection.get(), kDriverName, kDriverName, "NameOwnerChanged", kDriverPath, std::string(kChannelNames).c_str(),
        G_DBUS_SIGNAL_FLAGS_MATCH_ARG0_NAMESPACE, [](auto... /*heard already*/) {}, nullptr, nullptr);
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
                             names_->known(name, owner);
                         });
    }
}

// ---- Requests ----

void OpenbmcDoor::on_call(GDBusConnection * /*connection*/, const gchar *sender, const gchar * /*path*/,
                          const gchar * /*interface*/, const gchar * /*method*/, GVariant * /*parameters*/,
                          GDBusMethodInvocation *invocation, gpointer self) {
    auto *door = static_cast<OpenbmcDoor *>(self);
    door->names_->has_come();
    door->intake_.execute(BusCall(InvocationPtr(invocation)), door->names_->channel_of_sender(sender));
}

// On GDBus's thread: a request goes to the pool from here, and the bus thread is not woken. What is wrong with a call
// is for GDBus to say.
GDBusMessage *OpenbmcDoor::on_message(GDBusConnection *connection, GDBusMessage *message, gboolean incoming,
                                      gpointer ear) {
    if (incoming == 0) {
        return message;
    }
    Ear here;
    {
        const std::lock_guard lock(ears_mutex);
        here = *static_cast<Ear *>(ear);
    }
    const GDBusMessageType type = g_dbus_message_get_message_type(message);
    if (type == G_DBUS_MESSAGE_TYPE_SIGNAL) {
        hear_owner(message, *here.names);
    } else if (type == G_DBUS_MESSAGE_TYPE_METHOD_CALL && here.door->intake_.takes(connection, message, *here.names)) {
        g_object_unref(message);
        return nullptr;
    }
    return message;
}

// On the bus thread, when the connection has been given back.
void OpenbmcDoor::on_deaf(gpointer ear) {
    const std::lock_guard lock(ears_mutex);
    static_cast<Ear *>(ear)->door->ears_.remove_if([ear](const Ear &one) { return &one == ear; });
}

OpenbmcIntake::OpenbmcIntake(const IpmiRegistry &registry, std::uint8_t session_floor,
                             std::function<void()> look_for_late)
    : registry_(registry), session_floor_(session_floor), look_for_late_(std::move(look_for_late)),
      description_(description()) {}

GDBusInterfaceInfo *OpenbmcIntake::interface() const {
    return g_dbus_node_info_lookup_interface(description_.get(), kServer);
}

bool OpenbmcIntake::takes(GDBusConnection *connection, GDBusMessage *message, BridgeNames &names) {
    const GDBusMethodInfo *method = g_dbus_interface_info_lookup_method(interface(), "execute");
    const char *sender = g_dbus_message_get_sender(message);
    if (!equal_text(g_dbus_message_get_path(message), kPath) ||
        !equal_text(g_dbus_message_get_interface(message), kServer) ||
        !equal_text(g_dbus_message_get_member(message), method->name) || !BusCall::fits(method, message) ||
        sender == nullptr || !names.passes_by()) {
        return false;
    }
    const bool wanted = (g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
    ConnectionPtr held(G_DBUS_CONNECTION(g_object_ref(connection)));
    const auto send = [wanted, there = std::shared_ptr<GDBusConnection>(held.release(), g_object_unref)](auto *answer) {
        if (wanted) {
            (void)g_dbus_connection_send_message(there.get(), answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                                 nullptr); // fails when the bus has gone
        }
    };
    execute(BusCall(message, method, send), names.channel_of_sender(sender));
    return true;
}

void OpenbmcIntake::execute(BusCall call, Channel channel) {
    GVariant *arguments = call.arguments();
    IpmiRequest request;
    g_variant_get_child(arguments, 0, "y", &request.netfn);
    g_variant_get_child(arguments, 1, "y", &request.lun);
    g_variant_get_child(arguments, 2, "y", &request.cmd);
    const VariantPtr data(g_variant_get_child_value(arguments, 3));
    const VariantPtr options(g_variant_get_child_value(arguments, 4));
    gsize size = 0;
    const auto *bytes = static_cast<const std::uint8_t *>(g_variant_get_fixed_array(data.get(), &size, 1));
    request.data = {bytes, size};

    OpenbmcRequests::Pending pending{.call = std::move(call),
                                     .channel = channel,
                                     .command_exists = registry_.has_command(request.netfn, request.cmd),
                                     .late_at = OpenbmcRequests::Time::clock::now() +
                                                std::chrono::milliseconds(OpenbmcDoor::kAnswerMs)};
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
void OpenbmcIntake::hand_over(const IpmiRequest &request, OpenbmcRequests::Pending pending) {
    const std::uint64_t number = last_number_.fetch_add(1, std::memory_order_relaxed) + 1;
    const auto work = [&registry = registry_, number, channel = pending.channel, requests = requests, held = request,
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
    const bool first = requests->add(number, std::move(pending)); // it may be done before run() returns
    if (pool.run(registry_.row_number(request), work, number) != CallPool::Taken::kYes) {
        requests->finish(number, {kNodeBusy}); // too many wait, or the service is ending
    }
    if (first) {
        look_for_late_();
    }
}

// One timer for all: setting one for each request and taking it away again would wake the loop for each answer.
void OpenbmcDoor::await_late() {
    late_.reset();
    if (const auto next = intake_.requests->next_late()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - std::chrono::steady_clock::now());
        const auto wait = static_cast<guint>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        late_ = attached(g_timeout_source_new(wait), on_late, this);
    }
}

gboolean OpenbmcDoor::on_late(gpointer self) {
    auto *door = static_cast<OpenbmcDoor *>(self);
    door->give_up(door->intake_.requests->take_late(std::chrono::steady_clock::now()));
    door->await_late();
    return G_SOURCE_REMOVE; // this one
}

// Busy: it is not carried out. Timeout: it has begun and goes on, only its answer has nowhere to go.
void OpenbmcDoor::give_up(OpenbmcRequests::Map &&requests) {
    for (auto &[number, pending] : requests) {
        const bool waiting = intake_.pool.withdraw(number);
        HOST_LOG(waiting ? kLogDebug : kLogInformation,
                 "a request of an OpenBMC bridge is answered before it is done: %s",
                 waiting ? "C0, it is not carried out" : "C3, it goes on");
        answer_request(std::move(pending), {waiting ? kNodeBusy : kTimeout});
    }
}

} // namespace asd_host
