"""One user's connection to the service."""

from __future__ import annotations

import base64
import datetime
import os
import pathlib
import uuid
from collections.abc import Mapping
from types import TracebackType
from typing import Any

from ._compose import File, composed, one_of
from ._hubs import Hubs
from ._library import Library, load
from ._link import Link, Progress, Record
from ._login import login_call
from ._stores import Stores
from ._translate import event_from
from .errors import INTERFACE_DOMAIN, BusyError, ClosedError, usage
from .events import Event, EventsDropped, PresenceChanged, Stream
from .models import Diagnosis, Message, Status, diagnosis_from, identity, message_from
from .resources import Friends, Groups, Passengers, Rooms, Users
from .store import Store, hours


class Client:
    """One user's connection to the service, in one asyncio event loop.

        async with vexim.Client("demo-app", "demo-key", url=URL) as client:
            await client.login(user_id="alice")
            await client.send("hello", friend="bob")

    `async with` opens and closes the client. Closing ends all calls and streams at once, without a
    logout. Use the client only in the loop that opened it, from that loop's thread. Any number of
    clients may be open in a process, but they should belong to the same application: a request that
    is repeated after a failure uses the application that was used last.

    Operations fail with `vexim.Error`. For a deadline use `asyncio.timeout`. Cancelling a task also
    cancels its transfer.
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
        library: Library | None = None,
    ) -> None:
        """
        app_id, client_key
            The application's credentials. The key signs requests and is never sent.
        url
            The service's origin, such as "https://im.example.org".
        installation_id
            The id of this device's copy of the application, for services that push to devices. None
            creates a new one for this client; a program that runs repeatedly should always use the
            same one.
        namespace
            The Socket.IO namespace; "/chat" by default.
        options
            Options of the connection by name, such as {"reconnectWait": 2}; see docs/socketio.md.
        queue_size
            How many items a stream holds before it drops the oldest.
        library
            Another implementation of the C functions, for tests.
        """
        self._configuration: Record = {
            **(options or {}),
            "appId": app_id,
            "clientKey": client_key,
            "installationId": installation_id or f"python-{uuid.uuid4().hex}",
        }
        if url is not None:
            self._configuration["socketURL"] = url
        if namespace is not None:
            self._configuration["nsp"] = namespace
        if queue_size < 1:
            raise usage("queue_size must be at least 1")
        self._library = library
        self._link: Link | None = None
        self._stores = Stores()
        self._user_id: str | None = None
        self._hubs = Hubs(queue_size)
        self.users = Users(self)
        self.friends = Friends(self)
        self.groups = Groups(self)
        self.rooms = Rooms(self)
        self.passengers = Passengers(self)

    # Life

    def open(self) -> None:
        """Makes the client ready for a login; `async with` does this. Needs a running event loop. A
        closed client cannot be opened again."""
        if self._link is not None:
            raise usage("the client was opened before")
        self._link = Link(self._library or load(), self._configuration, self._on_event,
                          is_busy=self._hubs.are_catching_up,
                          texts_per_turn=min(100, (self._hubs.limit + 1) // 2))

    def close(self) -> None:
        """Cuts the connection without a logout. Calls in progress raise `ClosedError`. Streams
        return the items that they hold, then end. Closing again does nothing."""
        if self._link is not None:
            self._link.close()
        self._stores.end()
        self._hubs.end()

    async def __aenter__(self) -> Client:
        self.open()
        return self

    async def __aexit__(self, kind: type[BaseException] | None, error: BaseException | None,
                        trace: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        link: Link | None = getattr(self, "_link", None)
        if link is not None and link.is_open:
            import warnings

            warnings.warn(f"{self!r} was not closed", ResourceWarning, source=self)
            link.close()

    def __repr__(self) -> str:
        state = "new" if self._link is None else "open" if self._link.is_open else "closed"
        return f"<vexim.Client {self._user_id or 'without a user'}, {state}>"

    # Session

    @property
    def status(self) -> Status:
        """The state of the session."""
        return Status(self._open_link().execute("status"))

    @property
    def user_id(self) -> str | None:
        """The user who is logged in; None before the first login and after a logout."""
        return self._user_id

    async def login(
        self,
        *,
        user_id: str | None = None,
        username: str | None = None,
        password: str | None = None,
        phone_number: str | None = None,
        sms_code: str | None = None,
        oauth: Mapping[str, Any] | None = None,
        auth_data: Mapping[str, Any] | None = None,
    ) -> None:
        """Connects and logs in, with one kind of credentials:

        - `user_id`: vouched for by the client key alone
        - `username` and `password`
        - `phone_number` and `sms_code`
        - `oauth`: the answer of an outside identity provider
        - `auth_data`: sent unchanged

        Raises `LoginError` if the service refuses, `NetworkError` if it cannot be reached. There is
        no time limit for a service that accepts the connection but does not answer: use
        `asyncio.timeout`. Another login ends this one with `AbandonedError`. When the
        connection is lost, the client connects and logs in again by itself."""
        operation, credentials = login_call(
            user_id=user_id, username=username, password=password, phone_number=phone_number,
            sms_code=sms_code, oauth=oauth, auth_data=auth_data)
        await self._call(operation, credentials)
        self._user_id = user_id
        if user_id is None:
            user = await self._call("currentUser")
            self._user_id = identity(user.get("uid")) if isinstance(user, dict) else None

    async def logout(self) -> None:
        """Removes this device's installation from the user, then closes the connection. Without a
        connection it never ends, so give it a deadline."""
        await self._call("logoutWithCompletion")
        self._user_id = None

    async def pause(self) -> None:
        """Closes the connection until `resume`."""
        await self._call("pause")

    async def resume(self) -> None:
        """Starts to connect again, with the credentials of the last login. When that is done,
        `status` is `Status.OPENED`."""
        await self._call("resume")

    async def remove_installation(self) -> None:
        """Removes this device's installation from the user who is logged in, as a logout does."""
        await self._call("deleteCurrentInstallIdCompletion")

    async def reset_flags(self) -> None:
        """Clears `was_offline` and `is_logging_out`, for example after an unfinished logout."""
        await self._call("resetFlags")

    @property
    def was_offline(self) -> bool:
        """Whether the connection has been down since the last logout, even if it is up again."""
        return bool(self._open_link().execute("offlineTemporally"))

    @property
    def is_logging_out(self) -> bool:
        """Whether a logout is waiting for the connection to close."""
        return bool(self._open_link().execute("tryLogout"))

    @property
    def configuration(self) -> dict[str, Any]:
        """The configuration as the library has it, without the client key."""
        return dict(self._open_link().execute("config"))

    def diagnose(self) -> Diagnosis:
        """What has happened to this client lately, for problem reports. Print it."""
        return diagnosis_from(self._open_link().execute("diagnose"))

    # Messages

    async def send(
        self,
        text: str | None = None,
        *,
        friend: str | None = None,
        group: str | None = None,
        room: str | None = None,
        image: File | None = None,
        audio: File | None = None,
        video: File | None = None,
        name: str | None = None,
        payload: Mapping[str, Any] | None = None,
        progress: Progress | None = None,
    ) -> Message:
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
        receipt. Raises `NotConnectedError` if there is no connection."""
        operation, parameter, id = one_of(
            ("sendMessageToFriend", "friendId", friend), ("sendMessageToGroup", "groupId", group),
            ("sendMessageToRoom", "roomId", room))
        message = await composed(text, image, audio, video, name, payload)
        record = await self._call(operation, {"message": message, parameter: id}, progress)
        return message_from(record, friend, self._user_id, author=self._user_id)

    async def reply(self, message: Message, text: str) -> Message:
        """Sends a text into the conversation that `message` came from."""
        return await self.send(text, friend=message.friend, group=message.group, room=message.room)

    async def send_system(
        self,
        text: str | None = None,
        *,
        user: str | None = None,
        group: str | None = None,
        room: str | None = None,
        everyone: bool = False,
        image: File | None = None,
        audio: File | None = None,
        video: File | None = None,
        name: str | None = None,
        payload: Mapping[str, Any] | None = None,
        progress: Progress | None = None,
    ) -> None:
        """Posts a system message to a user, a group, a room or everyone, if the service allows it.
        Needs no connection. The other arguments are those of `send`."""
        operation, parameter, id = one_of(
            ("sendSystemMessageToUser", "userId", user),
            ("sendSystemMessageToGroup", "groupId", group),
            ("sendSystemMessageToRoom", "roomId", room),
            ("sendSystemMessageToAllUsers", "", True if everyone else None))
        message = await composed(text, image, audio, video, name, payload)
        receiver = {parameter: id} if parameter else {}
        await self._call(operation, {"message": message, **receiver}, progress)

    async def download(self, message: Message, path: str | os.PathLike[str], *,
                       progress: Progress | None = None) -> pathlib.Path:
        """Downloads the message's file to `path`. The file appears when it is complete; a download
        that fails or is cancelled leaves no file. `progress` is called with percentages."""
        await self._download(message, {"path": os.path.abspath(os.fspath(path))}, progress)
        return pathlib.Path(path)

    async def read(self, message: Message, *, progress: Progress | None = None) -> bytes:
        """Downloads the message's file and returns its bytes."""
        result = await self._download(message, {}, progress)
        return base64.b64decode(result["data"])

    async def _download(self, message: Message, target: Record, progress: Progress | None) -> Any:
        record = {"attachmentUrl": message.attachment_url, "mediaType": int(message.media)}
        if message.attachment_url is None:
            raise usage("the message has no file")
        given = {"message": record, **target}
        return await self._call("VXIMMessage.downloadAttachment", given, progress)

    # What comes

    def messages(self, *, own: bool = False, system: bool = False) -> Stream[Message]:
        """Messages as they arrive, and those since the client was opened. Bounded: see `Stream`.

        own
            Include the messages of the user who is logged in, from this and other devices. A bot
            that answers them answers itself.
        system
            Include system messages.
        """

        def wants(message: Message) -> bool:
            if message.is_system:
                return system
            return own or message.sender is None or message.sender != self._user_id

        return self._hubs.messages.open(wants)

    def presence(self) -> Stream[PresenceChanged]:
        """Friends who come online and go offline. It is bounded: see `Stream`."""
        return self._hubs.presence.open()

    def events(self) -> Stream[Event]:
        """All that happens to the client, also messages and presence. Bounded: see `Stream`."""
        return self._hubs.events.open()

    # The store

    def open_store(
        self,
        path: str | os.PathLike[str],
        *,
        user_id: str | None = None,
        read_only: bool = False,
        most_unsent: int | None = None,
        longest_wait: datetime.timedelta | None = None,
        echo_timeout: int | None = None,
        most_caught_up: int | None = None,
        farthest_caught_up: datetime.timedelta | None = None,
    ) -> Store:
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
        user = user_id or self._user_id
        given = os.fspath(path)
        place = os.path.abspath(given) + (os.sep if given.endswith(os.sep) else "")
        if read_only:
            service = self.configuration.get("socketURL")
            return Store(self, "VXIMMessageStore.open",
                         {"path": place, "userId": user, "service": service, "readOnly": True})
        if user is None:
            raise usage("log in before, or give user_id")
        return Store(self, "VXIMConversations.open", {
            "path": place, "userId": user, "mostUnsent": most_unsent,
            "longestWait": hours(longest_wait), "echoTimeout": echo_timeout,
            "mostCaughtUp": most_caught_up, "farthestCaughtUp": hours(farthest_caught_up)})

    # Inside

    def _open_link(self) -> Link:
        if self._link is None:
            raise ClosedError(description="The client is not open: use `async with`.")
        return self._link

    async def _call(self, operation: str, arguments: Mapping[str, Any] | None = None,
                    progress: Progress | None = None) -> Any:
        return await self._open_link().call(operation, arguments or {}, progress)

    def _on_event(self, name: str, record: Record) -> None:
        if self._stores.take(name, record):
            return
        event = event_from(name, record, self._user_id)
        # Nobody knows whose answers were dropped, so all calls fail.
        if isinstance(event, EventsDropped) and record.get("answers") and self._link is not None:
            why = "Answers were dropped: too much was waiting."
            self._link.fail(BusyError(INTERFACE_DOMAIN, 7, why))
        self._hubs.publish(event)
