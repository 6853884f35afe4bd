// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tasks, time and mutual-exclusion semaphores.

#include "platform_types.h"

G_BEGIN_DECLS

typedef void (*VOS_TASK_ENTRY)(void *argument);

/* Starts a task; *task is its handle. 0, or why it could not be started. */
gint32 vos_task_create(gulong *task, const gchar *name, VOS_TASK_ENTRY entry, void *argument, guint32 priority);
void vos_task_delay(guint32 milliseconds);
gulong vos_tick_get(void); /* milliseconds since the machine booted; wraps with the width of gulong */

gint32 vos_thread_mutex_sem4_create(const gchar *name, gulong *semaphore);
gint32 vos_thread_sem4_p(gulong semaphore, guint32 timeout_ms); /* 0 ms: no limit; 0 on success */
gint32 vos_thread_sem4_v(gulong semaphore);
gint32 vos_thread_sem4_delete(gulong semaphore);

G_END_DECLS
