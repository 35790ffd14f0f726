"""Instant messaging with asyncio.

    import asyncio
    import vexim

    async def main() -> None:
        async with vexim.Client("demo-app", "demo-key", url=URL) as client:
            await client.login(user_id="alice")
            await client.send("hello", friend="bob")
            async for message in client.messages():
                print(message.sender, message.text)

    asyncio.run(main())

Scripts and notebooks without an event loop use `vexim.sync.Client`, which has the same methods
without `await`.

All failures raise `vexim.Error` or a subclass. The package uses the C library `libvexim-c`; see
`vexim.library_version`.
"""

from __future__ import annotations

# True for type checkers. Importing typing would take longer than everything here.
TYPE_CHECKING = False

if TYPE_CHECKING:
    from . import sync as sync
    from ._library import library_version as library_version
    from ._library import metrics as metrics
    from ._library import set_application_info as set_application_info
    from ._library import set_log as set_log
    from .client import Client as Client
    from .errors import AbandonedError as AbandonedError
    from .errors import BusyError as BusyError
    from .errors import ClosedError as ClosedError
    from .errors import Error as Error
    from .errors import LibraryNotFoundError as LibraryNotFoundError
    from .errors import LoginError as LoginError
    from .errors import NetworkError as NetworkError
    from .errors import NotConnectedError as NotConnectedError
    from .errors import ResponseError as ResponseError
    from .errors import ServiceError as ServiceError
    from .errors import StoreError as StoreError
    from .errors import UsageError as UsageError
    from .events import CaughtUp as CaughtUp
    from .events import ConnectionTrouble as ConnectionTrouble
    from .events import Disconnected as Disconnected
    from .events import Event as Event
    from .events import EventsDropped as EventsDropped
    from .events import LoggedIn as LoggedIn
    from .events import LoggedOut as LoggedOut
    from .events import LoginRefused as LoginRefused
    from .events import MessageReceived as MessageReceived
    from .events import OtherEvent as OtherEvent
    from .events import PresenceChanged as PresenceChanged
    from .events import Reconnecting as Reconnecting
    from .events import StoreDamaged as StoreDamaged
    from .events import StoreTrouble as StoreTrouble
    from .events import Stream as Stream
    from .models import Diagnosis as Diagnosis
    from .models import DiagnosisEvent as DiagnosisEvent
    from .models import Friend as Friend
    from .models import Group as Group
    from .models import Media as Media
    from .models import Message as Message
    from .models import Metrics as Metrics
    from .models import Passenger as Passenger
    from .models import Room as Room
    from .models import Status as Status
    from .models import User as User
    from .observation import Observation as Observation
    from .store import Store as Store
    from .stored import Conversation as Conversation
    from .stored import Gap as Gap
    from .stored import ListChange as ListChange
    from .stored import Peer as Peer
    from .stored import Position as Position
    from .stored import State as State
    from .stored import StoreDamage as StoreDamage
    from .stored import StoredMessage as StoredMessage

__version__ = "1.0.0"

# Modules are loaded when one of their names is first used: importing asyncio and dataclasses takes
# longer than all of our own.
_HOMES = {
    "client": ("Client",),
    "errors": (
        "AbandonedError", "BusyError", "ClosedError", "Error", "LibraryNotFoundError", "LoginError",
        "NetworkError",
        "NotConnectedError", "ResponseError", "ServiceError", "StoreError", "UsageError",
    ),
    "events": (
        "CaughtUp", "ConnectionTrouble", "Disconnected", "Event", "EventsDropped", "LoggedIn",
        "LoggedOut", "LoginRefused", "MessageReceived",
        "OtherEvent", "PresenceChanged", "Reconnecting", "StoreDamaged", "StoreTrouble", "Stream",
    ),
    "models": (
        "Diagnosis", "DiagnosisEvent", "Friend", "Group", "Media", "Message", "Metrics",
        "Passenger", "Room", "Status", "User",
    ),
    "observation": ("Observation",), "store": ("Store",),
    "stored": (
        "Conversation", "Gap", "ListChange", "Peer", "Position", "State", "StoreDamage",
        "StoredMessage",
    ),
    "_library": ("library_version", "metrics", "set_application_info", "set_log"),
}
_HOME_OF = {name: home for home, names in _HOMES.items() for name in names}

__all__ = [*sorted(_HOME_OF), "sync"]


def __getattr__(name: str) -> object:
    import importlib

    if name == "sync":
        return importlib.import_module(".sync", __name__)
    if name not in _HOME_OF:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    value = getattr(importlib.import_module("." + _HOME_OF[name], __name__), name)
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})
