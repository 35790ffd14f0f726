"""Turns the C library's events into ours."""

from __future__ import annotations

from . import events as happened
from ._link import Record
from .errors import error_from
from .events import Event
from .models import identity, message_from
from .stored import damage_from

_PLAIN_EVENTS: dict[str, Event] = {
    "clientDidLogin": happened.LoggedIn(),
    "clientDidLogout": happened.LoggedOut(),
    "clientAttemptReconnect": happened.Reconnecting(),
    "clientDidDisconnect": happened.Disconnected(),
}
_MESSAGES = frozenset({"clientDidReceiveMessageFromFriend", "clientDidReceiveMessageFromGroup",
                       "clientDidReceiveMessageFromRoom",
                       "clientDidReceiveSystemMessage"})


def event_from(name: str, record: Record, own_id: str | None) -> Event:
    """`own_id` is the id of the user who is logged in."""
    if name in _MESSAGES:
        peer = record.get("from")
        friend = identity(peer.get("uid")) if isinstance(peer, dict) and "uid" in peer else None
        return happened.MessageReceived(message_from(record.get("message"), friend, own_id))
    if name in _PLAIN_EVENTS:
        return _PLAIN_EVENTS[name]
    if name in ("clientFriendDidOnline", "clientFriendDidOffline"):
        info = record.get("info")
        id = identity(info.get("uid")) if isinstance(info, dict) else None
        if id is not None:
            return happened.PresenceChanged(id, name.endswith("Online"))
    elif name == "socket.io.error":
        data = record.get("data")
        words, details = (data[0], data[1:]) if isinstance(data, list) and data else (data, None)
        return happened.ConnectionTrouble(str(words), details or None,
                                          error_from(record.get("error")))
    elif name == "overflow":
        count = record.get("events")
        return happened.EventsDropped(count if isinstance(count, int) else 0)
    elif name == "clientDidFailToLoginAgain":
        return happened.LoginRefused(error_from(record.get("error"), "login"))
    elif name == "conversationsDidCatchUp":
        error = record.get("error")
        return happened.CaughtUp(record["missedCount"], record["gapCount"],
                                 error_from(error) if error is not None else None)
    elif name == "conversationsDidMeetTrouble":
        return happened.StoreTrouble(error_from(record.get("error")))
    elif name == "observedStoreWasDamaged":
        return happened.StoreDamaged(damage_from(record["damage"]))
    rest = {key: value for key, value in record.items() if key not in ("@type", "name")}
    return happened.OtherEvent(name, rest)
