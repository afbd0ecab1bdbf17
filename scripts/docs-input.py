#!/usr/bin/env python3
"""Prepares the guides for Doxygen, as its filter of Markdown files.

    docs-input.py GUIDE.md     the guide, with links that lead somewhere inside the reference
    docs-input.py --guides     all guides, in the order in which docs/index.md names them
    docs-input.py --examples   a page for each file of the examples, and one that names them by subject
    docs-input.py --spans      the page and the text of each code span of the guides, a JSON list a line

The guides are written for any Markdown viewer. There a heading's anchor is made of its words, and a link may
lead to any file of the checkout. Doxygen knows neither: anchors are unique over all pages, and of the checkout
it has the guides, the public headers and the examples. Links to anything else leave their text.
"""
import html
import json
import os
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LINK = r"(?<!!)\[([^]]*)\]\(([^)\s]+)\)"
FOLDER_PAGES = {"examples": "example-programs.html", "examples/host_monitor": "@ref examples-host_monitor",
                "examples/mqtt": "@ref examples-mqtt", "PluginSDK/src": "files.html", "Util/src": "files.html"}
# What the folders of the examples are about, in the order in which a reader needs them.
EXAMPLE_SUBJECTS = {"": "One subject each", "host_monitor": "A whole plugin and its agent",
                    "mqtt": "A plugin and its agent over MQTT"}


def label(guide):
    return guide.relative_to(ROOT).with_suffix("").as_posix().removeprefix("docs/").replace("/", "-")


def anchor(guide, heading):
    words = re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")
    return f"{label(guide)}-{words}"


def guides():
    """The index, what it links to, and guides that it does not name."""
    index = ROOT / "docs/index.md"
    linked = [(index.parent / link.partition("#")[0]).resolve() for _, link in re.findall(LINK, index.read_text())]
    every = [index, *linked, *sorted(index.parent.glob("*.md"))]
    return list(dict.fromkeys(path for path in every if path.suffix == ".md" and path.is_file()))


def examples():
    return sorted(p for p in (ROOT / "examples").rglob("*") if p.suffix in (".cpp", ".h"))


def example_page(path):
    example = path.relative_to(ROOT / "examples").as_posix()
    return example.replace("/", "_2").replace(".", "_8") + "-example.html"


def is_public(header):
    return header.suffix == ".h" and header.parent.name == "src" and not header.stem.endswith("_internal")


FUNCTIONS = {name for header in (ROOT / "Util/src").glob("*.h") if is_public(header)
             for name in re.findall(r"^PLUGINSDK_API .*?(\w+)\(", header.read_text(), re.M)}


def target(guide, link):
    """What Doxygen calls the target of a link, or None when the reference does not hold it."""
    path, _, section = link.partition("#")
    other = (guide.parent / path).resolve() if path else guide
    if not other.exists():
        return link  # and the check of the pages finds that it leads nowhere
    if not other.is_relative_to(ROOT):
        return None
    name = other.relative_to(ROOT).as_posix()
    if other in guides():
        if section:
            return f"@ref {anchor(other, section)}"
        return "index.html" if label(other) == "index" else f"@ref guide-{label(other)}"
    if is_public(other):
        return f"@ref {other.name}"
    if other in examples():
        return example_page(other)
    return FOLDER_PAGES.get(name)


def reference(text, where):
    """Inside the text of such a link Doxygen shows backticks as they are, and a new line ends it."""
    line = " ".join(text.split())
    code = re.fullmatch(r"`([^\"`]*)`", line)
    return f'<code>{where} "{code[1]}"</code>' if code else f"[{line}]({where})"


def literal(found):
    """Quotes and backslashes between backticks Doxygen changes; entities and doubled backslashes it does not. Nor does it
    know a bar inside code inside a table, where the backslash before the bar is the table's."""
    code = found[1]
    if not re.search(r"[\"\\]", code):
        return found[0]
    escaped = html.escape(code, quote=False).replace('"', "&quot;")
    return "<code>" + re.sub(r"\\(?!\|)", r"\\\\", escaped) + "</code>"


def rewritten(guide, words):
    """A paragraph, a list or a table; links and code spans may go over the end of a line."""
    def link(found):
        text, where = found[1], found[2]
        if re.match(r"[a-z]+:", where):
            return found[0]
        where = target(guide, where)
        if where is None:
            return text
        return reference(text, where) if where.startswith("@ref ") else f"[{text}]({where})"

    lines = words.count("\n")
    # Between code spans a word behind a backslash or an at sign is no command.
    spans = re.split(r"(`[^`]*`)", words)
    spans[::2] = (re.sub(r"(?<!\\)[\\@](?=[A-Za-z])", r"\\\g<0>", span) for span in spans[::2])
    words = "".join(spans)
    # Doxygen links classes by itself, but functions of none only where parentheses follow.
    words = re.sub(r"(?<!\[)`(\w+)(?:\([^\"`]*)?`",
                   lambda found: reference(found[0], f"@ref {found[1]}") if found[1] in FUNCTIONS else found[0], words)
    # Bold code is Markdown that Doxygen does not know.
    words = re.sub(r"\*\*(\S(?:.*?\S)?)\*\*", lambda found: f"<b>{found[1]}</b>" if "`" in found[1] else found[0],
                   words, flags=re.S)
    words = re.sub(r"`([^`]*)`", literal, words)
    # All images are copied into one folder, beside the pages.
    words = re.sub(r"(!\[[^]]*\])\((?:[\w.-]+/)+([\w.-]+)\)", r"\1(\2)", words)
    words = re.sub(LINK, link, words)
    # Doxygen's warnings name lines of the guide.
    return words + "\n" * (lines - words.count("\n"))


def headed(guide, line, taken):
    """A heading with its anchor; the second one of the same words gets a 1 behind it, the third a 2."""
    if line.startswith("# "):
        return line if label(guide) == "index" else f"{line} {{#guide-{label(guide)}}}"
    words = anchor(guide, line.lstrip("# "))
    name = next(n for n in (words, *(f"{words}-{i}" for i in range(1, 1000))) if n not in taken)
    taken.add(name)
    return f"{line} {{#{name}}}"


def parts(guide):
    """Words and blocks of code in turn."""
    return re.split(r"(^```.*?^```$|(?<=\n\n)(?:    [^\n]*\n)+)", guide.read_text(), flags=re.M | re.S)


def code_spans():
    for guide in guides():
        page = "index.html" if label(guide) == "index" else f"guide-{label(guide)}.html"
        for block in (block for words in parts(guide)[::2] for block in words.split("\n\n")):
            for span in re.findall(r"`([^`]*)`", block):
                # Only in a table does a bar need the backslash.
                yield page, " ".join((span.replace(r"\|", "|") if block.lstrip().startswith("|") else span).split())


def filtered(guide):
    taken = set()
    for number, part in enumerate(parts(guide)):
        if number % 2 == 1:
            yield part
            continue
        for block in re.split(r"(^#+ .*$|\n\n)", part, flags=re.M):
            yield headed(guide, block, taken) if re.match("#+ ", block) else rewritten(guide, block)


def description(path):
    """The comment at the top of an example."""
    comment = []
    for line in path.read_text().splitlines():
        if not line.startswith("//"):
            break
        words = re.sub(r"^//+ ?(@file)?", "", line)
        # An indented block, such as a command line, stays one.
        block = words.startswith("  ") and comment and re.match(r" {6}|$", comment[-1])
        comment.append("    " + words if block else words)
    return "\n".join(comment).strip()


def entry(files):
    """Links to a file, or to a header and its source, and the first sentence of what describes them."""
    links = ", ".join(f"[{path.name}]({example_page(path)})" for path in files)
    sentence = re.match(r".*?\.(?= |$)|", " ".join(description(files[0]).split()))[0]
    return f"- {links}" + (f": {sentence}" if sentence else "")


def example_list(section, title, folder):
    """Programs first, then what they share."""
    files = [path for path in examples() if path.parent == folder]
    programs = [path for path in files if "\nint main(" in path.read_text()]
    yield f"\n@section {section} {title}\n"
    yield from (entry([path]) for path in programs)
    yield f"\n@subsection {section}-shared What they share\n"
    helpers = [path for path in files if path not in programs]
    for stem in dict.fromkeys(path.stem for path in helpers):
        yield entry(sorted((path for path in helpers if path.stem == stem), key=lambda path: path.suffix != ".h"))


def example_pages():
    for path in examples():
        yield f"/**\n@example{{lineno}} {path.relative_to(ROOT / 'examples').as_posix()}"
        yield f"@details {description(path)}\n*/"
    yield "/**\n@page example-programs Examples\nPrograms to copy from; each is compiled and run by a test."
    for folder, title in EXAMPLE_SUBJECTS.items():
        yield from example_list("examples-" + (folder or "small"), title, ROOT / "examples" / folder)
    yield "*/"


if len(sys.argv) != 2:
    sys.exit(__doc__)
if sys.argv[1] == "--guides":
    print(*(path.relative_to(ROOT) for path in guides()))
elif sys.argv[1] == "--examples":
    print("\n".join(example_pages()))
elif sys.argv[1] == "--spans":
    print(*(json.dumps(span) for span in code_spans()), sep="\n")
else:
    print("".join(filtered(Path(os.path.abspath(sys.argv[1])))), end="")
