// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Method calls: from the bus thread to a thread that may block, and their answers back.

#include "call_pool.h"
#include "dbus_objects.h"
#include "dbus_values.h"
#include "loop_queue.h"
#include "module_registry.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace asd_host {

using InvocationPtr = ObjectPtr<GDBusMethodInvocation>;

// Answers: the values belong to the method, or the error's name and message.
void answer(InvocationPtr invocation, GVariant *floating_values);
void answer_error(InvocationPtr invocation, const char *error, const std::string &message);

// A call that is to be answered once: one that GDBus has handed over, or a message that went no further than its
// client's relay.
class BusCall {
public:
    using Send = std::function<void(GDBusMessage *answer)>;

    explicit BusCall(InvocationPtr invocation);
    // The message is a call of that method, as fits() says.
    BusCall(GDBusMessage *message, const GDBusMethodInfo *method, Send send);
    [[nodiscard]] static bool fits(const GDBusMethodInfo *method, GDBusMessage *message);

    [[nodiscard]] const GDBusMethodInfo *method() const { return method_; }
    [[nodiscard]] GVariant *arguments() const { return arguments_.get(); } // a tuple
    void answer(GVariant *floating_values);
    void answer_error(const char *error, const std::string &message);

private:
    const GDBusMethodInfo *method_;
    VariantPtr arguments_;
    InvocationPtr invocation_; // null: message_ is the call
    ObjectPtr<GDBusMessage> message_;
    Send send_;
};

// All of it on the bus thread, except stop.
class BusCalls {
public:
    // The queue brings results back; it is kept by every call that runs.
    BusCalls(const BusObjects &objects, const ModuleRegistry &module, std::shared_ptr<LoopQueue> queue);

    // False: no thread is left; *mistake says so. Says in the log what the module declares and no interface describes.
    [[nodiscard]] bool start(std::string *mistake);

    // Runs a method of an object's own interface and answers it later. user: as of a Caller, on another thread.
    void call(OBJ_HANDLE object, BusCall call, std::function<std::string()> user);

    // Called when a method has changed the board's Faults.
    std::function<void()> faults_changed;

    // Any thread: waits for calls that run; the rest stays unanswered. False: one still runs after the limit.
    [[nodiscard]] bool stop(std::chrono::milliseconds limit);
    // Answers what stop has left, with a refusal.
    void refuse_rest();

private:
    using Work = std::function<CallResult()>;
    [[nodiscard]] Work work_of(OBJ_HANDLE object, const BusCall &call, CallResult *refused) const;
    [[nodiscard]] Work module_work(OBJ_HANDLE object, const BusCall &call, CallResult *refused) const;
    void finish(std::uint64_t number, OBJ_HANDLE object, const CallResult &result);

    const BusObjects &objects_;
    const ModuleRegistry &module_;
    std::shared_ptr<LoopQueue> queue_;
    CallPool pool_;
    std::uint64_t last_number_ = 0;
    std::map<std::uint64_t, BusCall> waiting_;
};

} // namespace asd_host
