"""One client of the C library in an asyncio loop: requests become awaitable calls, and events go to
a handler.

    request := {"@op": name, "@extra": number, argument: value, …}
    text    := {"@type": "answer" | "error" | "event", "@extra": number, …}

Everything happens in the loop's thread, which waits on the client's descriptor.
"""

from __future__ import annotations

import asyncio
import json
import logging
import os
from collections.abc import Callable, Mapping
from typing import Any

from ._library import Library, execute
from .errors import INTERFACE_DOMAIN, ClosedError, Error, error_from, usage

Record = dict[str, Any]
Progress = Callable[[int], object]

_log = logging.getLogger("vexim")
_encode = json.JSONEncoder(ensure_ascii=False, allow_nan=False, separators=(",", ":")).encode


# The library refuses deeper texts as a whole, and then cannot say which call they belong to.
_DEEPEST = 500


def _bytes(value: Mapping[str, Any]) -> bytes:
    """As JSON. Raises ValueError or TypeError for values that JSON or UTF-8 cannot express."""
    text = _encode(value)
    if text.count("[") + text.count("{") > _DEEPEST and _depth(value) > _DEEPEST:
        raise ValueError("nested too deeply")
    return text.encode()


def _depth(value: Any) -> int:
    depth, layer = 0, [value]
    while layer:
        depth += 1
        layer = [inner for outer in layer if isinstance(outer, (dict, list, tuple))
                 for inner in (outer.values() if isinstance(outer, dict) else outer)]
    return depth


class _Call:
    __slots__ = ("answer", "on_answer", "operation", "progress")

    def __init__(self, answer: asyncio.Future[Any], operation: str, progress: Progress | None,
                 on_answer: Callable[[Any], None] | None) -> None:
        self.answer = answer
        self.operation = operation
        self.progress = progress
        self.on_answer = on_answer


class Link:
    def __init__(self, library: Library, configuration: Mapping[str, Any],
                 on_event: Callable[[str, Record], None],
                 is_busy: Callable[[], bool], texts_per_turn: int) -> None:
        """Makes the client. Raises `UsageError` for a configuration that cannot be used. Needs a
        running loop.

        While `is_busy` returns true, nothing is taken from the library. Each turn of the loop takes
        at most `texts_per_turn` texts, so that other tasks run in between.
        """
        self._loop = asyncio.get_running_loop()
        self._library = library
        self._on_event = on_event
        self._is_busy = is_busy
        self._texts_per_turn = texts_per_turn
        self._calls: dict[int, _Call] = {}
        self._last = 0
        self._descriptor: int | None = None
        self._process = os.getpid()
        self._client = library.create(_bytes(configuration))
        if self._client == 0:
            why = "No client can be made: the process was forked, is ending, or is out of memory."
            raise Error(INTERFACE_DOMAIN, 6, why)
        try:
            first = library.receive(self._client)  # the error, if the configuration is unusable
            if first is not None:
                record = json.loads(first)
                if record.get("@type") == "error":
                    raise error_from(record.get("error"))
            self._descriptor = int(execute(library, self._client, "descriptor")["descriptor"])
            self._loop.add_reader(self._descriptor, self._drain)
        except BaseException:
            self.close()
            raise

    @property
    def is_open(self) -> bool:
        return self._client != 0

    def close(self) -> None:
        """Ends the client at once. Open calls raise `ClosedError`."""
        client, self._client = self._client, 0
        # A forked child shares the loop's descriptors with its parent.
        if client == 0 or os.getpid() != self._process:
            return
        if self._descriptor is not None and not self._loop.is_closed():
            self._loop.remove_reader(self._descriptor)
        self._library.free(client)
        while self._library.receive(client) is not None:  # the last answers, which would be kept
            pass
        calls, self._calls = self._calls, {}
        if self._loop.is_closed():
            return
        for call in calls.values():
            if not call.answer.done():
                call.answer.set_exception(ClosedError())

    def execute(self, operation: str) -> Any:
        """Runs an operation that needs no network, and returns its result."""
        if not self.is_open:
            raise ClosedError()
        return execute(self._library, self._client, operation)

    async def call(self, operation: str, arguments: Mapping[str, Any],
                   progress: Progress | None = None,
                   on_answer: Callable[[Any], None] | None = None) -> Any:
        """Returns the result. `on_answer` gets it before later events are handled. Cancelling the
        task cancels the request, and a transfer with it.
        """
        if not self.is_open:
            raise ClosedError()
        if asyncio.get_running_loop() is not self._loop:
            raise usage("the client belongs to the event loop that opened it")
        self._last += 1
        extra = self._last
        request: Record = {"@op": operation, "@extra": extra}
        request.update((name, value) for name, value in arguments.items() if value is not None)
        if progress is not None:
            request["progress"] = True
        try:
            text = _bytes(request)
        except (TypeError, ValueError, RecursionError) as error:
            raise usage(f"an argument cannot be sent as JSON: {error}") from error
        call = _Call(self._loop.create_future(), operation, progress, on_answer)
        self._calls[extra] = call
        try:
            self._library.send(self._client, text)
            return await call.answer
        except asyncio.CancelledError:
            if not call.answer.done() or call.answer.cancelled():
                self._cancel(extra)
            raise
        finally:
            self._calls.pop(extra, None)

    def fail(self, error: Error) -> None:
        """Ends all open calls."""
        for extra, call in self._calls.items():
            if not call.answer.done():
                call.answer.set_exception(error)
                self._cancel(extra)

    def tell(self, operation: str, **arguments: Any) -> None:
        """Sends a request without waiting for the answer."""
        if self.is_open:
            self._last += 1
            self._library.send(self._client,
                               _bytes({"@op": operation, "@extra": self._last, **arguments}))

    def _cancel(self, extra: int) -> None:
        self.tell("cancel", extra=extra)

    def _drain(self) -> None:
        if self._is_busy():
            return  # the descriptor stays readable
        library = self._library
        for _ in range(self._texts_per_turn):  # what is left keeps the descriptor readable
            if self._client == 0:  # closed by a handler
                return
            text = library.receive(self._client)
            if text is None:
                return
            # The loop reports what this raises, then calls us again for the rest.
            self._take(json.loads(text))

    def _take(self, record: Any) -> None:
        kind = record.get("@type") if isinstance(record, dict) else None
        if kind == "event":
            name = record.get("name")
            if name == "progress":
                call = self._call_of(record)
                percent = record.get("percent")
                if call is not None and call.progress is not None and isinstance(percent, int):
                    call.progress(percent)
            else:
                self._on_event(str(name), record)
        elif kind == "answer" or kind == "error":
            call = self._call_of(record)
            if call is None or call.answer.done():  # cancelled meanwhile, or the answer to "cancel"
                return
            if kind == "answer":
                if call.on_answer is not None:
                    call.on_answer(record.get("result"))
                call.answer.set_result(record.get("result"))
            else:
                call.answer.set_exception(error_from(record.get("error"), call.operation))
        else:
            _log.warning("a text of an unknown kind was skipped")

    def _call_of(self, record: Record) -> _Call | None:
        extra = record.get("@extra")
        return self._calls.get(extra) if isinstance(extra, int) else None
