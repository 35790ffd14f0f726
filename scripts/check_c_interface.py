#!/usr/bin/env python3
"""Fails if a public C++ header has something that the C interface lacks: an operation, a function
of the client, a call of the delegate, a notification, a setting, an option, or a property of an
object. The lists here name what is left out on purpose, with the reason."""

import re
import sys

import c_interface
import c_interface_shapes as shapes

ROOT = c_interface.ROOT

LEFT_OUT = {
    "VXIMClient": {
        "clientWithAppId": "vexim_create", "clientWithConfiguration": "vexim_create",
        "initWithConfiguration": "vexim_create",
        "init": "vexim_create",
        "delegate": "events take its place", "setDelegate": "events take its place",
        "socketio": "a class for C++ programs",
        "onlineFriends": "a place for C++ programs to keep them; the library does not read it",
        "setOnlineFriends": "likewise",
        "messages": "likewise", "setMessages": "likewise",
    },
    "VXIMMessage": {
        "attachmentPath": "only of messages to be sent", "status": "the answer has it",
        "error": "the answer has it",
        "senderDictionary": "in the payload",
        "receiverDictionary": "in the payload", "dictionaryRepresentation": "the payload",
    },
    "VXIMClientConfiguration": {"dictionary": "the configuration itself has the options"},
}
STORE_LEFT_OUT = {
    "VXIMConversations": {
        "conversationsWithClient": "VXIMConversations.open", "client": "the handle",
        "setCaughtUpHandler": "an event", "setTroubleHandler": "an event",
    },
    "VXIMMessageStore": {"path": "in the object", "service": "in the object",
                         "userId": "in the object", "damage": "in the object"},
}
# Structs whose fields are arguments of their own, and the names of the other structs here.
STORE_SPREAD = {"VXIMConversationsOptions", "VXIMMessageStoreOptions", "VXIMMessageSearch",
                "VXIMRetention", "VXIMStoredGap"}
STORE_OBJECTS = {
    "VXIMConversationId": "kConversationId", "VXIMStorePosition": "kStorePosition",
    "VXIMStoredMessage": "storedMessage",
    "VXIMConversation": "conversation", "VXIMStoredGap": "storedGap",
    "VXIMStoreDamage": "storeDamage",
    "VXIMListChange": "observedMessagesDidChange", "VXIMCaughtUp": "conversationsDidCatchUp",
}
# What every class of the runtime has, and factories.
PLUMBING = re.compile(r"runtimeClass|staticClass|keyPathForProperty|description|copy|initialise|"
                      r"sharedAs|\w+With(Id|Dictionary)")
# Parameters that the interface has other means for.
CARRIED = {"completion", "block", "progress", "transfer"}
# The getters whose option has another name.
OPTION = re.compile(r'/// Option "(\w+)"[^\n]*\n(?:\s*///[^\n]*\n)*\s*[\w:]+ (\w+)\(\) const')


def class_body(text, name, accesses=("public",)):
    """The public part of a class, or what else is asked for, without comments."""
    found = re.search(rf"^class VEXIM_EXPORT {name}\b[^;{{]*\{{(.*?)^\}};", text,
                      re.MULTILINE | re.DOTALL)
    body = re.sub(r"//[^\n]*", "", found[1])
    parts = re.split(r"^(public|protected|private):$", body, flags=re.MULTILINE)
    return "".join(part for access, part in zip(parts[1::2], parts[2::2]) if access in accesses)


def functions(body):
    """[(name, [parameter], result, whether it is static)]; inline bodies are dropped first."""
    body = re.sub(r"\{[^{}]*\}", ";", body)
    found = []
    for statement in body.split(";"):
        statement = " ".join(statement.split())
        match = re.fullmatch(
            r"(?:template <.*?> )?((?:static|virtual|explicit) )?(.*?)\b(\w+)\((.*)\)"
            r"(?: const| noexcept| override| = 0)*", statement)
        if not match or match[2].strip() in ("", "~") or statement.startswith(
                ("friend", "using", "explicit")):
            continue
        depth, parameters = 0, [""]
        for character in match[4]:
            depth += (character in "<(") - (character in ">)")
            if character == "," and depth == 0:
                parameters.append("")
            else:
                parameters[-1] += character
        found.append((match[3], [p.split("=")[0].strip() for p in parameters if p.strip()],
                      match[2].strip(), match[1] == "static "))
    return found


def findings():
    requests, of_store, immediate, constant = c_interface.read_table()
    rows = {row.name: row for row in requests + of_store + immediate}
    events = (ROOT / "VexIMLib/C/internal/Session.cpp").read_text()
    records = (ROOT / "VexIMLib/C/internal/Records.cpp").read_text()
    options = {name for name, *_ in constant["kConfiguration"] + constant["kConnectionOptions"]}
    of_attributes = ("VXIMUser", "VXIMGroup", "VXIMRoom")

    classes = ("VXIMClient", "VXIMMessage", "VXIMMessageTarget", "VXIMAttributedObject",
               *of_attributes, "VXIMFriendInfo", "VXIMPassenger", "VXIMQuery")
    headers = {path.stem: path.read_text() for path in (ROOT / "VexIMLib").glob("VXIM*.h")}
    for name in classes:
        left_out = LEFT_OUT.get(name, {})
        for function, parameters, _, is_static in functions(class_body(headers[name], name)):
            is_operation = any(re.match(r"VXIM\w*Completion\b", parameter)
                               for parameter in parameters)
            if function in left_out or (PLUMBING.fullmatch(function) and not is_operation):
                continue
            if is_operation or name == "VXIMClient":
                owners = of_attributes if name == "VXIMAttributedObject" else (name,)
                for owner in owners:
                    operation = function if owner == "VXIMClient" else f"{owner}.{function}"
                    row = rows.get(operation)
                    if row is None:
                        yield f"{name}.h: {function}: no \"{operation}\" in the C interface"
                        continue
                    known = {parameter for parameter, *_ in row.parameters}
                    for parameter in (re.split(r"[\s&*]", p)[-1] for p in parameters):
                        if parameter not in CARRIED | known:
                            yield f"{name}.h: \"{operation}\" lacks {function}'s {parameter}"
            elif name == "VXIMQuery":
                continue  # its setters are the arguments of the searches
            elif not parameters and not is_static and f'"{function}"' not in records:
                yield f"{name}.h: the property {function} is not written by Records.cpp"
    delegate = class_body(headers["VXIMClientDelegate"], "VXIMClientDelegate")
    for function, parameters, *_ in functions(delegate):
        entries = c_interface.declared(shapes.EVENTS.get(function, ("",))[0])
        declared = [name for name, *_ in entries]
        if f'"{function}"' not in events or function not in shapes.EVENTS:
            yield f"VXIMClientDelegate.h: {function} is not an event of the C interface"
        elif declared != [re.split(r"[\s&*]", p)[-1]
                          for p in parameters if not p.endswith("client")]:
            yield (f"VXIMClientDelegate.h: {function} has other parameters than its event: "
                   + ", ".join(declared))
    constants = (ROOT / "VexIMLib/internal/Configuration/VXIMConstants.cpp").read_text()
    notifications = dict(re.findall(r'const (VXIM\w*Notification)\s*=\s*"(.*)";', constants))
    for notification in re.findall(r"const (VXIM\w*Notification);", headers["VXIMConstants"]):
        names = {notification, notifications[notification]}
        if notification not in events or not names & set(shapes.EVENTS):
            yield f"VXIMConstants.h: {notification} is not an event of the C interface"
    for setting in re.findall(r"^VEXIM_EXPORT void (\w+)\(", headers["VXIMSettings"], re.MULTILINE):
        if setting not in rows:
            yield f"VXIMSettings.h: {setting} is not an operation of the C interface"
    configuration = headers["VXIMClientConfiguration"]
    by_getter = {getter: option for option, getter in OPTION.findall(configuration)}
    left_out = LEFT_OUT["VXIMClientConfiguration"]
    settings = class_body(configuration, "VXIMClientConfiguration")
    for function, parameters, _, is_static in functions(settings):
        if parameters or is_static or function in left_out or PLUMBING.fullmatch(function):
            continue
        if by_getter.get(function, function) not in options:
            yield f"VXIMClientConfiguration.h: {function} is not a name of the configuration"
    yield from findings_of_store(rows)
    yield from findings_of_socket_options()
    page = (ROOT / "docs/socketio.md").read_text()
    for option in re.findall(r'^\| "(\w+)" \|', page.split("## Events")[0], re.MULTILINE):
        if option not in options:
            yield f"docs/socketio.md: the option {option} is not a name of the configuration"


def findings_of_socket_options():
    """The code, the header's comment and the page must have the same options of a connection."""
    code = (ROOT / "VexIMLib/internal/SocketIO/Client/SocketIOOptions.cpp").read_text()
    known = set(re.findall(r'\{"(\w+)",', code.split("& readers()")[1]))
    header = (ROOT / "VexIMLib/SocketIOClient.h").read_text()
    header = header.split("The options are:")[1].split("static ")[0]
    page = (ROOT / "docs/socketio.md").read_text().split("## Proxies")[0]
    rows = re.findall(r"^\| (\".*?) \|", page, re.MULTILINE)
    for place, text in ("VexIMLib/SocketIOClient.h", header), ("docs/socketio.md", " ".join(rows)):
        named = set(re.findall(r'"(\w+)"', text)) - {"websocket", "polling"}
        for option in sorted(known ^ named):
            wrong = "is missing" if option in known else "is not an option of a connection"
            yield f"{place}: the option {option} {wrong}"


def fields(headers):
    """{struct: [its field]} of plain structs."""
    found = {}
    for name, body in re.findall(r"^struct (VXIM\w+) \{(.*?)^\};", headers,
                                 re.MULTILINE | re.DOTALL):
        body = re.sub(r"//[^\n]*", "", body)
        no_field = r"^\s*(?:friend|VEXIM_EXPORT) [^;]*;|^\s*VXIMStorePosition \w+\(.*"
        body = re.sub(no_field, "", body, flags=re.MULTILINE)
        found[name] = re.findall(r"\b(\w+)(?: = [^;]*|\{[^;]*\})?;", body)
    return found


def findings_of_store(rows):
    texts = {path.stem: path.read_text() for path in sorted((ROOT / "VexIMLib/Store").glob("*.h"))}
    structs = fields("".join(texts.values()))
    for header, text in texts.items():
        for name in re.findall(r"^class VEXIM_EXPORT (\w+)\b[^;{]*\{", text, re.MULTILINE):
            for function, parameters, *_ in functions(class_body(text, name)):
                if function in STORE_LEFT_OUT.get(name, {}):
                    continue
                operation = f"{name}.{function}"
                row = rows.get(operation)
                if row is None:
                    yield f"{header}.h: {function}: no \"{operation}\" in the C interface"
                    continue
                known = {parameter for parameter, *_ in row.parameters}
                for parameter in parameters:
                    type_, _, given = re.fullmatch(r"(.*?)([\s&*]+)(\w+)", parameter).groups()
                    wanted = structs[type_] if type_ in STORE_SPREAD else [given]
                    for each in wanted:
                        if each not in CARRIED | {"observer"} | known:
                            yield f"{header}.h: \"{operation}\" lacks {function}'s {each}"
    for struct, names in structs.items():
        if struct in STORE_SPREAD - STORE_OBJECTS.keys():
            continue
        if struct not in STORE_OBJECTS:
            yield f"VexIMLib/Store: {struct} is not an object of the C interface"
            continue
        made = STORE_OBJECTS[struct]
        declared = c_interface.constants(c_interface.STORE_TABLE.read_text()).get(made) or \
            c_interface.declared({**shapes.STORE_OBJECTS, **shapes.STORE_EVENTS}[made][0])
        for field in names:
            if field not in {name for name, *_ in declared} | {"list"}:
                yield f"VexIMLib/Store: \"{made}\" lacks {struct}'s {field}"


if __name__ == "__main__":
    found = list(findings())
    print("\n".join(found))
    sys.exit(1 if found else 0)
