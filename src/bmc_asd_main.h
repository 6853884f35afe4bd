// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Registration of the module with the framework.

#include "platform_types.h"

extern "C" {

// Registers module, classes, methods and handlers. 0, or the status of the first call that failed.
[[nodiscard]] gint32 _app_init(void);

// Do nothing: the module looks objects up whenever it needs them. 0.
[[nodiscard]] gint32 asd_add_obj_handle(const gchar *class_name, OBJ_HANDLE object_handle);
[[nodiscard]] gint32 asd_del_obj_handle(const gchar *class_name, OBJ_HANDLE object_handle);

} // extern "C"
