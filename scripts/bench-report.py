#!/usr/bin/env python3
"""Turns the results of the benchmark programs, one JSON object a line, into what people read.

bench-report.py table RESULTS               prints the table
bench-report.py document RESULTS DOCUMENT   renews the table in DOCUMENT, between its two marks, and beside it
                                            performance/results.jsonl and a plot per family as SVG
bench-report.py plot RESULTS DIRECTORY      only the plots
"""

import json
import math
import pathlib
import sys
from html import escape

MARKS = ("<!-- table: begin -->", "<!-- table: end -->")


def read_results(path):
    return [json.loads(line) for line in pathlib.Path(path).read_text().splitlines() if line]


def duration(ns):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}" if ns < 1000 * size else f"{ns / size:.0f} {unit}"
    return f"{ns:.3g} ns"


def cells(result):
    ratio = f"{result['ratio']:.3g} ({result['ratio_low']:.3g} to {result['ratio_high']:.3g})"
    verdict = {True: "yes", False: "NO", None: ""}[result["met"]]
    return (result["operation"], duration(result["ours_ns"]), result["peer"], duration(result["peer_ns"]), ratio,
            result["aim"] or "", verdict)


HEADINGS = ("operation", "ours", "peer or floor", "its time", "ratio (quartiles)", "aim", "met")


def print_table(results):
    rows = [HEADINGS] + [cells(result) for result in results]
    widths = [max(len(row[i]) for row in rows) for i in range(len(HEADINGS))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def markdown_table(results):
    lines = [HEADINGS, ["---"] * len(HEADINGS)] + [cells(result) for result in results]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


# ---- Plots: two bars for each pair on a logarithmic axis, and a tick where the aim lies.

LEFT, RIGHT, TOP, PAIR, BAR = 290, 90, 56, 46, 14
WIDTH, PLOT = 900, 900 - LEFT - RIGHT
DIGIT = 6.5  # at least as wide as a digit of the times in any sans-serif font at their size
COLOURS = {"ours": "#2a6fbb", "peer": "#b9bec6", "aim": "#c0392b"}


def axis(results):
    times = [result[key] for result in results for key in ("ours_ns", "peer_ns", "limit_ns") if result[key]]
    low = math.floor(math.log10(min(times) / 1.5))
    high = math.ceil(math.log10(max(times)))
    return low, max(high, low + 1)


def svg_text(x, y, text, anchor="start", size=12, colour="#222"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" fill="{colour}">'
            f"{escape(text)}</text>")


def svg_rect(x, y, width, height, colour):
    return f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" fill="{colour}"/>'


def svg_grid(low, high, bottom):
    parts = []
    for exponent in range(low, high + 1):
        x = LEFT + PLOT * (exponent - low) / (high - low)
        parts.append(f'<path d="M{x:.1f} {TOP - 6}V{bottom}" stroke="#e3e5e8"/>')
        parts.append(svg_text(x, bottom + 16, duration(10.0**exponent), "middle", 11, "#666"))
    return parts


def svg_pair(result, y, position):
    parts = [svg_text(LEFT - 8, y + 11, result["operation"], "end"),
             svg_text(LEFT - 8, y + 11 + BAR, result["peer"], "end", 11, "#666")]
    aim = position(result["limit_ns"]) if result["limit_ns"] else None
    for name, top in (("ours", y), ("peer", y + BAR)):
        end = position(result[name + "_ns"])
        time = duration(result[name + "_ns"])
        # The tick of the aim stands in the upper row; digits that it would cover go behind it.
        covered = name == "ours" and aim is not None and end < aim < end + 7 + DIGIT * len(time)
        parts.append(svg_rect(LEFT, top, end - LEFT, BAR - 2, COLOURS[name]))
        parts.append(svg_text((aim if covered else end) + 5, top + 10, time, size=10))
    if aim is not None:
        parts.append(f'<path d="M{aim:.1f} {y - 3}v{BAR + 1}" stroke="{COLOURS["aim"]}" stroke-width="2"/>')
    return parts


def plot(family, results):
    low, high = axis(results)
    bottom = TOP + PAIR * len(results)

    def position(ns):
        return LEFT + PLOT * (math.log10(ns) - low) / (high - low)

    parts = [svg_rect(0, 0, WIDTH, bottom + 28, "#fff"), svg_text(16, 24, family, size=16)]
    x = LEFT
    for name, label in (("ours", "this library"), ("peer", "peer or floor"), ("aim", "aim: ours ends here at most")):
        parts += [svg_rect(x, 15, 11, 11, COLOURS[name]), svg_text(x + 16, 25, label)]
        x += 130
    parts += svg_grid(low, high, bottom)
    for index, result in enumerate(results):
        parts += svg_pair(result, TOP + PAIR * index + 4, position)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {bottom + 28}" '
            f'font-family="sans-serif">\n' + "\n".join(parts) + "\n</svg>\n")


def write_plots(results, directory):
    directory.mkdir(parents=True, exist_ok=True)
    for family in dict.fromkeys(result["family"] for result in results):
        text = plot(family, [result for result in results if result["family"] == family])
        (directory / f"{family}.svg").write_text(text)


def write_document(source, document):
    results = read_results(source)
    text = document.read_text()
    begin, end = (text.index(mark) for mark in MARKS)
    document.write_text(f"{text[:begin]}{MARKS[0]}\n{markdown_table(results)}\n{text[end:]}")
    write_plots(results, document.parent / "performance")
    (document.parent / "performance" / "results.jsonl").write_text(pathlib.Path(source).read_text())


def main(arguments):
    match arguments:
        case ["table", source]:
            print_table(read_results(source))
        case ["document", source, document]:
            write_document(source, pathlib.Path(document))
        case ["plot", source, directory]:
            write_plots(read_results(source), pathlib.Path(directory))
        case _:
            sys.exit(__doc__)


main(sys.argv[1:])
