#!/usr/bin/env python3
"""Checks the arrows of the house: who may include whom.

A room includes only from rooms below it, public headers include public headers and the standard library only, programs
include public headers only (a room's own tests may look at internal ones), and no file includes itself by any way round.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# The first pattern that matches a file's path names its room. A file of VexIMLib/ that matches none is an error, so that
# a new folder gets its floor here.
ROOMS = [
    ("client", 5, r"VexIMLib/(VXIMClient|VXIMClientDelegate)(\w*Impl|\+\w+)?\.(h|cpp)|VexIMLib/VexIMLib\.h|VexIMLib/internal/Client/.*"),
    ("foundation", 1, r"VexIMLib/Foundation/.*|VexIMLib/VXIM(ClientConfiguration|Constants|Completions|Errors|Settings|Transfer|Diagnosis)\.(h|cpp)"),
    ("resources", 4, r"VexIMLib/VXIM\w+\.(h|cpp)|VexIMLib/internal/Resources/.*"),
    ("networking", 3, r"VexIMLib/internal/Networking/.*"),
    ("message forwarding", 3, r"VexIMLib/internal/MessageForwarding/.*|VexIMLib/internal/VXIMRuntimeObject\.(h|cpp)"),
    ("socket.io", 3, r"VexIMLib/internal/SocketIO/.*"),
    ("event loops", 2, r"VexIMLib/Loops/.*"),
    ("async styles", 2, r"VexIMLib/Async/.*"),
    ("trust", 1.5, r"VexIMLib/internal/Trust/.*"),
    ("platform", 2, r"VexIMLib/internal/Platform/.*"),
    ("C interface with the store", 6.5, r"VexIMLib/C/Store/.*"),
    ("C interface", 6, r"VexIMLib/C/.*"),
    ("store", 6, r"VexIMLib/Store/.*"),
    ("testing kit", 6, r"VexIMLib/Testing/.*"),
    ("programs", 7, r"(tools|examples|tests|benchmarks|fuzz)/.*"),
]

# What is installed. Public classes derive from the runtime object, so its header is among them; the other one declares an
# exported function.
PUBLIC = re.compile(
    r"VexIMLib/[^/]+\.h|VexIMLib/(Foundation|Async|Loops)/.*\.h|VexIMLib/(Store|Testing)/[^/]+\.h|VexIMLib/internal/VXIMRuntimeObject\.h"
    r"|VexIMLib/internal/MessageForwarding/VXIMPropertyNameFromSelector\.h|VexIMLib/C/vexim\.h"
)
# What applications could have written: built on the core's public headers alone.
ON_PUBLIC_HEADERS = re.compile(r"VexIMLib/Store/.*")
# An adapter may see the loop that it is for.
ADAPTER = re.compile(r"VexIMLib/Loops/.*")
PROGRAM_HEADERS_ONLY = re.compile(r"(tools|examples)/.*")

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
STANDARD = re.compile(r"[a-z0-9_]+|stdint\.h")  # <vector>, <cstdint>: no folder, no suffix; and what C has


def room_of(path):
    for name, floor, pattern in ROOMS:
        if re.fullmatch(pattern, path):
            return name, floor
    return None


def resolve(includer, name):
    """The repository's file behind an include, or None for a foreign one."""
    for candidate in (ROOT / includer).parent / name, ROOT / name, ROOT / "tests" / name:
        if candidate.is_file() and ROOT in candidate.resolve().parents:
            return str(candidate.resolve().relative_to(ROOT))
    return None


def sources():
    for folder in ("VexIMLib", "tools", "examples", "tests", "benchmarks", "fuzz"):
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in (".h", ".cpp") and "node_modules" not in path.parts:
                yield str(path.relative_to(ROOT))


def findings():
    arrows = {}
    for path in sources():
        room = room_of(path)
        if room is None:
            yield f"{path}: belongs to no room; give its folder a floor in {pathlib.Path(__file__).name}"
            continue
        arrows[path] = []
        for bracket, name in INCLUDE.findall((ROOT / path).read_text()):
            target = resolve(path, name)
            if target is None:
                if name.startswith("VexIMLib/"):
                    yield f"{path}: includes {name}, which does not exist"
                elif PUBLIC.fullmatch(path) and not ADAPTER.fullmatch(path) and not STANDARD.fullmatch(name):
                    yield f"{path}: a public header includes {bracket}{name}; only the standard library and our own may be seen"
                continue
            arrows[path].append(target)
            below = room_of(target)
            if below is None:
                continue
            if below != room and below[1] >= room[1]:
                yield f"{path} ({room[0]}) includes {target} ({below[0]}), which is not below it"
            if PUBLIC.fullmatch(path) and not PUBLIC.fullmatch(target):
                yield f"{path}: a public header includes {target}, which is not installed"
            if ON_PUBLIC_HEADERS.fullmatch(path) and not (PUBLIC.fullmatch(target) or below == room):
                yield f"{path}: includes {target}; this room has only the public headers of the others"
            if PROGRAM_HEADERS_ONLY.fullmatch(path) and target.startswith("VexIMLib/") and not PUBLIC.fullmatch(target):
                yield f"{path}: a program includes {target}; applications have only the public headers"
    yield from circles(arrows)


def circles(arrows):
    done = set()

    def walk(path, trail):
        if path in trail:
            yield "a circle: " + " -> ".join(trail[trail.index(path):] + [path])
        elif path not in done:
            for target in arrows.get(path, ()):
                yield from walk(target, trail + [path])
            done.add(path)

    for path in arrows:
        yield from walk(path, [])


if __name__ == "__main__":
    found = list(findings())
    print("\n".join(found))
    sys.exit(1 if found else 0)
