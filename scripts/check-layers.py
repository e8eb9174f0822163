#!/usr/bin/env python3
"""Fails when a file of a lower layer includes a file of a higher one.

Layers, lowest first: VeskCore (QtCore only), Vesk/Base (shared services), the subsystems
(Vesk/Agents, Console, Data, Documents, Editor, Files, Panes, Plots, Session), Vesk/App (the workspace hub), and the
views (any Vesk/**/Views folder) with main.cpp. A file may include its own layer or a lower one;
a subsystem includes another subsystem only through a pair listed in SUBSYSTEM_PAIRS. Only quoted
includes are read, resolved as the compiler does: beside the file, then under Vesk/, then VeskCore/.
"""
import os
import re
import sys

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
SUBSYSTEMS = {"Agents", "Console", "Data", "Documents", "Editor", "Files", "Panes", "Plots", "Session"}
# (includer, included) subsystem pairs that today's code needs; none so far.
SUBSYSTEM_PAIRS = set()
RANKS = {"core": 0, "base": 1, "subsystem": 2, "app": 3, "views": 4}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def layer(path):
    """(layer name, subsystem or None) of a path relative to the root; None outside the layers."""
    parts = path.split("/")
    if parts[0] == "VeskCore":
        return "core", None
    if parts[0] != "Vesk":
        return None
    if "Views" in parts[1:-1] or path == "Vesk/main.cpp":
        return "views", None
    if parts[1] == "Base":
        return "base", None
    if parts[1] == "App":
        return "app", None
    if parts[1] in SUBSYSTEMS:
        return "subsystem", parts[1]
    return None


def resolve(includer, name):
    for base in (os.path.dirname(includer), "Vesk", "VeskCore"):
        candidate = os.path.normpath(os.path.join(base, name))
        if os.path.isfile(os.path.join(ROOT, candidate)):
            return candidate
    return None  # generated or outside the tree


def problems():
    for top in ("VeskCore", "Vesk"):
        for folder, _, files in os.walk(os.path.join(ROOT, top)):
            for file in sorted(files):
                if not file.endswith((".h", ".cpp")):
                    continue
                includer = os.path.relpath(os.path.join(folder, file), ROOT)
                own = layer(includer)
                if own is None:
                    continue
                with open(os.path.join(ROOT, includer), encoding="utf-8") as source:
                    lines = source.readlines()
                for number, line in enumerate(lines, 1):
                    match = INCLUDE.match(line)
                    target = match and resolve(includer, match.group(1))
                    other = target and layer(target)
                    if not other:
                        continue
                    where = f"{includer}:{number}: includes {target}"
                    if RANKS[other[0]] > RANKS[own[0]]:
                        yield f"{where} ({other[0]} is above {own[0]})"
                    elif own[0] == other[0] == "subsystem" and own[1] != other[1] and \
                            (own[1], other[1]) not in SUBSYSTEM_PAIRS:
                        yield f"{where} ({own[1]} may not include {other[1]})"


def main():
    found = list(problems())
    for problem in found:
        print(problem)
    if found:
        print(f"{len(found)} include(s) reach a higher layer", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
