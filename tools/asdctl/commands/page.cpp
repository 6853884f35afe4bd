// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "page.h"

#include "cures.h"
#include "known_items.h"
#include "part_map.h"
#include "values.h"

#include <algorithm>
#include <array>
#include <map>

namespace asdctl {

namespace {

// ---- Text ----

std::string escaped(std::string_view text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        default:
            safe += c;
        }
    }
    return safe;
}

std::string element(std::string_view name, const std::string &inside, std::string_view style = {}) {
    const std::string opened(name);
    return "<" + opened + (style.empty() ? "" : " class=\"" + std::string(style) + "\"") + ">" + inside + "</" +
           opened + ">";
}

// "serial number" for people, the item's name where nothing is known of it.
std::string meaning_of(const std::string &item) {
    const KnownItem *const known = known_of(item);
    return known == nullptr ? ""
                            : std::string(known->meaning) + (known->of.empty() ? "" : " of " + std::string(known->of));
}

constexpr std::string_view kStyle = R"(
:root{color-scheme:light dark;--ground:#f6f7f9;--card:#fff;--ink:#1c2430;--soft:#5b6675;--line:#dde2e9;--free:#e9edf2;
--good:#2f8f5b;--blank:#8fa3b8;--bad:#c8323c;--differs:#c98a12;--onbad:#fff}
@media(prefers-color-scheme:dark){:root{--ground:#12161c;--card:#1b212a;--ink:#e6ebf2;--soft:#9aa7b6;--line:#2d3643;
--free:#262e39;--good:#43b077;--blank:#6c8098;--bad:#ef5f68;--differs:#e0ab3f;--onbad:#12161c}}
*{box-sizing:border-box}
body{margin:0;background:var(--ground);color:var(--ink);font:16px/1.5 system-ui,-apple-system,"Segoe UI",sans-serif}
main{max-width:1080px;margin:0 auto;padding:24px 20px 96px}
h1{font-size:1.6rem;line-height:1.25;margin:0}
h2{font-size:1.15rem;margin:36px 0 12px}
h3{font-size:1rem;margin:0}
.soft{color:var(--soft)}small,.small{font-size:.85rem}
code{font:.85em ui-monospace,Menlo,Consolas,monospace;background:var(--free);border-radius:4px;padding:2px 5px;overflow-wrap:anywhere}
header{display:flex;flex-wrap:wrap;gap:12px 20px;align-items:center;justify-content:space-between}
.pill{border-radius:999px;padding:6px 16px;font-weight:600;background:var(--good);color:var(--onbad)}
.pill.lost{background:var(--bad)}.pill.atrisk{background:var(--differs)}
.cards{display:grid;grid-template-columns:repeat(auto-fit,minmax(150px,1fr));gap:12px;margin:20px 0 0}
.card,.part{background:var(--card);border:1px solid var(--line);border-radius:10px;padding:14px 16px;min-width:0}
.card b{display:block;font-size:1.5rem;line-height:1.2}
ul{list-style:none;padding:0;margin:0;display:grid;gap:10px}
li{background:var(--card);border:1px solid var(--line);border-left:5px solid var(--blank);border-radius:8px;padding:12px 16px}
li.lost{border-left-color:var(--bad)}li.atrisk{border-left-color:var(--differs)}
li p{margin:0}li p+p{margin-top:4px;color:var(--soft)}
.parts{display:grid;grid-template-columns:repeat(6,1fr);gap:14px}
.part{grid-column:span 6}.part.small{grid-column:span 2}
.part header{margin-bottom:10px;gap:2px 12px}
svg{display:block;width:100%;height:auto}
svg text{font:17px system-ui,sans-serif;fill:var(--soft)}
svg .in{fill:var(--onbad);pointer-events:none}svg .blank+.in,svg .in.blank{fill:var(--ink)}
svg .free{fill:var(--free)}svg rect.good{fill:var(--good)}svg rect.differs{fill:var(--differs)}svg rect.bad{fill:var(--bad)}
svg rect.blank{fill:var(--card);stroke:var(--blank);stroke-width:2;stroke-dasharray:6 4}
svg a:hover rect,svg a:focus rect{stroke:var(--ink);stroke-width:3;stroke-dasharray:none}
.key{display:flex;flex-wrap:wrap;gap:6px 18px;margin:0 0 12px}
.key i{display:inline-block;width:1em;height:1em;border-radius:3px;margin-right:6px;vertical-align:-.12em}
.good>i,i.good{background:var(--good)}i.bad{background:var(--bad)}i.differs{background:var(--differs)}
i.blank{border:2px dashed var(--blank)}i.free{background:var(--free);border:1px solid var(--line)}
table{border-collapse:collapse;width:100%;background:var(--card);border:1px solid var(--line);border-radius:10px}
th,td{text-align:left;vertical-align:top;padding:7px 14px;border-top:1px solid var(--line);overflow-wrap:anywhere}
th{font-weight:600;width:42%}p.lost,td.lost{color:var(--bad);font-weight:600}thead th{border:0;color:var(--soft);font-size:.85rem}
.copy{display:inline-block;margin:0 14px 0 0;white-space:nowrap}
.copy i{display:inline-block;width:.8em;height:.8em;border-radius:3px;margin-right:5px}
.tip{display:none}
.tip:target{display:flex;gap:16px;justify-content:space-between;position:fixed;left:0;right:0;bottom:0;margin:0;padding:14px 20px;
background:var(--ink);color:var(--ground);z-index:1}
.tip a{color:inherit}
@media(max-width:640px){.card:last-child{grid-column:1/-1}main{padding:18px 14px 96px}.part.small{grid-column:span 6}svg .in{display:none}.part:not(.small) svg text{font-size:32px}
th,td{padding:7px 10px}.copy{display:block}}
@media print{:root{color-scheme:light;--ground:#fff;--card:#fff;--ink:#000;--soft:#444;--line:#bbb;--free:#eee;--good:#2f8f5b;--bad:#c8323c;
--differs:#c98a12;--blank:#777;--onbad:#fff}*{print-color-adjust:exact;-webkit-print-color-adjust:exact}main{max-width:none;padding:0}
body{font-size:11pt}li,.part,.card,tr{break-inside:avoid}.tip,.tip:target{display:none}}
)";

// ---- A part's drawing ----

constexpr std::size_t kCells = 32; // of a line
constexpr std::size_t kMostLines = 14;
constexpr double kWidth = 1000;     // of a line, in the drawing's units
constexpr double kSmallWidth = 300; // of a part that needs few lines
constexpr std::size_t kFewLines = 3;
constexpr double kMargin = 86; // left of it: the offset
constexpr double kLine = 40;   // a line's height
constexpr double kStep = 50;   // from line to line
constexpr double kNarrowest = 20;
constexpr double kLetter = 9.5; // a letter's width, roughly

std::string number_text(double value) {
    std::string text = std::to_string(value);
    text.resize(text.find('.') + 2);
    return text;
}

std::string rect(std::string_view style, double x, double y, double width) {
    return "<rect class=\"" + std::string(style) + "\" x=\"" + number_text(x) + "\" y=\"" + number_text(y) +
           "\" width=\"" + number_text(width) + "\" height=\"" + number_text(kLine) + R"(" rx="3"/>)";
}

std::string text_at(std::string_view style, double x, double y, const std::string &text) {
    return "<text class=\"" + std::string(style) + "\" x=\"" + number_text(x) + "\" y=\"" + number_text(y) + "\">" +
           escaped(text) + "</text>";
}

// What hovering or tapping tells of a record.
std::string tip_of(const MapPiece &piece) {
    const RecordPlace &place = *piece.stretch.record;
    const std::string meaning = meaning_of(place.item);
    return place.item + (meaning.empty() ? "" : ", " + meaning) + ": " + std::string(facts_of(piece.state).meaning) +
           " (" + place.chip + ", " + std::to_string(place.length) + " bytes at " + hex_number(place.offset, 4) + ")";
}

// The record's pieces on the lines that it has bytes on.
std::string record_drawing(const MapPiece &piece, const MapGrid &grid, double unit, const std::string &id) {
    const std::string_view state = facts_of(piece.state).name;
    const std::string &name = piece.stretch.record->item;
    std::string drawn;
    bool named = false;
    double y = 0;
    for (const MapRow &row : grid.rows) {
        const std::size_t from = std::max(piece.stretch.begin, row.begin);
        const std::size_t to = std::min(piece.stretch.end, row.end);
        if (!row.folded && from < to) {
            const double x = kMargin + static_cast<double>(from - row.begin) * unit;
            const double width = std::max(static_cast<double>(to - from) * unit, kNarrowest);
            drawn += rect(state, x, y, width);
            if (!named && width > kLetter * static_cast<double>(name.size() + 1)) {
                drawn += text_at("in " + std::string(state), x + 7, y + 26, name);
                named = true;
            }
        }
        y += kStep;
    }
    const std::string tip = escaped(tip_of(piece));
    return "<a href=\"#" + id + "\" aria-label=\"" + tip + "\">" + drawn + "<title>" + tip + "</title></a>\n";
}

struct Drawing {
    std::string svg;
    std::string tips;
    bool small = false;
};

Drawing drawing_of(const LoadedPart &part, const std::vector<Finding> &findings, std::size_t number) {
    const std::size_t lines = std::clamp<std::size_t>(part.plan.records.size() / 2, 2, kMostLines);
    const MapGrid grid = grid_of(part.plan, part.bytes.size(), kCells, lines);
    Drawing drawing{.svg = {}, .tips = {}, .small = grid.rows.size() <= kFewLines};
    const double whole = drawing.small ? kSmallWidth : kWidth;
    const double unit = whole / static_cast<double>(grid.cell * kCells); // a byte
    double y = 0;
    std::string below;
    for (const MapRow &row : grid.rows) {
        below += text_at("", 0, y + 27, hex_number(static_cast<std::uint32_t>(row.begin), 4).substr(2));
        const double width = row.folded ? whole : static_cast<double>(row.end - row.begin) * unit;
        below += rect("free", kMargin, y, width);
        below +=
            row.folded ? text_at("", kMargin + 10, y + 27, std::to_string(row.end - row.begin) + " bytes free") : "";
        y += kStep;
    }
    std::size_t count = 0;
    for (const MapPiece &piece : pieces_of(part, findings)) {
        if (piece.finding == nullptr) {
            continue;
        }
        const std::string id = "r" + std::to_string(number) + "-" + std::to_string(count++);
        below += record_drawing(piece, grid, unit, id);
        drawing.tips += R"(<p class="tip" id=")" + id + "\"><span>" + escaped(tip_of(piece)) +
                        "</span><a href=\"#-\">close</a></p>\n";
    }
    drawing.svg = "<svg viewBox=\"0 0 " + number_text(kMargin + whole + 2) + " " + number_text(y) +
                  R"(" role="group" aria-label="what lies where on )" + escaped(part.plan.name) + "\">\n" + below +
                  "</svg>\n";
    return drawing;
}

std::string part_section(const LoadedPart &part, const std::vector<Finding> &findings, std::size_t number) {
    const std::string slot = part.slot ? " of slot " + std::to_string(*part.slot) : "";
    const std::string title =
        "<header>" + element("h3", escaped(part.plan.name + slot)) +
        element("span", escaped(part.file.string()) + ", " + counted(part.plan.size, "byte"), "soft small") +
        "</header>\n";
    if (!part.trouble.empty()) {
        return element("section", title + element("p", "Not read: " + escaped(part.trouble), "lost"), "part small") +
               "\n";
    }
    const Drawing drawing = drawing_of(part, findings, number);
    return element("section", title + drawing.svg + drawing.tips, drawing.small ? "part small" : "part") + "\n";
}

// ---- What is lost ----

// What an operator has to know, worst first.
struct Trouble {
    enum class Kind { kLost, kAtRisk };
    Kind kind;
    std::string what;   // sentences
    std::string remedy; // others, in HTML
};

// " 3 items have one good copy left."; empty: none has.
std::string left_text(std::size_t items, const std::string &what) {
    return items == 0 ? "" : " " + counted(items, "item") + (items == 1 ? " has " : " have ") + what + ".";
}

std::string code(const std::string &words) {
    return element("code", escaped(words));
}

std::string stopped(const PageFacts &facts) {
    return facts.on_parts.empty() ? "" : " while the service is stopped";
}

bool has_good(const ItemCopies &item) {
    return std::ranges::any_of(item.copies, [](const Copy &copy) { return copy.is(RecordState::kGood); });
}

Trouble hopeless(const PageFacts &facts, const ItemCopies &item, const std::string &why) {
    const std::string meaning = meaning_of(item.item);
    const bool choice = has_good(item);
    const std::string repair = "asdctl repair" + facts.on_parts + " " + item.item;
    return {.kind = choice ? Trouble::Kind::kAtRisk : Trouble::Kind::kLost,
            .what = item.title() + (meaning.empty() ? "" : ", " + meaning) + ": " + why + ".",
            .remedy = choice
                          ? "Choose the one that stays: " + code(repair + " --from a") + " or " + code("--from b") + "."
                          : "Write it anew: " + code("asdctl import") + " of an earlier export, or " +
                                code("asdctl set " + item.item) + "."};
}

// Of the items with a copy on it that part's loss leaves some with no good copy, and some with one.
Trouble unread(const PageFacts &facts, const LoadedPart &part, std::size_t none, std::size_t one) {
    return {.kind = none > 0 ? Trouble::Kind::kLost : Trouble::Kind::kAtRisk,
            .what = part.plan.name + " was not read: " + part.trouble + "." + left_text(one, "one good copy left") +
                    left_text(none, "no good copy left"),
            .remedy = "Look at the part and its driver. Once it answers, " + code("asdctl repair" + facts.on_parts) +
                      " fills it from the other copies" + stopped(facts) + "."};
}

std::vector<Trouble> troubles_of(const PageFacts &facts, const std::vector<ItemCopies> &all) {
    std::vector<Trouble> troubles;
    std::map<const LoadedPart *, std::array<std::size_t, 2>> gone; // items of which no good copy, or one, is left
    std::string mendable;
    std::size_t count = 0;
    for (const ItemCopies &item : all) {
        for (const Copy &copy : item.copies) {
            gone[copy.part].at(has_good(item) ? 1 : 0) += copy.check ? 0U : 1U;
        }
        if (is_flag_here(all, item)) {
            continue;
        }
        const ItemCopies *const flags = flags_of(all, item);
        const Cure cure = cure_of(item.copies, {}, flags == nullptr ? std::nullopt : trusted_by(flags->copies));
        if (cure.from) {
            mendable += (count++ == 0 ? "" : ", ") + item.title();
        } else if (!cure.hopeless.empty()) {
            troubles.push_back(hopeless(facts, item, cure.hopeless));
        }
    }
    for (const LoadedPart &part : facts.parts) {
        if (!part.trouble.empty()) {
            troubles.push_back(unread(facts, part, gone[&part][0], gone[&part][1]));
        }
    }
    if (count > 0) {
        troubles.push_back({.kind = Trouble::Kind::kAtRisk,
                            .what = counted(count, "item") + (count == 1 ? " has" : " have") +
                                    " one good copy of two: " + mendable + ".",
                            .remedy = code("asdctl repair" + facts.on_parts) + " writes the other one from it" +
                                      stopped(facts) + "."});
    }
    std::ranges::stable_sort(troubles, {}, &Trouble::kind);
    return troubles;
}

// ---- The rest of the page ----

std::string key_of_colours() {
    std::string text;
    for (const MapState state :
         {MapState::kGood, MapState::kBad, MapState::kDiffers, MapState::kBlank, MapState::kFree}) {
        const MapStateFacts &facts = facts_of(state);
        text += "<span><i class=\"" + std::string(facts.name) + "\"></i>" + std::string(facts.meaning) + "</span>\n";
    }
    return element("div", text, "key small");
}

std::string card(const std::string &big, const std::string &small) {
    return element("div", element("b", escaped(big)) + element("span", escaped(small), "soft small"), "card") + "\n";
}

std::string cards_of(const PageFacts &facts, const std::vector<Finding> &findings) {
    const auto unread =
        std::ranges::count_if(facts.parts, [](const LoadedPart &part) { return !part.trouble.empty(); });
    const auto count = [&](RecordState state) {
        return std::to_string(
            std::ranges::count_if(findings, [state](const Finding &finding) { return finding.check.state == state; }));
    };
    const std::string parts = std::to_string(facts.parts.size());
    std::string text = card(unread == 0 ? parts : std::to_string(unread) + " of " + parts,
                            unread == 0 ? "parts, all read" : "parts were not read");
    text += card(count(RecordState::kGood), "records are good") + card(count(RecordState::kBad), "are damaged") +
            card(count(RecordState::kBlank), "were never written");
    if (facts.status.is_object()) {
        text += card(facts.status.value("role", "?"), "slot " + std::to_string(facts.status.value("slot", 0)) +
                                                          ", running " +
                                                          std::to_string(facts.status.value("uptime_s", 0)) + " s");
    } else {
        text += card("no service", "answers; the parts were read from their files");
    }
    return element("div", text, "cards");
}

std::string_view style_of(Trouble::Kind kind) {
    return kind == Trouble::Kind::kLost ? "lost" : "atrisk";
}

std::string troubles_section(const std::vector<Trouble> &troubles) {
    std::string list;
    for (const Trouble &trouble : troubles) {
        list += "<li class=\"" + std::string(style_of(trouble.kind)) + "\">" + element("p", escaped(trouble.what)) +
                element("p", trouble.remedy) + "</li>\n";
    }
    return troubles.empty() ? "" : element("h2", "What is lost, and what to do") + element("ul", list) + "\n";
}

std::string identity_section(const EnclosurePlan &enclosure, const std::vector<ItemCopies> &all) {
    std::string rows;
    for (const ItemCopies &item : all) {
        const KnownItem *const known = known_of(item.item);
        const auto plan = std::ranges::find(enclosure.items, item.item, &ItemPlan::name);
        const auto good =
            std::ranges::find_if(item.copies, [](const Copy &copy) { return copy.is(RecordState::kGood); });
        if (known == nullptr || !known->identity || plan->confidential) {
            continue;
        }
        const std::string value = good == item.copies.end() ? "" : decoded(known->format, good->data());
        const bool damaged = good == item.copies.end() && std::ranges::any_of(item.copies, [](const Copy &copy) {
                                 return copy.is(RecordState::kBad);
                             });
        if (!value.empty() || damaged) {
            rows += element("tr", element("th", escaped(known->meaning)) +
                                      (damaged ? element("td", "damaged", "lost") : element("td", escaped(value))));
        }
    }
    return rows.empty() ? "" : element("h2", "Identity") + element("table", rows) + "\n";
}

std::string items_section(const std::vector<ItemCopies> &all, const std::vector<Finding> &findings) {
    std::string rows;
    for (const ItemCopies &item : all) {
        std::string copies;
        for (const Copy &copy : item.copies) {
            std::string_view state = "bad";
            std::string word = "not read";
            for (const MapPiece &piece : copy.check ? pieces_of(*copy.part, findings) : std::vector<MapPiece>()) {
                if (piece.stretch.record == copy.place) {
                    state = facts_of(piece.state).name;
                    word = facts_of(piece.state).meaning;
                }
            }
            copies += R"(<span class="copy"><i class=")" + std::string(state) + "\"></i>" +
                      escaped(copy.part->plan.name + ": " + word) + "</span>";
        }
        const std::string meaning = meaning_of(item.item);
        rows += element("tr",
                        element("th",
                                escaped(item.title()) +
                                    (meaning.empty() ? "" : "<br>" + element("span", escaped(meaning), "soft small"))) +
                            element("td", copies, "small")) +
                "\n";
    }
    return element("h2", "Items") + element("table", "<thead><tr><th>Item</th><th>Copies</th></tr></thead>\n" + rows);
}

} // namespace

std::string page_of(const PageFacts &facts) {
    const std::vector<Finding> findings = findings_of(facts.parts, "");
    const std::vector<ItemCopies> all = copies_on(facts.parts, facts.enclosure.items);
    const std::vector<Trouble> troubles = troubles_of(facts, all);
    const std::string_view worst = troubles.empty() ? "" : style_of(troubles.front().kind);
    std::string parts;
    for (std::size_t i = 0; i < facts.parts.size(); ++i) {
        parts += part_section(facts.parts[i], findings, i);
    }
    const std::string title = escaped(facts.enclosure.name.empty() ? "Enclosure" : facts.enclosure.name);
    return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<meta name=\"viewport\" "
           "content=\"width=device-width,initial-scale=1\">\n<link rel=\"icon\" href=\"data:,\">\n<title>" +
           title + "</title>\n<style>" + std::string(kStyle) + "</style></head>\n<body><main>\n<header><div>" +
           element("h1", title) +
           element("span", "asd " + std::string(ASD_VERSION) + ", " + escaped(facts.when), "soft small") + "</div>" +
           "<span class=\"pill " + std::string(worst) + "\">" +
           (worst == "lost"     ? "Something is lost"
            : worst == "atrisk" ? "Something is at risk"
                                : "All is well") +
           "</span></header>\n" + cards_of(facts, findings) + troubles_section(troubles) +
           identity_section(facts.enclosure, all) + element("h2", "Parts") + key_of_colours() +
           element("div", parts, "parts") + "\n" + items_section(all, findings) + "</main></body></html>\n";
}

} // namespace asdctl
