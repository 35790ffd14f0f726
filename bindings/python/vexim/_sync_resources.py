"""The resources of `vexim.sync.Client`. Written by make_sync.py."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Any

from . import resources as _resources
from ._portal import Portal
from .models import Friend, Group, Message, Passenger, Room, User


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
        """The ids of a user's friends, groups and rooms. Without `id`: of the logged-in user."""
        return self._portal.run(self._inner.fetch(id), self._timeout)

    def find(self, where: Mapping[str, str] | None=None, *, order: Iterable[str]=(), skip: int=0,
             limit: int=20) -> list[User]:
        """Users with the attributes in `where`, sorted by those in `order` ("-name": falling)."""
        return self._portal.run(
            self._inner.find(where, order=order, skip=skip, limit=limit), self._timeout)


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
        """Messages with a friend before a time (seconds since 1970; None: now), newest first."""
        return self._portal.run(
            self._inner.history(friend, before=before, limit=limit), self._timeout)


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

    def create(self, name: str | None=None, *, owner: str | None=None,
               members: Iterable[str] | None=None) -> Group:
        """Creates a group. The service chooses values for what is missing."""
        return self._portal.run(
            self._inner.create(name, owner=owner, members=members), self._timeout)

    def fetch(self, id: str) -> Group:
        """The group as the service knows it."""
        return self._portal.run(self._inner.fetch(id), self._timeout)

    def history(self, id: str, *, before: float | None=None, limit: int=20) -> list[Message]:
        """Messages of the group before a time (seconds since 1970; None: now), newest first."""
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

    def find(self, where: Mapping[str, str] | None=None, *, order: Iterable[str]=(), skip: int=0,
             limit: int=20) -> list[Group]:
        """Groups with the attributes in `where`, sorted by those in `order` ("-name": falling)."""
        return self._portal.run(
            self._inner.find(where, order=order, skip=skip, limit=limit), self._timeout)


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

    def find(self, where: Mapping[str, str] | None=None, *, order: Iterable[str]=(), skip: int=0,
             limit: int=20) -> list[Room]:
        """Rooms with the attributes in `where`, sorted by those in `order` ("-name": falling)."""
        return self._portal.run(
            self._inner.find(where, order=order, skip=skip, limit=limit), self._timeout)


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

    def history(self, id: str, user: str, *, before: float | None=None,
                limit: int=20) -> list[Message]:
        """Messages with a user before a time (seconds since 1970; None: now), newest first."""
        return self._portal.run(
            self._inner.history(id, user, before=before, limit=limit), self._timeout)
