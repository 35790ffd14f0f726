#!/usr/bin/env python3
"""Checks which rooms include which.

A folder may include only folders on lower floors. Public headers may include only public headers
and the standard library, and programs only public headers (tests may use internal ones). No file
may include itself through others.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# From the lowest floor up. Folders of one floor may not include each other, except programs.
# docs/design.md has the same table and explains it.
FLOORS = [
    ["VexIMLib/Foundation", "VexIMLib/internal/Foundation"],
    ["VexIMLib/internal/Configuration"],
    ["VexIMLib/internal/Platform", "VexIMLib/Async", "VexIMLib/Loops"],
    ["VexIMLib/internal/MessageForwarding", "VexIMLib/internal/Networking",
     "VexIMLib/internal/SocketIO"],
    ["VexIMLib/internal/Resources"],
    ["VexIMLib/internal/Client"],
    ["VexIMLib/Store", "VexIMLib/Testing", "VexIMLib/C"],
    ["tools", "examples", "tests", "benchmarks"],
]
# Rooms whose folders are floors as well, the lowest first.
INSIDE = {
    "VexIMLib/internal/Platform": ["Facts", "Files", "Trust", "Threads", "Loading"],
    "VexIMLib/internal/SocketIO": ["Protocol", "Transports", "Client"],
}
# One room: the public headers of the lowest floor, and their internal headers.
TOGETHER = {"VexIMLib/internal/Foundation": "VexIMLib/Foundation"}
FLOOR = {TOGETHER.get(folder, folder): floor for floor, folders in enumerate(FLOORS, 1)
         for folder in folders}
# A public header belongs to the room of its source. These have none: two that only declare types,
# and the one that includes all others.
BELONGS = {
    "VXIMCompletions": "VexIMLib/internal/Configuration",
    "VXIMTransfer": "VexIMLib/internal/Configuration",
    "VexIMLib": "VexIMLib/internal/Client",
}
# Rooms that use only the public headers of others, like an application, except for two headers.
ON_PUBLIC_HEADERS = ["VexIMLib/Store"]
HEADERS_FOR_THREADS = ["ThreadSafety.h", "SignalsBlocked.h"]
# The only folder that may include another room of its floor: the store.
WITH_THE_STORE = pathlib.Path("VexIMLib/C/internal/Store")
ADAPTERS = ["VexIMLib/Loops"]  # each may see the loop that it is for
PROGRAMS_OF_APPLICATIONS = ["tools", "examples"]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
STANDARD = re.compile(r"[a-z0-9_]+|stdint\.h")  # <vector>, and what C has

SOURCES = {path.stem: path.relative_to(ROOT)
           for path in (ROOT / "VexIMLib/internal").rglob("*.cpp")}


def is_public(path):
    """Installed: every header outside a folder named internal."""
    return path.parts[0] == "VexIMLib" and path.suffix == ".h" and "internal" not in path.parts


def room_of(path):
    """The longest folder of FLOORS that holds the file; None when there is none."""
    if str(path.parent) == "VexIMLib" and path.suffix == ".h":
        if path.stem in BELONGS:
            return BELONGS[path.stem]
        path = SOURCES.get(path.stem, path)
    for folder in map(str, path.parents):
        folder = TOGETHER.get(folder, folder)
        if folder in FLOOR:
            return folder
    return None


def storey(path, room):
    """The file's floor inside its room; 0 if the room has no floors of its own."""
    inside = INSIDE.get(room)
    if not inside:
        return 0
    path = SOURCES[path.stem] if is_public(path) else path
    return inside.index(path.relative_to(room).parts[0])


def resolve(includer, name):
    """The file of this repository that is included, or None if it is not ours."""
    for candidate in (ROOT / includer).parent / name, ROOT / name, ROOT / "tests" / name:
        if candidate.is_file() and ROOT in candidate.resolve().parents:
            return candidate.resolve().relative_to(ROOT)
    return None


def sources():
    for folder in ("VexIMLib", "tools", "examples", "tests", "benchmarks"):
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in (".h", ".cpp") and "node_modules" not in path.parts:
                yield path.relative_to(ROOT)


def findings():
    arrows = {}
    for path in sources():
        room = room_of(path)
        if room is None:
            yield f"{path}: belongs to no room; give its folder a floor in check_includes.py"
            continue
        if path.suffix == ".cpp" and path.parts[0] == "VexIMLib" and "internal" not in path.parts:
            yield f"{path}: a source lies among the public headers"
        arrows[path] = []
        for bracket, name in INCLUDE.findall((ROOT / path).read_text()):
            target = resolve(path, name)
            if target is None:
                if name.startswith("VexIMLib/"):
                    yield f"{path}: includes {name}, which does not exist"
                elif is_public(path) and room not in ADAPTERS and not STANDARD.fullmatch(name):
                    yield (f"{path}: includes {bracket}{name}; a public header includes only the "
                           "standard library and our public headers")
                continue
            arrows[path].append(target)
            below = room_of(target)
            if below is None:
                continue
            rooms = (room, below)
            is_known = rooms == ("VexIMLib/C", "VexIMLib/Store") and WITH_THE_STORE in path.parents
            is_program = FLOOR[room] == len(FLOORS)
            if below != room and FLOOR[below] >= FLOOR[room] and not (is_program or is_known):
                yield f"{path} includes {target}, which is not below it"
            if below == room and storey(target, room) > storey(path, room):
                yield f"{path} includes {target}, which stands above it in {room}"
            if is_public(path) and not is_public(target):
                yield f"{path}: a public header includes {target}, which is not installed"
            is_allowed = is_public(target) or target.name in HEADERS_FOR_THREADS
            if room in ON_PUBLIC_HEADERS and below != room and not is_allowed:
                yield f"{path}: includes {target}; this room may use only others' public headers"
            is_internal = target.parts[0] == "VexIMLib" and not is_public(target)
            if room in PROGRAMS_OF_APPLICATIONS and is_internal:
                yield f"{path}: includes {target}; programs may use only public headers"
    yield from circles(arrows)
    yield from page()


def circles(arrows):
    done = set()

    def walk(path, trail):
        if path in trail:
            yield "a circle: " + " -> ".join(map(str, trail[trail.index(path) :] + [path]))
        elif path not in done:
            for target in arrows.get(path, ()):
                yield from walk(target, trail + [path])
            done.add(path)

    for path in arrows:
        yield from walk(path, [])


def page():
    """The table of floors in docs/design.md names the same folders."""
    told, text = {}, (ROOT / "docs/design.md").read_text()
    for floor, rooms in re.findall(r"^\| (\d+) \| (.*?) \|", text, re.MULTILINE):
        told.setdefault(int(floor), set()).update(re.findall(r"`([\w/]+)/`", rooms))
    for floor, folders in enumerate(FLOORS, 1):
        if told.get(floor, set()) - {"bindings/python"} != set(folders):
            named = sorted(told.get(floor, set()))
            yield f"docs/design.md: floor {floor} names {named}; here it has {sorted(folders)}"


if __name__ == "__main__":
    found = list(findings())
    print("\n".join(found))
    sys.exit(1 if found else 0)
