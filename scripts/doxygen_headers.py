#!/usr/bin/env python3
"""Copies the installed headers to a folder for Doxygen: the same lines, with our comments spelled out the way it wants them.

    doxygen_headers.py FOLDER

    /// ...                  belongs to the declaration below it, and to what goes with that without a comment of its own:
                             the setter of a getter, overloads, the next comparison operator
    // ...                   above declarations (a blank line may stand between): belongs to all of them up to the next blank line,
                             after what each says for itself. A blank line below a title of a few words makes it no more than that
    int x;  // ...           belongs to the declaration before it
    // ... at the file's top is the page of the header

Left out, unless it has a comment: what a class gets without being asked (copies, moves, destructors, what is defaulted or
deleted), inherited constructors, those that only factories can call and what these run (`initialise`), forward declarations
and friends. `staticClass` is explained once, at the root class.
"""

import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# What the rooms' CMake files install.
HEADER_SETS = re.compile(r"FILE_SET\s+(?:HEADERS|loops)\s[^)]*?FILES\s+([^)]*)\)")
OWN, RUN = re.compile(r"^\s*///(?!<)\s?(.*)$"), re.compile(r"^\s*//(?!/)\s?(.*)$")
SCOPE = re.compile(r"^(?:template\s*<.*>\s*)?(?:inline\s+)?(namespace|class|struct|union|enum|extern\s+\"C\")\b")
ACCESS = re.compile(r"^(public|protected|private)\s*:$")
LITERAL = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'')
HEADING = re.compile(r"^(?:[\w-]+ ){0,2}[\w-]+\. (?=[A-Z])")  # "Login. Each opens …"
TITLE = re.compile(r"^(?:[\w-]+ ){0,4}[\w-]+\.$")  # "What other people do."
NAME = re.compile(r"(operator\s*(?:\(\)|[^\s(]+)|~?\w+)\s*\(")
NOT_A_NAME = {"requires", "noexcept", "explicit", "alignas", "decltype", "sizeof"}


def split(line):
    """The code of a line, literals blanked out, and where its trailing comment begins (or None)."""
    code = LITERAL.sub(lambda match: '"' + " " * (len(match[0]) - 2) + '"', line)
    at = code.find("//")
    return (code, None) if at < 0 else (code[:at], at)


def name_of(statement):
    for match in NAME.finditer(statement):
        if match[1] not in NOT_A_NAME:
            return re.sub(r"\s", "", match[1])
    return ""


def is_no_news(statement, scope):
    name, own_type = name_of(statement), rf"(?:const\s+)?{re.escape(scope)}\s*&&?"
    return (
        re.search(r"=\s*(default|delete)\s*;$|^friend\s+(class|struct)\b|^(class|struct|enum)\s[\w\s:]+;$|^using (\w+)::\2;$", statement)
        or re.search(r"^using [\w:]*?(\w+)::\1;$", statement)
        or re.search(r"\bfriend\b.*\bcreate\(|\(vexim::Creation\)|\(Creation\)", statement)
        or name.startswith("~")
        or name == "initialise"
        or (name in (scope, "operator=") and re.search(rf"\(\s*{own_type}\s*\w*\s*\)", statement))
    )


def goes_with(name, documented):
    if not name or not documented:
        return False
    if name == documented or (name.startswith("operator") and documented.startswith("operator")):
        return True
    if not re.match(r"set[A-Z]", name):
        return False
    property_name = name[3].lower() + name[4:]
    return documented in (property_name, "is" + name[3:], "should" + name[3:])


def one_line(text):
    return " ".join(" ".join(text).split()).replace("*/", "* /")


def filtered(lines):
    out, scopes = list(lines), []  # scopes: (kind, name) of every open brace
    own, run, shared, shared_name = [], "", "", ""
    own_at, index, seen_code = None, 0, False
    while index < len(lines):
        line = lines[index]
        if not line.strip():
            own, run, shared = [], "", ""
        elif match := OWN.match(line):
            if own_at is None or own_at != index - 1:
                own, shared = [], ""
            own.append(match[1])
            own_at = index
        elif RUN.match(line):
            first, text = index, []
            while index < len(lines) and (match := RUN.match(lines[index])):
                text.append(match[1])
                index += 1
            following = lines[index].strip() if index < len(lines) else ""
            if not seen_code and (not following or following.startswith("namespace")):  # of the file
                out[first - 1] = "/** \\file"
                for at, words in enumerate(text):
                    out[first + at] = re.sub("^  ", "    ", words)
                out[index - 1] += " */"
                seen_code = True
            else:
                run, own, shared = HEADING.sub("", one_line(text)), [], ""
                if index < len(lines) and not lines[index].strip():
                    index += 1
                    if TITLE.match(run):
                        run = ""
            continue
        elif line.lstrip().startswith("#"):
            own, run = [], ""
        elif ACCESS.match(line.strip()) or split(line)[0].strip().startswith("}"):
            own, run, shared = [], "", ""
            for _ in range(split(line)[0].count("}")):
                if scopes:
                    scopes.pop()
        else:
            seen_code = True
            # One declaration: to its semicolon, over its body, or to the brace that opens a scope.
            first, statement, depth, parens, opened = index, "", 0, 0, False
            while index < len(lines):
                code, comment = split(lines[index])
                statement += " " + code.strip()
                parens += code.count("(") - code.count(")")
                depth += code.count("{") - code.count("}")
                text = statement.strip()
                if depth > 0 and SCOPE.match(text) and "(" not in re.sub(r"\([^()]*\)\s*\)|alignas\([^)]*\)|VEXIM_\w+\([^{]*\)", "", text):
                    opened = True
                    break
                if depth == 0 and parens == 0 and re.search(r"[;},]$", text):
                    break
                if depth == 0 and scopes and scopes[-1][0] == "enum":
                    break
                index += 1
            text = statement.strip()
            scope = scopes[-1][1] if scopes else ""
            in_enum = bool(scopes) and scopes[-1][0] == "enum"
            name = name_of(text)
            if not opened and not in_enum and not own and is_no_news(text, scope):
                for at in range(first, index + 1):
                    out[at] = ""
            elif in_enum:
                pass
            elif not opened or not text.startswith("namespace"):
                words = ""
                if own:
                    if run and not opened and not own[-1].startswith("   "):
                        out[first - 1] += " \\details " + run
                    shared, shared_name = (one_line(own) + " " + run).strip(), name
                elif shared and goes_with(name, shared_name):
                    words = shared
                elif name == "staticClass" and scope != "Object":
                    words = "\\copydoc vexim::Object::staticClass"
                elif run and not opened:
                    words = run
                if words:
                    indent = len(out[first]) - len(out[first].lstrip())
                    out[first] = out[first][:indent] + f"/** {words} */ " + out[first][indent:]
            if opened:
                match = re.search(r"(\w+)(?:\s+final)?\s*(?::[^:].*)?\{", text)
                kind = SCOPE.match(text)[1]
                scopes.append((kind, match[1] if match else ""))
                run = ""
            comment = split(lines[index])[1]
            if comment is not None and not opened and not lines[index][comment:].startswith("///"):
                at = out[index].rfind("//")
                if at >= 0:
                    out[index] = out[index][:at] + "///<" + out[index][at + 2:]
            own = []
        index += 1
    if "/** \\file" not in out:
        out[1] = "/** \\file */"  # without it, Doxygen passes over what is in no class
    return out


MAIN_PAGE = """# VexIMLib {#mainpage}

What the installed headers declare. An application includes `<VexIMLib/VexIMLib.h>`; a program begins with #VXIMClient and
vexim::MainQueue. The guide, in docs/guide/ beside the sources, shows the parts at work.
"""


def installed_headers():
    for room in sorted((ROOT / "VexIMLib").rglob("CMakeLists.txt")):
        for names in HEADER_SETS.findall(room.read_text()):
            yield from (room.parent / name for name in names.split() if name.endswith(".h"))


if __name__ == "__main__":
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    for header in installed_headers():
        copy = folder / header.resolve().relative_to(ROOT)
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_text("\n".join(filtered(header.read_text().split("\n"))))
    (folder / "main.md").write_text(MAIN_PAGE)
