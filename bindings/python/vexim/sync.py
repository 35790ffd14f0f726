"""VexIM without asyncio, for scripts and notebooks: the same methods, which wait.

    with vexim.sync.Client("demo-app", "demo-key", url=URL) as client:
        client.login(user_id="alice")
        client.send("hello", friend="bob")
        for message in client.messages():
            print(message.sender, message.text)

Each client has an event loop in a thread of its own. Any thread may call it; progress callbacks run in that thread, and must not
wait for the client. Written by make_sync.py.
"""

from __future__ import annotations

import datetime
import os
import pathlib
from collections.abc import Iterable, Mapping
from types import TracebackType
from typing import Any, Callable

from . import client as _client
from . import resources as _resources
from ._compose import File
from ._library import Library
from ._link import Progress
from . import store as _store
from ._portal import Portal, SyncObservation, SyncStream
from .errors import ClosedError
from .events import Event, PresenceChanged
from .models import Diagnosis, Friend, Group, Message, Passenger, Room, Status, User
from .stored import Conversation, Gap, Peer, Position, StoreDamage, StoredMessage

__all__ = ["Client", "Store", "SyncObservation", "SyncStream"]


class Users:
    """Operations on users: `client.users`."""

    def __init__(self, inner: _resources.Users, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def attributes(self, id: str) -> dict[str, Any]:
        """All attributes."""
        return self._portal.run(self._inner.attributes(id), self._timeout)

    def attribute(self, id: str, key: str) -> Any:
        """One attribute, or None if there is none."""
        return self._portal.run(self._inner.attribute(id, key), self._timeout)

    def update_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Adds these attributes, overwriting those with the same names."""
        self._portal.run(self._inner.update_attributes(id, attributes), self._timeout)

    def replace_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Replaces all attributes."""
        self._portal.run(self._inner.replace_attributes(id, attributes), self._timeout)

    def delete_attributes(self, id: str) -> None:
        """Deletes all attributes."""
        self._portal.run(self._inner.delete_attributes(id), self._timeout)

    def fetch(self, id: str | None=None) -> User:
        """The ids of a user's friends, groups and rooms; of the user who is logged in without an `id`."""
        return self._portal.run(self._inner.fetch(id), self._timeout)

    def find(self, where: Mapping[str, str] | None=None, *, order: Iterable[str]=(), skip: int=0, limit: int=20) -> list[User]:
        """Users whose attributes are as in `where`. `order` names attributes to sort by; "-name" is descending."""
        return self._portal.run(self._inner.find(where, order=order, skip=skip, limit=limit), self._timeout)


class Friends:
    """The friends of the user who is logged in: `client.friends`."""

    def __init__(self, inner: _resources.Friends, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def all(self, *, detail: bool=True) -> list[Friend]:
        """The friend list. Without `detail` only ids are known."""
        return self._portal.run(self._inner.all(detail=detail), self._timeout)

    def get(self, friend: str) -> Friend:
        """One friend. Raises `ResponseError` if the service does not answer with a record."""
        return self._portal.run(self._inner.get(friend), self._timeout)

    def add(self, friend: str) -> Any:
        """Makes a user a friend. Returns the service's answer."""
        return self._portal.run(self._inner.add(friend), self._timeout)

    def remove(self, friend: str) -> None:
        """Ends a friendship."""
        self._portal.run(self._inner.remove(friend), self._timeout)

    def history(self, friend: str, *, before: float | None=None, limit: int=20) -> list[Message]:
        """Messages with a friend before a time (seconds since 1970; None is now), the newest first."""
        return self._portal.run(self._inner.history(friend, before=before, limit=limit), self._timeout)


class Groups:
    """Operations on groups: `client.groups`."""

    def __init__(self, inner: _resources.Groups, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def attributes(self, id: str) -> dict[str, Any]:
        """All attributes."""
        return self._portal.run(self._inner.attributes(id), self._timeout)

    def attribute(self, id: str, key: str) -> Any:
        """One attribute, or None if there is none."""
        return self._portal.run(self._inner.attribute(id, key), self._timeout)

    def update_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Adds these attributes, overwriting those with the same names."""
        self._portal.run(self._inner.update_attributes(id, attributes), self._timeout)

    def replace_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Replaces all attributes."""
        self._portal.run(self._inner.replace_attributes(id, attributes), self._timeout)

    def delete_attributes(self, id: str) -> None:
        """Deletes all attributes."""
        self._portal.run(self._inner.delete_attributes(id), self._timeout)

    def joined(self, *, detail: bool=True) -> list[Group]:
        """The groups of the user who is logged in. Without `detail` only ids are known."""
        return self._portal.run(self._inner.joined(detail=detail), self._timeout)

    def create(self, name: str | None=None, *, owner: str | None=None, members: Iterable[str] | None=None) -> Group:
        """Creates a group. The service chooses values for what is missing."""
        return self._portal.run(self._inner.create(name, owner=owner, members=members), self._timeout)

    def fetch(self, id: str) -> Group:
        """The group as the service knows it."""
        return self._portal.run(self._inner.fetch(id), self._timeout)

    def history(self, id: str, *, before: float | None=None, limit: int=20) -> list[Message]:
        """Messages of the group before a time (seconds since 1970; None is now), the newest first."""
        return self._portal.run(self._inner.history(id, before=before, limit=limit), self._timeout)

    def change_owner(self, id: str, owner: str) -> None:
        """Makes another user the owner of the group."""
        self._portal.run(self._inner.change_owner(id, owner), self._timeout)

    def update(self, id: str, record: Mapping[str, Any]) -> None:
        """Changes entries of the record itself, not of its attributes."""
        self._portal.run(self._inner.update(id, record), self._timeout)

    def rename(self, id: str, name: str) -> None:
        """Renames the group. The name is one of its attributes."""
        self._portal.run(self._inner.rename(id, name), self._timeout)

    def add_members(self, id: str, users: Iterable[str]) -> None:
        """Adds users by their ids."""
        self._portal.run(self._inner.add_members(id, users), self._timeout)

    def remove_members(self, id: str, users: Iterable[str]) -> None:
        """Removes users by their ids."""
        self._portal.run(self._inner.remove_members(id, users), self._timeout)

    def delete(self, id: str) -> None:
        """Deletes the group."""
        self._portal.run(self._inner.delete(id), self._timeout)

    def find(self, where: Mapping[str, str] | None=None, *, order: Iterable[str]=(), skip: int=0, limit: int=20) -> list[Group]:
        """Groups whose attributes are as in `where`. `order` names attributes to sort by; "-name" is descending."""
        return self._portal.run(self._inner.find(where, order=order, skip=skip, limit=limit), self._timeout)


class Rooms:
    """Operations on rooms: `client.rooms`."""

    def __init__(self, inner: _resources.Rooms, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def attributes(self, id: str) -> dict[str, Any]:
        """All attributes."""
        return self._portal.run(self._inner.attributes(id), self._timeout)

    def attribute(self, id: str, key: str) -> Any:
        """One attribute, or None if there is none."""
        return self._portal.run(self._inner.attribute(id, key), self._timeout)

    def update_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Adds these attributes, overwriting those with the same names."""
        self._portal.run(self._inner.update_attributes(id, attributes), self._timeout)

    def replace_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Replaces all attributes."""
        self._portal.run(self._inner.replace_attributes(id, attributes), self._timeout)

    def delete_attributes(self, id: str) -> None:
        """Deletes all attributes."""
        self._portal.run(self._inner.delete_attributes(id), self._timeout)

    def joined(self, *, detail: bool=True) -> list[Room]:
        """The rooms of the user who is logged in. Without `detail` only ids are known."""
        return self._portal.run(self._inner.joined(detail=detail), self._timeout)

    def create(self, name: str, *, members: Iterable[str] | None=None) -> Room:
        """Creates a room."""
        return self._portal.run(self._inner.create(name, members=members), self._timeout)

    def fetch(self, id: str) -> Room:
        """The room as the service knows it."""
        return self._portal.run(self._inner.fetch(id), self._timeout)

    def rename(self, id: str, name: str) -> None:
        """Renames the room."""
        self._portal.run(self._inner.rename(id, name), self._timeout)

    def add_members(self, id: str, users: Iterable[str]) -> None:
        """Adds users by their ids."""
        self._portal.run(self._inner.add_members(id, users), self._timeout)

    def remove_members(self, id: str, users: Iterable[str]) -> None:
        """Removes users by their ids."""
        self._portal.run(self._inner.remove_members(id, users), self._timeout)

    def delete(self, id: str) -> None:
        """Deletes the room."""
        self._portal.run(self._inner.delete(id), self._timeout)

    def find(self, where: Mapping[str, str] | None=None, *, order: Iterable[str]=(), skip: int=0, limit: int=20) -> list[Room]:
        """Rooms whose attributes are as in `where`. `order` names attributes to sort by; "-name" is descending."""
        return self._portal.run(self._inner.find(where, order=order, skip=skip, limit=limit), self._timeout)


class Passengers:
    """Operations on passengers, the anonymous visitors: `client.passengers`."""

    def __init__(self, inner: _resources.Passengers, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def save(self, attributes: Mapping[str, Any]) -> Passenger:
        """Creates a passenger, or updates the one whose "id" is among the attributes."""
        return self._portal.run(self._inner.save(attributes), self._timeout)

    def update(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Changes attributes."""
        self._portal.run(self._inner.update(id, attributes), self._timeout)

    def fetch(self, id: str) -> Passenger:
        """The passenger as the service knows it."""
        return self._portal.run(self._inner.fetch(id), self._timeout)

    def history(self, id: str, user: str, *, before: float | None=None, limit: int=20) -> list[Message]:
        """Messages with a user before a time (seconds since 1970; None is now), the newest first."""
        return self._portal.run(self._inner.history(id, user, before=before, limit=limit), self._timeout)


class Client:
    """One user's connection to the service: `vexim.Client`, whose methods wait.

    `timeout` bounds each call in seconds, but for uploads and downloads (TimeoutError); None waits for ever. The other
    arguments are those of `vexim.Client`.

    It is open from the start. `close`, or the end of a `with`, ends it without a logout; calls of other threads that are under
    way then raise `ClosedError`.
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
        self._inner = _client.Client(app_id, client_key, url=url, installation_id=installation_id, namespace=namespace,
                                     options=options, queue_size=queue_size, library=library)
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

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
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

    def login(
        self,
        *,
        user_id: str | None=None,
        username: str | None=None,
        password: str | None=None,
        phone_number: str | None=None,
        sms_code: str | None=None,
        oauth: Mapping[str, Any] | None=None,
        auth_data: Mapping[str, Any] | None=None,
    ) -> None:
        """Connects and logs in, with one kind of credentials:

        - `user_id`: vouched for by the client key alone
        - `username` and `password`
        - `phone_number` and `sms_code`
        - `oauth`: the answer of an outside identity provider
        - `auth_data`: sent unchanged

        Raises `LoginError` if the service refuses, `NetworkError` if it cannot be reached. There is
        no time limit for a service that accepts the connection but does not answer: use
        the client's `timeout`. Another login ends this one with `AbandonedError`. When the connection is
        lost, the client connects and logs in again by itself.
        """
        self._portal.run(self._inner.login(user_id=user_id, username=username, password=password, phone_number=phone_number, sms_code=sms_code, oauth=oauth, auth_data=auth_data), self._timeout)

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
        """Clears `was_offline` and `is_logging_out`, for example after a logout that did not end."""
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

    def send(
        self,
        text: str | None=None,
        *,
        friend: str | None=None,
        group: str | None=None,
        room: str | None=None,
        image: File | None=None,
        audio: File | None=None,
        video: File | None=None,
        name: str | None=None,
        payload: Mapping[str, Any] | None=None,
        progress: Progress | None=None,
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
        receipt. Raises `NotConnectedError` if there is no connection.
        """
        return self._portal.run(self._inner.send(text, friend=friend, group=group, room=room, image=image, audio=audio, video=video, name=name, payload=payload, progress=progress), None)

    def reply(self, message: Message, text: str) -> Message:
        """Sends a text into the conversation that `message` came from."""
        return self._portal.run(self._inner.reply(message, text), self._timeout)

    def send_system(
        self,
        text: str | None=None,
        *,
        user: str | None=None,
        group: str | None=None,
        room: str | None=None,
        everyone: bool=False,
        image: File | None=None,
        audio: File | None=None,
        video: File | None=None,
        name: str | None=None,
        payload: Mapping[str, Any] | None=None,
        progress: Progress | None=None,
    ) -> None:
        """Posts a system message to a user, a group, a room or everyone. Needs no connection. The
        service decides whether this application may do so. The other arguments are those of `send`.
        """
        self._portal.run(self._inner.send_system(text, user=user, group=group, room=room, everyone=everyone, image=image, audio=audio, video=video, name=name, payload=payload, progress=progress), None)

    def download(self, message: Message, path: str | os.PathLike[str], *, progress: Progress | None=None) -> pathlib.Path:
        """Downloads the message's file to `path`. The file appears when it is complete; a download
        that fails or is cancelled leaves no file. `progress` is called with percentages, any number of times.
        """
        return self._portal.run(self._inner.download(message, path, progress=progress), None)

    def read(self, message: Message, *, progress: Progress | None=None) -> bytes:
        """Downloads the message's file and returns its bytes."""
        return self._portal.run(self._inner.read(message, progress=progress), None)

    def messages(self, *, own: bool=False, system: bool=False) -> SyncStream[Message]:
        """Messages as they arrive, including those that have arrived since the client was opened
        and were not read.

        own
            Include the messages of the user who is logged in, from this and other devices. A bot
            that answers them answers itself.
        system
            Include system messages.

        It is bounded: see `Stream`.
        """
        return SyncStream(self._portal, self._portal.do(lambda: self._inner.messages(own=own, system=system)))

    def presence(self) -> SyncStream[PresenceChanged]:
        """Friends who come online and go offline. It is bounded: see `Stream`."""
        return SyncStream(self._portal, self._portal.do(lambda: self._inner.presence()))

    def events(self) -> SyncStream[Event]:
        """Everything that happens to the client, including messages and presence. It is bounded: see `Stream`."""
        return SyncStream(self._portal, self._portal.do(lambda: self._inner.events()))

    def open_store(
        self,
        path: str | os.PathLike[str],
        *,
        user_id: str | None=None,
        read_only: bool=False,
        most_unsent: int | None=None,
        longest_wait: datetime.timedelta | None=None,
        echo_timeout: int | None=None,
        most_caught_up: int | None=None,
        farthest_caught_up: datetime.timedelta | None=None,
    ) -> Store:
        """The client's store: a memory of its conversations, and an outbox. `async with` opens it and closes it; a client has one at a
        time. It needs the C library with the store (`libvexim-c-store`), and raises `StoreError` without it.

        path
            A file, made when it is missing; or a folder that exists, where each user of each service gets a file of its own.
        user_id
            Whose messages these are; the user who is logged in without one. Give it to open the store before the login.
        read_only
            Only to look: nothing is sent or received. Another program may have the file open for writing, and this client another store.
        most_unsent, longest_wait
            How many messages may wait to be sent (10 000), and how long one waits before it fails (a week; in whole hours).
        echo_timeout
            How many seconds the service may take to send a message back until it is asked for it (15).
        most_caught_up, farthest_caught_up
            How far back a conversation is read after a login: messages (2 000) and time (30 days; in whole hours).
        """
        return Store(self._portal.do(lambda: self._inner.open_store(path, user_id=user_id, read_only=read_only, most_unsent=most_unsent, longest_wait=longest_wait, echo_timeout=echo_timeout, most_caught_up=most_caught_up, farthest_caught_up=farthest_caught_up)), self._portal, self._timeout)


class Store:
    """A user's messages on this device, in one SQLite file: `vexim.Store`, whose methods wait. Made by `Client.open_store`; `with` opens
    it and closes it."""

    def __init__(self, inner: _store.Store, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def close(self) -> None:
        """Finishes earlier operations, then closes the file. Unsent messages are sent the next time. Closing again does
        nothing."""
        try:
            self._portal.run(self._inner.close(), self._timeout)
        except ClosedError:
            pass

    def __enter__(self) -> Store:
        self.open()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return repr(self._inner).replace("vexim.Store", "vexim.sync.Store")

    def open(self) -> None:
        """Opens or creates the file; `async with` does this. A damaged file is set aside, see
        `damage`.
        """
        self._portal.run(self._inner.open(), self._timeout)

    @property
    def path(self) -> str:
        """The file's path, also when a folder was named."""
        return self._portal.do(lambda: self._inner.path)

    @property
    def user_id(self) -> str:
        """Whose messages these are."""
        return self._portal.do(lambda: self._inner.user_id)

    @property
    def damage(self) -> StoreDamage | None:
        """The damage found when the store was opened; normally None. Later damage is reported by
        `StoreDamaged` of `Client.events`.
        """
        return self._portal.do(lambda: self._inner.damage)

    def conversations(self) -> list[Conversation]:
        """All conversations, the one with the newest message first."""
        return self._portal.run(self._inner.conversations(), self._timeout)

    def conversation(self, peer: Peer) -> Conversation | None:
        """One conversation, or None if there is none."""
        return self._portal.run(self._inner.conversation(peer), self._timeout)

    def messages_before(
        self,
        peer: Peer,
        position: Position | StoredMessage | None=None,
        *,
        limit: int=50,
    ) -> list[StoredMessage]:
        """The messages right before a position (None: the newest), the oldest first."""
        return self._portal.run(self._inner.messages_before(peer, position, limit=limit), self._timeout)

    def messages_after(
        self,
        peer: Peer,
        position: Position | StoredMessage | None=None,
        *,
        limit: int=50,
    ) -> list[StoredMessage]:
        """The messages right behind a position (None: the oldest), the oldest first."""
        return self._portal.run(self._inner.messages_after(peer, position, limit=limit), self._timeout)

    def message(self, local_id: int) -> StoredMessage | None:
        """One message, or None if there is none."""
        return self._portal.run(self._inner.message(local_id), self._timeout)

    def search(
        self,
        text: str,
        *,
        peer: Peer | None=None,
        since: datetime.datetime | None=None,
        until: datetime.datetime | None=None,
        before: Position | StoredMessage | None=None,
        limit: int=50,
    ) -> list[StoredMessage]:
        """Texts in which all words occur, the newest first. A word that ends in "*" is the beginning of one; words in double quotes
        stand together. `before`, the last one found, gives the next page.
        """
        return self._portal.run(self._inner.search(text, peer=peer, since=since, until=until, before=before, limit=limit), self._timeout)

    def gaps(self, peer: Peer) -> list[Gap]:
        """The places where messages are missing."""
        return self._portal.run(self._inner.gaps(peer), self._timeout)

    def read_gap(self, peer: Peer, gap: Gap) -> int:
        """Reads up to 100 messages from the newer end of a gap, for example when the user scrolls
        back to it. The gap becomes shorter or disappears. Returns how
        many were stored.
        """
        return self._portal.run(self._inner.read_gap(peer, gap), self._timeout)

    def export(self, path: str | os.PathLike[str], peer: Peer | None=None) -> int:
        """Writes all messages, or those of one conversation, to a file: a JSON object a line. Returns how many."""
        return self._portal.run(self._inner.export(path, peer), self._timeout)

    def send(
        self,
        peer: Peer,
        text: str | None=None,
        *,
        image: File | None=None,
        audio: File | None=None,
        video: File | None=None,
        name: str | None=None,
        payload: Mapping[str, Any] | None=None,
        progress: Progress | None=None,
    ) -> StoredMessage:
        """Queues a message, as `Client.send` takes one, and returns it as it was written: from then
        on it cannot get lost. `observe` reports its state. `progress` is called during the upload,
        as long as this program runs.
        """
        return self._portal.run(self._inner.send(peer, text, image=image, audio=audio, video=video, name=name, payload=payload, progress=progress), self._timeout)

    def retry(self, message: StoredMessage | int) -> None:
        """Sends a failed message again, at its old place; one that waits after a failure is tried at once."""
        self._portal.run(self._inner.retry(message), self._timeout)

    def cancel(self, message: StoredMessage | int) -> None:
        """Removes a message that is not confirmed yet. If the service has it already, its echo
        brings it back.
        """
        self._portal.run(self._inner.cancel(message), self._timeout)

    def mark_read(self, peer: Peer, up_to: Position | StoredMessage | None=None) -> None:
        """Counts the messages up to a position (None: all) as read."""
        self._portal.run(self._inner.mark_read(peer, up_to), self._timeout)

    def set_draft(self, peer: Peer, draft: str) -> None:
        """Stores what the user has begun to write. An empty text removes it."""
        self._portal.run(self._inner.set_draft(peer, draft), self._timeout)

    def remove(self, peer: Peer) -> None:
        """Removes a conversation with all its messages (also unsent ones) from this device."""
        self._portal.run(self._inner.remove(peer), self._timeout)

    def set_retention(self, *, max_age: datetime.timedelta | None=None, max_count: int | None=None) -> int:
        """Keeps messages no longer than `max_age` (in whole hours), and `max_count` of each conversation; None: no limit. Returns how many
        were removed now. Unconfirmed messages are never removed.
        """
        return self._portal.run(self._inner.set_retention(max_age=max_age, max_count=max_count), self._timeout)

    def observe(self, peer: Peer, *, limit: int=50) -> SyncObservation[StoredMessage]:
        """How the newest messages of a conversation change, the oldest first."""
        return SyncObservation(self._portal, self._portal.do(lambda: self._inner.observe(peer, limit=limit)))

    def observe_conversations(self, *, limit: int=50) -> SyncObservation[Conversation]:
        """How the list of conversations changes, the one with the newest message first."""
        return SyncObservation(self._portal, self._portal.do(lambda: self._inner.observe_conversations(limit=limit)))
