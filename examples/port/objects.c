// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// object_frame.h: two objects and a chip of memory. A real port reads its objects from the board's description.

#include "object_frame.h"
#include "port.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>

enum { kBrandLength = 32, kChipSize = 256, kRecordOffset = 0x40, kProperties = 10, kNoObject = -2, kRefused = -3 };

typedef struct {
    const gchar *name;
    const gchar *initial; // GVariant text; a reference is the name of its object
    GVariant *value;
} Property;

typedef struct {
    const gchar *class_name;
    const gchar *name;
    guint32 alias;
    Property properties[kProperties];
} Object;

// The names and types are the module's (bmc_asd.h).
static Object objects[] = {
    {.class_name = "AtomStorageData",
     .name = "ASD14",
     .properties = {{.name = "Online", .initial = "byte 1"},
                    {.name = "DevCount", .initial = "uint32 1"},
                    {.name = "AtomStorageDataDev0", .initial = "'ASDDev14a'"},
                    {.name = "Length", .initial = "uint32 32"},
                    {.name = "Value", .initial = "@ay []"},
                    {.name = "Ready", .initial = "byte 0"},
                    {.name = "Num", .initial = "byte 14"},
                    {.name = "NeedSync", .initial = "byte 0"}}},
    {.class_name = "AtomStorageDataDev",
     .name = "ASDDev14a",
     .properties = {{.name = "Offset", .initial = "uint32 64"},
                    {.name = "RetryNumber", .initial = "uint32 3"},
                    {.name = "Health", .initial = "byte 0"},
                    {.name = "ErrorCode", .initial = "0"},
                    {.name = "StgWp", .initial = "byte 0"},
                    {.name = "StgIsWp", .initial = "byte 0"}}},
};

static pthread_mutex_t lock =
    PTHREAD_MUTEX_INITIALIZER; // over everything in this file: tasks and requests come on several threads
static guint8 chip[kChipSize];

// Before main(), which is the module's. An erased chip holds 0xFF.
__attribute__((constructor)) static void objects_start(void) {
    memset(chip, 0xFF, sizeof chip);
    for (gsize i = 0; i < G_N_ELEMENTS(objects); ++i) {
        for (Property *property = objects[i].properties; property->name != NULL; ++property) {
            property->value = g_variant_ref_sink(g_variant_new_parsed(property->initial));
        }
    }
}

static Object *object_of(OBJ_HANDLE handle) {
    return handle >= 1 && handle <= (OBJ_HANDLE)G_N_ELEMENTS(objects) ? &objects[handle - 1] : NULL;
}

static Property *property_of(OBJ_HANDLE handle, const gchar *name) {
    Object *object = object_of(handle);
    for (Property *property = object != NULL ? object->properties : NULL; property != NULL && property->name != NULL;
         ++property) {
        if (g_strcmp0(property->name, name) == 0) {
            return property;
        }
    }
    return NULL;
}

// ---- Objects ----

gint32 dfl_get_object_handle(const gchar *object_name, OBJ_HANDLE *object_handle) {
    for (gsize i = 0; i < G_N_ELEMENTS(objects); ++i) {
        if (g_strcmp0(objects[i].name, object_name) == 0) {
            *object_handle = (OBJ_HANDLE)(i + 1);
            return 0;
        }
    }
    return kNoObject;
}

const gchar *dfl_get_object_name(OBJ_HANDLE object_handle) {
    const Object *object = object_of(object_handle);
    return object != NULL ? object->name : NULL;
}

gint32 dfl_get_referenced_object(OBJ_HANDLE object_handle, const gchar *property_name, OBJ_HANDLE *referenced) {
    const Property *property = property_of(object_handle, property_name);
    return property != NULL ? dfl_get_object_handle(g_variant_get_string(property->value, NULL), referenced)
                            : kNoObject;
}

gint32 dfl_foreach_object(const gchar *class_name, DFL_FOREACH_FUNC callback, gpointer user_data, guint32 options) {
    (void)options;
    gint32 first = 0;
    for (gsize i = 0; i < G_N_ELEMENTS(objects); ++i) {
        if (g_strcmp0(objects[i].class_name, class_name) == 0) {
            const gint32 result = callback((OBJ_HANDLE)(i + 1), user_data); // without the lock: it calls back
            first = first != 0 ? first : result;
        }
    }
    return first;
}

gint32 dfl_bind_object_alias(OBJ_HANDLE object_handle, guint32 alias) {
    Object *object = object_of(object_handle);
    if (object == NULL) {
        return kNoObject;
    }
    pthread_mutex_lock(&lock);
    object->alias = alias;
    pthread_mutex_unlock(&lock);
    return 0;
}

gint32 dfl_get_binded_object(const gchar *class_name, guint32 alias, OBJ_HANDLE *object_handle) {
    gint32 result = kNoObject;
    pthread_mutex_lock(&lock);
    for (gsize i = 0; i < G_N_ELEMENTS(objects) && result != 0; ++i) {
        if (objects[i].alias == alias && g_strcmp0(objects[i].class_name, class_name) == 0) {
            *object_handle = (OBJ_HANDLE)(i + 1);
            result = 0;
        }
    }
    pthread_mutex_unlock(&lock);
    return result;
}

// Objects neither come nor go here.
gint32 dfl_add_object_handler(DFL_OBJECT_HANDLER handler) {
    return handler != NULL ? 0 : kRefused;
}

gint32 dfl_del_object_handler(DFL_OBJECT_HANDLER handler) {
    return handler != NULL ? 0 : kRefused;
}

// ---- Properties ----

gint32 dfl_get_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant **value) {
    const Property *property = property_of(object_handle, property_name);
    if (property == NULL) {
        return kNoObject;
    }
    pthread_mutex_lock(&lock);
    *value = g_variant_ref(property->value);
    pthread_mutex_unlock(&lock);
    return 0;
}

gint32 dfl_get_property_ubyte(OBJ_HANDLE object_handle, const gchar *property_name, guint8 *value) {
    GVariant *holder = NULL;
    const gint32 result = dfl_get_property_value(object_handle, property_name, &holder);
    if (result != 0) {
        return result;
    }
    const gboolean is_byte = g_variant_is_of_type(holder, G_VARIANT_TYPE_BYTE);
    if (is_byte) {
        *value = g_variant_get_byte(holder);
    }
    g_variant_unref(holder);
    return is_byte ? 0 : kRefused;
}

gint32 dfl_set_property_value(OBJ_HANDLE object_handle, const gchar *property_name, GVariant *value,
                              DF_OPTIONS options) {
    (void)options;
    Property *property = property_of(object_handle, property_name);
    if (property == NULL) {
        return kNoObject;
    }
    gint32 result = kRefused;
    pthread_mutex_lock(&lock);
    if (g_variant_is_of_type(value, g_variant_get_type(property->value))) {
        g_variant_unref(property->value);
        property->value = g_variant_ref(value);
        result = 0;
    }
    pthread_mutex_unlock(&lock);
    return result;
}

// ---- The chip ----

static gboolean transfer_fits(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length) {
    return object_of(object_handle) == &objects[1] && g_strcmp0(property_name, "StorageLoc") == 0 &&
           offset <= kChipSize && length <= kChipSize - offset;
}

gint32 dfl_block_read(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                      guint8 *buffer) {
    if (!transfer_fits(object_handle, property_name, offset, length)) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    memcpy(buffer, chip + offset, length);
    pthread_mutex_unlock(&lock);
    return 0;
}

gint32 dfl_block_write(OBJ_HANDLE object_handle, const gchar *property_name, guint32 offset, guint32 length,
                       const guint8 *buffer) {
    if (!transfer_fits(object_handle, property_name, offset, length) || !port_lines_open()) {
        return kRefused;
    }
    pthread_mutex_lock(&lock);
    memcpy(chip + offset, buffer, length);
    pthread_mutex_unlock(&lock);
    return 0;
}

void port_print_chip(void) {
    guint8 record[kBrandLength + 2];
    if (dfl_block_read(2, "StorageLoc", kRecordOffset, sizeof record, record) != 0) {
        return;
    }
    printf("chip");
    for (gsize i = 0; i < sizeof record; ++i) {
        printf(" %02x", record[i]);
    }
    printf("\n");
}
