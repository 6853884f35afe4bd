// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// watch: the service's changes as they come.

#include "commands.h"
#include "failure.h"
#include "service.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <glib-unix.h>

namespace asdctl {

namespace {

constexpr unsigned kLookMs = 1000; // for services that have ended or come
constexpr const char *kServiceObject = "Storage1";

struct WatchOptions {
    std::uint64_t count = 0; // 0: no limit
    double for_s = 0;        // as above
};

// Set by a source, for as long as it lives.
class Flag {
public:
    explicit Flag(GSource *source) : source_(attached(source, set, this)) {}
    Flag(const Flag &) = delete;
    Flag &operator=(const Flag &) = delete;

    // Whether it was set since the last call.
    [[nodiscard]] bool take() { return std::exchange(set_, false); }

private:
    static gboolean set(gpointer self) {
        static_cast<Flag *>(self)->set_ = true;
        return G_SOURCE_CONTINUE;
    }

    bool set_ = false;
    SourcePtr source_;
};

// As in asd's log.
std::string line_time() {
    const std::unique_ptr<GDateTime, Releaser<g_date_time_unref>> now(g_date_time_new_now_utc());
    const TextPtr seconds(g_date_time_format(now.get(), "%FT%T"));
    std::string thousandths = std::to_string(1000 + g_date_time_get_microsecond(now.get()) / 1000);
    thousandths.front() = '.';
    return std::string(seconds.get()) + thousandths + "Z";
}

std::string value_text(const Change &change) {
    if (change.value.is_null()) {
        return "confidential";
    }
    if (change.property != "Value") {
        return change.value.is_string() ? change.value.get<std::string>() : change.value.dump();
    }
    const Bytes bytes = parse_hex(change.value.get<std::string>());
    const std::string text = to_text(bytes);
    const bool readable = !text.empty() && text.find('\\') == std::string::npos;
    return counted(bytes.size(), "byte") + (bytes.empty() ? "" : ": ") + (readable ? text : to_hex(bytes, " "));
}

// What is watched of one slot, whoever serves it.
struct Watched {
    unsigned slot = 0;
    std::unique_ptr<Service> service; // null: none runs
    bool ended = false;               // one has been seen to
    std::vector<Change> changes;
    std::map<std::string, std::string> parts; // what was said of each last
};

std::string part_said(const Part &part) {
    return std::string(word_of(part.condition).word) + (part.reason.empty() ? "" : " (" + part.reason + ")");
}

// Lines as people read them; what says the same twice is left out.
std::vector<std::string> change_texts(Watched &watched, const Change &change) {
    const std::string text = change.object + "  " + change.property + "  ";
    if (change.property == "State") { // of others the part's line says enough
        const ConditionWord *const word = condition_called(change.value.get<std::string>());
        const bool news =
            word != nullptr && (word->condition == Condition::kCorrupt || word->condition == Condition::kDiffer);
        return news ? std::vector{text + std::string(word->word)} : std::vector<std::string>();
    }
    if (change.object != kServiceObject || change.property == "Condition" || change.property == "Service") {
        return {text + value_text(change)};
    }
    std::vector<std::string> lines;
    if (change.property == "Parts") {
        for (const Json &row : change.value) { // name, file, kind, reason
            const ConditionWord *const word = condition_called(row.at(2).get<std::string>());
            const Part part{.name = row.at(0),
                            .file = {},
                            .condition = word == nullptr ? Condition::kAnswers : word->condition,
                            .reason = row.at(3)};
            if (std::string now = part_said(part); std::exchange(watched.parts[part.name], now) != now) {
                lines.push_back(part.name + "  Part  " + now);
            }
        }
    }
    return lines;
}

class Lines {
public:
    Lines(bool json, std::uint64_t limit) : json_(json), limit_(limit) {}

    // False: nobody reads any more, or there were as many changes as were asked for.
    [[nodiscard]] bool show(Watched &watched, const Change &change) {
        const std::string time = line_time();
        if (json_) {
            const Json json = {{"time", time},
                               {"slot", watched.slot},
                               {"object", change.object},
                               {"property", change.property},
                               {"value", change.value}};
            return print_to_reader(json.dump() + "\n") && ++seen_ != limit_;
        }
        const std::string front = time + "  slot " + std::to_string(watched.slot) + "  ";
        for (const std::string &text : change_texts(watched, change)) {
            if (!print_to_reader(std::string(front).append(text).append("\n")) || ++seen_ == limit_) {
                return false;
            }
        }
        return true;
    }
    // What is so at the start is no change.
    [[nodiscard]] bool greet(Watched &watched, const Change &fact) {
        const bool read = show(watched, fact) || seen_ == limit_;
        --seen_;
        return read;
    }

private:
    bool json_;
    std::uint64_t limit_;
    std::uint64_t seen_ = 0;
};

// Throws a Failure when the slot's service cannot be asked.
[[nodiscard]] bool begin_watch(const Context &context, Watched &watched, Lines &lines) {
    Context own = context;
    own.slot = watched.slot;
    auto service = std::make_unique<Service>(own);
    service->subscribe(&watched.changes);
    const Snapshot snapshot = service->snapshot();
    watched.service = std::move(service);
    if (watched.ended &&
        !lines.show(watched, {.object = kServiceObject, .property = "Service", .value = "runs again"})) {
        return false;
    }
    for (const Part &part : snapshot.parts) {
        watched.parts[part.name] = part_said(part);
    }
    return lines.greet(watched, {.object = "Board", .property = "Role", .value = snapshot.board.role});
}

// Whether there is a service to look for: one that holds its slot's lock, or one whose place was named.
bool may_run(const Context &context, unsigned slot) {
    return context.bus || context.serving.slots.contains(slot);
}

// Services that have ended, and those that have come. False: to end.
bool look_round(Context &context, std::vector<std::unique_ptr<Watched>> &all, Lines &lines) {
    context.serving = serving_in(context.run_dir);
    for (const auto &one : all) {
        if (one->service && !one->service->answers()) {
            one->service.reset();
            one->ended = true;
            if (!lines.show(*one, {.object = kServiceObject, .property = "Service", .value = "has ended"})) {
                return false;
            }
        }
        try {
            if (!one->service && may_run(context, one->slot) && !begin_watch(context, *one, lines)) {
                return false;
            }
        } catch (const Failure &) { // it begins, or ends; the next look sees
            one->service.reset();
        }
    }
    return true;
}

// The slots that are meant; throws a Failure when none of them can be asked.
std::vector<std::unique_ptr<Watched>> watched_slots(const Context &context) {
    std::vector<std::unique_ptr<Watched>> all;
    for (unsigned slot = 0; slot < kSlots; ++slot) {
        const bool one = context.slot_given || context.bus;
        if (!one || slot == context.slot) {
            all.push_back(std::make_unique<Watched>());
            all.back()->slot = slot;
        }
    }
    (void)Service(context).role();
    return all;
}

int run_watch(const Context &given, const WatchOptions &options) {
    Flag interrupted(g_unix_signal_source_new(SIGINT));
    Flag terminated(g_unix_signal_source_new(SIGTERM));
    Flag look_time(g_timeout_source_new(kLookMs));
    std::optional<Flag> limit;
    if (options.for_s > 0) {
        limit.emplace(g_timeout_source_new(static_cast<unsigned>(options.for_s * 1000)));
    }
    Context context = given;
    Lines lines(context.json, options.count);
    std::vector<std::unique_ptr<Watched>> all = watched_slots(context);
    if (!look_round(context, all, lines)) {
        return kDone;
    }
    for (;;) {
        g_main_context_iteration(nullptr, TRUE);
        for (const auto &one : all) {
            for (const Change &change : std::exchange(one->changes, {})) {
                if (!lines.show(*one, change)) {
                    return kDone;
                }
            }
        }
        if (look_time.take() && !look_round(context, all, lines)) {
            return kDone;
        }
        if (interrupted.take() || terminated.take()) {
            return kDone;
        }
        if (limit && limit->take()) {
            return options.count == 0 ? kDone : kFailed;
        }
    }
}

} // namespace

void add_watch_command(CLI::App &app, Command &chosen) {
    const auto [watch, options] = add_command(app, chosen, "watch", "The service's changes as they come, until Ctrl-C",
                                              "watch --count 1 --for 60", run_watch);
    watch->add_option("--count", options->count, "End after this many changes")
        ->type_name("N")
        ->check(unsaid(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000})));
    watch
        ->add_option("--for", options->for_s,
                     "End after this time; status 1 when there were fewer changes than --count")
        ->type_name("SECONDS")
        ->check(unsaid(CLI::Range(0.001, 1e6)));
}

} // namespace asdctl
