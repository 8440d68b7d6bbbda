#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fails when units of the programs include each other in a circle.

    include_circles.py FOLDER    the folder that the programs are in

A unit is a folder of a program with its public header, or a single source with its header:
tarnwick/core/src/radio/* and tarnwick/core/include/radio.hpp are tarnwick/radio. Units in a circle can
only be read, built and tested all together.
"""
import re
import sys
from pathlib import Path

PROGRAMS = ("tarnwick", "engine", "epc_uri", "rm_server", "twctl")
BOUNDARIES = ("include", "words")  # headers that programs share: interfaces and words
NOT_PART_OF_A_NAME = {"src", "include"}
SOURCES = (".cpp", ".hpp", ".h")
GENERATED = ".pb.h"

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def source_files(root):
    files = []
    for folder in PROGRAMS + BOUNDARIES:
        found = [f.relative_to(root) for f in (root / folder).rglob("*") if f.suffix in SOURCES]
        if not found and folder in PROGRAMS:
            sys.exit(f"{root / folder} has no sources")
        files += found
    return sorted(files)


def unit_of(file):
    names = [name for name in file.with_suffix("").parts if name not in NOT_PART_OF_A_NAME]
    return "/".join(names[:2])


def included_file(includer, name, quoted, files):
    """The file that an include means: beside the includer, of its program, or of another one."""
    beside = includer.parent / name
    if quoted and beside in files:
        return beside
    found = [f for f in files if f.parts[-len(Path(name).parts) :] == Path(name).parts]
    found = [f for f in found if f.parts[0] == includer.parts[0]] or found
    if len(found) > 1 or (quoted and not found and not name.endswith(GENERATED)):
        sys.exit(f'{includer}: cannot tell which file "{name}" is: {[str(f) for f in found]}')
    return found[0] if found else None


def read_includes(root):
    """Pairs of units of which the first includes the second, each with the places."""
    files = source_files(root)
    includes = {}
    for file in files:
        for number, line in enumerate((root / file).read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            target = match and included_file(file, match[2], match[1] == '"', files)
            if target and unit_of(target) != unit_of(file):
                places = includes.setdefault((unit_of(file), unit_of(target)), [])
                places.append(f"{file}:{number}: {line.strip()}")
    return includes


def reachable(unit, includes):
    seen, waiting = set(), [unit]
    while waiting:
        unit = waiting.pop()
        further = {to for by, to in includes if by == unit} - seen
        seen |= further
        waiting += further
    return seen


def find_circles(includes):
    reach = {unit: reachable(unit, includes) for unit, _ in includes}
    return {
        frozenset(other for other in reach if unit in reach[other] and other in reach[unit])
        for unit in reach
        if unit in reach[unit]
    }


def main():
    includes = read_includes(Path(sys.argv[1]))
    circles = find_circles(includes)
    for circle in circles:
        print("a circle of", *sorted(circle))
        for (by, to), places in sorted(includes.items()):
            if by in circle and to in circle:
                print(f"  {by} -> {to}", *places, sep="\n    ")
    return bool(circles)


sys.exit(main())
