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
typedef gint32 (*MODULE_CALLBACK)(void); /* init and start of a module; 0, or a status that ends the start */
typedef gint32 (*REBOOT_HANDLER)(void);  /* called by the platform when a reboot is asked for; 0 on success */
typedef struct DEBUG_CMD_S DEBUG_CMD_S;  /* opaque to the module */

/* Each returns 0 on success; any other status ends the start with it. They are called on the main thread, in this order
 * but for the declarations: classes, then methods, then classes again. Where nothing else is said, once. */

/* The platform reads its options and opens what it needs; every other operation works from its return on. */
gint32 static_register_module(const gchar *module_name);
gint32 init_md_so(void); /* loads more shared objects where the framework works that way */

/* Several times: a class that the module's objects may have; a method of a class declared before. */
gint32 static_declaration_class(const gchar *class_name);
gint32 static_declaration_class_method(const gchar *class_name, const gchar *method_name, DFL_METHOD_FUNC handler);

gint32 static_register_reboot_handler(REBOOT_HANDLER handler);

/* rows stay the module's and live as long as the process. The second is left out by a module without such commands. */
gint32 static_implementation_ipmicmd(guint32 row_count, const IPMI_CMD_S *rows);
gint32 static_register_debug_cmd(guint32 row_count, const DEBUG_CMD_S *rows);

gint32 static_complete_module_register(void); /* nothing more will be declared; the platform may check it all */
gint32 static_module_init(gint32 argument, MODULE_CALLBACK init); /* runs init, returns its result; argument: -1 */
gint32 static_module_start(MODULE_CALLBACK start,
                           guint32 delay_ms); /* runs start after the delay, returns its result */
gint32 static_start_rpc_service(void);        /* serves, and blocks, until the process is told to end */

G_END_DECLS
