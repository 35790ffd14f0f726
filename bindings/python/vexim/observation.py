"""Lists of a store that change while they are watched."""

from __future__ import annotations

import asyncio
import collections
import weakref
from collections.abc import AsyncIterator, Callable, Mapping
from types import TracebackType
from typing import TYPE_CHECKING, Any, Generic, TypeVar

from ._link import Record
from .stored import ListChange

if TYPE_CHECKING:
    from .store import Store

T = TypeVar("T")
_MOST_PENDING = 100  # changes that nobody has taken; then they become one


class Observation(AsyncIterator[ListChange[T]], Generic[T]):
    """An asynchronous iterator over the changes of a list, made by `Store.observe` and
    `Store.observe_conversations`.

    The first change has the whole list. A slow reader loses nothing: changes that wait for it are
    merged into one. It ends
    when the store is closed. One task at a time reads it.
    """

    def __init__(self, store: Store, operation: str, arguments: Mapping[str, Any], item: str,
                 read: Callable[[Any], T]) -> None:
        self._store = store
        self._operation = operation
        self._arguments = arguments
        self._item = item
        self._read = read
        self._number: int | None = None
        self._items: list[T] = []
        self._taken: tuple[T, ...] = ()  # the list as the reader has it
        self._pending: collections.deque[ListChange[T]] = collections.deque()
        self._waiter: asyncio.Future[None] | None = None
        self._closed = False
        self._beginning: asyncio.Task[None] | None = None

    def __aiter__(self) -> Observation[T]:
        return self

    async def __anext__(self) -> ListChange[T]:
        if self._number is None and not self._closed:
            if self._beginning is None or self._beginning.done():
                self._beginning = asyncio.ensure_future(self._begin())
            # It begins only once, even if the wait for the first change is cancelled.
            await asyncio.shield(self._beginning)
        while not self._pending:
            if self._closed:
                raise StopAsyncIteration
            if self._waiter is not None:
                raise RuntimeError("another task is reading this observation")
            self._waiter = asyncio.get_running_loop().create_future()
            try:
                await self._waiter
            finally:
                self._waiter = None
        change = self._pending.popleft()
        self._taken = tuple(change.items)
        return change

    async def set_limit(self, limit: int) -> None:
        """Makes the list longer or shorter, for example when the user scrolls to its end."""
        self._arguments = {**self._arguments, "limit": limit}
        if self._number is not None and not self._closed:
            await self._store._link().call("VXIMStoreObservation.setLimit",
                                           {"observation": self._number, "limit": limit})

    async def aclose(self) -> None:
        """Ends the observation."""
        self._release()

    async def __aenter__(self) -> Observation[T]:
        return self

    async def __aexit__(self, kind: type[BaseException] | None, error: BaseException | None,
                        trace: TracebackType | None) -> None:
        self._release()

    def __del__(self) -> None:
        self._release()

    async def _begin(self) -> None:
        def began(number: Any) -> None:
            self._number = int(number)
            self._store._observations[self._number] = weakref.ref(self)

        arguments = {"store": self._store._number, **self._arguments}
        await self._store._link().call(f"VXIMMessageStore.{self._operation}", arguments,
                                       on_answer=began)

    def _release(self) -> None:
        if self._number is not None and self._store._observations.pop(
                self._number, None) is not None:
            link = self._store._client._link
            if link is not None:
                link.tell("VXIMStoreObservation.release", observation=self._number)
        self._end()

    def _end(self) -> None:
        self._closed = True
        self._pending.clear()
        self._wake()

    def _wake(self) -> None:
        if self._waiter is not None and not self._waiter.done():
            self._waiter.set_result(None)

    def _push(self, record: Record) -> None:
        if self._closed:
            return
        before = len(self._items)
        removed = list(range(before)) if record["whole"] else list(record["removed"])
        for position in reversed(removed):
            del self._items[position]
        for each in record["inserted"]:
            self._items.insert(each["position"], self._read(each[self._item]))
        for each in record["changed"]:
            self._items[each["position"]] = self._read(each[self._item])
        items = tuple(self._items)
        if len(self._pending) >= _MOST_PENDING:
            self._pending.clear()
            self._pending.append(ListChange(items, tuple(range(len(self._taken))),
                                            tuple(range(len(items))), ()))
        else:
            inserted, changed = (tuple(each["position"] for each in record[name])
                                 for name in ("inserted", "changed"))
            self._pending.append(ListChange(items, tuple(removed), inserted, changed))
        self._wake()
