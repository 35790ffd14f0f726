#!/usr/bin/env python3
"""Checks that every C++ block of the documentation is the text of the program that the line above it names.

    <!-- examples/quick_start.cpp -->
    ```cpp
    ...
    ```
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BLOCK = re.compile(r"^(?:<!-- (?P<source>\S+) -->\n)?```cpp\n(?P<text>.*?)^```$", re.MULTILINE | re.DOTALL)


def findings():
    for page in [ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md"))]:
        if not page.is_file():
            continue
        for block in BLOCK.finditer(page.read_text()):
            where = f"{page.relative_to(ROOT)}:{page.read_text()[:block.start()].count(chr(10)) + 1}"
            source = block["source"]
            if source is None:
                yield f"{where}: a C++ block that names no program; put <!-- examples/NAME.cpp --> above it"
            elif not (ROOT / source).is_file():
                yield f"{where}: {source} does not exist"
            elif block["text"] not in (ROOT / source).read_text():
                yield f"{where}: differs from {source}"


if __name__ == "__main__":
    found = list(findings())
    print("\n".join(found))
    sys.exit(1 if found else 0)
