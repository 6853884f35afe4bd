// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// vos.h, debug_log.h and securec.h on threads of POSIX.

#define _POSIX_C_SOURCE 200809L

#include "debug_log.h"
#include "securec.h"
#include "vos.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

// ---- Tasks and time ----

typedef struct {
    VOS_TASK_ENTRY entry;
    void *argument;
} Task;

static gpointer task_run(gpointer data) {
    const Task task = *(Task *)data;
    g_free(data);
    task.entry(task.argument);
    return NULL;
}

gint32 vos_task_create(gulong *task, const gchar *name, VOS_TASK_ENTRY entry, void *argument, guint32 priority) {
    (void)priority;
    Task *start = g_new(Task, 1);
    *start = (Task){.entry = entry, .argument = argument};
    GThread *thread = g_thread_try_new(name, task_run, start, NULL);
    if (thread == NULL) {
        g_free(start);
        return -1;
    }
    *task = (gulong)thread;
    g_thread_unref(thread); // tasks never end and nobody waits for them
    return 0;
}

void vos_task_delay(guint32 milliseconds) {
    g_usleep(milliseconds * 1000UL);
}

gulong vos_tick_get(void) {
    return (gulong)(g_get_monotonic_time() / 1000);
}

// ---- Semaphores ----

typedef struct {
    pthread_mutex_t mutex;
    pthread_cond_t released;
    gboolean held;
} Semaphore;

gint32 vos_thread_mutex_sem4_create(const gchar *name, gulong *semaphore) {
    (void)name;
    Semaphore *created = g_new0(Semaphore, 1);
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC); // a clock that is set must not stretch a wait
    pthread_cond_init(&created->released, &monotonic);
    pthread_condattr_destroy(&monotonic);
    pthread_mutex_init(&created->mutex, NULL);
    *semaphore = (gulong)created;
    return 0;
}

static struct timespec deadline_of(guint32 timeout_ms) {
    struct timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += timeout_ms / 1000;
    end.tv_nsec += timeout_ms % 1000 * 1000000L;
    end.tv_sec += end.tv_nsec / 1000000000L;
    end.tv_nsec %= 1000000000L;
    return end;
}

gint32 vos_thread_sem4_p(gulong semaphore, guint32 timeout_ms) {
    Semaphore *taken = (Semaphore *)semaphore;
    const struct timespec end = deadline_of(timeout_ms);
    int result = 0;
    pthread_mutex_lock(&taken->mutex);
    while (taken->held && result == 0) {
        result = timeout_ms == 0 ? pthread_cond_wait(&taken->released, &taken->mutex)
                                 : pthread_cond_timedwait(&taken->released, &taken->mutex, &end);
    }
    const gboolean obtained = !taken->held;
    taken->held = TRUE;
    pthread_mutex_unlock(&taken->mutex);
    return obtained ? 0 : -1;
}

gint32 vos_thread_sem4_v(gulong semaphore) {
    Semaphore *given = (Semaphore *)semaphore;
    pthread_mutex_lock(&given->mutex);
    given->held = FALSE;
    pthread_cond_signal(&given->released);
    pthread_mutex_unlock(&given->mutex);
    return 0;
}

gint32 vos_thread_sem4_delete(gulong semaphore) {
    Semaphore *deleted = (Semaphore *)semaphore;
    pthread_mutex_destroy(&deleted->mutex);
    pthread_cond_destroy(&deleted->released);
    g_free(deleted);
    return 0;
}

// ---- Logs: one line each, whole ----

void debug_log_func(gint32 level, const gchar *file, gint32 line, const gchar *format, ...) {
    if (level > 1) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    gchar *text = g_strdup_vprintf(format, arguments);
    va_end(arguments);
    fprintf(stderr, "%s %s:%d: %s\n", level == 0 ? "error" : "info", file, line, text);
    g_free(text);
}

void dbg_log(gint32 level, const gchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gchar *text = g_strdup_vprintf(format, arguments);
    va_end(arguments);
    fprintf(stderr, "maintenance %d %s\n", level, text);
    g_free(text);
}

// ---- Bounds-checked memory ----

int memcpy_s(void *dest, size_t dest_max, const void *src, size_t count) {
    if (dest == NULL || dest_max == 0) {
        return 1;
    }
    if (src == NULL || count > dest_max) {
        memset(dest, 0, dest_max);
        return 1;
    }
    memcpy(dest, src, count);
    return 0;
}

int memset_s(void *dest, size_t dest_max, int c, size_t count) {
    if (dest == NULL || dest_max == 0) {
        return 1;
    }
    if (count > dest_max) {
        memset(dest, 0, dest_max);
        return 1;
    }
    memset(dest, c, count);
    return 0;
}
