"""Conversations on this device, and an outbox."""

from __future__ import annotations

import asyncio
import datetime
import math
import os
import weakref
from collections.abc import Awaitable, Mapping
from types import TracebackType
from typing import TYPE_CHECKING, Any

from ._compose import File, composed
from ._link import Link, Progress, Record
from .errors import StoreError, usage
from .observation import Observation
from .stored import (
    Conversation,
    Gap,
    Peer,
    Position,
    StoreDamage,
    StoredMessage,
    conversation_from,
    damage_from,
    gap_from,
    peer_record,
    position_record,
    stored_message_from,
)

if TYPE_CHECKING:
    from .client import Client


class Store:
    """A user's messages on this device, in one SQLite file: made by `Client.open_store`.

        async with client.open_store("messages/", user_id="alice") as store:
            await store.send(Peer.friend("bob"), "hello")
            async for change in store.observe(Peer.friend("bob")):
                for message in change.items: ...

    Messages that arrive while it is open are stored, and missed ones are fetched after each login.
    Messages to send are written first, and are sent as soon as possible: now, after a reconnect,
    after the next login, or when the program runs the next time.

    Operations fail with `vexim.StoreError`. What a completed call has written survives a crash of
    the process.
    """

    def __init__(self, client: Client, operation: str, arguments: Mapping[str, Any]) -> None:
        self._client = client
        self._operation = operation
        self._arguments = arguments
        self._sends = operation == "VXIMConversations.open"
        self._record: Record | None = None
        self._observations: dict[int, weakref.ref[Observation[Any]]] = {}

    # Life

    async def open(self) -> None:
        """Opens or creates the file; `async with` does this. A damaged file is set aside, see
        `damage`.
        """
        if self._record is not None:
            raise usage("the store was opened before")
        link = self._client._open_link()
        if self._sends and self._client._stores.sends:
            raise usage("the client has a store already: close it first")
        self._client._stores.add(self)
        try:
            self._record = await link.call(self._operation, self._arguments)
            await link.call("VXIMMessageStore.observeDamage", {"store": self._number})
        except BaseException as error:
            self._end()
            if self._record is not None:
                link.tell("VXIMMessageStore.close", store=self._number)
            elif self._sends and isinstance(error, asyncio.CancelledError):  # it would open later
                link.tell("VXIMMessageStore.close")
            self._record = None
            raise

    async def close(self) -> None:
        """Finishes earlier operations, then closes the file. Unsent messages are sent the next
        time. Closing again does nothing."""
        record, self._record = self._record, None
        self._end()
        link = self._client._link
        if record is not None and link is not None and link.is_open:
            await link.call("VXIMMessageStore.close", {"store": record["store"]})

    async def __aenter__(self) -> Store:
        await self.open()
        return self

    async def __aexit__(self, kind: type[BaseException] | None, error: BaseException | None,
                        trace: TracebackType | None) -> None:
        await self.close()

    def __repr__(self) -> str:
        return f"<vexim.Store {self._record['path'] if self._record else 'not open'}>"

    @property
    def path(self) -> str:
        """The file's path, also when a folder was named."""
        return str(self._opened()["path"])

    @property
    def user_id(self) -> str:
        """Whose messages these are."""
        return str(self._opened()["userId"])

    @property
    def damage(self) -> StoreDamage | None:
        """The damage found when the store was opened; normally None. Later damage is reported by
        `StoreDamaged` of `Client.events`.
        """
        record = self._opened().get("damage")
        return damage_from(record) if record is not None else None

    # Reading

    async def conversations(self) -> list[Conversation]:
        """All conversations, the one with the newest message first."""
        return [conversation_from(record) for record in await self._call("conversations")]

    async def conversation(self, peer: Peer) -> Conversation | None:
        """One conversation, or None if there is none."""
        record = await self._call("conversation", id=peer_record(peer))
        return conversation_from(record) if record is not None else None

    async def messages_before(self, peer: Peer, position: Position | StoredMessage | None = None, *,
                              limit: int = 50) -> list[StoredMessage]:
        """The messages right before a position (None: the newest), the oldest first."""
        return await self._messages("messagesBefore", id=peer_record(peer),
                                    position=position_record(position), limit=limit)

    async def messages_after(self, peer: Peer, position: Position | StoredMessage | None = None, *,
                             limit: int = 50) -> list[StoredMessage]:
        """The messages right behind a position (None: the oldest), the oldest first."""
        return await self._messages("messagesAfter", id=peer_record(peer),
                                    position=position_record(position), limit=limit)

    async def message(self, local_id: int) -> StoredMessage | None:
        """One message, or None if there is none."""
        record = await self._call("message", localId=local_id)
        return stored_message_from(record) if record is not None else None

    async def search(self, text: str, *, peer: Peer | None = None,
                     since: datetime.datetime | None = None,
                     until: datetime.datetime | None = None,
                     before: Position | StoredMessage | None = None,
                     limit: int = 50) -> list[StoredMessage]:
        """Texts that have all the words, the newest first. "word*" matches the beginning of a word;
        words in double quotes must follow each other. For the next page, give the last one found as
        `before`."""
        conversation = peer_record(peer) if peer else None
        return await self._messages("search", text=text, conversation=conversation,
                                    sinceMillis=_millis(since), untilMillis=_millis(until),
                                    before=position_record(before), limit=limit)

    async def gaps(self, peer: Peer) -> list[Gap]:
        """The places where messages are missing."""
        return [gap_from(record) for record in await self._call("gaps", id=peer_record(peer))]

    async def read_gap(self, peer: Peer, gap: Gap) -> int:
        """Reads up to 100 messages from the newer end of a gap, for example when the user scrolls
        back to it. The gap becomes shorter or disappears. Returns how
        many were stored."""
        self._needs_outbox()
        return int(await self._link().call("VXIMConversations.readGap", {
            "conversation": peer_record(peer), "afterMillis": _millis(gap.after) or 0,
            "beforeMillis": _millis(gap.before) or 0}))

    async def export(self, path: str | os.PathLike[str], peer: Peer | None = None) -> int:
        """Writes all messages, or those with a peer, to a file: one JSON object per line. Returns
        how many."""
        return int(await self._call("exportJSONLines", path=os.path.abspath(os.fspath(path)),
                                    conversation=peer_record(peer) if peer else None))

    # Writing

    async def send(
        self,
        peer: Peer,
        text: str | None = None,
        *,
        image: File | None = None,
        audio: File | None = None,
        video: File | None = None,
        name: str | None = None,
        payload: Mapping[str, Any] | None = None,
        progress: Progress | None = None,
    ) -> StoredMessage:
        """Queues a message, as `Client.send` takes one, and returns it as it was written: from then
        on it cannot get lost. `observe` reports its state. `progress` is called during the upload,
        as long as this program runs.
        """
        self._needs_outbox()
        message = await composed(text, image, audio, video, name, payload)
        arguments = {"conversation": peer_record(peer), "message": message,
                     "progress": True if progress is not None else None}

        def queued(record: Any) -> None:
            if progress is not None:
                self._client._stores.uploads[record["localId"]] = progress

        return stored_message_from(await self._link().call("VXIMConversations.send", arguments,
                                                           on_answer=queued))

    async def retry(self, message: StoredMessage | int) -> None:
        """Sends a failed message again, at its old place. A message that waits after a failure is
        tried at once."""
        self._needs_outbox()
        await self._link().call("VXIMConversations.retry", {"localId": _local_id(message)})

    async def cancel(self, message: StoredMessage | int) -> None:
        """Removes a message that is not confirmed yet. If the service has it already, its echo
        brings it back.
        """
        self._needs_outbox()
        await self._link().call("VXIMConversations.cancel", {"localId": _local_id(message)})

    async def mark_read(self, peer: Peer, up_to: Position | StoredMessage | None = None) -> None:
        """Counts the messages up to a position (None: all) as read."""
        await self._call("markRead", id=peer_record(peer), upTo=position_record(up_to))

    async def set_draft(self, peer: Peer, draft: str) -> None:
        """Stores what the user has begun to write. An empty text removes it."""
        await self._call("setDraft", id=peer_record(peer), draft=draft)

    async def remove(self, peer: Peer) -> None:
        """Removes a conversation with all its messages (also unsent ones) from this device."""
        await self._call("removeConversation", id=peer_record(peer))

    async def set_retention(self, *, max_age: datetime.timedelta | None = None,
                            max_count: int | None = None) -> int:
        """Keeps messages no longer than `max_age` (in whole hours), and at most `max_count` of each
        conversation; None means no limit. Returns how many were removed now. Unconfirmed messages
        are never removed."""
        return int(await self._call("setRetention", maximumAge=hours(max_age),
                                    maximumCount=max_count))

    # Observing

    def observe(self, peer: Peer, *, limit: int = 50) -> Observation[StoredMessage]:
        """How the newest messages of a conversation change, the oldest first."""
        return Observation(self, "observeMessages", {"id": peer_record(peer), "limit": limit},
                           "message", stored_message_from)

    def observe_conversations(self, *, limit: int = 50) -> Observation[Conversation]:
        """How the list of conversations changes, the one with the newest message first."""
        return Observation(self, "observeConversations", {"limit": limit}, "conversation",
                           conversation_from)

    # Inside

    def _opened(self) -> Record:
        if self._record is None:
            raise StoreError.not_open()
        return self._record

    @property
    def _number(self) -> int:
        return int(self._opened()["store"])

    def _link(self) -> Link:
        self._opened()
        return self._client._open_link()

    def _needs_outbox(self) -> None:
        if not self._sends:
            raise usage("the store was opened to read only")

    def _call(self, operation: str, **arguments: Any) -> Awaitable[Any]:
        return self._link().call(f"VXIMMessageStore.{operation}",
                                 {"store": self._number, **arguments})

    async def _messages(self, operation: str, **arguments: Any) -> list[StoredMessage]:
        return [stored_message_from(record) for record in await self._call(operation, **arguments)]

    def _end(self) -> None:
        observations, self._observations = self._observations, {}
        for reference in observations.values():
            observation = reference()
            if observation is not None:
                observation._end()
        self._client._stores.remove(self)


def hours(time: datetime.timedelta | None) -> int | None:
    """In whole ones."""
    return None if time is None else math.ceil(time / datetime.timedelta(hours=1))


def _millis(time: datetime.datetime | None) -> int | None:
    return None if time is None else round(time.timestamp() * 1000)


def _local_id(message: StoredMessage | int) -> int:
    return message if isinstance(message, int) else message.local_id
