#!/usr/bin/env python3
"""Draws the layout of the in-memory log's segment. Every offset is read from the header that fixes it."""
import re
from pathlib import Path
from xml.sax.saxutils import escape

HEADER = Path(__file__).resolve().parents[2] / "Util/src/Utl_LogRingLayout_internal.h"
LAYOUT = HEADER.read_text()

MEANING = {
    "word": "1 once initialised; nobody reads it",
    "magic": "zeroed while anything changes, see below",
    "readPosition": "offset of the oldest stored byte",
    "writePosition": "offset of the next byte; may be the segment's size",
    "wrapped": "1 once the ring has wrapped since the last flush",
    "reserved1": "",
    "bytesStored": "length of all lines since the last flush, at most 2147483647",
    "reserved2": "",
}
WIDTH = 900
BLUE, GREEN, GREY, YELLOW, RED = "#e3eefb", "#e6f3e4", "#e9e9e9", "#fdf3d3", "#fbe3e0"


def number(name):
    return int(re.search(rf"{name} = (\d+);", LAYOUT)[1])


def fields():
    """(name, offset, size) of each field; the static_asserts hold the offsets to what the compiler makes."""
    starts = [(name, int(offset)) for name, offset in
              re.findall(r"offsetof\(Header, (\w+)\) == (\d+)", LAYOUT)]
    assert [name for name, _ in starts] == list(MEANING), "the fields of the ring's header have changed"
    ends = [offset for _, offset in starts[1:]] + [number("kRingStart")]
    return [(name, start, end - start) for (name, start), end in zip(starts, ends)]


def box(x, y, width, height, fill):
    return (f'<rect x="{x}" y="{y}" width="{width}" height="{height}" rx="3" fill="{fill}" '
            'stroke="#44608a"/>')


def text(x, y, words, style=""):
    return f'<text x="{x}" y="{y}" {style}>{escape(words)}</text>'


MIDDLE = 'text-anchor="middle"'
END = 'text-anchor="end"'
BOLD = 'font-weight="bold"'


def header_table(top):
    yield text(20, top, f"Header, {number('kRingStart')} bytes; integers as the processor stores them", BOLD)
    yield text(75, top + 28, "offset", END) + text(135, top + 28, "bytes", END)
    for row, (name, offset, size) in enumerate(fields()):
        y = top + 38 + row * 28
        yield box(155, y, 190, 24, GREY if name.startswith("reserved") else BLUE)
        yield text(75, y + 17, str(offset), END) + text(135, y + 17, str(size), END)
        yield text(250, y + 17, name, MIDDLE) + text(365, y + 17, MEANING[name])


def bar(top, title, parts, marks):
    """A segment as one bar: parts are (width, fill, words), marks (x, words) point at it from below."""
    yield text(20, top, title, BOLD)
    x = 20
    for width, fill, words in parts:
        yield box(x, top + 14, width, 40, fill)
        yield text(x + width / 2, top + 39, words, MIDDLE)
        x += width
    for x, words, anchor in marks:
        yield f'<path d="M{x} {top + 56}l-5 10h10z" fill="#445566"/>'
        yield text(x, top + 82, words, anchor)


def segments(top):
    start, size = number("kRingStart"), number("kSegmentSize")
    yield from bar(top, "Before the ring is full", [(90, BLUE, "header"), (450, GREEN, "lines, oldest first"),
                                                    (320, "white", "free")],
                   [(110, f"readPosition = {start}", ""), (560, "writePosition = readPosition + bytesStored", MIDDLE),
                    (880, f"{size}", END)])
    yield from bar(top + 115, f"Wrapped: more than {size - start} bytes stored since the last flush",
                   [(90, BLUE, "header"), (330, GREEN, "newer lines"), (440, YELLOW, "older lines")],
                   [(440, "writePosition = readPosition: the oldest byte, often inside a line", MIDDLE),
                    (880, f"{size}", END)])
    yield text(20, top + 222, "A line that reaches the end goes on behind the header. "
               "A line longer than the ring is dropped.")


def change(top):
    yield text(20, top, "Storing a line, and why a reader can trust what it finds", BOLD)
    steps = [(RED, "1  magic = 0"), (GREEN, "2  copy the bytes"), (BLUE, "3  set the fields"), (RED, "4  magic back")]
    for place, (fill, words) in enumerate(steps):
        x = 20 + place * 220
        yield box(x, top + 14, 200, 34, fill) + text(x + 100, top + 36, words, MIDDLE)
        if place:
            yield f'<path d="M{x - 20} {top + 31}h12" stroke="#445566"/>'
            yield f'<path d="M{x - 9} {top + 26}l9 5l-9 5z" fill="#445566"/>'
    yield text(20, top + 72, "Killed between 1 and 4, a process leaves no magic: the next run begins an empty ring. "
               "A reader of a live segment")
    yield text(20, top + 92, "reads magic, fields and bytes, then magic and fields once more, and starts again "
               "if they differ.")


def magic(top):
    words = re.search(r"kMagic = \{([^}]*)\}", LAYOUT)[1]
    data = b"".join(int(word.strip().rstrip("U"), 16).to_bytes(4, "little") for word in words.split(","))
    yield text(20, top, "Magic as bytes: " + data.hex(" "))


parts = [*header_table(34), *segments(340), *change(610), *magic(732)]
print(f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="752" viewBox="0 0 {WIDTH} 752" '
      'font-family="Helvetica,Arial,sans-serif" font-size="14" fill="#111111">')
print("<title>Layout of the in-memory log's segment</title>")
print(box(0, 0, WIDTH, 752, "white").replace(' stroke="#44608a"', ""))
print(*parts, sep="\n")
print("</svg>")
