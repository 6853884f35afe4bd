// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>

#include <glib.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace asdctl {

namespace {

constexpr std::size_t kColumnGap = 2;
constexpr std::size_t kUsualWidth = 80; // of a terminal that doesn't tell, and of what is not one
constexpr std::size_t kDumpLine = 16;

// The value of an environment variable; empty when it is not set.
std::string_view environment(const char *name) {
    const char *value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing here changes the environment
    return value == nullptr ? "" : value;
}

// Columns that the text takes; the texts here are ours or checked to be printable.
std::size_t columns_of(std::string_view text) {
    return static_cast<std::size_t>(g_utf8_strlen(text.data(), static_cast<gssize>(text.size())));
}

std::string_view tone_code(Tone tone) {
    switch (tone) {
    case Tone::kStrong:
        return "\033[1m";
    case Tone::kQuiet:
        return "\033[2m";
    case Tone::kGood:
        return "\033[32m";
    case Tone::kCaution:
        return "\033[33m";
    case Tone::kBad:
        return "\033[31m";
    case Tone::kPlain:
        break;
    }
    return "";
}

std::string without_trailing_spaces(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

std::string dump_line(const Screen &screen, std::size_t offset, BytesView bytes) {
    std::array<char, 16> place;
    g_snprintf(place.data(), place.size(), "%04zx", offset);
    std::string hex = to_hex(bytes, " ");
    if (bytes.size() > kDumpLine / 2) {
        hex.insert(kDumpLine / 2 * 3, " "); // a gap in the middle is a landmark
    }
    hex.resize(kDumpLine * 3, ' ');
    std::string letters;
    for (const std::uint8_t byte : bytes) {
        letters += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    return painted(screen, Tone::kQuiet, place.data()) + "  " + hex + "  " + letters;
}

} // namespace

Screen screen_of(int fd, bool no_colour) {
    Screen screen;
    if (::isatty(fd) == 0) {
        return screen;
    }
    winsize size{};
    const bool known = ::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    screen.width = known ? size.ws_col : kUsualWidth;
    screen.height = known && size.ws_row > 0 ? size.ws_row : screen.height;
    screen.colour = !no_colour && environment("NO_COLOR").empty() && environment("TERM") != "dumb";
    return screen;
}

std::string painted(const Screen &screen, Tone tone, std::string_view text) {
    const std::string_view code = screen.colour ? tone_code(tone) : "";
    return code.empty() || text.empty() ? std::string(text) : std::string(code).append(text).append("\033[0m");
}

std::string counted(std::size_t count, std::string_view what) {
    return std::to_string(count) + " " + std::string(what) + (count == 1 ? "" : "s");
}

Table::Table(std::vector<Column> columns, std::size_t indent) : columns_(std::move(columns)), indent_(indent) {}

Table Table::pairs(std::size_t indent) {
    return Table(std::vector<Column>(2), indent);
}

void Table::add(std::vector<Cell> row) {
    rows_.push_back(std::move(row));
}

std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> result;
    for (const Column &column : columns_) {
        result.push_back(columns_of(column.title));
    }
    for (const std::vector<Cell> &row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            result[i] = std::max(result[i], columns_of(row[i].text));
        }
    }
    return result;
}

std::size_t Table::width() const {
    std::size_t total = indent_;
    for (const std::size_t column : widths()) {
        total += column + kColumnGap;
    }
    return total - kColumnGap;
}

std::string Table::text(const Screen &screen) const {
    const std::vector<std::size_t> room = widths();
    std::string result;
    const auto append_row = [&](const std::vector<Cell> &row) {
        std::string line(indent_, ' ');
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string pad(room[i] - columns_of(row[i].text), ' ');
            const std::string shown = painted(screen, row[i].tone, row[i].text);
            line += columns_[i].align == Align::kRight ? pad + shown : shown + pad;
            line.append(kColumnGap, ' ');
        }
        result += without_trailing_spaces(line) + "\n";
    };
    std::vector<Cell> titles;
    for (const Column &column : columns_) {
        titles.emplace_back(column.title, Tone::kQuiet);
    }
    if (std::ranges::any_of(columns_, [](const Column &column) { return !column.title.empty(); })) {
        append_row(titles);
    }
    std::ranges::for_each(rows_, append_row);
    return result;
}

std::string wrapped(const Screen &screen, const std::vector<std::string> &words, std::size_t indent) {
    return wrapped(screen, std::vector<Cell>(words.begin(), words.end()), indent);
}

std::string wrapped(const Screen &screen, const std::vector<Cell> &words, std::size_t indent, std::size_t gap) {
    const std::size_t width = screen.width.value_or(kUsualWidth);
    std::string result;
    std::size_t column = width; // the first word begins a line
    for (const Cell &word : words) {
        const std::size_t size = columns_of(word.text);
        const std::string shown = painted(screen, word.tone, word.text);
        if (column + gap + size > width) {
            result += (result.empty() ? "" : "\n") + std::string(indent, ' ') + shown;
            column = indent + size;
            continue;
        }
        result += std::string(gap, ' ') + shown;
        column += gap + size;
    }
    return result + "\n";
}

std::string wrapped(const Screen &screen, const std::string &sentence, std::size_t indent) {
    std::vector<Cell> words;
    std::istringstream text(sentence);
    for (std::string word; text >> word;) {
        words.emplace_back(word);
    }
    return wrapped(screen, words, indent, 1);
}

std::string hex_dump(const Screen &screen, BytesView bytes, std::size_t indent, std::size_t first) {
    const std::string margin(indent, ' ');
    std::string result;
    bool skipping = false;
    for (std::size_t offset = 0; offset < bytes.size(); offset += kDumpLine) {
        const BytesView line = bytes.subspan(offset, std::min(kDumpLine, bytes.size() - offset));
        const bool last = offset + line.size() == bytes.size();
        if (offset > 0 && !last && std::ranges::equal(line, bytes.subspan(offset - kDumpLine, kDumpLine))) {
            result += skipping ? "" : margin + painted(screen, Tone::kQuiet, "*") + "\n";
            skipping = true;
            continue;
        }
        skipping = false;
        result += margin + dump_line(screen, first + offset, line) + "\n";
    }
    return result;
}

ProgressBar::ProgressBar(const Screen &screen, std::string what, std::size_t steps)
    : screen_(screen), what_(std::move(what)), steps_(steps) {
    draw();
}

ProgressBar::~ProgressBar() {
    if (screen_.width) {
        std::cerr << "\r\033[K" << std::flush;
    }
}

void ProgressBar::step() {
    done_ = std::min(done_ + 1, steps_);
    draw();
}

void ProgressBar::draw() const {
    constexpr std::size_t kLongest = 30;
    const std::string count = " " + std::to_string(done_) + "/" + std::to_string(steps_);
    const std::size_t taken = columns_of(what_) + count.size() + 4; // a space, two brackets, the cursor
    if (!screen_.width || steps_ == 0 || *screen_.width < taken + 5) {
        return;
    }
    const std::size_t length = std::min(kLongest, *screen_.width - taken);
    const std::size_t filled = length * done_ / steps_;
    std::cerr << "\r" << what_ << " [" << painted(screen_, Tone::kGood, std::string(filled, '='))
              << painted(screen_, Tone::kQuiet, std::string(length - filled, '.')) << "]" << count << "\033[K"
              << std::flush;
}

} // namespace asdctl
