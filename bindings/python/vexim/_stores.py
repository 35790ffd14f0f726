"""Which stores of a client are open, and which of them gets an event."""

from __future__ import annotations

from typing import TYPE_CHECKING

from ._link import Progress, Record

if TYPE_CHECKING:
    from .store import Store


class Stores:
    """The open stores of a client, and what their events go to."""

    def __init__(self) -> None:
        self.uploads: dict[int, Progress] = {}  # by local id, of the one that sends
        self._open: list[Store] = []

    @property
    def sends(self) -> bool:
        """Whether one is there, or being opened, that sends."""
        return any(store._sends for store in self._open)

    def add(self, store: Store) -> None:
        self._open.append(store)

    def remove(self, store: Store) -> None:
        self._open = [each for each in self._open if each is not store]
        if store._sends:
            self.uploads.clear()

    def end(self) -> None:
        for store in list(self._open):
            store._end()

    def take(self, name: str, record: Record) -> bool:
        """Whether it was an event that goes to one place only."""
        if name in ("observedMessagesDidChange", "observedConversationsDidChange"):
            for store in self._open:
                reference = store._observations.get(record["observation"])
                observation = reference() if reference is not None else None
                if observation is not None:
                    observation._push(record)
            return True
        if name == "conversationsProgress":
            progress = self.uploads.get(record["localId"])
            if progress is not None:
                progress(record["percent"])
                if record["percent"] == 100:
                    self.uploads.pop(record["localId"], None)
            return True
        return False
