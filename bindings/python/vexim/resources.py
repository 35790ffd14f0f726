"""Users, friends, groups, rooms and passengers: what `Client.users` and its siblings do.

Every operation asks the service and returns values; nothing is cached here. Most operations need an
open client but no connection. Each raises `ServiceError` if the service refuses, and `NetworkError`
if it cannot be reached.
"""

from __future__ import annotations

import time
from collections.abc import Iterable, Mapping
from typing import Any, Protocol

from .errors import usage
from .models import (
    Friend,
    Group,
    Message,
    Passenger,
    Room,
    User,
    friend_from,
    group_from,
    message_from,
    passenger_from,
    room_from,
    user_from,
)


class Caller(Protocol):
    """What the operations need of a client."""

    @property
    def user_id(self) -> str | None: ...

    async def _call(self, operation: str, arguments: Mapping[str, Any]) -> Any: ...


def _list(value: Any) -> list[Any]:
    return value if isinstance(value, list) else []


class _Operations:
    _class = ""

    def __init__(self, client: Caller) -> None:
        self._client = client

    async def _call(self, operation: str, **arguments: Any) -> Any:
        return await self._client._call(f"{self._class}.{operation}", arguments)

    async def _find(self, operation: str, where: Mapping[str, str] | None, order: Iterable[str],
                    skip: int, limit: int) -> list[Any]:
        where = where or {}
        if not isinstance(where, Mapping) or not all(isinstance(value, str)
                                                     for value in where.values()):
            raise usage("give the attributes to search for as a dictionary of strings")
        query = {"where": dict(where), "order": _strings(order), "skip": skip, "limit": limit}
        return _list(await self._client._call(f"VXIMQuery.{operation}", query))


class _Attributed(_Operations):
    """Custom attributes: a dictionary that the application defines and the service stores."""

    async def attributes(self, id: str) -> dict[str, Any]:
        """All attributes."""
        result = await self._call("fetchAttributesWithCompletion", id=id)
        return result if isinstance(result, dict) else {}

    async def attribute(self, id: str, key: str) -> Any:
        """One attribute, or None if there is none."""
        return await self._call("getAttributeForKey", id=id, key=key)

    async def update_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Adds these attributes, overwriting those with the same names."""
        await self._call("updateAttributes", id=id, attributes=dict(attributes))

    async def replace_attributes(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Replaces all attributes."""
        await self._call("replaceAttributes", id=id, attributes=dict(attributes))

    async def delete_attributes(self, id: str) -> None:
        """Deletes all attributes."""
        await self._call("deleteAttributesWithCompletion", id=id)


class Users(_Attributed):
    """Operations on users: `client.users`."""

    _class = "VXIMUser"

    async def fetch(self, id: str | None = None) -> User:
        """The ids of a user's friends, groups and rooms. Without `id`: of the logged-in user."""
        return user_from(await self._call("fetchWithCompletion", id=id))

    async def find(
        self, where: Mapping[str, str] | None = None, *, order: Iterable[str] = (), skip: int = 0,
        limit: int = 20
    ) -> list[User]:
        """Users with the attributes in `where`, sorted by those in `order` ("-name": falling)."""
        return [user_from(item)
                for item in await self._find("findUserWithBlock", where, order, skip, limit)]


class Friends(_Operations):
    """The friends of the user who is logged in: `client.friends`."""

    _class = "VXIMUser"

    async def all(self, *, detail: bool = True) -> list[Friend]:
        """The friend list. Without `detail` only ids are known."""
        result = await self._call("fetchFriendsWithDetail", detail=detail)
        return [friend_from(item) for item in _list(result)]

    async def get(self, friend: str) -> Friend:
        """One friend. Raises `ResponseError` if the service does not answer with a record."""
        return friend_from(await self._call("getFriendInfo", friendId=friend))

    async def add(self, friend: str) -> Any:
        """Makes a user a friend. Returns the service's answer."""
        return await self._call("addFriendWithUser", friendId=friend)

    async def remove(self, friend: str) -> None:
        """Ends a friendship."""
        await self._call("deleteFriend", friendId=friend)

    async def history(self, friend: str, *, before: float | None = None,
                      limit: int = 20) -> list[Message]:
        """Messages with a friend before a time (seconds since 1970; None: now), newest first."""
        result = await self._call("getLatestChatsWithFriend", friendId=friend,
                                  timestamp=_before(before), limit=limit)
        return [message_from(item, friend, self._client.user_id) for item in _list(result)]


class Groups(_Attributed):
    """Operations on groups: `client.groups`."""

    _class = "VXIMGroup"

    async def joined(self, *, detail: bool = True) -> list[Group]:
        """The groups of the user who is logged in. Without `detail` only ids are known."""
        result = await self._client._call("VXIMUser.fetchGroupsWithDetail", {"detail": detail})
        return [group_from(item) for item in _list(result)]

    async def create(self, name: str | None = None, *, owner: str | None = None,
                     members: Iterable[str] | None = None) -> Group:
        """Creates a group. The service chooses values for what is missing."""
        listed = None if members is None else _strings(members)
        return group_from(await self._call("createWithBlock", name=name, members=listed,
                                           owner=owner))

    async def fetch(self, id: str) -> Group:
        """The group as the service knows it."""
        return group_from(await self._call("fetchWithBlock", id=id))

    async def history(self, id: str, *, before: float | None = None,
                      limit: int = 20) -> list[Message]:
        """Messages of the group before a time (seconds since 1970; None: now), newest first."""
        result = await self._call("getLatestMessagesBefore", id=id, timestamp=_before(before),
                                  limit=limit)
        return [message_from(item) for item in _list(result)]

    async def change_owner(self, id: str, owner: str) -> None:
        """Makes another user the owner of the group."""
        await self._call("changeOwner", id=id, owner=owner)

    async def update(self, id: str, record: Mapping[str, Any]) -> None:
        """Changes entries of the record itself, not of its attributes."""
        await self._call("updateWithAttributes", id=id, attributes=dict(record))

    async def rename(self, id: str, name: str) -> None:
        """Renames the group. The name is one of its attributes."""
        await self._call("updateName", id=id, name=name)

    async def add_members(self, id: str, users: Iterable[str]) -> None:
        """Adds users by their ids."""
        await self._call("addMembers", id=id, userIds=_strings(users))

    async def remove_members(self, id: str, users: Iterable[str]) -> None:
        """Removes users by their ids."""
        await self._call("removeMembers", id=id, userIds=_strings(users))

    async def delete(self, id: str) -> None:
        """Deletes the group."""
        await self._call("deleteWithBlock", id=id)

    async def find(
        self, where: Mapping[str, str] | None = None, *, order: Iterable[str] = (), skip: int = 0,
        limit: int = 20
    ) -> list[Group]:
        """Groups with the attributes in `where`, sorted by those in `order` ("-name": falling)."""
        return [group_from(item)
                for item in await self._find("findGroupWithBlock", where, order, skip, limit)]


class Rooms(_Attributed):
    """Operations on rooms: `client.rooms`."""

    _class = "VXIMRoom"

    async def joined(self, *, detail: bool = True) -> list[Room]:
        """The rooms of the user who is logged in. Without `detail` only ids are known."""
        result = await self._client._call("VXIMUser.fetchRoomsWithDetail", {"detail": detail})
        return [room_from(item) for item in _list(result)]

    async def create(self, name: str, *, members: Iterable[str] | None = None) -> Room:
        """Creates a room."""
        listed = None if members is None else _strings(members)
        return room_from(await self._call("createWithName", name=name, members=listed))

    async def fetch(self, id: str) -> Room:
        """The room as the service knows it."""
        return room_from(await self._call("fetchWithBlock", id=id))

    async def rename(self, id: str, name: str) -> None:
        """Renames the room."""
        await self._call("updateName", id=id, name=name)

    async def add_members(self, id: str, users: Iterable[str]) -> None:
        """Adds users by their ids."""
        await self._call("addMembers", id=id, userIds=_strings(users))

    async def remove_members(self, id: str, users: Iterable[str]) -> None:
        """Removes users by their ids."""
        await self._call("removeMembers", id=id, userIds=_strings(users))

    async def delete(self, id: str) -> None:
        """Deletes the room."""
        await self._call("deleteWithBlock", id=id)

    async def find(
        self, where: Mapping[str, str] | None = None, *, order: Iterable[str] = (), skip: int = 0,
        limit: int = 20
    ) -> list[Room]:
        """Rooms with the attributes in `where`, sorted by those in `order` ("-name": falling)."""
        return [room_from(item)
                for item in await self._find("findRoomWithBlock", where, order, skip, limit)]


class Passengers(_Operations):
    """Operations on passengers, the anonymous visitors: `client.passengers`."""

    _class = "VXIMPassenger"

    async def save(self, attributes: Mapping[str, Any]) -> Passenger:
        """Creates a passenger, or updates the one whose "id" is among the attributes."""
        return passenger_from(await self._call("createOrUpdatePassengerWithAttributes",
                                               attributes=dict(attributes)))

    async def update(self, id: str, attributes: Mapping[str, Any]) -> None:
        """Changes attributes."""
        await self._call("updatePassengerAttributes", id=id, attributes=dict(attributes))

    async def fetch(self, id: str) -> Passenger:
        """The passenger as the service knows it."""
        return passenger_from(await self._call("fetchWithCompletion", id=id))

    async def history(self, id: str, user: str, *, before: float | None = None,
                      limit: int = 20) -> list[Message]:
        """Messages with a user before a time (seconds since 1970; None: now), newest first."""
        result = await self._call("getHistoryMessagesWithUser", id=id, userId=user,
                                  beforeTime=_before(before), limit=limit)
        return [message_from(item, user, id) for item in _list(result)]


def _strings(strings: Iterable[str]) -> list[str]:
    if isinstance(strings, str):  # an iterable of its letters
        raise usage(f"give a list: [{strings!r}]")
    return list(strings)


def _before(seconds: float | None) -> float:
    return time.time() + 1 if seconds is None else seconds
