// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_calls.h"

#include "caller.h"
#include "dbus_board.h"
#include "dbus_storage.h"
#include "item_request.h"
#include "log.h"
#include "module_call.h"
#include "property_variant.h"
#include "records.h"

#include <utility>
#include <variant>

namespace asd_host {

namespace {

constexpr const char *kEnding = "the service is ending";

// ---- Handlers of the module, on a thread of the pool ----

bool is_zero(const ObjectStore &objects, OBJ_HANDLE object, std::string_view property) {
    PropertyValue value;
    return objects.get(object, property, &value) == 0 && value == PropertyValue(std::uint8_t{0});
}

// The handler says only that the value in memory cannot be had; the item says why.
CallResult memory_refusal(const ObjectStore &objects, OBJ_HANDLE item, gint32 status) {
    const std::string number = "status " + std::to_string(status);
    if (is_zero(objects, item, "Online")) {
        return refusal(kErrorNotOnline, number + ": the item is not online");
    }
    if (is_zero(objects, item, "Ready")) {
        return refusal(kErrorNotReady, number + ": the item's value in memory is not ready");
    }
    return refusal_of(status);
}

CallResult run_handler(const ObjectStore &objects, OBJ_HANDLE object, const ModuleRegistry::Method &method,
                       const std::vector<PropertyValue> &arguments) {
    ItemRequest scope(object);
    if (!scope.has_turn()) {
        return refusal(kErrorFailed, "other requests of this object have not ended within ten seconds; try again");
    }
    MethodOutcome outcome = call_method(method, object, arguments);
    scope.end();
    // With an output the call ran; a write's status is that output.
    if (outcome.status == 0 || !outcome.outputs.empty()) {
        return {.outputs = std::move(outcome.outputs), .error = nullptr, .message = {}};
    }
    return method.name == "ReadAsdMemData" ? memory_refusal(objects, object, outcome.status)
                                           : refusal_of(outcome.status);
}

// ---- Arguments and answers ----

// The arguments as plain values. False: one is longer than any record.
bool take_arguments(GVariant *parameters, std::vector<PropertyValue> *arguments) {
    for (gsize i = 0; i < g_variant_n_children(parameters); ++i) {
        const VariantPtr child(g_variant_get_child_value(parameters, i));
        PropertyValue value;
        if (!value_of(child.get(), &value)) {
            return false; // the interface's methods have no such types
        }
        const auto *bytes = std::get_if<Bytes>(&value);
        if (bytes != nullptr && bytes->size() > kLongestItem) {
            return false;
        }
        arguments->push_back(std::move(value));
    }
    return true;
}

std::string signature_of(GDBusArgInfo *const *arguments) {
    std::string signature = "(";
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        signature += (*arguments)->signature;
    }
    return signature + ")";
}

VariantPtr tuple_of(const std::vector<PropertyValue> &values) {
    GVariantBuilder tuple;
    g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
    for (const PropertyValue &value : values) {
        g_variant_builder_add_value(&tuple, variant_of(value));
    }
    return sunk(g_variant_builder_end(&tuple));
}

} // namespace

void answer(InvocationPtr invocation, GVariant *floating_values) {
    g_dbus_method_invocation_return_value(invocation.release(), floating_values);
}

void answer_error(InvocationPtr invocation, const char *error, const std::string &message) {
    g_dbus_method_invocation_return_dbus_error(invocation.release(), error, message.c_str());
}

BusCall::BusCall(InvocationPtr invocation)
    : method_(g_dbus_method_invocation_get_method_info(invocation.get())),
      arguments_(g_variant_ref(g_dbus_method_invocation_get_parameters(invocation.get()))),
      invocation_(std::move(invocation)) {}

BusCall::BusCall(GDBusMessage *message, const GDBusMethodInfo *method, Send send)
    : method_(method), message_(G_DBUS_MESSAGE(g_object_ref(message))), send_(std::move(send)) {
    GVariant *body = g_dbus_message_get_body(message);
    arguments_.reset(body == nullptr ? g_variant_ref_sink(g_variant_new_tuple(nullptr, 0)) : g_variant_ref(body));
}

bool BusCall::fits(const GDBusMethodInfo *method, GDBusMessage *message) {
    GVariant *body = g_dbus_message_get_body(message);
    return signature_of(method->in_args) == (body == nullptr ? "()" : g_variant_get_type_string(body));
}

void BusCall::answer(GVariant *floating_values) {
    if (invocation_ != nullptr) {
        asd_host::answer(std::move(invocation_), floating_values);
        return;
    }
    const ObjectPtr<GDBusMessage> reply(g_dbus_message_new_method_reply(message_.get()));
    g_dbus_message_set_body(reply.get(), floating_values);
    send_(reply.get());
}

void BusCall::answer_error(const char *error, const std::string &message) {
    if (invocation_ != nullptr) {
        asd_host::answer_error(std::move(invocation_), error, message);
        return;
    }
    const ObjectPtr<GDBusMessage> reply(
        g_dbus_message_new_method_error_literal(message_.get(), error, message.c_str()));
    send_(reply.get());
}

BusCalls::BusCalls(const BusObjects &objects, const ModuleRegistry &module, std::shared_ptr<LoopQueue> queue)
    : objects_(objects), module_(module), queue_(std::move(queue)) {}

bool BusCalls::start(std::string *mistake) {
    for (const std::string_view class_name : kBusClasses) {
        const std::vector<ModuleRegistry::Method> *methods = module_.methods(class_name);
        for (const ModuleRegistry::Method &method :
             methods == nullptr ? std::vector<ModuleRegistry::Method>() : *methods) {
            GDBusInterfaceInfo *info = objects_.interface_below(class_name);
            if (g_dbus_interface_info_lookup_method(info, method.name.c_str()) == nullptr) {
                HOST_LOG(kLogError, "%s has no method %s: it cannot be called on D-Bus", info->name,
                         method.name.c_str());
            }
        }
    }
    return pool_.start(mistake);
}

BusCalls::Work BusCalls::module_work(OBJ_HANDLE object, const BusCall &call, CallResult *refused) const {
    const std::string_view name = call.method()->name;
    const std::string *class_name = objects_.platform().objects.class_of(object);
    const ModuleRegistry::Method *method = class_name == nullptr ? nullptr : module_.method(*class_name, name);
    if (method == nullptr) {
        *refused = refusal(kErrorMethod, "the module has no method " + std::string(name));
        return nullptr;
    }
    std::vector<PropertyValue> arguments;
    if (!take_arguments(call.arguments(), &arguments)) {
        *refused =
            refusal(kErrorArguments, "more than " + std::to_string(kLongestItem) + " bytes: no record is that long");
        return nullptr;
    }
    return [&store = objects_.platform().objects, object, method, arguments = std::move(arguments)] {
        return run_handler(store, object, *method, arguments);
    };
}

BusCalls::Work BusCalls::work_of(OBJ_HANDLE object, const BusCall &call, CallResult *refused) const {
    const char *name = call.method()->name;
    switch (object) {
    case kRootObject:
        return storage_call(objects_.platform(), name, call.arguments());
    case kBoardObject:
        return board_call(objects_.platform(), name, call.arguments());
    default:
        return module_work(object, call, refused);
    }
}

void BusCalls::call(OBJ_HANDLE object, BusCall call, std::function<std::string()> user) {
    CallResult refused = refusal(kErrorMethod, "there is no such method");
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): std::function frees what it holds
    Work work = work_of(object, call, &refused);
    if (work == nullptr) {
        call.answer_error(refused.error, refused.message);
        return;
    }
    const std::uint64_t number = ++last_number_;
    const auto run = [this, number, object, queue = queue_, work = std::move(work), user = std::move(user)] {
        CallResult result;
        {
            const Caller caller("D-Bus", user);
            result = work();
        }
        queue->post([this, number, object, result = std::move(result)] { finish(number, object, result); });
    };
    const CallPool::Taken taken = pool_.run(object, run);
    if (taken == CallPool::Taken::kYes) {
        waiting_.emplace(number, std::move(call));
        return;
    }
    const bool full = taken == CallPool::Taken::kFull;
    call.answer_error(full ? kErrorLimits : kErrorFailed,
                      full ? std::to_string(CallPool::kWaiting) + " calls are waiting already" : kEnding);
}

void BusCalls::finish(std::uint64_t number, OBJ_HANDLE object, const CallResult &result) {
    const auto found = waiting_.find(number);
    if (found == waiting_.end()) {
        return;
    }
    BusCall call = std::move(found->second);
    waiting_.erase(found);
    if (result.error != nullptr) {
        call.answer_error(result.error, result.message);
        return;
    }
    const GDBusMethodInfo *method = call.method();
    VariantPtr values = tuple_of(result.outputs);
    if (signature_of(method->out_args) != g_variant_get_type_string(values.get())) {
        call.answer_error(kErrorFailed, "the method answered something else than it should");
        return;
    }
    call.answer(values.get());
    if (object == kBoardObject && std::string_view(method->name) == "SetFault" && faults_changed) {
        faults_changed();
    }
}

bool BusCalls::stop(std::chrono::milliseconds limit) {
    return pool_.stop(limit);
}

void BusCalls::refuse_rest() {
    for (auto &[number, call] : std::exchange(waiting_, {})) {
        call.answer_error(kErrorFailed, kEnding);
    }
}

} // namespace asd_host
