// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPMI requests and responses (IPMI 2.0: network functions, completion codes, privilege levels). Those on a request are
// called on the thread that serves it.

#include "platform_types.h"

G_BEGIN_DECLS

typedef struct IPMI_MSG_S IPMI_MSG_S; /* opaque: one request being served */

/* Serves one request on one of the stack's threads; answers it exactly once, unless req_msg is NULL. Returns the status
 * of the response call, or -1: nothing was sent, or the request carried no data and was told so. user_data is the
 * row's. */
typedef gint32 (*IPMI_CMD_FUNC)(const IPMI_MSG_S *req_msg, gconstpointer user_data);

/* A command registration. A request reaches ipmi_handler only when netfn, cmd and every filter term match,
 * the length of its data is within [min_length, max_length] and the requester's privilege is at least privilege. */
typedef struct {
    guint8 netfn;
    guint8 cmd;
    const gchar *filter; /* terms "data[i]=XXh", comma-separated: data byte i, counted from 0, equals XX */
    guint8 privilege;    /* 0 none, 1 callback, 2 user, 3 operator, 4 administrator */
    const gchar *role_func;
    guint8 max_length; /* bytes of request data */
    guint8 min_length;
    IPMI_CMD_FUNC ipmi_handler;
    gconstpointer user_data; /* NULL, or the name of the item that the command works on; a stack serves the
                              * requests of one item one after the other, or its copies may differ */
} IPMI_CMD_S;

typedef enum { IPMI_MMC = 2 } TARGET_TYPE_E; /* a controller of the enclosure */

typedef struct {
    guint8 target_type;     /* TARGET_TYPE_E */
    guint8 target_instance; /* the peer's slot */
    guint8 lun : 2;
    guint8 netfn : 6;
    guint8 cmd;
    guint8 src_len; /* bytes of request data */
} IPMI_REQ_MSG_HEAD_S;

typedef struct {
    guint32 data_len;
    guint8 *data;  /* first byte: completion code */
} IPMI_RESP_MSG_S; /* one g_malloc block; the requester g_frees it */

/* The request's data, in a buffer of at least 255 bytes whose bytes past the request are zero; the stack's, valid
 * until the handler returns. NULL: the request carries none. */
const guint8 *get_ipmi_src_data(const IPMI_MSG_S *req_msg);

/* Bytes of request data, 0 to 255. */
guint8 get_ipmi_src_data_len(const IPMI_MSG_S *req_msg);

/* Answers with length bytes, the first of which is the completion code. 0, or why it could not be sent. */
gint32 ipmi_send_response(const IPMI_MSG_S *req_msg, guint32 length, const guint8 *buffer);

/* Answers with the completion code alone. Status as above. */
gint32 ipmi_send_simple_response(const IPMI_MSG_S *req_msg, guint8 completion_code);

/* Sends a request of head->src_len data bytes to a peer controller and, with wait_response 1, waits up to timeout_s
 * seconds for the answer. 0: *response holds it (the caller g_frees it); else *response is untouched. Blocks. */
gint32 ipmi_send_request(const IPMI_REQ_MSG_HEAD_S *head, const void *data, gint32 wait_response,
                         IPMI_RESP_MSG_S **response, gint32 timeout_s);

G_END_DECLS
