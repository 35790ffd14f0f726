#!/usr/bin/env python3
"""Makes the C interface's JSON Schema and the tables of its page. The operations are read from
VexIMLib/C/internal/Operations.cpp and, with the store, C/internal/Store/StoreOperations.cpp.
Results and events are declared in c_interface_shapes.py.

    scripts/c_interface.py --schema FILE    writes the JSON Schema of requests, answers and events
    scripts/c_interface.py --write          renews the tables of docs/c-interface.md
    scripts/c_interface.py --check          fails if the page differs from the table, or if the
                                            table lacks an operation of a public C++ header
"""

import json
import pathlib
import re
import sys

import c_interface_shapes as shapes

ROOT = pathlib.Path(__file__).resolve().parent.parent
TABLE = ROOT / "VexIMLib/C/internal/Operations.cpp"
STORE_TABLE = ROOT / "VexIMLib/C/internal/Store/StoreOperations.cpp"
PAGE = ROOT / "docs/c-interface.md"

STRING = r'"((?:[^"\\]|\\.)*)"'
ROW = re.compile(r"^    \{" + ", ".join([STRING] * 4) + r", (?:Needs::(\w+), )?handlers::(\w+)\},$",
                 re.MULTILINE)


class Row:
    def __init__(self, match):
        self.name, parameters, self.result, self.doc = (text.replace('\\"', '"')
                                                        for text in match.groups()[:4])
        self.needs = match.group(5)
        self.parameters = declared(parameters)


def declared(text):
    """[(name, type, whether it is optional)] of a declaration: "friendId: id, limit: int32?"."""
    split = (one.split(":") for one in text.split(",") if one.strip())
    return [(name.strip(), type_.strip().rstrip("?"), type_.strip().endswith("?"))
            for name, type_ in split]


def constants(text):
    """The declarations that are constants: of the configuration, a message, a target and so on."""
    found = {}
    for match in re.finditer(r"const std::string_view (k\w+) =((?:\s*\"[^\"]*\")+);", text):
        found[match.group(1)] = declared("".join(re.findall(r'"([^"]*)"', match.group(2))))
    return found


def read_table():
    """The rows for vexim_send, those of the store, those for vexim_execute, and the constants."""
    text = TABLE.read_text() + STORE_TABLE.read_text()
    first, second = text.split("constexpr ImmediateOperation kImmediateOperations[]")
    second, third = second.split("constexpr Operation kStoreOperations[]")
    rows = [[Row(match) for match in ROW.finditer(part)] for part in (first, third, second)]
    written = len(re.findall(r"handlers::\w+\}", text))
    if sum(map(len, rows)) != written:
        read = sum(map(len, rows))
        sys.exit(f"{TABLE.name}: only {read} of {written} rows have the form that we can read")
    return *rows, constants(text)


def signature(row):
    return entries(row.parameters)


def entries(declaration):
    return ", ".join(f"`{name}`{'?' if optional else ''} {type_}"
                     for name, type_, optional in declaration)


def tables():
    """The parts of the page between <!-- table NAME --> and <!-- end -->."""
    requests, of_store, immediate, _ = read_table()
    lines = lambda rows: ["| operation | arguments | result | |", "|---|---|---|---|"] + [
        f"| `{row.name}` | {signature(row)} | {row.result} | {row.doc} |" for row in rows
    ]
    objects = lambda of: ["| object | names | |", "|---|---|---|"] + [
        f"| {name} | {entries(declared(text))} | {doc} |" for name, (text, doc) in of.items()
    ]
    events = lambda of: ["| event | arguments | when |", "|---|---|---|"] + [
        f"| `{name}` | {entries(declared(text))} | {when or 'With `notifications`.' * asked} |"
        for name, (text, when, asked) in of.items()
    ]
    made = {
        "requests": lines(requests), "immediate": lines(immediate),
        "objects": objects(shapes.OBJECTS), "events": events(shapes.EVENTS),
        "store": lines(of_store), "storeobjects": objects(shapes.STORE_OBJECTS),
        "storeevents": events(shapes.STORE_EVENTS),
    }
    return {name: "\n".join(line.replace(" |  |", " | |") for line in table)
            for name, table in made.items()}


def renewed_page():
    made = tables()
    return re.sub(
        r"(<!-- table (\w+) -->\n).*?(<!-- end -->)",
        lambda match: match.group(1) + made[match.group(2)] + "\n" + match.group(3),
        PAGE.read_text(),
        flags=re.DOTALL,
    )


TYPES = {
    "any": {},
    "id": {"anyOf": [{"type": "string", "minLength": 1}, {"type": "integer"}]},
    "ids": {"type": "array", "items": {"$ref": "#/$defs/id"}},
    "string": {"type": "string"},
    "strings": {"type": "array", "items": {"type": "string"}},
    "boolean": {"type": "boolean"},
    "number": {"type": "number"},
    "integer": {"type": "integer"},
    "int32": {"type": "integer", "minimum": -(2**31), "maximum": 2**31 - 1},
    "object": {"type": "object"},
    "conversationKind": {"enum": ["friend", "group", "room", "system"]},
}


def type_schema(name, optional):
    plain = {"$ref": f"#/$defs/{name}"}
    return {"anyOf": [plain, {"type": "null"}]} if optional else plain


def object_schema(parameters, **more):
    return {
        "type": "object",
        "properties": {**more, **{name: type_schema(type_, optional)
                                  for name, type_, optional in parameters}},
        "required": [*(name for name in more if name == "@op"),
                     *(name for name, _, optional in parameters if not optional)],
        "additionalProperties": False,
    }


def request_schema(row, timeout):
    more = {"@op": {"const": row.name}, "@extra": {}}
    if timeout:
        more["@timeout"] = {"type": ["number", "null"], "minimum": 0}
    return {"description": row.doc, **object_schema(row.parameters, **more)}


def given_schema(parameters, doc="", **more):
    """The schema of what comes out: nothing is null there, and later versions may add names."""
    made = {
        "type": "object",
        "properties": {**more,
                       **{name: {"$ref": f"#/$defs/{type_}"} for name, type_, _ in parameters}},
        "required": [*more, *(name for name, _, optional in parameters if not optional)],
    }
    return {"description": doc, **made} if doc else made


def answer_schema(result):
    """Of an operation's answer; a question mark: the result may be null."""
    shape = {"$ref": f"#/$defs/{result.rstrip('?')}"}
    if result.endswith("?"):
        shape = {"anyOf": [shape, {"type": "null"}]}
    return given_schema([], **{"@type": {"const": "answer"}, "@extra": {}, "result": shape})


def event_schema(name, declaration, doc):
    return given_schema(declared(declaration), doc,
                        **{"@type": {"const": "event"}, "name": {"const": name}})


def schema():
    requests, of_store, immediate, constant = read_table()
    requests += of_store
    all_events = {**shapes.EVENTS, **shapes.STORE_EVENTS}
    one_of = lambda kind, names: {"oneOf": [{"$ref": f"#/$defs/{kind}/{name}"} for name in names]}
    return {
        "$schema": "https://json-schema.org/draft/2020-12/schema",
        "title": "The texts of <VexIMLib/C/vexim.h>",
        "$defs": {
            **TYPES,
            **shapes.TYPES,
            "address": object_schema(constant["kTarget"]),
            "newMessage": object_schema(constant["kMessage"]),
            "conversationId": object_schema(constant["kConversationId"]),
            "storePosition": object_schema(constant["kStorePosition"]),
            "newConfiguration": object_schema(
                constant["kConfiguration"] + constant["kConnectionOptions"]),
            "request": one_of("requests", [row.name for row in requests]),
            "requests": {row.name: request_schema(row, True) for row in requests},
            "execution": one_of("executions", [row.name for row in immediate]),
            "executions": {row.name: request_schema(row, False) for row in immediate},
            "answer": answer_schema("any"),
            "answers": {row.name: answer_schema(row.result) for row in requests + immediate},
            "failure": given_schema(declared("error: error"),
                                    **{"@type": {"const": "error"}, "@extra": {}}),
            "event": one_of("events", all_events),
            "events": {name: event_schema(name, text, doc)
                       for name, (text, doc, _) in all_events.items()},
            **{name: given_schema(declared(text), doc)
               for name, (text, doc) in {**shapes.OBJECTS, **shapes.STORE_OBJECTS}.items()},
        },
    }


def findings():
    if renewed_page() != PAGE.read_text():
        page = PAGE.relative_to(ROOT)
        yield f"{page} differs from the table (scripts/c_interface.py --write mends it)"


def main(arguments):
    if arguments[:1] == ["--schema"] and len(arguments) == 2:
        pathlib.Path(arguments[1]).write_text(json.dumps(schema(), indent=1) + "\n")
    elif arguments == ["--write"]:
        PAGE.write_text(renewed_page())
    elif arguments == ["--check"]:
        found = list(findings())
        print("\n".join(found))
        return 1 if found else 0
    else:
        print(__doc__)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
