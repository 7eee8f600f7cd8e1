#!/usr/bin/env python3
"""Includes run the way that docs/architecture.md says, and nobody enters a room past its door: rooms.py ROOT"""
import pathlib
import re
import sys

PUBLIC = "installer/QuarvelPublic.h"
PENS = "platform/Tessvik.h"
RECORD = "platform/PenletAttribute.h"

# What a room includes beside itself: rooms, or single headers of theirs. What is told of a folder holds for the folders
# in it that are not told of themselves.
USES = {
    "Common": [],
    "platform": [],
    "installer/bundle": ["Common", PUBLIC, RECORD],
    "installer/updater": ["Common", "installer/bundle", "platform", PUBLIC],
    "installer": ["Common", "installer/bundle", "installer/updater", "platform"],
    "simulator": ["platform", "trace"],
    "trace": ["platform"],
    "desk": [PUBLIC, PENS, "trace/Record.h"],
    "host": ["desk", "authoring/Plan.h", "authoring/PenFile.h", PUBLIC, PENS],
    "station": ["desk", PUBLIC, PENS],
    "fleet": ["desk", PUBLIC, PENS],
    "authoring": ["Common", "installer/bundle", "installer/updater/InstallDecisions.h",
                  "installer/updater/PenContents.h", PUBLIC],
    "examples": [],
}
# What proves and measures the rooms goes into each of them.
OUTSIDE = ["tests", "bench", "fuzz"]

IGNORED = ["build", ".git"]

# Rooms behind doors: what includes them lies in them or is their door.
DOORS = {
    "Common/log": "Common/Logger_mac.h",
    "Common/xml": "Common/Xml.h",
    "Common/zip": "Common/Zip.h",
}
# What no door shows is proved from inside: that both ways of inflating make the same, and which one was built in.
PROOFS = {
    "fuzz/InflateFuzz.cpp": "Common/zip",
    "tests/bundle/InflationTest.cpp": "Common/zip",
    "tests/host/ProgramTest.cpp": "Common/zip",
}


def within(path, folder):
    return path == folder or path.startswith(folder + "/")


def room_of(path):
    return max((room for room in USES if within(path, room)), key=len, default=path.split("/")[0])


def fault(file, included):
    """What is wrong with this include, or None."""
    for room, door in DOORS.items():
        if within(included, room) and not within(file, room) and file != door and PROOFS.get(file) != room:
            return f"the door is {door}"
    room = room_of(file)
    if room in OUTSIDE or room_of(included) == room or any(within(included, use) for use in USES[room]):
        return None
    return f"{room}/ does not use it"


def main():
    root = pathlib.Path(sys.argv[1])
    includes = faults = 0
    for folder in sorted(path for path in root.iterdir() if path.is_dir() and path.name not in IGNORED):
        for path in sorted([*folder.rglob("*.h"), *folder.rglob("*.cpp"), *folder.rglob("*.c")]):
            file = str(path.relative_to(root))
            if room_of(file) not in [*USES, *OUTSIDE]:
                faults += 1
                print(f"{file} lies in no room that this test knows")
                continue
            for included in re.findall(r'^#include "([^"]+/[^"]+)"', path.read_text(), re.M):
                includes += 1
                wrong = fault(file, included)
                if wrong:
                    faults += 1
                    print(f"{file} includes {included}: {wrong}")
    print(f"{includes} includes read, {faults} of them wrong")
    return faults != 0 or includes == 0


if __name__ == "__main__":
    sys.exit(main())
