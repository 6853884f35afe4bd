// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Holders of what GIO and main loops want given back.

#include "glib_holders.h"

#include <memory>

#include <gio/gio.h>
#include <glib-unix.h>

namespace asd_shared {

template <typename T>
using ObjectPtr = std::unique_ptr<T, Releaser<g_object_unref>>;
using ConnectionPtr = ObjectPtr<GDBusConnection>;
using ContextPtr = std::unique_ptr<GMainContext, Releaser<g_main_context_unref>>;
using LoopPtr = std::unique_ptr<GMainLoop, Releaser<g_main_loop_unref>>;
using NodeInfoPtr = std::unique_ptr<GDBusNodeInfo, Releaser<g_dbus_node_info_unref>>;

// A source of a main loop's events; gone from the loop with its holder.
struct SourceEnd {
    void operator()(GSource *source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};
using SourcePtr = std::unique_ptr<GSource, SourceEnd>;

// Takes the source and attaches it to this thread's main context.
[[nodiscard]] inline SourcePtr attached(GSource *source, GSourceFunc callback, gpointer data) {
    g_source_set_callback(source, callback, data, nullptr);
    (void)g_source_attach(source, g_main_context_get_thread_default()); // its number is not needed
    return SourcePtr(source);
}

// The same for a descriptor that is to be ready. The callback runs no loop, so GLib may leave the descriptor among
// those that it polls meanwhile: taking it out and in again wakes the loop twice for each event.
[[nodiscard]] inline SourcePtr attached_fd(int fd, GIOCondition condition, GUnixFDSourceFunc callback, gpointer data) {
    GSource *source = g_unix_fd_source_new(fd, condition);
    g_source_set_can_recurse(source, TRUE);
    return attached(source, G_SOURCE_FUNC(callback), data);
}

// Where a call of GIO puts its error.
class ErrorSlot {
public:
    ErrorSlot() = default;
    ~ErrorSlot() { g_clear_error(&error_); }
    ErrorSlot(const ErrorSlot &) = delete;
    ErrorSlot &operator=(const ErrorSlot &) = delete;
    [[nodiscard]] GError **out() { return &error_; }
    [[nodiscard]] GError *get() const { return error_; } // null: it succeeded
    [[nodiscard]] const char *text() const { return error_ == nullptr ? "unknown error" : error_->message; }
    [[nodiscard]] bool is_io(GIOErrorEnum code) const { return g_error_matches(error_, G_IO_ERROR, code) != 0; }

private:
    GError *error_ = nullptr;
};

} // namespace asd_shared
