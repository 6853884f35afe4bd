// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// module_frame.h and ipmi_stack.h. Requests are lines of hexadecimal bytes on standard input: network function,
// command, data; the answer is a line on standard output. The service ends with its input.

#include "module_frame.h"
#include "port.h"

#include <stdio.h>
#include <string.h>

enum { kRequestMax = 255, kResponseMax = 256, kRefused = -3, kAdministrator = 4 };

struct IPMI_MSG_S {
    guint8 data[kRequestMax]; // zeros past the request
    guint8 length;
    guint8 *response; // of kResponseMax bytes
    guint32 *response_length;
};

static const IPMI_CMD_S *command_rows;
static guint32 command_count;

// ---- Registration and start ----

// The first call of all: the place to read options and the board's description.
gint32 static_register_module(const gchar *module_name) {
    fprintf(stderr, "example port: module %s\n", module_name);
    return 0;
}

gint32 init_md_so(void) {
    return 0;
}

// Methods are not offered to anybody here; a real port keeps the handlers for its clients.
gint32 static_declaration_class(const gchar *class_name) {
    return class_name != NULL ? 0 : kRefused;
}

gint32 static_declaration_class_method(const gchar *class_name, const gchar *method_name, DFL_METHOD_FUNC handler) {
    return class_name != NULL && method_name != NULL && handler != NULL ? 0 : kRefused;
}

gint32 static_register_reboot_handler(REBOOT_HANDLER handler) {
    return handler != NULL ? 0 : kRefused;
}

gint32 static_implementation_ipmicmd(guint32 row_count, const IPMI_CMD_S *rows) {
    command_rows = rows;
    command_count = row_count;
    return 0;
}

gint32 static_register_debug_cmd(guint32 row_count, const DEBUG_CMD_S *rows) {
    (void)rows;
    return row_count == 0 ? 0 : kRefused;
}

gint32 static_complete_module_register(void) {
    return 0;
}

gint32 static_module_init(gint32 argument, MODULE_CALLBACK init) {
    (void)argument;
    return init();
}

gint32 static_module_start(MODULE_CALLBACK start, guint32 delay_ms) {
    g_usleep(delay_ms * 1000UL);
    return start();
}

// ---- Requests ----

static gboolean filter_matches(const gchar *filter, const IPMI_MSG_S *request) {
    unsigned index = 0;
    unsigned wanted = 0;
    for (const gchar *term = filter; term != NULL && sscanf(term, "data[%u]=%xh", &index, &wanted) == 2;
         term = strchr(term, ',') != NULL ? strchr(term, ',') + 1 : NULL) {
        if (index >= request->length || request->data[index] != wanted) {
            return FALSE;
        }
    }
    return TRUE;
}

static void serve(guint8 netfn, guint8 cmd, IPMI_MSG_S *request) {
    for (const IPMI_CMD_S *row = command_rows; row != command_rows + command_count; ++row) {
        if (row->netfn != netfn || row->cmd != cmd || !filter_matches(row->filter, request)) {
            continue;
        }
        if (request->length < row->min_length || request->length > row->max_length) {
            (void)ipmi_send_simple_response(request, 0xC7); // request data length invalid
        } else if (row->privilege > kAdministrator) {
            (void)ipmi_send_simple_response(request, 0xD4); // insufficient privilege
        } else {
            (void)row->ipmi_handler(request, row->user_data); // has answered, whatever it returns
        }
        return;
    }
    (void)ipmi_send_simple_response(request, 0xC1); // invalid command
}

// The bytes of a line; more than fit are left out.
static gsize bytes_of(const gchar *line, guint8 *bytes, gsize size) {
    gsize count = 0;
    int used = 0;
    for (unsigned value = 0; count < size && sscanf(line, "%2x%n", &value, &used) == 1; line += used) {
        bytes[count++] = (guint8)value;
    }
    return count;
}

gint32 static_start_rpc_service(void) {
    gchar line[4 * (kRequestMax + 2)];
    while (fgets(line, sizeof line, stdin) != NULL) {
        guint8 bytes[kRequestMax + 2];
        guint8 response[kResponseMax];
        guint32 response_length = 0;
        const gsize count = bytes_of(line, bytes, sizeof bytes);
        if (count < 2) {
            continue;
        }
        IPMI_MSG_S request = {.length = (guint8)(count - 2), .response = response, .response_length = &response_length};
        memcpy(request.data, bytes + 2, request.length);
        serve(bytes[0], bytes[1], &request);
        for (guint32 i = 0; i < response_length; ++i) {
            printf("%s%02x", i == 0 ? "" : " ", response[i]);
        }
        printf("\n");
        fflush(stdout);
    }
    port_print_chip();
    fflush(stdout);
    return 0;
}

const guint8 *get_ipmi_src_data(const IPMI_MSG_S *req_msg) {
    return req_msg->length != 0 ? req_msg->data : NULL;
}

guint8 get_ipmi_src_data_len(const IPMI_MSG_S *req_msg) {
    return req_msg->length;
}

gint32 ipmi_send_response(const IPMI_MSG_S *req_msg, guint32 length, const guint8 *buffer) {
    if (length == 0 || length > kResponseMax) {
        return kRefused;
    }
    memcpy(req_msg->response, buffer, length);
    *req_msg->response_length = length;
    return 0;
}

gint32 ipmi_send_simple_response(const IPMI_MSG_S *req_msg, guint8 completion_code) {
    return ipmi_send_response(req_msg, 1, &completion_code);
}

// There are no peers.
gint32 ipmi_send_request(const IPMI_REQ_MSG_HEAD_S *head, const void *data, gint32 wait_response,
                         IPMI_RESP_MSG_S **response, gint32 timeout_s) {
    (void)head;
    (void)data;
    (void)wait_response;
    (void)response;
    (void)timeout_s;
    return kRefused;
}
