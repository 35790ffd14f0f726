"""Data from the service, as values that never change. Fetch again to see changes."""

from __future__ import annotations

import datetime
import enum
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from typing import Any


class Media(enum.IntEnum):
    """What a message holds: its text, or a file."""

    TEXT = 0
    IMAGE = 1
    AUDIO = 2
    VIDEO = 3


class Status(enum.IntEnum):
    """The state of a client's session."""

    NONE = 0
    """No login yet."""
    OPENING = 1
    """A login has started the connection."""
    OPENED = 2
    """Logged in, or connected again after a pause or a drop."""
    PAUSED = 3
    """The connection closed without a logout."""
    RESUMING = 4
    """`resume` was called, or a reconnect is being attempted."""
    CLOSING = 5
    """A logout has started."""
    CLOSED = 6
    """Logged out."""


@dataclass(frozen=True, slots=True)
class Message:
    """A message that was received or fetched.

    Exactly one of `friend`, `group` and `room` says which conversation it belongs to; a system
    message has none of them. They are the keywords of `Client.send`, so an answer is
    `client.reply(message, "…")`.
    """

    text: str | None
    """None when the message is a file."""
    sender: str | None
    """The id of the user who wrote it; None in a system message."""
    friend: str | None = None
    """The other side of a conversation between two, also of one's own messages."""
    group: str | None = None
    room: str | None = None
    media: int = Media.TEXT
    """A `Media`, or another number that the service sent."""
    attachment_url: str | None = None
    """Where the file lies; `Client.download` fetches it."""
    timestamp: float = 0.0
    """When it was sent: seconds since 1970, 0 when not known."""
    is_system: bool = False
    payload: Mapping[str, Any] = field(default_factory=dict, repr=False, hash=False)
    """The message as it travelled, with keys of the application's own."""

    @property
    def sent_at(self) -> datetime.datetime | None:
        """`timestamp` as a time in UTC."""
        return moment(self.timestamp)


@dataclass(frozen=True, slots=True)
class Friend:
    """One entry of a friend list."""

    id: str
    online: bool
    since: datetime.datetime | None = None
    """When the friendship was made, in UTC."""
    recent_message: Message | None = None


@dataclass(frozen=True, slots=True)
class User:
    """A user; lists that were not fetched are None."""

    id: str
    attributes: Mapping[str, Any] | None = field(default=None, hash=False)
    online: bool = False
    session_count: int = 0
    """How many live connections the user had when the record was fetched."""
    updated_at: datetime.datetime | None = None
    friends: Sequence[Friend] | None = None
    groups: Sequence[Group] | None = None
    rooms: Sequence[Room] | None = None


@dataclass(frozen=True, slots=True)
class Group:
    """A chat group. What the service did not send is None."""

    id: str
    name: str | None = None
    owner: str | None = None
    members: Sequence[str] = ()
    attributes: Mapping[str, Any] | None = field(default=None, hash=False)
    recent_message: Message | None = None


@dataclass(frozen=True, slots=True)
class Room:
    """A chat room: a group without an owner."""

    id: str
    name: str | None = None
    members: Sequence[str] | None = None
    created_at: datetime.datetime | None = None
    attributes: Mapping[str, Any] | None = field(default=None, hash=False)


@dataclass(frozen=True, slots=True)
class Passenger:
    """An anonymous visitor, who can chat with users without being one."""

    id: str
    record: Mapping[str, Any] = field(default_factory=dict, hash=False)
    """What the service knows of the passenger."""


@dataclass(frozen=True, slots=True)
class DiagnosisEvent:
    """One thing that happened to a client."""

    time: str
    """In UTC, such as "2026-11-21T12:00:00.123Z"."""
    name: str
    details: Mapping[str, Any] = field(default_factory=dict, hash=False)


@dataclass(frozen=True, slots=True)
class Diagnosis:
    """What has happened to a client lately. It contains no credentials, ids or messages, so it can
    be shown to anybody.
    """

    events: Sequence[DiagnosisEvent]

    def __str__(self) -> str:
        def told(event: DiagnosisEvent) -> str:
            details = (f"{key}={value}" for key, value in event.details.items())
            return " ".join([event.time, event.name, *details])

        return "\n".join(map(told, self.events))


@dataclass(frozen=True, slots=True)
class Metrics:
    """What the clients of this process have done: connections, messages, bytes, request times."""

    text: str
    """What a Prometheus server reads. Its type is "text/plain; version=0.0.4; charset=utf-8"."""
    values: Sequence[Mapping[str, Any]] = field(hash=False)
    """The same, a mapping a metric: "name", "help", "kind" and "series"."""

    def __str__(self) -> str:
        return self.text


# From what the C library gives. What is missing or of another type than expected reads as absent,
# as it does in C++.


def moment(seconds: Any) -> datetime.datetime | None:
    if not isinstance(seconds, (int, float)) or not 0 < seconds < 253_402_300_800:  # the year 10000
        return None
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)


def identity(value: Any) -> str | None:
    """An id as text. Some services send numbers."""
    if value is None or isinstance(value, str):
        return value
    return None if isinstance(value, (bool, dict, list)) else str(value)


def _mapping(value: Any) -> Mapping[str, Any]:
    return value if isinstance(value, dict) else {}


def _text(value: Any) -> str | None:
    return value if isinstance(value, str) else None


def _attributes(value: Any) -> Mapping[str, Any] | None:
    return value if isinstance(value, dict) else None


def _ids(value: Any) -> tuple[str, ...]:
    items = value if isinstance(value, list) else []
    return tuple(id for id in map(identity, items) if id is not None)


def message_from(record: Any, friend: str | None = None, own_id: str | None = None,
                 author: str | None = None) -> Message:
    """`friend`: with whom, if known; `author`: who wrote it, if the record does not say."""
    record = _mapping(record)
    sender, receiver = _mapping(record.get("sender")), _mapping(record.get("receiver"))
    author = identity(sender.get("userId")) or author
    kind = receiver.get("type", sender.get("type"))
    group = room = None
    if kind == 1:
        friend, group = None, identity(receiver.get("groupId")) or identity(sender.get("groupId"))
    elif kind == 2:
        friend, room = None, identity(receiver.get("roomId")) or identity(sender.get("roomId"))
    elif kind == 0 and friend is None:
        other = identity(receiver.get("userId"))
        friend = author if other == own_id else other
    seconds, media = record.get("sendTimestamp"), record.get("mediaType")
    return Message(
        _text(record.get("text")),
        author,
        friend,
        group,
        room,
        media if isinstance(media, int) else 0,
        _text(record.get("attachmentUrl")),
        seconds if isinstance(seconds, (int, float)) else 0.0,
        record.get("isSystemMessage") is True,
        _mapping(record.get("payload")),
    )


def friend_from(record: Any) -> Friend:
    record = _mapping(record)
    uid, millis = identity(record.get("uid")) or "", record.get("ts")
    recent = record.get("recentMessage")
    since = moment(millis / 1000) if isinstance(millis, (int, float)) else None
    return Friend(uid, record.get("online") is True, since,
                  message_from(recent, friend=uid) if recent is not None else None)


def user_from(record: Any) -> User:
    record = _mapping(record)
    friends, groups, rooms, count = (record.get(name)
                                     for name in ("friends", "groups", "rooms", "sessionCount"))
    return User(
        identity(record.get("uid")) or "",
        _attributes(record.get("attributes")),
        record.get("online") is True,
        count if isinstance(count, int) else 0,
        moment(record.get("updatedAt")),
        tuple(map(friend_from, friends)) if isinstance(friends, list) else None,
        tuple(map(group_from, groups)) if isinstance(groups, list) else None,
        tuple(map(room_from, rooms)) if isinstance(rooms, list) else None,
    )


def group_from(record: Any) -> Group:
    record = _mapping(record)
    recent = record.get("recentMessage")
    return Group(
        identity(record.get("groupId")) or "",
        _text(record.get("name")),
        identity(record.get("owner")),
        _ids(record.get("members")),
        _attributes(record.get("attributes")),
        message_from(recent) if recent is not None else None,
    )


def room_from(record: Any) -> Room:
    if not isinstance(record, dict):  # a bare id
        return Room(identity(record) or "")
    members = record.get("members")
    return Room(
        identity(record.get("roomId")) or "",
        _text(record.get("name")),
        _ids(members) if isinstance(members, list) else None,
        moment(record.get("createTs")),
        _attributes(record.get("attributes")),
    )


def passenger_from(record: Any) -> Passenger:
    record = _mapping(record)
    return Passenger(identity(record.get("pid")) or "", _mapping(record.get("record")))


def diagnosis_from(items: Any) -> Diagnosis:
    events = []
    for item in items if isinstance(items, list) else []:
        details = dict(_mapping(item))
        events.append(DiagnosisEvent(str(details.pop("time", "")),
                                     str(details.pop("event", "")), details))
    return Diagnosis(tuple(events))


def metrics_from(record: Any) -> Metrics:
    given = _mapping(record)
    values = given.get("values")
    return Metrics(str(given.get("text", "")),
                   tuple(map(_mapping, values if isinstance(values, list) else [])))
