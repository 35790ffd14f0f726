#!/usr/bin/env python3
"""Checks that the pages are true to the repository.

    scripts/check_docs.py            prints what is wrong, and fails then
    scripts/check_docs.py --write    copies the blocks from their sources

Every C, C++, CMake and Python block must be the text of the file that the line above it names, or
of a region of it, between the comments [name] and [/name]:

    <!-- examples/login.cpp#username -->
    ```cpp
    client->loginWithUsername("bob", "bob-secret", done);
    ```

Links must lead to files and headings that exist, named files must exist, and the library's names in
backticks must be in its headers.
"""

import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
BLOCK = re.compile(r"(?:^<!-- (?P<source>[^\s#]+)(?:#(?P<region>\S+))? -->\n)?"
                   r"^```(?P<language>cpp|c|cmake|python)\n(?P<text>.*?)^```$", re.M | re.S)
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.M | re.S)
LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
NAME = re.compile(r"(?<!`)`((?:VXIM\w+|VX[A-Z][a-z]\w*|vexim::\w+)[^`\n]*)`(?!`)")


def region_of(path, name):
    """The lines between the comments, without the indentation that they share."""
    text = path.read_text()
    match = re.search(
        rf"^[ \t]*(?://|#) \[{re.escape(name)}\]\n(.*?)^[ \t]*(?://|#) \[/{re.escape(name)}\]$",
        text, re.M | re.S)
    return textwrap.dedent(match[1]) if match else None


def source_text(block):
    """(the text that the block must have, None) or (None, a complaint)."""
    if block["source"] is None:
        return None, f"a {block['language']} block without <!-- examples/NAME.cpp --> above it"
    path = ROOT / block["source"]
    if not path.is_file():
        return None, f"{block['source']} does not exist"
    text = region_of(path, block["region"]) if block["region"] else path.read_text()
    if text is None:
        return None, f"{block['source']} has no region [{block['region']}]"
    # without the marks of inner regions
    return re.sub(r"^[ \t]*(?://|#) \[/?\w+\]\n", "", text, flags=re.M), None


def anchors(text):
    """The headings as GitHub names them."""
    prose = FENCE.sub("", text)
    return {re.sub(r"[^\w\- ]", "", line.strip("# `").lower()).replace(" ", "-")
            for line in re.findall(r"^#+ .*$", prose, re.M)}


def findings(page, words):
    text = page.read_text()

    def where(at):
        return f"{page.relative_to(ROOT)}:{text[:at].count(chr(10)) + 1}"

    for block in BLOCK.finditer(text):
        wanted, complaint = source_text(block)
        if complaint:
            yield f"{where(block.start())}: {complaint}"
        elif block["text"] != wanted:
            place = where(block.start())
            yield f"{place}: differs from {block['source']} (scripts/check_docs.py --write)"
    for named in re.finditer(
            r"(?<![\w/.-])(?:scripts|tests|examples|service|tools|bindings)/[\w./+-]*\w", text):
        if not (ROOT / named[0]).exists():
            yield f"{where(named.start())}: {named[0]} does not exist"
    prose = FENCE.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)
    for link in LINK.finditer(prose):
        target, _, anchor = link[1].partition("#")
        if re.match(r"\w+:", target):
            continue
        file = (page.parent / target).resolve() if target else page
        if not file.exists():
            yield f"{where(link.start())}: {target} does not exist"
        elif anchor and file.suffix == ".md" and anchor not in anchors(file.read_text()):
            yield f"{where(link.start())}: {file.name} has no heading #{anchor}"
    for name in NAME.finditer(prose):
        for word in re.findall(r"[A-Za-z_]\w*", name[1].split("(")[0].split("<")[0]):
            if word not in words:
                yield f"{where(name.start())}: the library has no {word}"


def pages():
    yield from (ROOT / name for name in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md"))
    yield from sorted((ROOT / "docs").rglob("*.md"))


def refresh(page):
    def block(match):
        text, complaint = source_text(match)
        if complaint:
            return match[0]
        start = f"```{match['language']}\n"
        return match[0].replace(f"{start}{match['text']}", f"{start}{text}")

    page.write_text(BLOCK.sub(block, page.read_text()))


if __name__ == "__main__":
    if sys.argv[1:] == ["--write"]:
        for page in pages():
            refresh(page)
    lists = [ROOT / "CMakeLists.txt", *(ROOT / "VexIMLib").rglob("CMakeLists.txt")]
    texts = (source.read_text() for source in [*(ROOT / "VexIMLib").rglob("*.h"), *lists])
    words = {"VXIMAF"}.union(*(re.findall(r"[A-Za-z_]\w*", text) for text in texts))
    found = [finding for page in pages() for finding in findings(page, words)]
    print("\n".join(found))
    sys.exit(1 if found else 0)
