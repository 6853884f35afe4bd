// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Registration, method calls, and IPMI requests in both directions.

#include "fake_state.h"
#include "object_frame.h"

#include <algorithm>

using namespace fake; // NOLINT(google-build-using-namespace): the operations below have C linkage and global names

// ---- Requests to the module ----------------------------------------------------------------------------------------

struct IPMI_MSG_S {
    Bytes buffer;
    guint8 length = 0;
    bool has_data = true;
    mutable Bytes response;
    mutable guint32 answers = 0;
};

static constexpr std::size_t kRequestBuffer = 255;

Reply fake::call(IPMI_CMD_FUNC handler, gconstpointer user_data, const std::optional<Bytes> &data) {
    IPMI_MSG_S message{.buffer = data.value_or(Bytes{}), .length = 0, .has_data = data.has_value(), .response = {}};
    message.length = static_cast<guint8>(message.buffer.size());
    message.buffer.resize(kRequestBuffer);
    message.buffer.shrink_to_fit(); // so that a sanitizer sees reads past it
    const gint32 status = handler(&message, user_data);
    if (message.answers != 1) {
        violate("request answered " + std::to_string(message.answers) + " times");
    }
    return {.status = status, .response = message.response};
}

const guint8 *get_ipmi_src_data(const IPMI_MSG_S *req_msg) {
    Call call("get_ipmi_src_data");
    return call.fails() || !req_msg->has_data ? nullptr : req_msg->buffer.data();
}

guint8 get_ipmi_src_data_len(const IPMI_MSG_S *req_msg) {
    return req_msg->length;
}

gint32 ipmi_send_response(const IPMI_MSG_S *req_msg, guint32 length, const guint8 *buffer) {
    const Call call(__func__, {}, length);
    if (length == 0 || buffer == nullptr) {
        violate("response without a completion code");
        return kRefused;
    }
    ++req_msg->answers;
    req_msg->response = Bytes(buffer, buffer + length);
    return call.status();
}

gint32 ipmi_send_simple_response(const IPMI_MSG_S *req_msg, guint8 completion_code) {
    const Call call(__func__, {}, completion_code);
    ++req_msg->answers;
    req_msg->response = {completion_code};
    return call.status();
}

// ---- Requests to the peers -----------------------------------------------------------------------------------------

gint32 ipmi_send_request(const IPMI_REQ_MSG_HEAD_S *head, const void *data, gint32 wait_response,
                         IPMI_RESP_MSG_S **response, gint32 timeout_s) {
    const auto *bytes = static_cast<const guint8 *>(data);
    SentRequest sent{.target_type = head->target_type,
                     .slot = head->target_instance,
                     .lun = head->lun,
                     .netfn = head->netfn,
                     .cmd = head->cmd,
                     .data = Bytes(bytes, bytes + head->src_len)};
    const Call call(__func__, std::to_string(sent.slot), sent.netfn, sent.cmd, head->src_len, wait_response, timeout_s);
    world().sent.push_back(sent);
    if (call.fails()) {
        return call.status();
    }
    const auto peer = world().peers.find(sent.slot);
    if (peer == world().peers.end()) {
        world().ticks += static_cast<guint64>(timeout_s) * 1000;
        return kTimedOut;
    }
    const std::optional<Bytes> answered = peer->second(sent);
    if (!answered.has_value()) {
        return 0;
    }
    auto *block = static_cast<IPMI_RESP_MSG_S *>(g_malloc0(sizeof(IPMI_RESP_MSG_S) + answered->size()));
    block->data_len = static_cast<guint32>(answered->size());
    block->data = reinterpret_cast<guint8 *>(block + 1);
    std::ranges::copy(*answered, block->data);
    *response = block;
    return 0;
}

// ---- Methods -------------------------------------------------------------------------------------------------------

MethodReply fake::call_method(DFL_METHOD_FUNC method, OBJ_HANDLE object, const std::vector<GVariant *> &inputs) {
    GSList *input_list = nullptr;
    for (GVariant *input : inputs) {
        input_list = g_slist_append(input_list, input != nullptr ? g_variant_ref_sink(input) : nullptr);
    }
    GSList *output_list = nullptr;
    MethodReply reply{.status = method(object, nullptr, input_list, &output_list)};
    for (const GSList *link = output_list; link != nullptr; link = link->next) {
        reply.outputs.emplace_back(g_variant_ref_sink(static_cast<GVariant *>(link->data)), g_variant_unref);
    }
    g_slist_free(output_list);
    g_slist_free_full(input_list, [](gpointer input) {
        if (input != nullptr) {
            g_variant_unref(static_cast<GVariant *>(input));
        }
    });
    return reply;
}

// ---- Registration --------------------------------------------------------------------------------------------------

// clang-format off
gint32 init_md_so(void) { return Call(__func__).status(); }
gint32 static_complete_module_register(void) { return Call(__func__).status(); }
gint32 static_start_rpc_service(void) { return Call(__func__).status(); }
gint32 static_register_module(const gchar *module_name) { return Call(__func__, text_of(module_name)).status(); }
gint32 static_register_debug_cmd(guint32 count, const DEBUG_CMD_S * /*rows*/) { return Call(__func__, {}, count).status(); }
// clang-format on

gint32 static_declaration_class(const gchar *class_name) {
    const Call call(__func__, text_of(class_name));
    (void)world().registered.classes.declare_class(text_of(class_name)); // again, when a start that failed is repeated
    return call.status();
}

gint32 static_declaration_class_method(const gchar *class_name, const gchar *method_name, DFL_METHOD_FUNC handler) {
    const Call call(__func__, text_of(class_name) + "." + text_of(method_name));
    asd_host::ModuleRegistry &classes = world().registered.classes;
    (void)classes.declare_method(text_of(class_name), text_of(method_name), handler); // the same
    return call.status(classes.has_class(text_of(class_name)) && handler != nullptr ? 0 : kRefused);
}

gint32 static_register_reboot_handler(REBOOT_HANDLER handler) {
    world().registered.reboot = handler;
    return Call(__func__).status();
}

gint32 dfl_add_object_handler(DFL_OBJECT_HANDLER handler) {
    world().registered.object_handlers.insert(handler);
    return Call(__func__).status();
}

gint32 dfl_del_object_handler(DFL_OBJECT_HANDLER handler) {
    world().registered.object_handlers.insert(handler);
    return Call(__func__).status();
}

gint32 static_implementation_ipmicmd(guint32 row_count, const IPMI_CMD_S *rows) {
    world().registered.rows.assign(rows, rows + row_count);
    return Call(__func__, {}, row_count).status();
}

gint32 static_module_init(gint32 argument, MODULE_CALLBACK init) {
    const Call call(__func__, {}, argument);
    return call.fails() ? call.status() : init();
}

gint32 static_module_start(MODULE_CALLBACK start, guint32 delay_ms) {
    const Call call(__func__, {}, delay_ms);
    return call.fails() ? call.status() : start();
}
