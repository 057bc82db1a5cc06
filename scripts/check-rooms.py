#!/usr/bin/env python3
"""Checks every include against the table of rooms in CONTRIBUTING.md.

A room is a folder with sources. It may include its own headers and those of the rooms in its row,
all of which stand in rows above it, so there are no cycles. A private/ folder belongs to its room and
to that room's tests. Prints one line for each violation; status 1 when there is any.
"""
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
ROW = re.compile(r"^\| `([\w/]+)/` \|.*\| ([^|]*) \|$")
INCLUDE = re.compile(r'^\s*#\s*include "([^"]+)"', re.M)
ANGLED = re.compile(r"^\s*#\s*include <([^>]+)>", re.M)
# These may include any room; fuzz targets may use private headers too.
OUTSIDE = ("tests", "fuzz", "bench")


def table():
    """Room -> rooms it may use, in the order of the rows."""
    rooms = {}
    for line in (root / "CONTRIBUTING.md").read_text().splitlines():
        if row := ROW.match(line):
            rooms[row[1]] = re.findall(r"`([\w/*]+)`", row[2])
    return rooms


def resolved(rooms, problems):
    """`toolchain/*` stands for all rooms of that folder that come before the row."""
    uses, above = {}, []
    for room, names in rooms.items():
        uses[room] = set()
        for name in names:
            meant = [r for r in above if r == name or (name.endswith("/*") and r.startswith(name[:-1]))]
            if not meant:
                problems.append(f"CONTRIBUTING.md: {room} may use {name}, which is not a row above it")
            uses[room].update(meant)
        above.append(room)
    return uses


def room_of(path):
    """The folder that a file belongs to; private/ and host/<name>/ are parts of the folder around them."""
    parts = list(pathlib.PurePosixPath(path).parent.parts)
    if parts and parts[-1] == "private":
        parts.pop()
    if len(parts) > 2 and parts[-2] == "host":
        parts.pop()
        if parts[:-1] != ["foundation"]:
            parts.pop()
    return "/".join(parts)


def owner_of(path):
    """The room whose private headers a file may include: its own, or the one that it tests."""
    return re.sub(r"^tests/", "", room_of(path))


def main():
    problems = []
    rooms = table()
    uses = resolved(rooms, problems)
    files = subprocess.check_output(["git", "-C", str(root), "ls-files", "*.h", "*.cpp", "*.in"], text=True)
    headers = set(files.split())
    seen = set()
    for path in sorted(headers):
        if not (root / path).exists():
            continue
        room = room_of(path)
        outside = path.split("/")[0] in OUTSIDE
        if not outside and room not in uses:
            problems.append(f"{path}: the folder {room}/ is not in the table of CONTRIBUTING.md")
            continue
        seen.add(room)
        text = (root / path).read_text()
        problems += [f"{path}: include {own} in quotes" for own in ANGLED.findall(text) if own in headers]
        for header in INCLUDE.findall(text):
            if header not in headers and f"{header}.in" not in headers:
                problems.append(f"{path}: there is no {header}")
                continue
            used = room_of(header)
            if "/private/" in header and owner_of(path) != used and not path.startswith("fuzz/"):
                problems.append(f"{path}: {header} is private to {used}/")
            if not outside and used != room and used not in uses[room]:
                problems.append(f"{path}: {room}/ may not use {used}/ ({header})")
    problems += [f"CONTRIBUTING.md: there is no folder {room}/ with sources" for room in uses if room not in seen]
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


sys.exit(main())
