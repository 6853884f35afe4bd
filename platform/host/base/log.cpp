// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "log.h"

#include "debug_log.h"
#include "log_ration.h"
#include "patient_writer.h"
#include "printable.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace asd_host {
namespace {

constexpr std::size_t kTextLimit = 4096;
constexpr std::size_t kPlaceLimit = 256; // of file and line
constexpr std::string_view kCutMark = " ... (cut)";
constexpr std::string_view kColourOff = "\033[0m";

struct Style {
    std::string_view word;
    std::string_view priority; // of the journal
    std::string_view colour;
};
// clang-format off
constexpr std::array<Style, 3> kStyles{{
    {.word = "error", .priority = "<3>", .colour = "\033[31m"},
    {.word = "info",  .priority = "<6>", .colour = ""},
    {.word = "debug", .priority = "<7>", .colour = "\033[2m"},
}};
// clang-format on

const Style &style_of(int level) {
    return kStyles[static_cast<std::size_t>(std::clamp(level, 0, 2))];
}

// Set before other threads exist; atomic because tests set them again.
std::atomic<int> highest{kLogInformation};
std::atomic<bool> coloured{false};
std::atomic<bool> journal{false};

constexpr std::size_t kHeldLines = 64;
thread_local std::vector<std::string> *held_lines = nullptr; // by the HeldLines of this thread

std::mutex ration_mutex; // guards ration
LogRation ration;

// A line being put together, on the stack: logging neither allocates nor fails, unless lines are held.
class Line {
public:
    void add(std::string_view text) {
        const std::size_t room = std::min(text.size(), bytes_.size() - size_);
        std::copy_n(text.data(), room, bytes_.data() + size_);
        size_ += room;
    }
    [[nodiscard]] std::string_view view() const { return {bytes_.data(), size_}; }

private:
    std::array<char, 4 * (kTextLimit + kPlaceLimit) + 256> bytes_; // room for all of it escaped
    std::size_t size_ = 0;
};

bool continues(std::string_view text, std::size_t index) {
    return index < text.size() && (static_cast<unsigned char>(text[index]) & 0xC0U) == 0x80U;
}

void add_time(Line &line) {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    std::array<char, 32> text{};
    if (gmtime_r(&now.tv_sec, &parts) == nullptr) {
        return;
    }
    line.add({text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts)});
    const auto fraction_ms = static_cast<unsigned>(now.tv_nsec / 1000000) % 1000U;
    const int length = std::snprintf(text.data(), text.size(), ".%03uZ ", fraction_ms);
    line.add({text.data(), static_cast<std::size_t>(length)});
}

// The text of a line: at most kTextLimit bytes and without the line end that many of the module's texts carry.
class Text {
public:
    Text(const char *format, va_list arguments) G_GNUC_PRINTF(2, 0) {
        const int length = std::vsnprintf(bytes_.data(), bytes_.size(), format, arguments);
        if (length < 0) {
            view_ = "(a text that cannot be formatted)";
            return;
        }
        cut_ = static_cast<std::size_t>(length) > kTextLimit;
        view_ = {bytes_.data(), cut_ ? kTextLimit : static_cast<std::size_t>(length)};
        for (const char end : {'\n', '\r'}) {
            if (!cut_ && view_.ends_with(end)) {
                view_.remove_suffix(1);
            }
        }
        for (std::size_t dropped = 0; cut_ && dropped < 3 && continues(bytes(), view_.size()); ++dropped) {
            view_.remove_suffix(1); // not in the middle of a character
        }
    }
    [[nodiscard]] std::string_view view() const { return view_; }
    [[nodiscard]] bool cut() const { return cut_; }

private:
    [[nodiscard]] std::string_view bytes() const { return {bytes_.data(), bytes_.size()}; }
    std::array<char, kTextLimit + 2> bytes_;
    std::string_view view_;
    bool cut_ = false;
};

// Priority, or colour, time and level.
void add_front(Line &line, int level, bool colour) {
    const Style &style = style_of(level);
    if (journal) {
        line.add(style.priority);
        return;
    }
    line.add(colour ? style.colour : "");
    add_time(line);
    line.add(style.word);
    line.add(" ");
}

std::string dropped_note(std::uint64_t dropped) {
    Line line;
    add_front(line, kLogError, false);
    line.add(std::to_string(dropped));
    line.add(" lines were dropped here: nobody took them in time, or there was no room for them\n");
    return std::string(line.view());
}

// Never destroyed: lines are written until the process is gone.
PatientWriter &standard_error() {
    static PatientWriter &writer = *new PatientWriter(STDERR_FILENO, dropped_note);
    return writer;
}

// Says what was left out of windows that are over, or of all.
void settle_ration(bool everything) {
    for (;;) {
        std::optional<LogRation::LeftOut> left_out;
        {
            const std::lock_guard lock(ration_mutex);
            left_out = ration.settle(std::chrono::steady_clock::now(), everything);
        }
        if (!left_out) {
            return;
        }
        Line line;
        add_front(line, left_out->level, false);
        add_printable(left_out->name.data(), [&line](std::string_view piece) { line.add(piece); });
        line.add(" ");
        line.add(std::to_string(left_out->lines));
        line.add(" more lines from this place were left out\n");
        standard_error().put(line.view());
    }
}

// Debugging is for who looks on: all of it is printed.
bool worth_a_line(int level, std::string_view place, std::string_view text) {
    if (level >= kLogDebug) {
        return true;
    }
    const std::lock_guard lock(ration_mutex);
    return ration.admit({.name = place, .level = level}, text, std::chrono::steady_clock::now());
}

void log_line(int level, std::string_view place, const char *format, va_list arguments) G_GNUC_PRINTF(3, 0);

void log_line(int level, std::string_view place, const char *format, va_list arguments) {
    const int error = errno; // of the caller, for %m and for what follows the line
    const Text text(format, arguments);
    if (!worth_a_line(level, place.empty() ? format : place, text.view())) {
        return;
    }
    const bool colour = !journal && coloured && !style_of(level).colour.empty();
    Line line;
    add_front(line, level, colour);
    const auto add = [&line](std::string_view piece) { line.add(piece); };
    add_printable(place, add);
    add_printable(text.view(), add);
    line.add(text.cut() ? kCutMark : "");
    line.add(colour ? kColourOff : "");
    line.add("\n");
    if (held_lines != nullptr && held_lines->size() < kHeldLines) {
        held_lines->emplace_back(line.view());
    } else {
        standard_error().put(line.view());
    }
    errno = error;
}

// JOURNAL_STREAM names device and inode of the stream that the journal reads; a process may have inherited the variable
// with another standard error.
bool journal_reads_standard_error() {
    const char *stream = std::getenv("JOURNAL_STREAM"); // NOLINT(concurrency-mt-unsafe): before other threads exist
    struct stat status {};
    if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    std::array<char, 64> own{};
    (void)std::snprintf(own.data(), own.size(), "%ju:%ju", std::uintmax_t{status.st_dev},
                        std::uintmax_t{status.st_ino});
    return std::string_view(stream) == own.data();
}

} // namespace

HeldLines::HeldLines() {
    if (highest < kLogDebug) {
        held_lines = &lines_;
    }
}

HeldLines::~HeldLines() {
    held_lines = nullptr;
    for (const std::string &line : lines_) {
        standard_error().put(line);
    }
}

unsigned HeldLines::leave_out() {
    return static_cast<unsigned>(std::exchange(lines_, {}).size());
}

void log_settle() {
    settle_ration(false);
}

bool log_flush(std::chrono::milliseconds limit) {
    settle_ration(true);
    return standard_error().flush(limit);
}

void log_plain(std::string_view text) {
    standard_error().put(text);
}

void log_set(int highest_level, bool colour) {
    highest = highest_level;
    coloured = colour;
    journal = journal_reads_standard_error();
}

bool log_colour_wanted() {
    const char *plain = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): before other threads exist
    const char *terminal = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): the same
    if ((plain != nullptr && *plain != '\0') || (terminal != nullptr && std::string_view(terminal) == "dumb")) {
        return false;
    }
    return isatty(STDERR_FILENO) == 1;
}

} // namespace asd_host

void debug_log_func(gint32 level, const gchar *file, gint32 line, const gchar *format, ...) {
    if (level > asd_host::highest || format == nullptr) {
        return;
    }
    std::array<char, asd_host::kPlaceLimit> place{};
    (void)std::snprintf(place.data(), place.size(), "%s:%d: ", file != nullptr ? file : "?", line);
    va_list arguments;
    va_start(arguments, format);
    asd_host::log_line(level, place.data(), format, arguments);
    va_end(arguments);
}

// The text of a maintenance line says its place itself.
void dbg_log(gint32 level, const gchar *format, ...) {
    if (level > asd_host::highest || format == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    asd_host::log_line(level, "", format, arguments);
    va_end(arguments);
}
