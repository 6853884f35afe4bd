// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "module_call.h"

#include "glib_holders.h"
#include "property_variant.h"

#include <memory>
#include <utility>

namespace asd_host {

namespace {

using ListPtr = std::unique_ptr<GSList, Releaser<[](GSList *list) {
                                    g_slist_free_full(
                                        list, [](gpointer value) { g_variant_unref(static_cast<GVariant *>(value)); });
                                }>>;

ListPtr argument_list(const std::vector<PropertyValue> &arguments) {
    GSList *list = nullptr;
    for (const PropertyValue &argument : arguments) {
        list = g_slist_append(list, g_variant_ref_sink(variant_of(argument)));
    }
    return ListPtr(list);
}

// What the handler appended: sunk here, released with the list. A value that no method has is left out, so that the
// answer's type is found wrong.
std::vector<PropertyValue> output_values(GSList *outputs) {
    std::vector<PropertyValue> values;
    for (GSList *output = outputs; output != nullptr; output = output->next) {
        auto *variant = g_variant_ref_sink(static_cast<GVariant *>(output->data));
        if (PropertyValue value; value_of(variant, &value)) {
            values.push_back(std::move(value));
        }
    }
    return values;
}

} // namespace

MethodOutcome call_method(const ModuleRegistry::Method &method, OBJ_HANDLE object,
                          const std::vector<PropertyValue> &arguments) {
    const ListPtr inputs = argument_list(arguments);
    GSList *appended = nullptr;
    const gint32 status = method.handler(object, nullptr, inputs.get(), &appended);
    MethodOutcome outcome{.status = status, .outputs = output_values(appended)};
    const ListPtr outputs(appended);
    return outcome;
}

gint32 write_status(const MethodOutcome &outcome) {
    const auto *appended = outcome.outputs.empty() ? nullptr : std::get_if<std::int32_t>(&outcome.outputs.front());
    return appended == nullptr ? outcome.status : *appended;
}

} // namespace asd_host
