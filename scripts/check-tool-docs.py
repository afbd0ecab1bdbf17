#!/usr/bin/env python3
"""Holds the tool, its --help, its man page and its completion against each other, and runs their examples.
  scripts/check-tool-docs.py PLUGINSDK     the built tool
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "tools/man/pluginsdk.1"
COMPLETION = ROOT / "tools/completion/pluginsdk"
TOOL = Path(sys.argv[1]).resolve()
OPTION = r"--[a-z][a-z-]*"

faults = []


def expect(held, fault):
    if not held:
        faults.append(fault)


def help_of(*subcommand):
    return subprocess.run([TOOL, *subcommand, "--help"], check=True, capture_output=True, text=True).stdout


def options_in_help(text):
    """What stands first on a line of the options, or behind the short form."""
    return set(re.findall(rf"^ +(?:-\w,)?({OPTION})\b", text.partition("Options:")[2], re.M))


def page_sections():
    """Heading -> text of each section and subsection, without the escapes of dashes and quotes."""
    text = PAGE.read_text().replace(r"\-", "-").replace(r"\(aq", "'")
    parts = re.split(r"^\.S[HS] (.*)$", text, flags=re.M)
    return dict(zip(parts[1::2], parts[2::2]))


def options_in_page(section):
    return {option for tag in re.findall(r"^\.TP\n(.*)$", section, re.M) for option in re.findall(OPTION, tag)}


def completed(*words):
    """The completion of the last word, by a bash that has loaded nothing else."""
    script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _pluginsdk; printf "%s\\n" "${COMPREPLY[@]}"'
    run = subprocess.run(["bash", "--norc", "-c", script, "bash", COMPLETION, TOOL, *words],
                         capture_output=True, text=True, cwd=ROOT)
    expect(run.stderr == "", f"completion of {words}: {run.stderr}")
    return set(run.stdout.split())


def check_options(subcommands, sections):
    common = options_in_page(sections["OPTIONS OF EVERY SUBCOMMAND"])
    for name in subcommands:
        told = options_in_help(help_of(name))
        in_page = options_in_page(sections.get(name, "")) | (common - ({"--json"} if name == "ring" else set()))
        expect(told == in_page, f"{name}: --help and the man page differ in {sorted(told ^ in_page)}")
        offered = completed(name, "--")
        expect(told == offered, f"{name}: --help and the completion differ in {sorted(told ^ offered)}")
    expect(subcommands <= sections.keys(), f"not in the man page: {sorted(subcommands - sections.keys())}")


def check_completion(subcommands):
    for words, wanted in [
        (("",), subcommands), (("cla",), {"classify"}), (("--",), options_in_help(help_of())),
        (("sign", "--version", ""), {"v1", "v2"}), (("describe", "--color", "=", "al"), {"always"}),
        (("sign", "--method", "notifyA"), {"notifyAgentEvent"}),
        (("verify", "--key-file", "READ"), {"README.md"}), (("mask", "tools/ma"), {"tools/main.cpp", "tools/man"}),
        (("describe", "--width", ""), set()),
    ]:
        found = completed(*words)
        expect(found == wanted, f"completion of {words}: {sorted(found)} instead of {sorted(wanted)}")


def examples(subcommands, sections):
    for name in subcommands:
        lines = re.findall(r"^  (\S.*)$", help_of(name).partition("Example:\n")[2], re.M)
        expect(lines, f"{name}: --help has no example")
        yield from lines
    yield from re.findall(r"^\.nf\n(.*)\n\.fi$", sections["EXAMPLES"], re.M)


def check_examples(lines):
    with tempfile.TemporaryDirectory() as folder:
        os.umask(0o077)
        Path(folder, "key").write_text("secret")
        environment = dict(os.environ, PATH=f"{TOOL.parent}:{os.environ['PATH']}")
        run = lambda line: subprocess.run(["bash", "-c", "set -o pipefail; " + line], cwd=folder, text=True,
                                          env=environment, capture_output=True)
        Path(folder, "message.json").write_text(run("""echo '{"states":[]}' | pluginsdk sign --key-file key""").stdout)
        for line in lines:
            result = run(line)
            expect(result.returncode in (0, 1) and result.stderr == "" and result.stdout,
                   f"example: {line}\nends with {result.returncode}: {result.stderr}")


def check_page():
    if shutil.which("groff"):
        run = subprocess.run(["groff", "-ww", "-man", "-Tutf8", PAGE], capture_output=True, text=True)
        expect(run.stderr == "", f"groff warns: {run.stderr}")


SUBCOMMANDS = set(re.findall(r"^  (\w+) ", help_of().partition("Subcommands:")[2], re.M))
SECTIONS = page_sections()
check_options(SUBCOMMANDS, SECTIONS)
check_completion(SUBCOMMANDS)
check_examples(examples(sorted(SUBCOMMANDS), SECTIONS))
check_page()
if faults:
    sys.exit("check-tool-docs.py: " + "\n".join(faults))
print(f"help, man page and completion agree on {len(SUBCOMMANDS)} subcommands; their examples work")
