"""An event loop in its own thread, for programs without one."""

from __future__ import annotations

import asyncio
import concurrent.futures
import threading
from collections.abc import AsyncIterator, Callable, Coroutine, Iterator
from types import TracebackType
from typing import Any, Generic, Protocol, TypeVar

from .errors import ClosedError, usage
from .events import Stream
from .observation import Observation
from .stored import ListChange

T = TypeVar("T")
Item = TypeVar("Item", covariant=True)


class Portal:
    """Runs coroutines in its thread and waits for them. Call it from any thread."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._closed = False
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._serve, name="vexim", daemon=True)
        self._thread.start()

    def _serve(self) -> None:
        asyncio.set_event_loop(self._loop)
        try:
            self._loop.run_forever()
            tasks = asyncio.all_tasks(self._loop)
            for task in tasks:
                task.cancel()
            self._loop.run_until_complete(asyncio.gather(*tasks, return_exceptions=True))
            self._loop.run_until_complete(self._loop.shutdown_default_executor())
        finally:
            self._loop.close()

    def run(self, coroutine: Coroutine[Any, Any, T], timeout: float | None) -> T:
        """Returns the coroutine's result. The coroutine is cancelled after `timeout` seconds
        (TimeoutError), or if the wait is interrupted, for example by Ctrl-C.
        """
        if threading.current_thread() is self._thread:
            coroutine.close()
            raise usage("a callback must not wait for the client that calls it")

        async def bounded() -> T:
            async with asyncio.timeout(timeout):
                return await coroutine

        with self._lock:
            if self._closed:
                coroutine.close()
                raise ClosedError()
            future = asyncio.run_coroutine_threadsafe(bounded(), self._loop)
        try:
            return future.result()
        except concurrent.futures.CancelledError:
            coroutine.close()  # it may not have begun
            raise ClosedError() from None
        except BaseException:
            future.cancel()
            raise

    def do(self, function: Callable[[], T]) -> T:
        """Runs a function that does not wait in the loop's thread."""

        async def task() -> T:
            return function()

        return self.run(task(), None)

    def close(self) -> None:
        """Cancels everything that is running, and ends the thread."""
        with self._lock:
            if self._closed:
                return
            self._closed = True
        self._loop.call_soon_threadsafe(self._loop.stop)
        if threading.current_thread() is not self._thread:
            self._thread.join()


class _Closable(Protocol[Item]):
    def __aiter__(self) -> AsyncIterator[Item]: ...
    async def aclose(self) -> None: ...


class _SyncIterator(Iterator[T], Generic[T]):
    def __init__(self, portal: Portal, inner: _Closable[T]) -> None:
        self._portal = portal
        self._inner = inner

    def __next__(self) -> T:
        return self.get()

    def get(self, timeout: float | None = None) -> T:
        """The next item. Raises TimeoutError if none comes within `timeout` seconds, StopIteration
        at the end.
        """
        try:
            items = self._portal.run(self._take(), timeout)
        except ClosedError:
            items = []
        if not items:
            raise StopIteration
        return items[0]

    async def _take(self) -> list[T]:
        async for item in self._inner:
            return [item]
        return []

    def close(self) -> None:
        """Ends it. Items that were not read wait for the next stream of this kind."""
        try:
            self._portal.run(self._inner.aclose(), None)
        except ClosedError:
            pass

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()


class SyncStream(_SyncIterator[T]):
    """An iterator over a stream. It waits for the next item, and ends when the client is closed.
    See `vexim.Stream`."""

    def __init__(self, portal: Portal, stream: Stream[T]) -> None:
        super().__init__(portal, stream)
        self._stream = stream

    def __iter__(self) -> SyncStream[T]:
        return self

    def __enter__(self) -> SyncStream[T]:
        return self

    @property
    def dropped(self) -> int:
        """How many items were dropped because nobody read them."""
        return self._stream.dropped


class SyncObservation(_SyncIterator[ListChange[T]], Generic[T]):
    """An iterator over the changes of a list. It waits for the next one, and ends when the store is
    closed. See `vexim.Observation`."""

    def __init__(self, portal: Portal, observation: Observation[T]) -> None:
        super().__init__(portal, observation)
        self._observation = observation

    def __iter__(self) -> SyncObservation[T]:
        return self

    def __enter__(self) -> SyncObservation[T]:
        return self

    def set_limit(self, limit: int) -> None:
        """Makes the list longer or shorter, for example when the user scrolls to its end."""
        self._portal.run(self._observation.set_limit(limit), None)
