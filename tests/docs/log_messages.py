#!/usr/bin/env python3
"""Every message that the library's sources log stands in docs/log.md, and the other way round: log_messages.py ROOT

A message is compared with "…" in the place of everything that differs from one line to the next.
"""
import pathlib
import re
import sys

LITERAL = r'"((?:[^"\\]|\\.)*)"'


def unescaped(text):
    return text.replace('\\"', '"')


def composed(expression):
    """The message that a sum of literals and values makes."""
    pieces = re.findall(LITERAL, expression)
    tail = "…" if re.search(r'"\s*\+[^"]*$', expression) else ""
    return unescaped("…".join(pieces) + tail)


def logged(source):
    """The messages of one source file: formats of log calls, and texts that are put together before they are logged."""
    messages = set()
    for literals in re.findall(r"Log(?:Event|Error)\([^;\"]*?(?:\"\w+\",\s*)?((?:%s\s*)+)[,)]" % LITERAL, source):
        text = unescaped("".join(re.findall(LITERAL, literals[0])))
        messages.add(re.sub(r"%(ll)?[dus]", "…", text))
    for call in re.findall(r"(?:\bFail(?:With)?|refuse|LogEventText|notes\.emplace_back)\(([^;]*?\".*?)\);", source, re.S):
        messages.add(composed(re.sub(r'^"\w+", ', "", call)))
    for call in re.findall(r"\bInUse\(([^;{]*?\"[^;{]*?)\);", source):
        messages |= {"Folder … is in use: " + composed(part) for part in call.split(" : ")}
    skipped = re.search(r"skipped =(.*?);", source, re.S)
    if skipped:
        messages |= {(composed(skipped[1]) + composed(rest)).replace("……", "…")
                     for rest in re.findall(r"return skipped \+(.*?);", source, re.S)}
    return {message for message in messages if re.search("[ =]", message)}


def documented(page):
    rows = [line.split("|") for line in page.splitlines() if line.startswith("| ")]
    return {message for row in rows for message in re.findall("`([^`]*)`", row[2])}


def main():
    root = pathlib.Path(sys.argv[1])
    found = set()
    for folder in ("Common", "installer"):
        for file in sorted(file for kind in ("*.cpp", "*.h") for file in (root / folder).rglob(kind)):
            found |= logged(file.read_text())
    told = documented((root / "docs/log.md").read_text())
    for message in sorted(found - told):
        print(f"docs/log.md does not tell of: {message}")
    for message in sorted(told - found):
        print(f"docs/log.md tells of a message that nothing logs: {message}")
    print(f"{len(found)} messages, {len(told)} of them documented")
    return found != told or not found


if __name__ == "__main__":
    sys.exit(main())
