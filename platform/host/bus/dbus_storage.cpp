// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "dbus_storage.h"

#include "item_reload.h"
#include "item_repair.h"
#include "item_request.h"
#include "metrics.h"
#include "records.h"
#include "status.h"

#include <string>
#include <utility>

namespace asd_host {

namespace {

// Runs in the item's turn, which is that of the pair for a pair's check flag.
CallResult in_turn(Host &platform, const std::string &name, const std::function<CallResult(OBJ_HANDLE)> &work) {
    const auto item = platform.objects.find(name);
    if (!item || *platform.objects.class_of(*item) != kItemClass) {
        return refusal(kErrorNoObject, "there is no item " + name);
    }
    ItemRequest scope(repaired_with(platform, *item));
    if (!scope.has_turn()) {
        return refusal(kErrorFailed, "other requests of " + name + " have not ended within ten seconds; try again");
    }
    CallResult result = work(*item);
    scope.end();
    return result;
}

CallResult reload(OBJ_HANDLE item) {
    const gint32 status = reload_item(item);
    return status == 0 ? CallResult() : refusal_of(status);
}

CallResult repair(OBJ_HANDLE item, std::uint8_t from, bool dry_run) {
    if (from > static_cast<std::uint8_t>(RepairSource::kGood)) {
        return refusal(kErrorArguments, "a repair is from 0 or 1, a copy; 2, memory; or 3, the good copy");
    }
    const Repair done = repair_item(item, static_cast<RepairSource>(from), dry_run);
    if (done.status != 0) {
        return refusal(status_error(done.status), done.refusal);
    }
    return {.outputs = {static_cast<std::uint8_t>(done.source), done.copies}, .error = nullptr, .message = {}};
}

} // namespace

std::function<CallResult()> storage_call(Host &platform, std::string_view method, GVariant *arguments) {
    const char *name = nullptr;
    if (method == "ReloadItem") {
        g_variant_get(arguments, "(&s)", &name);
        return [&platform, item = std::string(name)] { return in_turn(platform, item, reload); };
    }
    if (method == "History") {
        g_variant_get(arguments, "(&s)", &name);
        return [&platform, item = std::string(name)] {
            return CallResult{.outputs = {platform.history.lines(item)}, .error = nullptr, .message = {}};
        };
    }
    if (method == "Metrics") {
        return [&platform] { return CallResult{.outputs = {metrics_text(platform)}, .error = nullptr, .message = {}}; };
    }
    if (method == "RepairItem") {
        guint8 from = 0;
        gboolean dry_run = FALSE;
        g_variant_get(arguments, "(&syb)", &name, &from, &dry_run);
        return [&platform, item = std::string(name), from, dry_run] {
            return in_turn(platform, item, [&platform, from, dry_run](OBJ_HANDLE object) {
                return repair(repaired_with(platform, object), from, dry_run != FALSE);
            });
        };
    }
    return nullptr;
}

} // namespace asd_host
