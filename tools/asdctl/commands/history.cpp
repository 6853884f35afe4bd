// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// history: who has changed which value.

#include "commands.h"
#include "failure.h"
#include "service.h"
#include "values.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <pwd.h>

namespace asdctl {

namespace {

struct HistoryOptions {
    std::string item;
    std::size_t last = 0; // 0: all
};

// "2026-03-01 10:14:58 UTC"
std::string moment_text(std::int64_t time_ms) {
    const std::unique_ptr<GDateTime, Releaser<g_date_time_unref>> moment(g_date_time_new_from_unix_utc(time_ms / 1000));
    const TextPtr text(moment == nullptr ? nullptr : g_date_time_format(moment.get(), "%F %T"));
    return text == nullptr ? "?" : text.get();
}

// A user's name in place of its number, where it has one.
std::string user_text(const std::string &user) {
    constexpr std::string_view kNumbered = "uid ";
    if (!user.starts_with(kNumbered)) {
        return user;
    }
    const auto number = static_cast<uid_t>(std::strtoul(user.c_str() + kNumbered.size(), nullptr, 10));
    const passwd *const found = ::getpwuid(number); // NOLINT(concurrency-mt-unsafe): there is one thread
    return found == nullptr ? user : found->pw_name;
}

std::string value_text(const ChangedValue &value, const KnownItem *known) {
    if (value.length == 0) {
        return "nothing";
    }
    if (value.bytes.empty()) {
        return counted(value.length, "byte") + ", not shown";
    }
    if (std::ranges::all_of(value.bytes, [](std::uint8_t byte) { return byte == 0xFF; })) {
        return "never written";
    }
    const bool whole = value.bytes.size() == value.length;
    if (whole && known != nullptr && known->format != Format::kHex) {
        return decoded(known->format, value.bytes);
    }
    const std::string text = to_text(value.bytes);
    const bool readable = !text.empty() && text.find('\\') == std::string::npos;
    constexpr std::size_t kBytesShown = 16;
    const BytesView some = BytesView(value.bytes).first(std::min(value.bytes.size(), kBytesShown));
    return readable ? text : to_hex(some, " ") + (some.size() < value.length ? " ..." : "");
}

Json value_json(const ChangedValue &value, const KnownItem *known) {
    return {{"length", value.length},
            {"value", value.bytes.empty() ? Json(nullptr) : Json(to_hex(value.bytes))},
            {"whole", value.bytes.size() == value.length},
            {"text", value_text(value, known)}};
}

int run_history(const Context &context, const HistoryOptions &options) {
    Service service(context);
    std::string item;
    if (!options.item.empty()) {
        item = service.snapshot().item(options.item).name;
    }
    std::vector<ValueEvent> events = service.history(item);
    if (options.last > 0 && events.size() > options.last) {
        events.erase(events.begin(), events.end() - static_cast<std::ptrdiff_t>(options.last));
    }
    Json list = Json::array();
    std::string text;
    for (const ValueEvent &event : events) {
        const KnownItem *const known = known_named(event.item);
        const std::string label(known == nullptr ? "" : known->label);
        list.push_back({{"time", moment_text(event.time_ms)},
                        {"time_ms", event.time_ms},
                        {"item", event.item},
                        {"label", label.empty() ? Json(nullptr) : Json(label)},
                        {"door", event.door},
                        {"user", event.user},
                        {"user_name", user_text(event.user)},
                        {"where", event.where},
                        {"before", value_json(event.before, known)},
                        {"now", value_json(event.now, known)}});
        const char *const where = event.where == "in-memory"  ? ", in memory alone"
                                  : event.where == "on-parts" ? ", on its parts alone"
                                                              : "";
        text +=
            painted(context.out, Tone::kQuiet, moment_text(event.time_ms)) + "  " +
            painted(context.out, Tone::kStrong, event.item) + (label.empty() ? "" : " " + label) +
            painted(context.out, Tone::kQuiet, "  " + user_text(event.user) + " over " + event.door + where) + "\n" +
            wrapped(context.out, value_text(event.before, known) + " -> " + value_text(event.now, known), 2 * kIndent);
    }
    return answer(context, list, text.empty() ? "No change is known.\n" : text);
}

} // namespace

void add_history_command(CLI::App &app, Command &chosen) {
    const auto [history, options] = add_command(app, chosen, "history", "Who has changed which value, and when",
                                                "history serial --last 5", run_history);
    history->add_option("ITEM", options->item, "The item's name or label; all of them without");
    history->add_option("--last", options->last, "Only so many, the last ones")
        ->type_name("N")
        ->check(unsaid(CLI::Range(std::size_t{1}, std::size_t{1'000'000})));
}

} // namespace asdctl
