"""Events of a client, and streams of them."""

from __future__ import annotations

import asyncio
import collections
import weakref
from collections.abc import AsyncIterator, Callable, Mapping
from dataclasses import dataclass, field
from types import TracebackType
from typing import Any, Generic, TypeVar

from .errors import Error
from .models import Message
from .stored import StoreDamage

T = TypeVar("T")
_TAKEN_PER_TURN = 200


@dataclass(frozen=True, slots=True)
class Event:
    """Something that happened. Match on the subclasses."""


@dataclass(frozen=True, slots=True)
class MessageReceived(Event):
    """A message arrived, possibly one of your own."""

    message: Message


@dataclass(frozen=True, slots=True)
class PresenceChanged(Event):
    """A friend has come online or gone offline."""

    friend: str
    online: bool


@dataclass(frozen=True, slots=True)
class LoggedIn(Event):
    """The service accepted the login, also after a reconnect."""


@dataclass(frozen=True, slots=True)
class LoginRefused(Event):
    """The service refused the login after a reconnect. Nothing arrives until the next login."""

    error: Error


@dataclass(frozen=True, slots=True)
class LoggedOut(Event):
    """A logout has ended."""


@dataclass(frozen=True, slots=True)
class Reconnecting(Event):
    """The client is about to connect again."""


@dataclass(frozen=True, slots=True)
class Disconnected(Event):
    """The connection was closed by a pause or a logout, or was lost."""


@dataclass(frozen=True, slots=True)
class ConnectionTrouble(Event):
    """The connection reports a problem, for example that the service cannot be reached."""

    description: str
    details: Any = field(default=None, hash=False)
    """What the service said, if anything."""
    error: Error | None = field(default=None, hash=False, compare=False)
    """The same as an exception. Its domain is "VXIMConnectionErrorDomain", its code says which kind
    of trouble it is, and `temporary` whether it may pass."""


@dataclass(frozen=True, slots=True)
class EventsDropped(Event):
    """This many events were lost because the program did not read them: fetch the history."""

    count: int


@dataclass(frozen=True, slots=True)
class CaughtUp(Event):
    """The histories were read into the store, after a login or a reconnect."""

    missed: int
    """Messages of others that came while this program was not connected."""
    gaps: int = 0
    """Conversations in which some can no longer be had; `Store.gaps` has them."""
    error: Error | None = field(default=None, hash=False, compare=False)
    """What could not be read."""


@dataclass(frozen=True, slots=True)
class StoreTrouble(Event):
    """The store could not write a change and will try again; or another user has logged in, whose
    messages are not stored.
    """

    error: Error = field(hash=False, compare=False)


@dataclass(frozen=True, slots=True)
class StoreDamaged(Event):
    """The open file was found damaged, set aside and replaced."""

    damage: StoreDamage


@dataclass(frozen=True, slots=True)
class OtherEvent(Event):
    """An event that this version of the package does not know."""

    name: str
    arguments: Mapping[str, Any] = field(default_factory=dict, hash=False)


class Stream(AsyncIterator[T], Generic[T]):
    """An asynchronous iterator, made by `Client.messages`, `Client.presence` and `Client.events`.

    Each stream gets every item. It ends when the client is closed. One task at a time reads it.

    It holds a bounded number of items (`queue_size` of the client). While its reader takes them as
    fast as it can, the rest waits in the library and nothing is lost. If nobody reads, or the
    reader waits for something else while more arrives, the oldest ones are dropped, and `dropped`
    counts them. Items that were not read when a stream was closed, or left by `break`, wait for the
    next stream of its kind.
    """

    def __init__(self, hub: Hub[T], wants: Callable[[T], bool] | None) -> None:
        self._hub = hub
        self._wants = wants
        self._items: collections.deque[T] = collections.deque()
        self._waiter: asyncio.Future[None] | None = None
        self._closed = False
        self._taken = self._taken_before = 0
        self.dropped = 0

    def __aiter__(self) -> Stream[T]:
        return self

    async def __anext__(self) -> T:
        self._taken += 1
        if self._taken % _TAKEN_PER_TURN == 0:  # a long queue must not keep other tasks waiting
            await asyncio.sleep(0)
        while not self._items:
            if self._closed or self._hub.ended:
                raise StopAsyncIteration
            if self._waiter is not None:
                raise RuntimeError("another task is reading this stream")
            self._waiter = asyncio.get_running_loop().create_future()
            try:
                await self._waiter
            finally:
                self._waiter = None
        return self._items.popleft()

    async def aclose(self) -> None:
        """Ends the stream. Items that were not read wait for the next stream of its kind."""
        self._close()

    async def __aenter__(self) -> Stream[T]:
        return self

    async def __aexit__(self, kind: type[BaseException] | None, error: BaseException | None,
                        trace: TracebackType | None) -> None:
        self._close()

    def __del__(self) -> None:
        self._close()

    def _close(self) -> None:
        if not self._closed:
            self._closed = True
            self._hub.leave(self, self._items)
            self._items = collections.deque()
            self._wake()

    def _wake(self) -> None:
        if self._waiter is not None and not self._waiter.done():
            self._waiter.set_result(None)

    def _is_catching_up(self) -> bool:
        """Whether much is waiting, and some was taken since this was asked last."""
        progress, self._taken_before = self._taken != self._taken_before, self._taken
        return progress and len(self._items) * 2 > self._hub.limit

    def _push(self, item: T) -> None:
        if self._closed or (self._wants is not None and not self._wants(item)):
            return
        self._items.append(item)
        if len(self._items) > self._hub.limit:
            self._items.popleft()
            self.dropped += 1
        self._wake()


class Hub(Generic[T]):
    """Hands each item to every stream of a kind; keeps the newest while there is no stream."""

    def __init__(self, limit: int) -> None:
        self.limit = limit
        self.ended = False
        self._streams: list[weakref.ref[Stream[T]]] = []
        self._waiting: collections.deque[T] = collections.deque()
        self._lost = 0

    def open(self, wants: Callable[[T], bool] | None = None) -> Stream[T]:
        stream = Stream(self, wants)
        stream.dropped, self._lost = self._lost, 0
        for item in self._waiting:
            stream._push(item)
        self._waiting.clear()
        self._streams.append(weakref.ref(stream))
        return stream

    def is_catching_up(self) -> bool:
        """Whether a stream's reader is at work and far behind, so that the next items should wait.
        An idle reader does not count: what it waits for may come after these items."""
        streams = [reference() for reference in self._streams]
        return any([stream is not None and stream._is_catching_up() for stream in streams])

    def publish(self, item: T) -> None:
        if not self._streams:
            self._keep([item])
        for reference in self._streams:
            stream = reference()
            if stream is not None:
                stream._push(item)

    def leave(self, stream: Stream[T], unread: collections.deque[T]) -> None:
        # A stream that is being deleted is dead to its reference already.
        self._streams = [each for each in self._streams if each() not in (None, stream)]
        if not self._streams and not self.ended:
            self._keep(unread)

    def end(self) -> None:
        """Lets streams return the items that they hold, then end."""
        self.ended = True
        self._waiting.clear()
        for reference in self._streams:
            stream = reference()
            if stream is not None:
                stream._wake()

    def _keep(self, items: collections.deque[T] | list[T]) -> None:
        self._waiting.extend(items)
        while len(self._waiting) > self.limit:
            self._waiting.popleft()
            self._lost += 1
