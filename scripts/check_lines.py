#!/usr/bin/env python3
"""Checks that no line of CMake, Python, JavaScript or shell is longer than 100 columns.

In C and C++ that is clang-format's work.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SUFFIXES = {".cmake", ".py", ".js", ".mjs", ".sh", ".bash"}
MOST = 100
URL = re.compile(r"https?://\S+")  # does not count, because a broken URL cannot be followed


def is_checked(path):
    if path.name == "CMakeLists.txt" or path.suffix in SUFFIXES:
        return True
    with open(path, "rb") as file:  # a script without a suffix
        return not path.suffix and file.read(2) == b"#!"


def findings():
    command = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    listed = subprocess.run(command, cwd=ROOT, capture_output=True, check=True, text=True).stdout
    for path in sorted(ROOT / name for name in listed.split("\0") if name):
        if path.is_file() and not path.is_symlink() and is_checked(path):
            for number, line in enumerate(path.read_text(encoding="utf-8").split("\n"), 1):
                if len(URL.sub("", line)) > MOST:
                    yield f"{path.relative_to(ROOT)}:{number}: {len(line)} columns"


if __name__ == "__main__":
    found = list(findings())
    print("\n".join(found))
    sys.exit(1 if found else 0)
