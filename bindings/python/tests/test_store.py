"""The store with the real C library: sending over cuts, restarts, unusable files, observations."""

import asyncio
import datetime
import json
import pathlib
import tempfile
import unittest

import vexim
import vexim.sync
from tests.fakes import first
from tests.live import LONG, LiveCase
from vexim import Peer, State
from vexim._library import load

BOB = Peer.friend("bob")


def has_store():
    library = load()
    client = library.create(b"{}")
    library.send(client, b'{"@op": "VXIMMessageStore.close"}')
    library.free(client)
    said = []
    while (text := library.receive(client)) is not None:
        said.append(json.loads(text)["error"]["code"])
    return said != [11]


HAS_STORE = has_store()


def applied(items, change):
    """A list after a change, as its documentation says."""
    items = list(items)
    for position in reversed(change.removed):
        del items[position]
    for position in change.inserted:
        items.insert(position, change.items[position])
    for position in change.changed:
        items[position] = change.items[position]
    return items


class Watch:
    """An observation whose changes are applied as they come."""

    def __init__(self, observation):
        self.observation = observation
        self.items = []

    async def next(self):
        change = await anext(self.observation)
        self.items = applied(self.items, change)
        assert self.items == list(change.items), (self.items, change)

    async def until(self, condition):
        while not condition(self.items):
            await self.next()


def states(items):
    return [(item.text, item.state) for item in items]


def confirmed(*texts):
    return lambda items: states(items) == [(text, State.CONFIRMED) for text in texts]


def confirmed_last(count):
    return lambda items: len(items) == count and items[-1].state == State.CONFIRMED


def texts_of(messages):
    return [message.text for message in messages]


async def tell_the_store(case):
    """Every operation and event of the store, except damage of the open file."""
    with tempfile.TemporaryDirectory() as folder:
        async with case.client() as alice, case.client() as bob, asyncio.timeout(LONG):
            await case.control("reset", {})
            events = alice.events()
            async with alice.open_store(
                    folder + "/", user_id="alice", echo_timeout=60, most_unsent=100,
                    longest_wait=datetime.timedelta(days=1)) as store:
                case.assertEqual((store.user_id, store.damage), ("alice", None))
                case.assertEqual(await alice._call("VXIMConversations.store"), store._record)
                watch = Watch(store.observe(BOB, limit=3))
                conversations = Watch(store.observe_conversations())
                await store.send(BOB, "first")
                await alice.login(user_id="alice")
                await bob.login(user_id="bob")
                await watch.until(confirmed("first"))
                text = {"conversation": {"kind": "friend", "id": "bob"}, "text": "second"}
                await alice._call("VXIMConversations.sendText", text)
                await watch.until(confirmed("first", "second"))
                await bob.send("answer", friend="alice")
                await watch.until(confirmed_last(3))
                await conversations.until(lambda items: items and items[0].unread == 1)
                percents = []
                image = await store.send(BOB, image=bytes(100_000), progress=percents.append)
                await watch.observation.set_limit(4)
                await watch.until(confirmed_last(4))
                case.assertTrue(watch.items[-1].attachment_url)
                case.assertEqual(percents[-1], 100)
                await watch.observation.aclose()

                newest = await store.messages_before(BOB, limit=1)
                older = await store.messages_before(BOB, newest[0], limit=2)
                case.assertEqual([message.local_id for message in newest], [image.local_id])
                case.assertEqual(texts_of(older), ["second", "answer"])
                later = await store.messages_after(BOB, older[0].position)
                case.assertEqual(texts_of(later), ["answer", None])
                case.assertEqual((await store.message(older[1].local_id)).sender, "bob")
                case.assertIsNone(await store.message(1))
                found = await store.search("sec* ", peer=BOB, before=newest[0])
                case.assertEqual(texts_of(found), ["second"])
                case.assertEqual(await store.search("second", until=older[0].sent_at), [])
                case.assertEqual(await store.gaps(BOB), [])
                gap = vexim.Gap(None, newest[0].sent_at)
                case.assertEqual(await store.read_gap(BOB, gap), 0)  # nothing is missing there
                await store.mark_read(BOB, newest[0])
                await store.set_draft(BOB, "dear Bob")
                found = await store.conversation(BOB)
                case.assertEqual((found.unread, found.draft), (0, "dear Bob"))
                case.assertEqual(found.last_message.local_id, image.local_id)
                case.assertIn(found, await store.conversations())
                case.assertIsNone(await store.conversation(Peer.room("none")))

                lines = pathlib.Path(folder, "all.jsonl")
                case.assertEqual(await store.export(lines, BOB), 4)
                case.assertEqual(len(lines.read_text().splitlines()), 4)
                async with alice.open_store(store.path, read_only=True) as look:
                    case.assertEqual(len(await look.messages_before(BOB)), 4)
                    raised = await case.raises(vexim.StoreError, look.set_draft(BOB, ""))
                    case.assertEqual(raised.code, 7)
                    await case.raises(vexim.UsageError, look.send(BOB, "never"))
                age = datetime.timedelta(minutes=90)
                case.assertEqual(await store.set_retention(max_count=1, max_age=age), 3)

                await alice.pause()
                waits = await store.send(Peer.group("demo-group"), "taken back")
                await store.retry(waits)
                await store.cancel(waits)
                raised = await case.raises(vexim.StoreError, store.retry(waits.local_id))
                case.assertEqual(raised.code, 10)
                await store.remove(BOB)
                case.assertEqual(await store.messages_after(BOB), [])
                await alice.login(user_id="bob")  # whose messages these are not
                seen = set()
                async for event in events:
                    seen.add(type(event))
                    if isinstance(event, vexim.StoreTrouble):
                        break
                case.assertEqual(event.error.code, 9)
                case.assertIn(vexim.CaughtUp, seen)


@unittest.skipUnless(HAS_STORE, "the C library is without the store")
class StoreTest(LiveCase):
    async def test_a_message_sent_into_a_cut_arrives_once_even_after_a_restart(self):
        await self.control("reset", {})
        with tempfile.TemporaryDirectory() as folder:
            async with self.client() as bob, asyncio.timeout(LONG):
                await bob.login(user_id="bob")
                async with self.client(options={"reconnectWait": 1}) as alice:
                    async with alice.open_store(folder, user_id="alice") as store:
                        watch = Watch(store.observe(BOB))
                        await store.send(BOB, "before the login")
                        await alice.login(user_id="alice")
                        await watch.until(confirmed("before the login"))
                        await store.send(BOB, "into the cut")
                        dropped = await self.control("drop", {"user": "alice"})
                        self.assertEqual(dropped, {"connections": 1})
                        await store.send(BOB, "while cut")
                        texts = ("before the login", "into the cut", "while cut")
                        await watch.until(confirmed(*texts))
                        await alice.pause()
                        last = await store.send(BOB, "before the end")
                        self.assertEqual(last.state, State.QUEUED)
                await bob.send("while you were away", friend="alice")
                # its echo: the service has it
                await first(bob.messages(own=True), lambda item: item.text == "while you were away")

                client = self.client()
                async with client as alice, alice.open_store(folder, user_id="alice") as store:
                    events, watch = alice.events(), Watch(store.observe(BOB))
                    await watch.until(lambda items: len(items) == 4)
                    await alice.login(user_id="alice")
                    event = await first(events, vexim.CaughtUp)
                    self.assertEqual((event.missed, event.gaps, event.error), (1, 0, None))
                    await watch.until(lambda items: [item.state for item in items]
                                      == [State.CONFIRMED] * 5)
                    texts = sorted(texts_of(watch.items))
                history = await bob.friends.history("alice", before=2e9, limit=50)
                self.assertEqual(sorted(texts_of(history)), texts)
                self.assertEqual(len(set(texts)), 5)

    async def test_a_slow_reader_of_an_observation_loses_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            client = self.client()
            async with client, client.open_store(folder, user_id="alice") as store, \
                    asyncio.timeout(LONG):
                slow = Watch(store.observe_conversations(limit=1000))
                ended = Watch(store.observe_conversations())
                given_up = store.observe_conversations()
                with self.assertRaises(TimeoutError):
                    async with asyncio.timeout(0):
                        await anext(given_up)
                self.assertEqual((await anext(given_up)).items, ())
                del given_up  # nobody looks any more: it is released
                await slow.next()  # it begins
                await ended.next()
                self.assertEqual(len(store._observations), 2)
                for i in range(250):
                    await store.set_draft(Peer.room(f"r{i}"), "draft")
                await slow.until(lambda items: len(items) == 250)
                await slow.observation.aclose()
                await self.raises(StopAsyncIteration, slow.next())
            with self.assertRaises(StopAsyncIteration):  # with the store
                while True:
                    await ended.next()

    async def test_an_observation_whose_change_was_dropped_is_told_the_whole_list(self):
        with tempfile.TemporaryDirectory() as folder:
            async with self.client(options={"queueBytes": 4000}) as client, asyncio.timeout(LONG):
                async with client.open_store(folder, user_id="alice") as store:
                    rooms = [Peer.room(name) for name in "abc"]
                    for room in rooms:
                        await store.set_draft(room, "x" * 1500)
                    watch, events = Watch(store.observe_conversations()), client.events()
                    change = asyncio.ensure_future(watch.next())
                    dropped = await anext(events)  # the three are too much
                    self.assertIsInstance(dropped, vexim.EventsDropped)
                    await store.set_draft(rooms[0], "short")
                    await store.set_draft(rooms[1], "short")
                    await change
                    self.assertEqual({each.peer for each in watch.items}, set(rooms))

    async def test_files_that_cannot_be_opened_and_stores_that_are_closed(self):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "alice.vexim")
            async with self.client() as one, self.client() as other, asyncio.timeout(LONG):
                with self.assertRaises(ValueError):
                    one.open_store(file)  # whose?
                nowhere = one.open_store(folder + "/none/file", user_id="alice")
                raised = await self.raises(vexim.StoreError, nowhere.open())
                self.assertEqual((raised.domain, raised.code), ("VXIMStoreErrorDomain", 3))
                with self.assertRaises(TimeoutError):  # it is not open later, either
                    async with asyncio.timeout(0):
                        await one.open_store(file, user_id="alice").open()
                async with one.open_store(file, user_id="alice") as store:
                    again = [each.open_store(file, user_id="alice") for each in (one, other)]
                    await self.raises(ValueError, again[0].open())
                    raised = await self.raises(vexim.StoreError, again[1].open())
                    self.assertEqual((raised.code, raised.temporary), (8, True))
                    await self.raises(ValueError, store.messages_before(Peer.friend("")))
                    await self.raises(ValueError, store.set_retention(max_count=-1))
                await self.raises(vexim.StoreError, store.conversations())
                file.write_bytes(b"this is no database" * 1000)
                async with other.open_store(file, user_id="alice") as store:
                    self.assertTrue(pathlib.Path(store.damage.set_aside_as).exists())
                    other.close()
                    await self.raises(vexim.ClosedError, store.conversations())

    def test_the_form_without_asyncio(self):
        with tempfile.TemporaryDirectory() as folder:
            client = vexim.sync.Client("demo-app", "demo-key", url=self.service.url, timeout=LONG)
            with client as alice, alice.open_store(folder, user_id="alice") as store:
                with store.observe(BOB) as changes:
                    self.assertEqual(changes.get(timeout=LONG).items, ())
                    sent = store.send(BOB, "hello")
                    self.assertEqual(next(changes).items, (sent,))
                    changes.set_limit(5)
                self.assertEqual([each.peer for each in store.conversations()], [BOB])
                store.close()
                with self.assertRaises(vexim.StoreError):
                    store.path


if __name__ == "__main__":
    unittest.main()
