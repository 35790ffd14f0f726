#!/usr/bin/env python3
"""Writes vexim/sync.py and what it is made of, the form without asyncio, from the asynchronous one:
the same methods, which wait.

    make_sync.py            writes them
    make_sync.py --check    fails when they are not what would be written
"""

import ast
import pathlib
import re
import sys
import textwrap

HERE = pathlib.Path(__file__).resolve().parent
RESOURCES = ("Users", "Friends", "Groups", "Rooms", "Passengers")

HEAD = '''"""VexIM without asyncio, for scripts and notebooks: the same methods, which wait.

    with vexim.sync.Client("demo-app", "demo-key", url=URL) as client:
        client.login(user_id="alice")
        client.send("hello", friend="bob")
        for message in client.messages():
            print(message.sender, message.text)

Each client has an event loop in a thread of its own. Any thread may call the client. Progress
callbacks run in the loop's thread and must not wait for the client. Written by make_sync.py.
"""

from __future__ import annotations

import datetime
import os
import pathlib
from collections.abc import Mapping
from types import TracebackType
from typing import Any

from . import client as _client
from ._compose import File
from ._library import Library
from ._link import Progress
from ._portal import Portal, SyncObservation, SyncStream
from ._sync_resources import Friends, Groups, Passengers, Rooms, Users
from ._sync_store import Store
from .errors import ClosedError
from .events import Event, PresenceChanged
from .models import Diagnosis, Message, Status

__all__ = ["Client", "Store", "SyncObservation", "SyncStream"]
'''

RESOURCES_HEAD = '''"""The resources of `vexim.sync.Client`. Written by make_sync.py."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Any

from . import resources as _resources
from ._portal import Portal
from .models import Friend, Group, Message, Passenger, Room, User
'''

STORE_HEAD = '''"""The store of `vexim.sync.Client`. Written by make_sync.py."""

from __future__ import annotations

import datetime
import os
from collections.abc import Mapping
from types import TracebackType
from typing import Any

from . import store as _store
from ._compose import File
from ._link import Progress
from ._portal import Portal, SyncObservation
from .errors import ClosedError
from .stored import Conversation, Gap, Peer, Position, StoreDamage, StoredMessage
'''

CLIENT = '''

class Client:
    """One user's connection to the service: `vexim.Client`, whose methods wait.

    `timeout` limits each call in seconds, except uploads and downloads: after it the call raises
    TimeoutError. None waits for ever. The other arguments are those of `vexim.Client`.

    The client is open from the start. `close`, or the end of a `with`, ends it without a logout.
    Other threads' calls in progress then raise `ClosedError`.
    """

    def __init__(
        self,
        app_id: str,
        client_key: str,
        *,
        url: str | None = None,
        installation_id: str | None = None,
        namespace: str | None = None,
        options: Mapping[str, Any] | None = None,
        queue_size: int = 10_000,
        timeout: float | None = 60.0,
        library: Library | None = None,
    ) -> None:
        self._inner = _client.Client(app_id, client_key, url=url, installation_id=installation_id,
                                     namespace=namespace, options=options, queue_size=queue_size,
                                     library=library)
        self._timeout = timeout
        self._portal = Portal()
        try:
            self._portal.do(self._inner.open)
        except BaseException:
            self._portal.close()
            raise
        self.users = Users(self._inner.users, self._portal, timeout)
        self.friends = Friends(self._inner.friends, self._portal, timeout)
        self.groups = Groups(self._inner.groups, self._portal, timeout)
        self.rooms = Rooms(self._inner.rooms, self._portal, timeout)
        self.passengers = Passengers(self._inner.passengers, self._portal, timeout)

    def close(self) -> None:
        """Cuts the connection without a logout, and ends the thread. Closing again does nothing."""
        try:
            self._portal.do(self._inner.close)
        except ClosedError:
            return
        self._portal.close()

    def __enter__(self) -> Client:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return repr(self._inner).replace("vexim.Client", "vexim.sync.Client")
'''

STORE = '''

class Store:
    """A user's messages on this device, in one SQLite file: `vexim.Store`, whose methods wait.
    `Client.open_store` makes it; `with` opens and closes it."""

    def __init__(self, inner: _store.Store, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def close(self) -> None:
        """Finishes earlier operations, then closes the file. Unsent messages are sent the next
        time. Closing again does nothing."""
        try:
            self._portal.run(self._inner.close(), self._timeout)
        except ClosedError:
            pass

    def __enter__(self) -> Store:
        self.open()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return repr(self._inner).replace("vexim.Store", "vexim.sync.Store")
'''


def documentation(node):
    text = ast.get_docstring(node, clean=True) or ""
    lines = re.sub("`?asyncio[.]timeout`?", "the client's `timeout`", text).splitlines()
    if len(lines) == 1:
        return [f'"""{lines[0]}"""']
    return [f'"""{lines[0]}', *lines[1:], '"""']


def filled(start, parts, width):
    """The parts behind `start`, on as few lines as possible."""
    lines, line = [], start
    for part in parts:
        if len(line + part) > width:
            lines.append(line.rstrip())
            line = " " * len(start)
        line += part + " "
    return [*lines, line.rstrip()]


def signature(node, returns):
    parts, depth, part = [], 0, ""
    for character in ast.unparse(node.args) + ",":
        depth += character in "([{"
        depth -= character in ")]}"
        part += character
        if character == "," and depth == 0:
            parts.append(part.strip())
            part = ""
    parts[-1] = parts[-1].rstrip(",") + f") -> {returns}:"
    return filled(f"def {node.name}(", parts, 96)


def call(node):
    names = [argument.arg for argument in node.args.args if argument.arg != "self"]
    named = [f"{argument.arg}={argument.arg}" for argument in node.args.kwonlyargs]
    return ", ".join([*names, *named])


def folded(body, opening):
    """The line, broken after `opening` if it is too long."""
    if len(body) <= 92:
        return [body]
    start, rest = body.split(opening, 1)
    return [start + opening, *textwrap.indent(textwrap.fill(rest, 88), "    ").splitlines()]


def method(node, inner):
    is_async = isinstance(node, ast.AsyncFunctionDef)
    is_property = any(ast.unparse(decorator) == "property" for decorator in node.decorator_list)
    returns = ast.unparse(node.returns)
    is_stream = returns.startswith(("Stream[", "Observation["))
    lines = ["@property"] if is_property else []
    lines += signature(node, "Sync" + returns if is_stream else returns)
    lines += ["    " + line if line else "" for line in documentation(node)]
    target = f"{inner}.{node.name}"
    if is_property:
        body = f"return self._portal.do(lambda: {target})"
    elif is_stream:
        made = f"self._portal.do(lambda: {target}({call(node)}))"
        body = f"return Sync{returns.split('[')[0]}(self._portal, {made})"
    elif returns == "Store":
        made = f"self._portal.do(lambda: {target}({call(node)}))"
        body = f"return Store({made}, self._portal, self._timeout)"
    elif is_async:
        # A stored message is written at once, and uploaded later.
        has_progress = any(argument.arg == "progress" for argument in node.args.kwonlyargs)
        is_transfer = has_progress and returns != "StoredMessage"
        timeout = "None" if is_transfer else "self._timeout"
        body = f"self._portal.run({target}({call(node)}), {timeout})"
        body = body if returns == "None" else "return " + body
    else:
        body = f"return self._portal.do(lambda: {target}({call(node)}))"
    lines += ["    " + line for line in folded(body, "(")]
    return textwrap.indent("\n".join(lines), "    ")


def public_methods(node, without=()):
    return [item for item in node.body if isinstance(item, (ast.FunctionDef, ast.AsyncFunctionDef))
            and not item.name.startswith("_") and item.name not in without]


def classes_of(name):
    tree = ast.parse((HERE / "vexim" / name).read_text())
    return {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}


def methods_of(node, without=()):
    return ["\n" + method(each, "self._inner") + "\n" for each in public_methods(node, without)]


def resources_module():
    resources = classes_of("resources.py")
    parts = [RESOURCES_HEAD]
    for name in RESOURCES:
        node = resources[name]
        parts.append(f'\n\nclass {name}:\n    """{ast.get_docstring(node)}"""\n')
        parts.append(f'''
    def __init__(self, inner: _resources.{name}, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout
''')
        for each in [*(resources[ast.unparse(base)] for base in node.bases), node]:
            parts += methods_of(each)
    return parts


def generated():
    """{file: its contents}"""
    client, store = classes_of("client.py")["Client"], classes_of("store.py")["Store"]
    modules = {
        "sync.py": [HEAD, CLIENT, *methods_of(client, without=("open", "close"))],
        "_sync_resources.py": resources_module(),
        "_sync_store.py": [STORE_HEAD, STORE, *methods_of(store, without=("close",))],
    }
    return {HERE / "vexim" / name: "".join(parts) for name, parts in modules.items()}


if __name__ == "__main__":
    for path, text in generated().items():
        if sys.argv[1:] != ["--check"]:
            path.write_text(text)
        elif not path.exists() or path.read_text() != text:
            sys.exit(f"{path.name} is not what make_sync.py writes")
