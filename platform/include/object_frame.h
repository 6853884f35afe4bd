// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Objects, their properties and the byte spaces of chips. Every operation may be called from any thread.
// 0 is success everywhere; the module passes any other status on unchanged, and outputs are then untouched.

#include "platform_types.h"

G_BEGIN_DECLS

/* Called for one object on the visitor's thread; the platform holds no lock of its own meanwhile. */
typedef gint32 (*DFL_FOREACH_FUNC)(OBJ_HANDLE object_handle, gpointer user_data);
/* Told of an object that was added or is deleted. */
typedef gint32 (*DFL_OBJECT_HANDLER)(const gchar *class_name, OBJ_HANDLE object_handle);

/* The object of this name, any class; never handle 0 with status 0. */
gint32 dfl_get_object_handle(const gchar *object_name, OBJ_HANDLE *object_handle);
const gchar *dfl_get_object_name(OBJ_HANDLE object_handle); /* NULL: no such object; the text stays the framework's */

/* The object that a reference property names; never handle 0 with status 0. */
gint32 dfl_get_referenced_object(OBJ_HANDLE object_handle, const gchar *property_name, OBJ_HANDLE *referenced);

/* A property's value, never NULL with status 0; the caller releases *value. */
gint32 dfl_get_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant **value);
/* The same of a property of type "y"; another type is a failure. */
gint32 dfl_get_property_ubyte(OBJ_HANDLE object_handle, const gchar *property_name, guint8 *value);

/* Writes a property; a value of another type than the property's is a failure. options are the framework's to read. The
 * caller holds a full (sunk) reference to value and keeps it; the framework takes its own. */
gint32 dfl_set_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant *value,
                              DF_OPTIONS options);

/* Visits every object of the class, in configuration order, whatever the callback returns; the result is the first
 * non-zero callback result, else 0. */
gint32 dfl_foreach_object(const gchar *class_name, DFL_FOREACH_FUNC callback, gpointer user_data, guint32 options);

/* Binds a number to an object, so that its class and number find it. */
gint32 dfl_bind_object_alias(OBJ_HANDLE object_handle, guint32 alias);
gint32 dfl_get_binded_object(const gchar *class_name, guint32 alias, OBJ_HANDLE *object_handle);

/* Register who is told of objects that come and go; at start, once each. */
gint32 dfl_add_object_handler(DFL_OBJECT_HANDLER handler);
gint32 dfl_del_object_handler(DFL_OBJECT_HANDLER handler);

/* Transfers length bytes at byte offset of a chip; all of them or a non-zero status. Blocks for the transfer. A write
 * that returns 0 is on the chip. */
gint32 dfl_block_read(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                      guint8 *buffer);
gint32 dfl_block_write(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                       const guint8 *buffer);

G_END_DECLS
