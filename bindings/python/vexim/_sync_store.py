"""The store of `vexim.sync.Client`. Written by make_sync.py."""

from __future__ import annotations

import datetime
import os
from collections.abc import Mapping
from types import TracebackType
from typing import Any

from . import store as _store
from ._compose import File
from ._link import Progress
from ._portal import Portal, SyncObservation
from .errors import ClosedError
from .stored import Conversation, Gap, Peer, Position, StoreDamage, StoredMessage


class Store:
    """A user's messages on this device, in one SQLite file: `vexim.Store`, whose methods wait.
    `Client.open_store` makes it; `with` opens and closes it."""

    def __init__(self, inner: _store.Store, portal: Portal, timeout: float | None) -> None:
        self._inner = inner
        self._portal = portal
        self._timeout = timeout

    def close(self) -> None:
        """Finishes earlier operations, then closes the file. Unsent messages are sent the next
        time. Closing again does nothing."""
        try:
            self._portal.run(self._inner.close(), self._timeout)
        except ClosedError:
            pass

    def __enter__(self) -> Store:
        self.open()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
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

    def messages_before(self, peer: Peer, position: Position | StoredMessage | None=None, *,
                        limit: int=50) -> list[StoredMessage]:
        """The messages right before a position (None: the newest), the oldest first."""
        return self._portal.run(
            self._inner.messages_before(peer, position, limit=limit), self._timeout)

    def messages_after(self, peer: Peer, position: Position | StoredMessage | None=None, *,
                       limit: int=50) -> list[StoredMessage]:
        """The messages right behind a position (None: the oldest), the oldest first."""
        return self._portal.run(
            self._inner.messages_after(peer, position, limit=limit), self._timeout)

    def message(self, local_id: int) -> StoredMessage | None:
        """One message, or None if there is none."""
        return self._portal.run(self._inner.message(local_id), self._timeout)

    def search(self, text: str, *, peer: Peer | None=None, since: datetime.datetime | None=None,
               until: datetime.datetime | None=None, before: Position | StoredMessage | None=None,
               limit: int=50) -> list[StoredMessage]:
        """Texts that have all the words, the newest first. "word*" matches the beginning of a word;
        words in double quotes must follow each other. For the next page, give the last one found as
        `before`.
        """
        return self._portal.run(
            self._inner.search(text, peer=peer, since=since, until=until, before=before,
            limit=limit), self._timeout)

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
        """Writes all messages, or those with a peer, to a file: one JSON object per line. Returns
        how many.
        """
        return self._portal.run(self._inner.export(path, peer), self._timeout)

    def send(self, peer: Peer, text: str | None=None, *, image: File | None=None,
             audio: File | None=None, video: File | None=None, name: str | None=None,
             payload: Mapping[str, Any] | None=None,
             progress: Progress | None=None) -> StoredMessage:
        """Queues a message, as `Client.send` takes one, and returns it as it was written: from then
        on it cannot get lost. `observe` reports its state. `progress` is called during the upload,
        as long as this program runs.
        """
        return self._portal.run(
            self._inner.send(peer, text, image=image, audio=audio, video=video, name=name,
            payload=payload, progress=progress), self._timeout)

    def retry(self, message: StoredMessage | int) -> None:
        """Sends a failed message again, at its old place. A message that waits after a failure is
        tried at once.
        """
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

    def set_retention(self, *, max_age: datetime.timedelta | None=None,
                      max_count: int | None=None) -> int:
        """Keeps messages no longer than `max_age` (in whole hours), and at most `max_count` of each
        conversation; None means no limit. Returns how many were removed now. Unconfirmed messages
        are never removed.
        """
        return self._portal.run(
            self._inner.set_retention(max_age=max_age, max_count=max_count), self._timeout)

    def observe(self, peer: Peer, *, limit: int=50) -> SyncObservation[StoredMessage]:
        """How the newest messages of a conversation change, the oldest first."""
        return SyncObservation(
            self._portal, self._portal.do(lambda: self._inner.observe(peer, limit=limit)))

    def observe_conversations(self, *, limit: int=50) -> SyncObservation[Conversation]:
        """How the list of conversations changes, the one with the newest message first."""
        return SyncObservation(
            self._portal, self._portal.do(lambda: self._inner.observe_conversations(limit=limit)))
