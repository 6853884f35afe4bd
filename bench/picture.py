# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Draws what a record costs against its size, and an item against their number, as one SVG for light and dark pages."""

import itertools
import math
import statistics

import peers
import tools

SIZES = (32, 128, 512, 1024, 4096)
WIDTH, HEIGHT = 920, 380
TOP, BOTTOM, PANEL, MARGIN = 56, 330, 300, 62  # of both panels: their upper and lower edge, width and room to the left
STYLE = """
text{font:12px system-ui,"DejaVu Sans",sans-serif;fill:#333}.title{font-weight:700;font-size:14px}
.back{fill:#fff}.grid{stroke:#ddd;stroke-width:1}.line{fill:none;stroke-width:2}
.s0{stroke:#b3261e}.s1{stroke:#555;stroke-dasharray:5 4}.s2{stroke:#1a6fb5}.s3{stroke:#2e7d32}.s4{stroke:#8a5a00}.s5{stroke:#7b3fa0}
.f0{fill:#b3261e}.f1{fill:#555}.f2{fill:#1a6fb5}.f3{fill:#2e7d32}.f4{fill:#8a5a00}.f5{fill:#7b3fa0}
@media (prefers-color-scheme:dark){text{fill:#ddd}.back{fill:#161b22}.grid{stroke:#333}
.s0{stroke:#ff7b72}.s1{stroke:#aaa}.s2{stroke:#79b8ff}.s3{stroke:#6fd08c}.s4{stroke:#e8c05a}.s5{stroke:#d2a8ff}
.f0{fill:#ff7b72}.f1{fill:#aaa}.f2{fill:#79b8ff}.f3{fill:#6fd08c}.f4{fill:#e8c05a}.f5{fill:#d2a8ff}}
"""


def sizes(rounds):
    """{name: {size: us}} of one changed record. All sizes in each round: what else uses the disk meets all of them."""
    drawn = {"asd": peers.InProcess("asd", "", ""), "floor": peers.InProcess("floor", "", ""), "fw_setenv": peers.Environment(),
             "dd fsync": peers.Copy(), "SQLite": peers.Sqlite("DELETE"), "SQLite WAL": peers.Sqlite("WAL")}
    took = {name: {size: [] for size in SIZES} for name in drawn}
    for number in range(rounds):
        tools.say(f"round {number + 1} of {rounds}: records of {len(SIZES)} sizes, {len(drawn)} ways to keep them")
        turn = number % len(drawn)
        for size, (name, peer) in itertools.product(SIZES, [*drawn.items()][turn:] + [*drawn.items()][:turn]):
            with tools.folder() as place:
                took[name][size].append(statistics.median(peer.times(place, size, 15)))
    return {name: {size: statistics.median(values) for size, values in each.items()} for name, each in took.items()}


def figures(value):
    return f"{value // 1000:g}k" if value % 1000 == 0 else f"{value:g}"


def time_text(microseconds):
    return f"{microseconds / 1000:g} ms" if microseconds >= 1000 else f"{microseconds:g} us" if microseconds >= 1 else \
        f"{microseconds * 1000:g} ns"


class Panel:
    """Logarithmic both ways; series are {name: {x: us}}."""

    def __init__(self, left, title, below, series):
        self.left, self.title, self.below, self.series = left, title, below, series
        self.xs = sorted({x for each in series.values() for x in each})
        values = [value for each in series.values() for value in each.values()]
        self.low, self.high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))

    def x(self, value):
        share = math.log(value / self.xs[0]) / math.log(self.xs[-1] / self.xs[0])
        return self.left + share * PANEL

    def y(self, value):
        return BOTTOM - (math.log10(value) - self.low) / (self.high - self.low) * (BOTTOM - TOP)

    def labels(self):
        """Where the names go: beside the lines' ends, but not one on the other."""
        ends = sorted((self.y(each[max(each)]), number, name) for number, (name, each) in enumerate(self.series.items()))
        last = -math.inf
        for place, number, name in ends:
            last = max(place, last + 15)
            yield last, number, name

    def draw(self):
        yield f'<text class="title" x="{self.left}" y="30">{self.title}</text>'
        for power in range(self.low, self.high + 1):
            y = self.y(10 ** power)
            yield f'<path class="grid" d="M{self.left} {y:.1f}h{PANEL}"/>'
            yield f'<text x="{self.left - 6}" y="{y + 4:.1f}" text-anchor="end">{time_text(10 ** power)}</text>'
        for x in self.xs:
            yield f'<text x="{self.x(x):.1f}" y="{BOTTOM + 18}" text-anchor="middle">{figures(x)}</text>'
        yield f'<text x="{self.left + PANEL / 2}" y="{BOTTOM + 38}" text-anchor="middle">{self.below}</text>'
        for number, each in enumerate(self.series.values()):
            points = " ".join(f"{self.x(x):.1f},{self.y(value):.1f}" for x, value in sorted(each.items()))
            yield f'<polyline class="line s{number}" points="{points}"/>'
        for y, number, name in self.labels():
            yield f'<text class="f{number}" x="{self.left + PANEL + 6}" y="{y + 4:.1f}">{name}</text>'


def draw(records, items):
    """records as sizes() has them; items: {what: {items: ns an item}}."""
    names = {"start": "start", "walk": "record read", "find": "found by name", "look": "its state", "tell": "what is said"}
    of_items = {names[what]: {count: each / 1e3 for count, each in costs.items()} for what, costs in items.items()}
    panels = [Panel(MARGIN, "A changed record, against its size", "bytes", records),
              Panel(MARGIN + PANEL + 150, "One item, against their number", "items", of_items)]
    lines = [line for panel in panels for line in panel.draw()]
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img" '
            f'aria-label="Cost of a record against its size, and of an item against their number">\n<style>{STYLE}</style>\n'
            '<rect class="back" width="100%" height="100%" rx="10"/>\n' + "\n".join(lines) + "\n</svg>\n")
