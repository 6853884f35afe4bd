// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// watch: the service's changes as they come.

#include "commands.h"
#include "failure.h"
#include "service.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>

#include <glib-unix.h>
#include <unistd.h>

namespace asdctl {

namespace {

constexpr unsigned kLookMs = 1000; // the role has no signal: it is asked for this often

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
std::string time_text() {
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

std::string change_text(const Change &change) {
    return change.object + "  " + change.property + "  " + value_text(change);
}

// A line for each change.
class Lines {
public:
    explicit Lines(bool json) : json_(json) {}
    // False: nobody reads any more.
    [[nodiscard]] bool show(const Change &change) const {
        const std::string time = time_text();
        const Json json = {
            {"time", time}, {"object", change.object}, {"property", change.property}, {"value", change.value}};
        return print_to_reader((json_ ? json.dump() : time + "  " + change_text(change)) + "\n");
    }

private:
    bool json_;
};

// The terminal's other screen: what status shows, and below it the last changes.
class Live {
public:
    explicit Live(const Screen &screen) : screen_(screen) { print("\033[?1049h\033[?25l"); }
    ~Live() { // a terminal that is gone needs nothing
        [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, kLeave.data(), kLeave.size());
    }
    Live(const Live &) = delete;
    Live &operator=(const Live &) = delete;

    void add(const Change &change) { changes_.push_back(time_text().substr(11, 12) + "  " + change_text(change)); }

    void draw(const Snapshot &snapshot) {
        std::string text = service_text(screen_, snapshot) + "\n" + painted(screen_, Tone::kStrong, "Changes") +
                           painted(screen_, Tone::kQuiet, " (UTC; Ctrl-C ends)");
        const auto taken = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 2;
        const std::size_t room = std::max<std::size_t>(screen_.height, taken + 1) - taken;
        if (changes_.size() > room) {
            changes_.erase(changes_.begin(), changes_.end() - static_cast<std::ptrdiff_t>(room));
        }
        for (const std::string &line : changes_) {
            const glong columns = std::min(g_utf8_strlen(line.c_str(), -1), static_cast<glong>(*screen_.width));
            const TextPtr fits(g_utf8_substring(line.c_str(), 0, columns));
            text += std::string("\n") + fits.get();
        }
        print("\033[H\033[J" + text);
    }

private:
    static constexpr std::string_view kLeave = "\033[?25h\033[?1049l";

    Screen screen_;
    std::vector<std::string> changes_;
};

// The role as a change, when it is another one.
void look_at_role(Service &service, std::string *role, std::vector<Change> *changes) {
    const std::string now = service.role();
    if (now != *role) {
        changes->push_back({.object = "Board", .property = "Role", .value = now});
        *role = now;
    }
}

int run_watch(const Context &context, const WatchOptions &options) {
    Flag interrupted(g_unix_signal_source_new(SIGINT));
    Flag terminated(g_unix_signal_source_new(SIGTERM));
    Flag look(g_timeout_source_new(kLookMs));
    std::optional<Flag> limit;
    if (options.for_s > 0) {
        limit.emplace(g_timeout_source_new(static_cast<unsigned>(options.for_s * 1000)));
    }
    const bool on_terminal = context.out.width && !context.json;
    const Lines lines(context.json);
    Service service(context);
    std::vector<Change> changes;
    service.subscribe(&changes);
    std::string role = service.role();
    if (!on_terminal && !lines.show({.object = "Board", .property = "Role", .value = role})) {
        return kDone;
    }
    const auto live = on_terminal ? std::make_unique<Live>(context.out) : nullptr;
    if (live) {
        live->draw(service.snapshot());
    }
    for (std::uint64_t seen = 0;;) {
        g_main_context_iteration(nullptr, TRUE);
        if (look.take()) {
            look_at_role(service, &role, &changes);
        }
        for (const Change &change : std::exchange(changes, {})) {
            if (live) {
                live->add(change);
            } else if (!lines.show(change)) {
                return kDone;
            }
            if (++seen == options.count) {
                return kDone;
            }
        }
        if (live) {
            live->draw(service.snapshot());
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
