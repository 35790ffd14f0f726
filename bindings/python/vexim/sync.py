"""VexIM without asyncio, for scripts and notebooks: the same methods, which wait.

    with vexim.sync.Client("demo-app", "demo-key", url=URL) as client:
        client.login(user_id="alice")
        client.send("hello", friend="bob")
        for message in client.messages():
            print(message.sender, message.text)

Each client has an event loop in a thread of its own. Any thread may call the client. Progress
callbacks run in the loop's thread and must not wait for the client. Written by make_sync.py.
"""

from __future__ import annotations

import datetime
import os
import pathlib
from collections.abc import Mapping
from types import TracebackType
from typing import Any

from . import client as _client
from ._compose import File
from ._library import Library
from ._link import Progress
from ._portal import Portal, SyncObservation, SyncStream
from ._sync_resources import Friends, Groups, Passengers, Rooms, Users
from ._sync_store import Store
from .errors import ClosedError
from .events import Event, PresenceChanged
from .models import Diagnosis, Message, Status

__all__ = ["Client", "Store", "SyncObservation", "SyncStream"]


class Client:
    """One user's connection to the service: `vexim.Client`, whose methods wait.

    `timeout` limits each call in seconds, except uploads and downloads: after it the call raises
    TimeoutError. None waits for ever. The other arguments are those of `vexim.Client`.

    The client is open from the start. `close`, or the end of a `with`, ends it without a logout.
    Other threads' calls in progress then raise `ClosedError`.
    """

    def __init__(
        self,
        app_id: str,
        client_key: str,
        *,
        url: str | None = None,
        installation_id: str | None = None,
        namespace: str | None = None,
        options: Mapping[str, Any] | None = None,
        queue_size: int = 10_000,
        timeout: float | None = 60.0,
        library: Library | None = None,
    ) -> None:
        self._inner = _client.Client(app_id, client_key, url=url, installation_id=installation_id,
                                     namespace=namespace, options=options, queue_size=queue_size,
                                     library=library)
        self._timeout = timeout
        self._portal = Portal()
        try:
            self._portal.do(self._inner.open)
        except BaseException:
            self._portal.close()
            raise
        self.users = Users(self._inner.users, self._portal, timeout)
        self.friends = Friends(self._inner.friends, self._portal, timeout)
        self.groups = Groups(self._inner.groups, self._portal, timeout)
        self.rooms = Rooms(self._inner.rooms, self._portal, timeout)
        self.passengers = Passengers(self._inner.passengers, self._portal, timeout)

    def close(self) -> None:
        """Cuts the connection without a logout, and ends the thread. Closing again does nothing."""
        try:
            self._portal.do(self._inner.close)
        except ClosedError:
            return
        self._portal.close()

    def __enter__(self) -> Client:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return repr(self._inner).replace("vexim.Client", "vexim.sync.Client")

    @property
    def status(self) -> Status:
        """The state of the session."""
        return self._portal.do(lambda: self._inner.status)

    @property
    def user_id(self) -> str | None:
        """The user who is logged in; None before the first login and after a logout."""
        return self._portal.do(lambda: self._inner.user_id)

    def login(self, *, user_id: str | None=None, username: str | None=None,
              password: str | None=None, phone_number: str | None=None, sms_code: str | None=None,
              oauth: Mapping[str, Any] | None=None,
              auth_data: Mapping[str, Any] | None=None) -> None:
        """Connects and logs in, with one kind of credentials:

        - `user_id`: vouched for by the client key alone
        - `username` and `password`
        - `phone_number` and `sms_code`
        - `oauth`: the answer of an outside identity provider
        - `auth_data`: sent unchanged

        Raises `LoginError` if the service refuses, `NetworkError` if it cannot be reached. There is
        no time limit for a service that accepts the connection but does not answer: use
        the client's `timeout`. Another login ends this one with `AbandonedError`. When the
        connection is lost, the client connects and logs in again by itself.
        """
        self._portal.run(
            self._inner.login(user_id=user_id, username=username, password=password,
            phone_number=phone_number, sms_code=sms_code, oauth=oauth, auth_data=auth_data),
            self._timeout)

    def logout(self) -> None:
        """Removes this device's installation from the user, then closes the connection. Without a
        connection it never ends, so give it a deadline.
        """
        self._portal.run(self._inner.logout(), self._timeout)

    def pause(self) -> None:
        """Closes the connection until `resume`."""
        self._portal.run(self._inner.pause(), self._timeout)

    def resume(self) -> None:
        """Starts to connect again, with the credentials of the last login. When that is done,
        `status` is `Status.OPENED`.
        """
        self._portal.run(self._inner.resume(), self._timeout)

    def remove_installation(self) -> None:
        """Removes this device's installation from the user who is logged in, as a logout does."""
        self._portal.run(self._inner.remove_installation(), self._timeout)

    def reset_flags(self) -> None:
        """Clears `was_offline` and `is_logging_out`, for example after an unfinished logout."""
        self._portal.run(self._inner.reset_flags(), self._timeout)

    @property
    def was_offline(self) -> bool:
        """Whether the connection has been down since the last logout, even if it is up again."""
        return self._portal.do(lambda: self._inner.was_offline)

    @property
    def is_logging_out(self) -> bool:
        """Whether a logout is waiting for the connection to close."""
        return self._portal.do(lambda: self._inner.is_logging_out)

    @property
    def configuration(self) -> dict[str, Any]:
        """The configuration as the library has it, without the client key."""
        return self._portal.do(lambda: self._inner.configuration)

    def diagnose(self) -> Diagnosis:
        """What has happened to this client lately, for problem reports. Print it."""
        return self._portal.do(lambda: self._inner.diagnose())

    def send(self, text: str | None=None, *, friend: str | None=None, group: str | None=None,
             room: str | None=None, image: File | None=None, audio: File | None=None,
             video: File | None=None, name: str | None=None, payload: Mapping[str, Any] | None=None,
             progress: Progress | None=None) -> Message:
        """Sends a message to a friend, a group or a room: a text, or a file.

        image, audio, video
            The path of a file, or its bytes. It is uploaded first.
        name
            The file name of bytes; its ending tells the type ("photo.jpg").
        payload
            The application's own keys, which are sent with the message.
        progress
            Is called with the percentage of the upload, any number of times.

        Returns the message as it was sent. Sent means handed to the connection: there is no
        receipt. Raises `NotConnectedError` if there is no connection.
        """
        return self._portal.run(
            self._inner.send(text, friend=friend, group=group, room=room, image=image, audio=audio,
            video=video, name=name, payload=payload, progress=progress), None)

    def reply(self, message: Message, text: str) -> Message:
        """Sends a text into the conversation that `message` came from."""
        return self._portal.run(self._inner.reply(message, text), self._timeout)

    def send_system(self, text: str | None=None, *, user: str | None=None, group: str | None=None,
                    room: str | None=None, everyone: bool=False, image: File | None=None,
                    audio: File | None=None, video: File | None=None, name: str | None=None,
                    payload: Mapping[str, Any] | None=None, progress: Progress | None=None) -> None:
        """Posts a system message to a user, a group, a room or everyone, if the service allows it.
        Needs no connection. The other arguments are those of `send`.
        """
        self._portal.run(
            self._inner.send_system(text, user=user, group=group, room=room, everyone=everyone,
            image=image, audio=audio, video=video, name=name, payload=payload, progress=progress),
            None)

    def download(self, message: Message, path: str | os.PathLike[str], *,
                 progress: Progress | None=None) -> pathlib.Path:
        """Downloads the message's file to `path`. The file appears when it is complete; a download
        that fails or is cancelled leaves no file. `progress` is called with percentages.
        """
        return self._portal.run(self._inner.download(message, path, progress=progress), None)

    def read(self, message: Message, *, progress: Progress | None=None) -> bytes:
        """Downloads the message's file and returns its bytes."""
        return self._portal.run(self._inner.read(message, progress=progress), None)

    def messages(self, *, own: bool=False, system: bool=False) -> SyncStream[Message]:
        """Messages as they arrive, and those since the client was opened. Bounded: see `Stream`.

        own
            Include the messages of the user who is logged in, from this and other devices. A bot
            that answers them answers itself.
        system
            Include system messages.
        """
        return SyncStream(
            self._portal, self._portal.do(lambda: self._inner.messages(own=own, system=system)))

    def presence(self) -> SyncStream[PresenceChanged]:
        """Friends who come online and go offline. It is bounded: see `Stream`."""
        return SyncStream(self._portal, self._portal.do(lambda: self._inner.presence()))

    def events(self) -> SyncStream[Event]:
        """All that happens to the client, also messages and presence. Bounded: see `Stream`."""
        return SyncStream(self._portal, self._portal.do(lambda: self._inner.events()))

    def open_store(self, path: str | os.PathLike[str], *, user_id: str | None=None,
                   read_only: bool=False, most_unsent: int | None=None,
                   longest_wait: datetime.timedelta | None=None, echo_timeout: int | None=None,
                   most_caught_up: int | None=None,
                   farthest_caught_up: datetime.timedelta | None=None) -> Store:
        """The client's store: it keeps conversations on this device and has an outbox. `async with`
        opens and closes it; a client has one at a time. Raises `StoreError` if the C library is one
        without the store: `libvexim-c-store` has it.

        path
            A file, which may be new, or an existing folder, where each user of a service has one.
        user_id
            Whose messages these are; None: the logged-in user's. Needed before the login.
        read_only
            Sends and receives nothing. The file may be in use, and the client have another store.
        most_unsent, longest_wait
            How many messages may wait to be sent (10 000), and how long (a week; in whole hours).
        echo_timeout
            After how many seconds without its echo a sent message is looked up (15).
        most_caught_up, farthest_caught_up
            How far back a login reads a conversation: messages (2 000), time (30 days; in hours).
        """
        return Store(
            self._portal.do(lambda: self._inner.open_store(path, user_id=user_id,
            read_only=read_only, most_unsent=most_unsent, longest_wait=longest_wait,
            echo_timeout=echo_timeout, most_caught_up=most_caught_up,
            farthest_caught_up=farthest_caught_up)), self._portal, self._timeout)
