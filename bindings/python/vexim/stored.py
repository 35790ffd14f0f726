"""Data from a store, as values that never change."""

from __future__ import annotations

import datetime
import enum
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from typing import Any, ClassVar, Generic, TypeVar

from .errors import Error, error_from
from .models import Media, moment

T = TypeVar("T")


@dataclass(frozen=True, slots=True)
class Peer:
    """With whom a conversation is: `Peer.friend("bob")`, `Peer.group(id)`, `Peer.room(id)`, or
    `Peer.SYSTEM` for system messages."""

    kind: str
    """One of "friend", "group", "room" and "system"."""
    id: str = ""

    SYSTEM: ClassVar[Peer]

    @staticmethod
    def friend(id: str) -> Peer:
        """The conversation with a friend."""
        return Peer("friend", id)

    @staticmethod
    def group(id: str) -> Peer:
        """A group's conversation."""
        return Peer("group", id)

    @staticmethod
    def room(id: str) -> Peer:
        """A room's conversation."""
        return Peer("room", id)


Peer.SYSTEM = Peer("system")


class State(enum.Enum):
    """The state of a stored message."""

    QUEUED = "queued"
    """It waits: for a connection, for those before it, or, with an error, for the next attempt."""
    SENDING = "sending"
    """It is being sent; a file is being uploaded."""
    SENT = "sent"
    """The connection has taken it."""
    CONFIRMED = "confirmed"
    """The service has it; so are all messages of others."""
    FAILED = "failed"
    """It will not go out by itself; `error` says why."""


@dataclass(frozen=True, slots=True, order=True)
class Position:
    """A place in a conversation, in the order of time."""

    sent_at_millis: int
    """Milliseconds since 1970."""
    local_id: int
    """Tells messages of one millisecond apart."""


@dataclass(frozen=True, slots=True)
class StoredMessage:
    """A message as a store keeps it."""

    local_id: int
    """Stays the same as long as the message is stored."""
    peer: Peer
    """The conversation that it belongs to."""
    text: str | None
    """None when the message is a file."""
    sender: str
    """The id of the user who wrote it; empty: the service itself."""
    state: State
    is_own: bool
    """Whether the store's user wrote it, on this device or another one."""
    position: Position
    media: int = Media.TEXT
    """A `Media`, or another number that the service sent."""
    attachment_url: str | None = None
    """Where the file lies; None while it has not been uploaded."""
    attachment_files: Sequence[str] = ()
    """The store's own copies of the file, until the message is confirmed."""
    error: Error | None = field(default=None, hash=False, compare=False)
    """Why it failed or waits."""
    attempts: int = 0
    """How often it was tried to send it."""
    payload: Mapping[str, Any] = field(default_factory=dict, repr=False, hash=False)
    """The message as it travels, with keys of the application's own."""

    @property
    def sent_at(self) -> datetime.datetime | None:
        """When it was sent, in UTC."""
        return moment(self.position.sent_at_millis / 1000)


@dataclass(frozen=True, slots=True)
class Conversation:
    """A conversation as a list shows it."""

    peer: Peer
    last_message: StoredMessage | None
    unread: int
    """Messages of others that came since it was read."""
    draft: str
    """What the user has begun to write."""


@dataclass(frozen=True, slots=True)
class Gap:
    """A part of a conversation whose messages could not be fetched from the service any more."""

    after: datetime.datetime | None
    """The last known message before it; None: there is none."""
    before: datetime.datetime | None
    """The first known message behind it."""


@dataclass(frozen=True, slots=True)
class StoreDamage:
    """A damaged file was set aside, and a new one created with the messages that could be read."""

    set_aside_as: str
    """The damaged file's new path."""
    messages_saved: int


@dataclass(frozen=True, slots=True)
class ListChange(Generic[T]):
    """A list that is observed, and what has changed in it: take `removed` out of the old list, from
    the last position to the first, put `inserted` into it, from the first to the last, and replace
    the items in `changed`. At first everything is inserted."""

    items: Sequence[T]
    """The whole list as it is now."""
    removed: Sequence[int]
    """Positions in the list as it was, rising."""
    inserted: Sequence[int]
    """Positions in `items`, rising."""
    changed: Sequence[int]
    """Positions in `items`, rising."""


# From what the C library gives.


def _position_from(record: Mapping[str, Any]) -> Position:
    return Position(int(record.get("sentAtMillis", 0)), int(record.get("localId", 0)))


def _peer_from(record: Mapping[str, Any]) -> Peer:
    return Peer(str(record.get("kind")), str(record.get("id", "")))


def peer_record(peer: Peer) -> dict[str, str]:
    return {"kind": peer.kind, "id": peer.id}


def position_record(position: Position | StoredMessage | None) -> dict[str, int] | None:
    if position is None:
        return None
    place = position.position if isinstance(position, StoredMessage) else position
    return {"sentAtMillis": place.sent_at_millis, "localId": place.local_id}


def stored_message_from(record: Mapping[str, Any]) -> StoredMessage:
    error = record.get("error")
    return StoredMessage(
        int(record["localId"]),
        _peer_from(record["conversation"]),
        record.get("text"),
        str(record.get("sender", "")),
        State(record["state"]),
        record.get("direction") == "outgoing",
        _position_from(record),
        int(record.get("mediaType", 0)),
        record.get("attachmentUrl"),
        tuple(record.get("attachmentFiles", ())),
        error_from(error) if error is not None else None,
        int(record.get("attempts", 0)),
        record.get("payload", {}),
    )


def conversation_from(record: Mapping[str, Any]) -> Conversation:
    last = record.get("lastMessage")
    return Conversation(
        _peer_from(record["id"]),
        stored_message_from(last) if last is not None else None,
        int(record.get("unreadCount", 0)),
        str(record.get("draft", "")),
    )


def gap_from(record: Mapping[str, Any]) -> Gap:
    return Gap(moment(record.get("afterMillis", 0) / 1000),
               moment(record.get("beforeMillis", 0) / 1000))


def damage_from(record: Mapping[str, Any]) -> StoreDamage:
    return StoreDamage(str(record.get("setAsideAs", "")), int(record.get("messagesSaved", 0)))
