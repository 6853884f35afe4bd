// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tasks, time and mutual-exclusion semaphores. Any thread.

#include "platform_types.h"

G_BEGIN_DECLS

typedef void (*VOS_TASK_ENTRY)(void *argument); /* a task's body; the module's never return */

/* Starts a task that runs entry(argument); *task is its handle. priority is the platform's to read. 0, or why it could
 * not be started. name: the platform copies it. */
gint32 vos_task_create(gulong *task, const gchar *name, VOS_TASK_ENTRY entry, void *argument, guint32 priority);

/* Blocks the calling thread, a task's or a request's. It may not return when the service ends. */
void vos_task_delay(guint32 milliseconds);

gulong vos_tick_get(void); /* milliseconds since the machine booted; wraps with the width of gulong */

/* Creates a semaphore that is free; *semaphore is its handle, for the process. 0, or why not, with *semaphore
 * untouched. */
gint32 vos_thread_mutex_sem4_create(const gchar *name, gulong *semaphore);

/* Takes it, blocking up to timeout_ms milliseconds, 0: without limit. 0 when obtained. Not recursive. */
gint32 vos_thread_sem4_p(gulong semaphore, guint32 timeout_ms);

/* Gives it back, on the thread that took it. 0, or why not. */
gint32 vos_thread_sem4_v(gulong semaphore);

/* Deletes one that nobody holds or waits for. 0, or why not. */
gint32 vos_thread_sem4_delete(gulong semaphore);

G_END_DECLS
