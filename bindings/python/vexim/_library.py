"""Finds and loads the C library, and declares its five functions."""

from __future__ import annotations

import ctypes
import json
import os
import pathlib
from typing import Any, Protocol

from .errors import LibraryNotFoundError, error_from

TYPE_CHECKING = False  # as in __init__.py

if TYPE_CHECKING:
    from .models import Metrics

NAME = "libvexim-c.so.1"
NAME_WITH_STORE = "libvexim-c-store.so.1"
_BENEATH = ("libVexIMLib.so.1", "libVexIMLibStore.so.1")


class Library(Protocol):
    """The five functions. Texts are UTF-8."""

    def create(self, configuration: bytes) -> int: ...
    def send(self, client: int, request: bytes) -> None: ...
    def receive(self, client: int) -> bytes | None:
        """The next text, or None if there is none. Does not wait."""
        ...
    def execute(self, client: int, request: bytes) -> bytes | None: ...
    def free(self, client: int) -> None: ...


class CLibrary:
    """`Library` over ctypes."""

    def __init__(self, path: str) -> None:
        # Functions that return at once keep Python's lock: giving it up costs more than they do,
        # and with other threads running, getting it back may take milliseconds. Making and freeing
        # a client may wait for other threads.
        quick, waiting = ctypes.PyDLL(path), ctypes.CDLL(path)
        self._create, self._free = waiting.vexim_create, waiting.vexim_free
        self._send, self._receive = quick.vexim_send, quick.vexim_receive
        self._execute = quick.vexim_execute
        handle, text = ctypes.c_int64, ctypes.c_char_p
        self._create.argtypes, self._create.restype = [text], handle
        self._free.argtypes, self._free.restype = [handle], None
        self._send.argtypes, self._send.restype = [handle, text], None
        self._receive.argtypes, self._receive.restype = [handle, ctypes.c_double], text
        self._execute.argtypes, self._execute.restype = [handle, text], text

    def create(self, configuration: bytes) -> int:
        return int(self._create(configuration))

    def send(self, client: int, request: bytes) -> None:
        self._send(client, request)

    def receive(self, client: int) -> bytes | None:
        text: bytes | None = self._receive(client, 0.0)
        return text

    def execute(self, client: int, request: bytes) -> bytes | None:
        text: bytes | None = self._execute(client, request)
        return text

    def free(self, client: int) -> None:
        self._free(client)


def candidates() -> list[str]:
    """The places to search for the library, in this order: the path in VEXIM_C_LIBRARY (and then
    nowhere else), next to this package (in a wheel), and the system's usual places. In the last
    two, the library with the store comes first.
    """
    named = os.environ.get("VEXIM_C_LIBRARY")
    if named:
        return [named]
    names = [NAME_WITH_STORE, NAME]
    beside = [pathlib.Path(__file__).resolve().parent / "_lib" / name for name in names]
    return [str(path) for path in beside if path.exists()] + names


_loaded: CLibrary | None = None


def load() -> CLibrary:
    """The library. The first call loads it. Raises `LibraryNotFoundError`."""
    global _loaded
    if _loaded is None:
        complaints = []
        for path in candidates():
            try:
                for beneath in (pathlib.Path(path).parent / name for name in _BENEATH):
                    if os.sep in path and beneath.exists():
                        # so that the loader uses this copy, not the system's
                        ctypes.CDLL(str(beneath))
                library = CLibrary(path)
                # Otherwise it keeps every finished request, which nobody can look at from here.
                execute(library, 0, "setKeepsFinishedDelegates", keeps=False)
                _loaded = library
                break
            except (OSError, AttributeError) as error:
                complaints.append(f"{path}: {error}")
        else:
            raise LibraryNotFoundError("cannot load the C library; " + "; ".join(complaints))
    return _loaded


def execute(library: Library, client: int, operation: str, **arguments: Any) -> Any:
    """Runs an operation that needs no network and returns its result."""
    text = library.execute(client, json.dumps({"@op": operation, **arguments}).encode())
    if text is None:
        raise MemoryError("vexim_execute")
    answer = json.loads(text)
    if answer.get("@type") == "error":
        raise error_from(answer.get("error"), operation)
    return answer.get("result")


def library_version() -> str:
    """The version of the C library that is used, such as "1.0.0". Raises `LibraryNotFoundError`."""
    result = execute(load(), 0, "version")
    return str(result.get("version")) if isinstance(result, dict) else ""


def metrics() -> Metrics:
    """The metrics of all clients with `options={"metrics": True}`. Call it from any thread."""
    from .models import metrics_from

    return metrics_from(execute(load(), 0, "metrics"))


def set_application_info(
    bundle_identifier: str | None = None, bundle_version: str | None = None,
    system_version: str | None = None
) -> None:
    """Sets the application's name and version for the User-Agent of its requests. Call it before
    any client is opened."""
    given = {"bundleIdentifier": bundle_identifier, "bundleVersion": bundle_version,
             "systemVersion": system_version}
    execute(load(), 0, "setApplicationInfo",
            **{name: value for name, value in given.items() if value is not None})


def set_log(level: str | None) -> None:
    """Writes the library's log to standard error, from this level upwards: "debug", "info",
    "warning" or "error". None turns it off.
    """
    execute(load(), 0, "setLog", level=level)
