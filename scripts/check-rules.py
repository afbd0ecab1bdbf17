#!/usr/bin/env python3
"""House rules that no compiler knows: each broken one is told with the lines that break it."""
import re
import sys
import textwrap
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def sources(*folders):
    return sorted(p for folder in folders for p in (ROOT / folder).rglob("*") if p.suffix in (".cpp", ".h"))


MESSAGE = sources("PluginSDK/src")
UTIL = sources("Util/src")
LIBRARY = MESSAGE + UTIL
HEADERS = [p for p in LIBRARY if p.suffix == ".h"]
AROUND = sources("tests", "examples", "tools", "benchmarks", "fuzz")


def name(path):
    return str(path.relative_to(ROOT))


def code_lines(path):
    """(number, line) without what follows //; block comments are not used in the sources."""
    for number, line in enumerate(path.read_text().splitlines(), 1):
        yield number, re.sub(r"(^|\s)//.*", "", line)


# Pattern of code, where it must not stand, why.
FORBIDDEN = [
    (r"__FILE__|__BASE_FILE__|source_location", LIBRARY,
     "positions in the log are literal source names, independent of where the library was compiled"),
    (r"\bcJSON_(GetArrayItem|DetachItemFromArray|ReplaceItemInArray|DeleteItemFromArray)\b", MESSAGE,
     "arrays are walked by their links (Children): fetching by index makes every walk quadratic"),
    (r"(?<!\w)free *\(", MESSAGE,
     "texts of cJSON are given back with cJSON_free, since the host may have installed hooks of its own"),
    (r"\b(getenv|setenv|setlocale|srand|srandom|signal|sigaction)\b *\(", LIBRARY,
     "the library reads no environment and changes nothing that belongs to the whole process"),
    (r"\bpthread_create\b|std::(thread|jthread|async)\b", [p for p in LIBRARY if p.stem != "Utl_thread"],
     "the library starts no threads of its own; Utl_thread starts those that the application asks for"),
    (r"std::(cout|cerr|clog)\b|<iostream>", LIBRARY,
     "the library prints through the log, and standard streams would bring static constructors"),
    (r"#include +[<\"][^>\"]*\.cpp[>\"]", LIBRARY + AROUND,
     "sources are linked, not included"),
    (r"class PLUGINSDK_API (?!C[A-Z])", HEADERS,
     "exported classes are named C..."),
]


def forbidden():
    for pattern, files, why in FORBIDDEN:
        lines = [f"{name(p)}:{n}: {line.strip()}"
                 for p in files for n, line in code_lines(p) if re.search(pattern, line)]
        yield why, lines


def positions():
    """Literals like "Util/src/Utl_Log" anywhere in the library."""
    for path in LIBRARY:
        for number, line in code_lines(path):
            for source in re.findall(r'"((?:PluginSDK|Util)/src/[^"]*)"', line):
                if not (ROOT / f"{source}.cpp").is_file():
                    yield f'{name(path)}:{number}: "{source}"'


def includes_upward():
    upper = {p.name for p in MESSAGE}
    for path in UTIL:
        for number, line in code_lines(path):
            found = re.match(r'#include +[<"](?:.*/)?([^">/]+)[">]', line)
            if found and found[1] in upper:
                yield f"{name(path)}:{number}: {line}"


def headers():
    listed = re.findall(r"src/(\w+\.h)", (ROOT / "PluginSDK/CMakeLists.txt").read_text() +
                        (ROOT / "Util/CMakeLists.txt").read_text())
    phrases = ("safe for concurrent use", "concurrent const use only", "one thread at a time")
    for path in HEADERS:
        text = path.read_text()
        internal = path.stem.endswith("_internal")
        if "#pragma once" not in text:
            yield f"{name(path)}: has no #pragma once"
        if internal and "Internal, not installed" not in text:
            yield f"{name(path)}: does not say that it is internal"
        if listed.count(path.name) != (0 if internal else 1):
            yield f"{name(path)}: is neither named _internal.h nor listed once among the public headers"
        if "class PLUGINSDK_API" in text and not any(p in text.lower() for p in phrases):
            yield f"{name(path)}: says the thread-safety of its classes in none of the three phrases"


def unlisted_sources():
    """Whole words, with or without the ending: a list may be made of bare names by a loop."""
    folders = ("PluginSDK", "Util", "tests", "examples", "tools", "benchmarks", "fuzz")
    listed = {word for folder in folders for path in (ROOT / folder).rglob("CMakeLists.txt")
              for word in re.findall(r"\w+", path.read_text())}
    for path in LIBRARY + sources("tests", "examples", "tools", "benchmarks"):
        if path.suffix == ".cpp" and path.stem not in listed:
            yield name(path)


def dead_links():
    for document in [*sorted(ROOT.glob("*.md")), *sorted((ROOT / "docs").glob("*.md"))]:
        for link in re.findall(r"\]\(([^)#:\s]+)[)#]", document.read_text()):
            if not (document.parent / link).exists():
                yield f"{name(document)}: {link}"


def unknown_tests():
    """Tests that the table of what is withstood names."""
    known = {".".join(test) for p in sources("tests")
             for test in re.findall(r"^TEST(?:_F)?\((\w+), (\w+)\)", p.read_text(), re.M)}
    for test in re.findall(r"`([A-Z]\w+\.[A-Z]\w+)`", (ROOT / "docs/reliability.md").read_text()):
        if test not in known:
            yield f"docs/reliability.md: {test}"


def strange_quotes():
    """Blocks of C++ in the guides that no example holds, apart from the indentation of the whole block."""
    def flush_left(lines):
        return textwrap.dedent("\n".join(lines))

    sources_of_examples = [p.read_text().splitlines() for p in sources("examples")]
    for document in sorted((ROOT / "docs").glob("*.md")):
        for block in re.finditer(r"^```cpp\n(.*?)^```$", document.read_text(), re.M | re.S):
            quote = block[1].splitlines()
            if not any(flush_left(lines[at:at + len(quote)]) == flush_left(quote)
                       for lines in sources_of_examples for at in range(len(lines))):
                number = document.read_text().count("\n", 0, block.start()) + 1
                yield f"{name(document)}:{number}: {quote[0].strip() if quote else 'an empty block'} ..."


RULES = [
    *forbidden(),
    ("a position in the log names an existing source, without its ending", positions()),
    ("nothing in Util/src includes anything of PluginSDK/src", includes_upward()),
    ("headers are guarded, public or internal, and say their thread-safety", headers()),
    ("a source that no CMakeLists.txt names is neither built nor run", unlisted_sources()),
    ("links inside the documents lead somewhere", dead_links()),
    ("a claim of reliability names a test that exists", unknown_tests()),
    ("C++ in a guide is quoted from a program in examples/, which a test runs", strange_quotes()),
]

broken = 0
for why, found in RULES:
    lines = list(found)
    if lines:
        broken += 1
        print(f"broken rule: {why}", *lines, sep="\n  ", file=sys.stderr)
if broken:
    sys.exit(f"check-rules.py: {broken} of {len(RULES)} rules broken")
print(f"all {len(RULES)} house rules hold")
