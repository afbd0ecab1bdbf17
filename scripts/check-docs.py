#!/usr/bin/env python3
"""Checks the reference that scripts/docs.sh has made in the directory given.

Doxygen warns of most names without words, but not of all: default constructors, deleted functions, and whatever
it has not seen. So each public name is looked for in its XML, among the names the library exports and those
that only the headers know. In the HTML every link leads somewhere, nothing is fetched from elsewhere, and code
spans of the guides read as they were written.
"""
import json
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote

ROOT = Path(__file__).resolve().parent.parent
HEADERS = sorted(p for folder in ("PluginSDK/src", "Util/src") for p in (ROOT / folder).glob("*.h")
                 if not p.stem.endswith("_internal"))

# What a header defines, symbol of the library or not; what stands between @cond and @endcond is nobody's
# business outside.
DEFINITIONS = [r"^#define (\w+)", r"^constexpr [\w: ]+ (\w+) =", r"^using (\w+) =",
               r"^(?:struct|class|enum) (?:PLUGINSDK_API )?(\w+)[^;]*$", r"^namespace (\w+) \{"]


def has_words(node):
    return any("".join(node.find(part).itertext()).strip()
               for part in ("briefdescription", "detaileddescription") if node.find(part) is not None)


class Reference:
    """Names that the XML holds, and those of them that nobody describes."""

    def __init__(self, folder):
        self.wordless = []
        self.names = set()
        self.functions = Counter()
        for path in sorted(folder.glob("*.xml")):
            for compound in ElementTree.parse(path).getroot().iter("compounddef"):
                if compound.get("kind") in ("file", "class", "struct", "union", "namespace"):
                    self.add(compound)

    def add(self, compound):
        source = Path(compound.find("location").get("file")).name
        if source not in {p.name for p in HEADERS}:
            return
        self.note(compound, compound.findtext("compoundname"), source)
        for member in compound.iter("memberdef"):
            if member.get("prot") == "private":
                continue
            name = member.findtext("qualifiedname") or member.findtext("name")
            self.note(member, name, source)
            if member.get("kind") == "function":
                self.functions[name, len(member.findall("param")), member.get("const") == "yes"] += 1
            for value in member.findall("enumvalue"):
                self.note(value, value.findtext("name"), source)

    def note(self, node, name, source):
        self.names.add(name)
        if not has_words(node):
            self.wordless.append(f"{source}: {name}{node.findtext('argsstring') or ''}")


def top_level_commas(arguments):
    depth, commas = 0, 0
    for character in arguments:
        depth += (character in "(<") - (character in ")>")
        commas += character == "," and depth == 0
    return commas


def exported():
    """(name, number of parameters, const) of each exported function; (name, None, None) of the rest."""
    mangled = (ROOT / "scripts/exports.txt").read_text()
    lines = subprocess.run(["c++filt"], input=mangled, capture_output=True, text=True, check=True).stdout
    # A constructor has two symbols of one meaning.
    for line in sorted(set(lines.replace("[abi:cxx11]", "").splitlines())):
        function = re.fullmatch(r"([\w:~]+)\((.*)\)( const)?", line)
        if function:
            count = 0 if not function[2] else top_level_commas(function[2]) + 1
            yield function[1], count, function[3] is not None
        elif line.startswith("typeinfo for "):
            yield line.removeprefix("typeinfo for "), None, None
        elif re.fullmatch(r"[\w:]+", line):
            yield line, None, None


def defined():
    for header in HEADERS:
        text = re.sub(r"@cond.*?@endcond", "", header.read_text(), flags=re.S)
        for pattern in DEFINITIONS:
            for name in re.findall(pattern, text, re.M):
                yield header.name, name


def unseen(reference):
    symbols = Counter(exported())
    if not symbols:
        yield "scripts/exports.txt: no symbol"
    for (name, count, const), times in symbols.items():
        if count is None and name not in reference.names:
            yield f"scripts/exports.txt: {name}"
        elif count is not None and reference.functions[name, count, const] < times:
            yield f"scripts/exports.txt: {name} with {count} parameters, {times} times"
    for header, name in defined():
        if name not in reference.names:
            yield f"{header}: {name}"


class Page(HTMLParser):
    VERBATIM = ("pre", "code", "script", "style")
    MARKUP = re.compile(r"`|\*\*|\]\(|@(?:ref|section|subsection|code|endcode|verbatim)\b|</?(?:tt|code|strong)>")

    def __init__(self, path):
        super().__init__()
        self.anchors, self.links, self.fetched, self.markup = set(), [], [], []
        self.verbatim, self.divisions = 0, []
        self.codes, self.in_code = [], False
        self.feed(path.read_text())

    def handle_data(self, data):
        if self.in_code:
            self.codes[-1] += data
        if not self.verbatim and "fragment" not in self.divisions and self.MARKUP.search(data):
            self.markup.append(data.strip())

    def handle_endtag(self, tag):
        if tag == "div":
            self.divisions.pop()
        self.in_code = self.in_code and tag != "code"
        self.verbatim -= tag in self.VERBATIM

    def handle_starttag(self, tag, attributes):
        self.verbatim += tag in self.VERBATIM
        if tag == "code":
            self.codes.append("")
            self.in_code = True
        if tag == "div":
            self.divisions.append(dict(attributes).get("class"))
        for key, value in attributes:
            if key == "id" or (key == "name" and tag == "a"):
                self.anchors.add(value)
            elif key == "href" and tag == "a":
                self.links.append(value)
            elif key in ("src", "data", "href"):
                self.fetched.append(value)


def bare_markup(pages):
    """Of a broken construct Doxygen shows the source, often without a warning."""
    for path, page in pages.items():
        if path.stem.startswith(("index", "guide-")):
            yield from (f"{path.name}: {words[:100]}" for words in page.markup)


def damaged_spans(html, pages):
    """Quotes and backslashes of a code span are what Doxygen gets wrong most easily."""
    listed = subprocess.run([ROOT / "scripts/docs-input.py", "--spans"], capture_output=True, text=True, check=True)
    spans = [tuple(json.loads(line)) for line in listed.stdout.splitlines()]
    if not spans:
        yield "no guide has a code span"
    shown = Counter((path.name, " ".join(code.split())) for path, page in pages.items() for code in page.codes)
    yield from (f"{page}: {span}" for page, span in (Counter(spans) - shown))


def dead_links(html, pages):
    if html / "index.html" not in pages:
        yield f"{html}: no index.html"
    for path, page in pages.items():
        for link in page.fetched:
            if re.match(r"(?!javascript)[a-z]+:|//", link):
                yield f"{path.name}: fetches {link}"
        for link in page.links + page.fetched:
            if not link or re.match(r"[a-z]+:|//", link):
                continue
            file, _, anchor = unquote(link).partition("#")
            target = (path.parent / file).resolve() if file else path
            if not target.is_relative_to(html) or not target.is_file():
                yield f"{path.name}: {link}"
            elif anchor and target in pages and anchor not in pages[target].anchors:
                yield f"{path.name}: {link} (no such place on that page)"


def machine_paths(html):
    """The reference is the same wherever it is made."""
    for path in sorted(html.rglob("*")):
        if path.suffix in (".html", ".js", ".svg") and str(ROOT) in path.read_text(errors="replace"):
            yield path.name


if len(sys.argv) != 2:
    sys.exit(__doc__)
folder = Path(sys.argv[1]).resolve()
reference = Reference(folder / "xml")
pages = {path: Page(path) for path in sorted((folder / "html").rglob("*.html"))}
broken = False
for fault, lines in [
    ("public names without words", reference.wordless),
    ("public names that the reference has not seen", list(unseen(reference))),
    ("links that lead nowhere, or out of the reference", list(dead_links(folder / "html", pages))),
    ("markup that is shown as text", list(bare_markup(pages))),
    ("code spans that are not shown as they were written", list(damaged_spans(folder / "html", pages))),
    ("pages that hold the path of this checkout", list(machine_paths(folder / "html"))),
]:
    if lines:
        broken = True
        print(f"{fault}:", *lines, sep="\n  ", file=sys.stderr)
if broken:
    sys.exit("check-docs.py: the reference is not complete")
print(f"{len(reference.names)} public names in {len(HEADERS)} headers have their words, all links lead somewhere")
