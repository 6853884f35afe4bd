// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Registration and start of a module.

#include "ipmi_stack.h"
#include "platform_types.h"

G_BEGIN_DECLS

/* A class method. input_list holds the arguments, 0 first; it and its GVariants stay the framework's. What is
 * appended to *output_list becomes the framework's, which sinks and releases it. Runs on a thread of the framework. */
typedef gint32 (*DFL_METHOD_FUNC)(const OBJ_HANDLE object_handle, GSList *caller_info, GSList *input_list,
                                  GSList **output_list);
typedef gint32 (*MODULE_CALLBACK)(void);
typedef gint32 (*REBOOT_HANDLER)(void);
typedef struct DEBUG_CMD_S DEBUG_CMD_S; /* opaque to the module */

/* Each returns 0 on success; the calls below are made once each, in this order, on the main thread. */
gint32 static_register_module(const gchar *module_name);
gint32 init_md_so(void);
gint32 static_declaration_class(const gchar *class_name);
gint32 static_declaration_class_method(const gchar *class_name, const gchar *method_name, DFL_METHOD_FUNC handler);
gint32 static_register_reboot_handler(REBOOT_HANDLER handler);

/* rows stay the module's and live as long as the process. */
gint32 static_implementation_ipmicmd(guint32 row_count, const IPMI_CMD_S *rows);
gint32 static_register_debug_cmd(guint32 row_count, const DEBUG_CMD_S *rows);
gint32 static_complete_module_register(void);
gint32 static_module_init(gint32 argument, MODULE_CALLBACK init); /* runs init, returns its result */
gint32 static_module_start(MODULE_CALLBACK start,
                           guint32 delay_ms); /* runs start after the delay, returns its result */
gint32 static_start_rpc_service(void);        /* serves until the process is told to end */

G_END_DECLS
