"""The store over the real C library: what is sent and read, over cuts and restarts; files that cannot be opened; observations."""

import asyncio
import datetime
import json
import pathlib
import tempfile
import unittest

import vexim
import vexim.sync
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
    """A list after a change, by the words of its documentation."""
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


async def tell_the_store(case):
    """Every operation and event of the store, but its damage while it is open."""
    with tempfile.TemporaryDirectory() as folder:
        async with case.client() as alice, case.client() as bob, asyncio.timeout(LONG):
            await case.control("reset", {})
            events = alice.events()
            async with alice.open_store(folder + "/", user_id="alice", echo_timeout=60, most_unsent=100,
                                        longest_wait=datetime.timedelta(days=1)) as store:
                case.assertEqual((store.user_id, store.damage), ("alice", None))
                case.assertEqual(await alice._call("VXIMConversations.store"), store._record)
                watch = Watch(store.observe(BOB, limit=3))
                conversations = Watch(store.observe_conversations())
                await store.send(BOB, "first")
                await alice.login(user_id="alice")
                await bob.login(user_id="bob")
                await watch.until(confirmed("first"))
                await alice._call("VXIMConversations.sendText", {"conversation": {"kind": "friend", "id": "bob"}, "text": "second"})
                await watch.until(confirmed("first", "second"))
                await bob.send("answer", friend="alice")
                await watch.until(lambda items: len(items) == 3 and items[-1].state == State.CONFIRMED)
                await conversations.until(lambda items: items and items[0].unread == 1)
                percents = []
                image = await store.send(BOB, image=bytes(100_000), progress=percents.append)
                await watch.observation.set_limit(4)
                await watch.until(lambda items: len(items) == 4 and items[-1].state == State.CONFIRMED)
                case.assertTrue(watch.items[-1].attachment_url)
                case.assertEqual(percents[-1], 100)
                await watch.observation.aclose()

                newest = await store.messages_before(BOB, limit=1)
                older = await store.messages_before(BOB, newest[0], limit=2)
                case.assertEqual([message.local_id for message in newest], [image.local_id])
                case.assertEqual([message.text for message in older], ["second", "answer"])
                case.assertEqual([message.text for message in await store.messages_after(BOB, older[0].position)], ["answer", None])
                case.assertEqual((await store.message(older[1].local_id)).sender, "bob")
                case.assertIsNone(await store.message(1))
                case.assertEqual([found.text for found in await store.search("sec* ", peer=BOB, before=newest[0])], ["second"])
                case.assertEqual(await store.search("second", until=older[0].sent_at), [])
                case.assertEqual(await store.gaps(BOB), [])
                case.assertEqual(await store.read_gap(BOB, vexim.Gap(None, newest[0].sent_at)), 0)  # what it would read is there
                await store.mark_read(BOB, newest[0])
                await store.set_draft(BOB, "dear Bob")
                found = await store.conversation(BOB)
                case.assertEqual((found.unread, found.draft, found.last_message.local_id), (0, "dear Bob", image.local_id))
                case.assertIn(found, await store.conversations())
                case.assertIsNone(await store.conversation(Peer.room("none")))

                lines = pathlib.Path(folder, "all.jsonl")
                case.assertEqual(await store.export(lines, BOB), 4)
                case.assertEqual(len(lines.read_text().splitlines()), 4)
                async with alice.open_store(store.path, read_only=True) as look:
                    case.assertEqual(len(await look.messages_before(BOB)), 4)
                    with case.assertRaises(vexim.StoreError) as raised:
                        await look.set_draft(BOB, "")
                    case.assertEqual(raised.exception.code, 7)
                    with case.assertRaises(vexim.UsageError):
                        await look.send(BOB, "never")
                case.assertEqual(await store.set_retention(max_count=1, max_age=datetime.timedelta(minutes=90)), 3)

                await alice.pause()
                waits = await store.send(Peer.group("demo-group"), "taken back")
                await store.retry(waits)
                await store.cancel(waits)
                with case.assertRaises(vexim.StoreError) as raised:
                    await store.retry(waits.local_id)
                case.assertEqual(raised.exception.code, 10)
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
    async def test_what_is_sent_into_cuts_arrives_once_also_in_the_next_life(self):
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
                        self.assertEqual(await self.control("drop", {"user": "alice"}), {"connections": 1})
                        await store.send(BOB, "while it is cut")
                        await watch.until(confirmed("before the login", "into the cut", "while it is cut"))
                        await alice.pause()
                        last = await store.send(BOB, "before the end")
                        self.assertEqual(last.state, State.QUEUED)
                await bob.send("while you were away", friend="alice")
                async for message in bob.messages(own=True):  # its echo: the service has it
                    if message.text == "while you were away":
                        break

                async with self.client() as alice, alice.open_store(folder, user_id="alice") as store:
                    events, watch = alice.events(), Watch(store.observe(BOB))
                    await watch.until(lambda items: len(items) == 4)
                    await alice.login(user_id="alice")
                    async for event in events:
                        if isinstance(event, vexim.CaughtUp):
                            break
                    self.assertEqual((event.missed, event.gaps, event.error), (1, 0, None))
                    await watch.until(lambda items: len(items) == 5 and all(item.state == State.CONFIRMED for item in items))
                    texts = sorted(item.text for item in watch.items)
                history = await bob.friends.history("alice", before=2e9, limit=50)
                self.assertEqual(sorted(message.text for message in history), texts)
                self.assertEqual(len(set(texts)), 5)

    async def test_a_slow_reader_of_an_observation_loses_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            async with self.client() as client, client.open_store(folder, user_id="alice") as store, asyncio.timeout(LONG):
                slow, ended = Watch(store.observe_conversations(limit=1000)), Watch(store.observe_conversations())
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
                with self.assertRaises(StopAsyncIteration):
                    await slow.next()
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
                    first = asyncio.ensure_future(watch.next())
                    self.assertIsInstance(await anext(events), vexim.EventsDropped)  # the three are too much
                    await store.set_draft(rooms[0], "short")
                    await store.set_draft(rooms[1], "short")
                    await first
                    self.assertEqual({each.peer for each in watch.items}, set(rooms))

    async def test_files_that_cannot_be_opened_and_stores_that_are_closed(self):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "alice.vexim")
            async with self.client() as one, self.client() as other, asyncio.timeout(LONG):
                with self.assertRaises(ValueError):
                    one.open_store(file)  # whose?
                with self.assertRaises(vexim.StoreError) as raised:
                    await one.open_store(folder + "/none/file", user_id="alice").open()
                self.assertEqual((raised.exception.domain, raised.exception.code), ("VXIMStoreErrorDomain", 3))
                with self.assertRaises(TimeoutError):  # it is not open later, either
                    async with asyncio.timeout(0):
                        await one.open_store(file, user_id="alice").open()
                async with one.open_store(file, user_id="alice") as store:
                    for client, kind in ((one, ValueError), (other, vexim.StoreError)):  # a second one; another program's
                        with self.assertRaises(kind) as raised:
                            await client.open_store(file, user_id="alice").open()
                    self.assertEqual((raised.exception.code, raised.exception.temporary), (8, True))
                    with self.assertRaises(ValueError):
                        await store.messages_before(Peer.friend(""))
                    with self.assertRaises(ValueError):
                        await store.set_retention(max_count=-1)
                with self.assertRaises(vexim.StoreError):
                    await store.conversations()
                file.write_bytes(b"this is no database" * 1000)
                async with other.open_store(file, user_id="alice") as store:
                    self.assertTrue(pathlib.Path(store.damage.set_aside_as).exists())
                    other.close()
                    with self.assertRaises(vexim.ClosedError):
                        await store.conversations()

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
