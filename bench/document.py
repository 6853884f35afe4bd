# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The tables of docs/performance.md, from what several runs of scripts/bench --json kept."""

import json
import pathlib
import re
import statistics

DOCUMENT = pathlib.Path(__file__).resolve().parent.parent / "docs/performance.md"


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def middle(runs, name, of):
    return statistics.median(run["rows"][name][of] for run in runs if name in run["rows"])


def rows(runs):
    yield "| row | what | asd | beside it | its figure | ratio (least to most) | aim | |"
    yield "|---|---|---|---|---|---|---|---|"
    for name, row in runs[0]["rows"].items():
        each = [run["rows"][name] for run in runs if name in run["rows"]]
        unit = row["unit"].replace("us", "µs")
        ratios = [one["ratio"] for one in each if one["ratio"] is not None]
        ratio = f"{statistics.median(ratios):.2f} ({min(ratios):.2f} to {max(ratios):.2f})"
        met = sum(bool(one["met"]) for one in each)
        verdict = "" if row["met"] is None else "met" if 2 * met > len(each) else "missed"
        aim = "-" if row["aim"] is None else f"{row['aim']:g}"
        yield (f"| `{name}` | {row['what']} | {number(middle(runs, name, 'asd'))} {unit} | {row['beside']} | "
               f"{number(middle(runs, name, 'floor'))} {unit} | {ratio} | {aim} | {verdict} |")


def peers(runs):
    yield "| one changed record | bytes | time | system calls | syncs | bytes to the part | bytes beside it | program | memory |"
    yield "|---|---|---|---|---|---|---|---|---|"
    kept = next(run["peers"] for run in runs if "peers" in run)
    for size in ("32", "1024"):
        for name, each in kept.items():
            if size in each:
                cells = [each[size].get(what) for what in ("calls", "syncs", "part", "beside", "KiB", "memory")]
                units = ("", "", "", "", " KiB", " KiB")
                texts = ["-" if cell is None else f"{number(cell)}{unit}" for cell, unit in zip(cells, units)]
                yield f"| {name} | {size} | {each[size]['us'] / 1000:.1f} ms | {' | '.join(texts)} |"
    yield ""
    for name, each in kept.items():
        yield f"- **{name}**: {each['guarantee']}"


def controller(runs):
    yield "| on the emulated controller | |"
    yield "|---|---|"
    for what, text in next(run["controller"] for run in runs if "controller" in run).items():
        yield f"| {what} | {text} |"


def counts(_runs):
    yield "| counted | |"
    yield "|---|---|"
    for name, value in json.loads((DOCUMENT.parent.parent / "bench/counts.json").read_text(encoding="utf-8")).items():
        yield f"| {name} | {number(value)} |"


def fill(files):
    """Puts the tables between the document's marks."""
    runs = [json.loads(pathlib.Path(file).read_text(encoding="utf-8")) for file in files]
    text = DOCUMENT.read_text(encoding="utf-8")
    for table in (rows, peers, controller, counts):
        if table is not counts and not any(table.__name__ in run for run in runs):
            continue
        lines = "\n".join(table([run for run in runs if "rows" in run] if table is rows else runs))
        text = re.sub(rf"(<!-- {table.__name__} -->\n).*?(<!-- end -->)", lambda marks, lines=lines: f"{marks[1]}{lines}\n{marks[2]}", text,
                      flags=re.S)
    DOCUMENT.write_text(text, encoding="utf-8")
