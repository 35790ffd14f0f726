"""Where a client's events go."""

from __future__ import annotations

from .events import Event, Hub, MessageReceived, PresenceChanged
from .models import Message


class Hubs:
    """The streams of messages, those of presence, and those of all events."""

    def __init__(self, limit: int) -> None:
        self.limit = limit
        self.messages: Hub[Message] = Hub(limit)
        self.presence: Hub[PresenceChanged] = Hub(limit)
        self.events: Hub[Event] = Hub(limit)

    def publish(self, event: Event) -> None:
        if isinstance(event, MessageReceived):
            self.messages.publish(event.message)
        elif isinstance(event, PresenceChanged):
            self.presence.publish(event)
        self.events.publish(event)

    def are_catching_up(self) -> bool:
        hubs: list[Hub[Message] | Hub[PresenceChanged] | Hub[Event]] = [
            self.messages, self.presence, self.events]
        return any([hub.is_catching_up() for hub in hubs])  # asks each of them

    def end(self) -> None:
        self.messages.end()
        self.presence.end()
        self.events.end()
