#!/usr/bin/env python3
"""Copies the installed headers to a folder for Doxygen: the same lines, with our comments in the
form that it wants.

    doxygen_headers.py FOLDER

    /// ...          belongs to the declaration below it, and to those after it that have no comment
                     of their own: a getter's setter, overloads, the next comparison operator
    // ...           above declarations, perhaps with a blank line between: belongs to all of them
                     up to the next blank line, and follows their own comments. A few words with a
                     blank line below them are only a title
    int x;  // ...   belongs to the declaration before it
    // ...           at the top of the file: the page of the header

Without a comment, these are left out: what a class gets by itself (copies, moves, destructors, what
is defaulted or deleted), inherited constructors, constructors for factories and the `initialise`
that they run, forward declarations and friends. `staticClass` is explained once, at the root class.
"""

import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# What the rooms' CMake files install.
HEADER_SETS = re.compile(r"FILE_SET\s+(?:HEADERS|loops)\s[^)]*?FILES\s+([^)]*)\)")
OWN, RUN = re.compile(r"^\s*///(?!<)\s?(.*)$"), re.compile(r"^\s*//(?!/)\s?(.*)$")
SCOPE = re.compile(
    r"^(?:template\s*<.*>\s*)?(?:inline\s+)?(namespace|class|struct|union|enum|extern\s+\"C\")\b")
ATTRIBUTE = re.compile(r"\([^()]*\)\s*\)|alignas\([^)]*\)|VEXIM_\w+\([^{]*\)")
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
        re.search(r"=\s*(default|delete)\s*;$|^friend\s+(class|struct)\b|"
                  r"^(class|struct|enum)\s[\w\s:]+;$|^using (\w+)::\2;$", statement)
        or re.search(r"^using [\w:]*?(\w+)::\1;$", statement)
        or re.search(r"\bfriend\b.*\bdetail::", statement)
        or re.search(r"\bfriend\b.*\bcreate\(|\(vexim::Creation\)|\(Creation\)", statement)
        or name.startswith("~")
        or name == "initialise"
        or (name == scope and "detail::" in statement)
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


class Header:
    """One pass over a header's lines. `own` and `run` are the comments for the next declaration;
    `shared` is the one that the declarations after it may have, too."""

    def __init__(self, lines):
        self.lines, self.out = lines, list(lines)
        self.at = 0
        self.scopes = []  # (kind, name) of every open brace of a namespace, class, …
        self.own, self.run, self.shared, self.shared_name = [], "", "", ""
        self.code_seen = False

    def spelled_out(self):
        while self.at < len(self.lines):
            line = self.lines[self.at]
            code = split(line)[0].strip()
            if not line.strip():
                self.forget()
            elif match := OWN.match(line):
                if not self.own:
                    self.shared = ""
                self.own.append(match[1])
            elif RUN.match(line):
                self.run_comment()
            elif code.startswith("#"):
                self.forget()
            elif ACCESS.match(code) or code.startswith("}"):
                self.forget()
                del self.scopes[len(self.scopes) - min(code.count("}"), len(self.scopes)):]
            else:
                self.declaration()
            self.at += 1
        if "/** \\file" not in self.out:
            self.out[1] = "/** \\file */"  # without it, Doxygen passes over what is in no class
        return self.out

    def forget(self):
        self.own, self.run, self.shared = [], "", ""

    def run_comment(self):
        first, text = self.at, []
        while self.at < len(self.lines) and (match := RUN.match(self.lines[self.at])):
            text.append(match[1])
            self.at += 1
        following = self.lines[self.at].strip() if self.at < len(self.lines) else ""
        is_of_file = not following or following.startswith("namespace")
        if not self.code_seen and is_of_file:
            self.code_seen = True
            self.out[first - 1] = "/** \\file"
            self.out[first:self.at] = [re.sub("^  ", "    ", words) for words in text]
            self.out[self.at - 1] += " */"
            self.at -= 1
            return
        self.forget()
        self.run = HEADING.sub("", one_line(text))
        if following:
            self.at -= 1
        elif TITLE.match(self.run):
            self.run = ""

    def declaration(self):
        """To its semicolon, over its body, or to the brace that opens a scope."""
        self.code_seen = True
        first, text, depth, parens, opens = self.at, "", 0, 0, False
        scope_kind, scope = self.scopes[-1] if self.scopes else ("", "")
        while True:
            code = split(self.lines[self.at])[0]
            text = (text + " " + code.strip()).strip()
            parens += code.count("(") - code.count(")")
            depth += code.count("{") - code.count("}")
            is_scope = SCOPE.match(text) is not None and "(" not in ATTRIBUTE.sub("", text)
            opens = depth > 0 and is_scope
            is_whole = parens == 0 and text[-1:] in (";", "}", ",")
            ends = depth == 0 and (scope_kind == "enum" or is_whole)
            if opens or ends or self.at + 1 == len(self.lines):
                break
            self.at += 1

        if opens:
            if not text.startswith("namespace"):
                self.explain(first, name_of(text), scope, of_scope=True)
            match = re.search(r"(\w+)(?:\s+final)?\s*(?::[^:].*)?\{", text)
            self.scopes.append((SCOPE.match(text)[1], match[1] if match else ""))
            self.run = ""
        elif scope_kind != "enum":
            if not self.own and is_no_news(text, scope):
                self.out[first:self.at + 1] = [""] * (self.at + 1 - first)
            else:
                self.explain(first, name_of(text), scope)
        if not opens:
            self.trailing_comment()
        self.own = []

    def explain(self, first, name, scope, of_scope=False):
        run = "" if of_scope else self.run
        words = ""
        if self.own:
            if run and not self.own[-1].startswith("   "):  # not behind an example
                self.out[first - 1] += " \\details " + run
            self.shared, self.shared_name = (one_line(self.own) + " " + self.run).strip(), name
        elif self.shared and goes_with(name, self.shared_name):
            words = self.shared
        elif name == "staticClass" and scope != "Object":
            words = "\\copydoc vexim::Object::staticClass"
        else:
            words = run
        if words:
            line = self.out[first]
            indent = len(line) - len(line.lstrip())
            self.out[first] = f"{line[:indent]}/** {words} */ {line[indent:]}"

    def trailing_comment(self):
        line = self.lines[self.at]
        comment = split(line)[1]
        if comment is None or line.startswith("///", comment) or not self.out[self.at]:
            return
        at = self.out[self.at].rfind("//")
        self.out[self.at] = self.out[self.at][:at] + "///<" + self.out[self.at][at + 2:]


# Classes whose names are everyday words. In our prose a name stands in backticks; at the beginning
# of a sentence it is the word.
WORD = re.compile(r"(?<![\w:#%.<\\])(Array|Call|Class|Clock|Coder|Creation|Data|Date|Dictionary|"
                  r"Error|Exception|Failure|Image|Invocation|Method|Notification|Object|Property|"
                  r"Random|Result|Selector|Task|Type|Value)(?![\w:(<])")


def without_chance_links(line):
    at = min((found for found in (line.find("///"), line.find("/**")) if found >= 0), default=None)
    if at is None or line[at:].startswith("///     "):  # code, or an example
        return line
    comment, end, code = line[at:].partition("*/")
    parts = comment.split("`")
    parts[::2] = [WORD.sub(r"%\1", prose) for prose in parts[::2]]
    return line[:at] + "`".join(parts) + end + code


def installed_headers():
    for room in sorted((ROOT / "VexIMLib").rglob("CMakeLists.txt")):
        for names in HEADER_SETS.findall(room.read_text()):
            yield from (room.parent / name for name in names.split() if name.endswith(".h"))


if __name__ == "__main__":
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    for header in installed_headers():
        text = header.read_text()
        if "namespace vexim::detail {" in text and "namespace vexim {" not in text:
            continue  # nothing in it is anybody's to name
        copy = folder / header.resolve().relative_to(ROOT)
        copy.parent.mkdir(parents=True, exist_ok=True)
        text = re.sub(r"(?<=\d)'(?=\d{3})", "", text)  # Doxygen would put blanks into 1'000
        lines = Header(text.split("\n")).spelled_out()
        copy.write_text("\n".join(map(without_chance_links, lines)))
