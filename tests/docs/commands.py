#!/usr/bin/env python3
"""Runs the commands that the documents show: commands.py ROOT PROGRAMS [DOCUMENT]...

ROOT is the project, PROGRAMS the folder of the built programs. A command is

- a line of a ```sh block,
- a line that begins with "$ " in any other block: what follows, up to the next such line, is compared with what it
  prints, empty lines aside; a line "..." stands for any number of lines, "..." inside a line for any text,
- a line below EXAMPLES in a manual page.

A block whose first line names a file after the language, as in "```xml notes/update.xml", is that file on the desk.

Each document's commands run in order on a desk of its own (DESKS) and must end with status 0 (or as FAILURES says). A
command in running text, like `quarvel-bundle lint`, must be one of that program's, with its options.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

# Not run: the command builds the project or runs all tests, this one included.
EXCLUDED = {"scripts/check", "scripts/demo", "scripts/bench", "scripts/package", "scripts/fuzz"}

SIGNER = "make_signer key.pem cert.pem; "
BUNDLE = 'fill_bundle bundle "$root/examples/bundle/update.xml"; '
PACK = "quarvel-bundle pack bundle -o autumn.bundle --key key.pem --cert cert.pem; "

# What lies on the desk before a document's first command.
DESKS = {
    "README.md": SIGNER + BUNDLE + "plug_in_pen 0x2a leave-time=20 return-time=20",
    "docs/simulator.md": SIGNER + BUNDLE + PACK,
    "docs/bundle-format.md": SIGNER + "pen_file autumn/Notes/writer.app APP 5000 guid writer version 2.1.0 build 7; "
                             "plug_in_pen 0x2a",
    "docs/man/quarvel.1": SIGNER + BUNDLE + PACK + "mv autumn.bundle tools.bundle; mv cert.pem maker.pem; "
                          "plug_in_pen 0x00000a1b2c3d4e5f leave-time=20 return-time=20",
    "docs/man/quarvel-bundle.1": "make_signer maker-key.pem maker.pem; plug_in_pen 0x2a; "
                                 "pen_file tools/Office/clock.app APP 5000 guid clock version 1.0",
    "docs/man/tessvik-sim.1": "",
}

# Commands that are shown because they fail, with their status.
FAILURES = {"docs/simulator.md": {"quarvel install autumn.bundle --pen 0x2a --cert cert.pem": 5}}


def blocks(text):
    """The fenced blocks of a page: language and lines."""
    return [(language, body.splitlines()) for language, body in re.findall(r"^```(\w*)[^`\n]*\n(.*?)^```$", text, re.M | re.S)]


def sessions(text):
    """Pairs of a command and what the page shows of its output, None where it shows nothing."""
    for language, lines in blocks(text):
        if language == "sh":
            yield from ((line, None) for line in lines if line)
            continue
        current = None
        for line in lines + ["$ "]:
            if line.startswith("$ "):
                if current:
                    yield current[0], [text for text in current[1] if text] or None
                current = (line[2:], [])
            elif current:
                current[1].append(line)


def files(text):
    return re.findall(r"^```\w+ (\S+)\n(.*?)^```$", text, re.M | re.S)


def manual_examples(text):
    examples = re.search(r"^\.SH EXAMPLES\n\.nf\n(.*?)^\.fi", text, re.M | re.S)
    return [(line.replace("\\-", "-"), None) for line in examples[1].splitlines()] if examples else []


def matches(printed, shown):
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(line).replace(r"\.\.\.", ".*") + "\n"
                      for line in shown)
    lines = "".join(line.rstrip() + "\n" for line in printed.splitlines() if line.strip())
    return re.fullmatch(pattern, lines)


class Desk:
    def __init__(self, root, programs, folder):
        (folder / "pens").mkdir()
        self.folder = folder
        self.environment = dict(os.environ, root=str(root), PATH=f"{programs}:{os.environ['PATH']}",
                                TESSVIK_SIM_DIR=str(folder / "pens"), XDG_STATE_HOME=str(folder / "state"))

    def run(self, command):
        return subprocess.run(["bash", "-c", command], cwd=self.folder, env=self.environment, text=True, timeout=100,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def run_session(desk, name, commands):
    """Runs a document's commands; tells of each that goes otherwise than shown."""
    faults = []
    prepared = desk.run('set -e; source "$root/scripts/lib/desk.sh"; ' + DESKS.get(name, ""))
    if prepared.returncode != 0:
        return [f"{name}: the desk cannot be laid out: {prepared.stdout}"]
    for command, shown in commands:
        if command.split()[0] in EXCLUDED:
            print(f"{name}: not run: {command}")
            continue
        result = desk.run(command)
        expected = FAILURES.get(name, {}).get(command, 0)
        print(f"{name}: status {result.returncode}: {command}")
        if result.returncode != expected:
            faults.append(f"{name}: {command}: ended with {result.returncode}, not {expected}:\n{result.stdout}")
        elif shown and not matches(result.stdout, shown):
            faults.append(f"{name}: {command}: prints otherwise than shown:\n{result.stdout}")
    return faults


def check_mentions(desk, root, name, text):
    """The commands in running text: known to their program, with every option."""
    faults = []
    for span in re.findall(r"(?<!`)`([^`\n]+)`(?!`)", text):
        words = span.split()
        if words[0] in ("quarvel", "quarvel-bundle", "tessvik-sim") and len(words) > 1 and words[1][0].isalpha():
            help_command = " ".join(words[:2]) + " --help"
        elif words[0].startswith("scripts/") and (root / words[0]).is_file() and words[0] in EXCLUDED:
            help_command = str(root / words[0]) + " --help"
        else:
            continue
        result = desk.run(help_command)
        unknown = [word for word in words if word.startswith("--") and word.strip("[]") not in result.stdout]
        if result.returncode != 0 or unknown:
            faults.append(f"{name}: `{span}` is not understood: {' '.join(unknown)}")
    return faults


def check(root, programs, document):
    name = str(document.relative_to(root))
    text = document.read_text()
    manual = document.suffix == ".1"
    commands = manual_examples(text) if manual else list(sessions(text))
    with tempfile.TemporaryDirectory() as folder:
        desk = Desk(root, programs, pathlib.Path(folder))
        for file, content in files(text):
            (desk.folder / file).parent.mkdir(parents=True)
            (desk.folder / file).write_text(content)
        faults = [] if manual else check_mentions(desk, root, name, text)
        return faults + run_session(desk, name, commands)


def main():
    root, programs = pathlib.Path(sys.argv[1]), sys.argv[2]
    documents = [root / name for name in sys.argv[3:]]
    documents = documents or sorted([*root.glob("*.md"), *root.glob("docs/*.md"), *root.glob("docs/man/*.1")])
    faults = [fault for document in documents for fault in check(root, programs, document)]
    print(*faults, sep="\n")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
