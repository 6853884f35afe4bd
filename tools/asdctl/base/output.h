// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an operator sees: tones, aligned tables, hex dumps, a progress bar; JSON for programs.

#include "bytes.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace asdctl {

// Keys in the order in which they were added: people read JSON too.
using Json = nlohmann::ordered_json;

inline constexpr std::size_t kIndent = 2; // columns, of what belongs to the line above

// Where something is shown.
struct Screen {
    bool colour = false;
    std::optional<std::size_t> width; // columns of the terminal; none: it is not a terminal
    std::size_t height = 24;          // its lines
};

// How standard output or standard error is to be written to. Colour is a terminal's that knows it, unless it is refused
// here, by NO_COLOR or by TERM=dumb.
[[nodiscard]] Screen screen_of(int fd, bool no_colour);

enum class Tone { kPlain, kStrong, kQuiet, kGood, kCaution, kBad };

[[nodiscard]] std::string painted(const Screen &screen, Tone tone, std::string_view text);

// "1 item", "2 items"
[[nodiscard]] std::string counted(std::size_t count, std::string_view what);

struct Cell {
    Cell(std::string cell_text = {},
         Tone cell_tone = Tone::kPlain) // NOLINT(google-explicit-constructor): a text is one
        : text(std::move(cell_text)), tone(cell_tone) {}
    std::string text;
    Tone tone;
};

class Table {
public:
    enum class Align { kLeft, kRight };
    struct Column {
        std::string title; // all empty: no title line
        Align align = Align::kLeft;
    };
    explicit Table(std::vector<Column> columns, std::size_t indent = 0);
    [[nodiscard]] static Table pairs(std::size_t indent = 0); // a name and its value a line, without titles

    void add(std::vector<Cell> row); // a cell a column; fewer leave the rest of the line empty
    [[nodiscard]] std::size_t width() const;
    [[nodiscard]] std::string text(const Screen &screen) const;

private:
    [[nodiscard]] std::vector<std::size_t> widths() const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
    std::size_t indent_;
};

// Words in lines that fit the screen, each line indented; that many columns between them.
[[nodiscard]] std::string wrapped(const Screen &screen, const std::vector<std::string> &words, std::size_t indent);
[[nodiscard]] std::string wrapped(const Screen &screen, const std::vector<Cell> &words, std::size_t indent,
                                  std::size_t gap = 2);
// A sentence in lines that fit the screen.
[[nodiscard]] std::string wrapped(const Screen &screen, const std::string &sentence, std::size_t indent);

// Offset, sixteen bytes and their letters a line; "*" stands for lines equal to the one before. The first byte's offset
// is first.
[[nodiscard]] std::string hex_dump(const Screen &screen, BytesView bytes, std::size_t indent = 0,
                                   std::size_t first = 0);

// A bar on standard error while a transfer of several steps runs; nothing where that is not a terminal. It is gone when
// the transfer ends.
class ProgressBar {
public:
    ProgressBar(const Screen &screen, std::string what, std::size_t steps);
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    void step(); // one more is done

private:
    void draw() const;

    Screen screen_;
    std::string what_;
    std::size_t steps_;
    std::size_t done_ = 0;
};

} // namespace asdctl
