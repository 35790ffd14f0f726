"""The package over the real C library and the local development service."""

import asyncio
import contextlib
import gc
import hashlib
import io
import os
import pathlib
import tempfile
import threading
import unittest

import vexim
import vexim.sync
from tests import demo
from tests.checked import CheckedLibrary
from tests.fakes import first
from tests.live import LONG, LiveCase
from tests.service import Service
from tests.test_store import HAS_STORE, tell_the_store
from vexim._library import execute

LOGINS_OF_BOB = [
    {"user_id": "bob"},
    {"username": "bob", "password": "bob-secret"},
    {"phone_number": "+15550100002", "sms_code": "100002"},
    {"oauth": {"provider": "example", "uid": "bob@example", "token": "bob-token"}},
]


class SessionTest(LiveCase):
    async def test_every_kind_of_login_and_its_refusal(self):
        async with self.client(options={"metrics": True}) as client, asyncio.timeout(LONG):
            for credentials in LOGINS_OF_BOB:
                with self.subTest(credentials):
                    await client.login(**credentials)
                    self.assertEqual((client.user_id, client.status), ("bob", vexim.Status.OPENED))
            wrong = client.login(username="bob", password="wrong")
            raised = await self.raises(vexim.LoginError, wrong)
            self.assertGreater(raised.code, 0)
            accepted = len(LOGINS_OF_BOB)
            metrics = vexim.metrics()
            self.assertIn(f'vexim_logins_total{{outcome="accepted"}} {accepted}\n'
                          'vexim_logins_total{outcome="refused"} 1\n', str(metrics))
            logins = next(each for each in metrics.values if each["name"] == "vexim_logins_total")
            self.assertEqual([series["value"] for series in logins["series"]], [accepted, 1])

    async def test_a_service_that_is_not_there_is_a_network_error(self):
        gone = Service()
        gone.kill()
        async with self.client(gone.url) as client, asyncio.timeout(LONG):
            events = client.events()
            for again in (False, True):
                with self.subTest(again=again):
                    raised = await self.raises(vexim.NetworkError, client.login(user_id="alice"))
                    self.assertEqual((raised.domain, raised.code, raised.temporary),
                                     ("VXIMConnectionErrorDomain", 3, True))
                    self.assertEqual((await anext(events)).error.code, 3)
            raised = await self.raises(vexim.NetworkError, client.groups.fetch("demo-group"))
            self.assertTrue(raised.temporary)
            self.assertTrue(client.diagnose().events)
            self.assertIn("Z ", str(client.diagnose()))

    async def test_another_login_ends_the_first(self):
        async with self.client() as client, asyncio.timeout(LONG):
            await self.control("faults", {"path": "/socket.io", "delayMs": 100_000})
            earlier = asyncio.ensure_future(client.login(user_id="alice"))
            while await asyncio.to_thread(self.service.control, "faults"):  # until it is delayed
                await asyncio.sleep(0.01)
            await client.login(user_id="bob")
            await self.raises(vexim.AbandonedError, earlier)

    async def test_a_killed_service_ends_calls_and_is_told(self):
        service = Service()
        async with self.client(service.url) as client, asyncio.timeout(LONG):
            await client.login(user_id="alice")
            await asyncio.to_thread(service.control, "faults", {"path": "/ctx", "delayMs": 100_000})
            events = client.events()
            call = asyncio.ensure_future(client.friends.all())
            await asyncio.to_thread(service.control, "faults")
            service.kill()
            await self.raises(vexim.NetworkError, call)
            await first(events, vexim.Disconnected)
            await self.raises(vexim.NotConnectedError, client.send("hello?", friend="bob"))

    async def test_leaving_while_calls_are_under_way_ends_them(self):
        async with self.client() as client, asyncio.timeout(LONG):
            await client.login(user_id="alice")
            calls = [asyncio.ensure_future(client.friends.all()) for _ in range(20)]
            await asyncio.sleep(0)
        for call in calls:
            await self.raises(vexim.ClosedError, call)

    async def test_many_short_lives_leave_no_descriptor(self):
        def open_files():
            return len(os.listdir("/proc/self/fd"))

        async with self.client():
            pass
        gc.collect()
        before = open_files()
        for _ in range(300):
            async with self.client() as client:
                call = asyncio.ensure_future(client.login(user_id="alice"))
                await asyncio.sleep(0)
            await asyncio.gather(call, return_exceptions=True)
        # The library's thread has three, and connections are kept. A leak would give 300 more.
        await self.until(lambda: open_files() <= before + 16)

    async def test_clients_in_several_loops_do_not_meet(self):
        texts = {}

        def use(client):
            async def ask():
                await client.friends.all()

            with self.assertRaises(vexim.UsageError):
                asyncio.run(ask())

        def life(name, peer):
            async def talk():
                async with self.client() as client, asyncio.timeout(LONG):
                    await client.login(user_id=name)
                    await asyncio.to_thread(use, client)  # it is this loop's
                    ready.wait(LONG)
                    await client.send(f"from {name}", friend=peer)
                    async for message in client.messages():
                        texts[name] = message.text
                        break
                    ready.wait(LONG)

            asyncio.run(talk())

        ready = threading.Barrier(2)
        pairs = ("alice", "bob"), ("bob", "alice")
        await asyncio.gather(*(asyncio.to_thread(life, *pair) for pair in pairs))
        self.assertEqual(texts, {"alice": "from bob", "bob": "from alice"})

    def test_a_forked_child_is_told_that_its_client_is_gone(self):
        async def parent():
            async with self.client() as client, asyncio.timeout(LONG):
                await client.login(user_id="alice")
                child = os.fork()
                if child == 0:
                    try:
                        client.status
                    except vexim.ClosedError:
                        client.close()
                        os._exit(7)
                    finally:
                        os._exit(1)
                self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 7)
                self.assertEqual([friend.id for friend in await client.friends.all()], ["bob"])

        asyncio.run(parent())


class ReachTest(LiveCase):
    async def test_every_operation_and_event_is_as_the_schema_says(self):
        with contextlib.redirect_stdout(io.StringIO()) as said:
            self.assertEqual(await demo.main(self.service.url, library=CheckedLibrary()), 0, said)
        await self.tell_the_rest()
        await self.tell_of_trouble()
        if HAS_STORE:
            await tell_the_store(self)
        for operation, arguments in {"version": {}, "metrics": {}, "setLog": {"level": None},
                                     "setKeepsFinishedDelegates": {"keeps": False},
                                     "setApplicationInfo": {"bundleVersion": "7"}}.items():
            execute(CheckedLibrary(), 0, operation, **arguments)
        unseen = CheckedLibrary.unseen() - {("events", "observedStoreWasDamaged")}
        if not HAS_STORE:
            unseen = {path for path in unseen if not CheckedLibrary.is_of_store(path)}
        self.assertEqual(unseen, set())

    async def tell_of_trouble(self):
        """A login that is refused after a drop, a port where nobody listens, and a full queue."""
        service = Service()
        self.addCleanup(service.kill)
        seconds = "1700000000"
        signature = hashlib.md5(f"{seconds}demo-key".encode()).hexdigest() + "," + seconds
        carol = self.client(service.url)
        small = self.client(service.url, options={"queueBytes": 900})
        async with carol, small, asyncio.timeout(LONG):
            await asyncio.to_thread(service.control, "users", {"id": "carol"})
            events = carol.events()
            given = {"app": "demo-app", "sign": signature, "client": "carol", "install": "c"}
            await carol.login(auth_data=given)
            self.assertEqual((carol.user_id, carol.status), ("carol", vexim.Status.OPENED))
            await asyncio.to_thread(service.control, "reset", {})  # cuts connections, forgets Carol
            event = await first(events, vexim.LoginRefused)
            self.assertIsInstance(event.error, vexim.LoginError)

            await small.login(user_id="alice")
            events = small.events()
            large = {"content": {"media": 0, "body": "x" * 2000}, "ts": 1,
                     "to": {"id": "alice", "type": 0}}
            emitted = {"user": "alice", "event": "sys", "args": [large]}
            await asyncio.to_thread(service.control, "emit", emitted)
            self.assertEqual((await first(events, vexim.EventsDropped)).count, 1)

            service.kill()
            await first(carol.events(), vexim.Reconnecting)
        gone = vexim.Client("demo-app", "demo-key", url=service.url, library=CheckedLibrary())
        async with gone, asyncio.timeout(LONG):
            await self.raises(vexim.NetworkError, gone.login(user_id="alice"))
            self.assertIsInstance(await anext(gone.events()), vexim.ConnectionTrouble)

    async def tell_the_rest(self):
        """What the demo does not touch."""
        alice, bob = self.client(), self.client(options={"notifications": True})
        async with alice, bob, asyncio.timeout(LONG):
            await asyncio.gather(alice.login(user_id="alice"), bob.login(user_id="bob"))
            me = await alice.users.fetch()
            self.assertIn("bob", [friend.id for friend in me.friends])
            self.assertIn("demo-group", [group.id for group in me.groups])
            self.assertEqual([room.id for room in me.rooms], ["demo-room"])
            self.assertEqual((await alice.friends.get("bob")).id, "bob")
            await self.control("users", {"id": "carol"})
            await alice.friends.add("carol")
            self.assertIn("carol", [friend.id for friend in await alice.friends.all(detail=False)])
            await alice.friends.remove("carol")

            await alice.users.replace_attributes("alice", {"nick": "Al", "n": 2**53 - 1})
            self.assertEqual(await alice.users.attributes("alice"), {"nick": "Al", "n": 2**53 - 1})
            await alice.users.delete_attributes("alice")
            self.assertEqual(await alice.users.attributes("alice"), {})

            for resource, id in ((alice.groups, "demo-group"), (alice.rooms, "demo-room")):
                await resource.replace_attributes(id, {"a": [1.5, None]})
                await resource.update_attributes(id, {"b": "x"})
                self.assertEqual(await resource.attributes(id), {"a": [1.5, None], "b": "x"})
                self.assertEqual(await resource.attribute(id, "b"), "x")
                await resource.delete_attributes(id)
            group = await alice.groups.create("Chess", owner="alice", members=["alice", "bob"])
            await alice.groups.update(group.id, {"subject": "openings"})
            await alice.groups.remove_members(group.id, ["bob"])
            await alice.groups.change_owner(group.id, "bob")
            copy = await bob.groups.fetch(group.id)
            self.assertEqual((copy.owner, copy.members, copy.name), ("bob", ("alice",), "Chess"))
            found = await alice.groups.find({"name": "Chess"})
            self.assertIn("Chess", [each.name for each in found])
            self.assertIn("demo-group", [found.id for found in await alice.groups.joined()])
            await alice.send("in the group", group="demo-group", payload={"replyTo": "m1"})
            # its echo: the service has it
            await first(alice.messages(own=True), lambda message: message.group == "demo-group")
            newest = (await alice.groups.history("demo-group", limit=1))[0]
            self.assertEqual((newest.text, newest.group, newest.sender, newest.payload["replyTo"]),
                             ("in the group", "demo-group", "alice", "m1"))
            await alice.groups.delete(group.id)

            room = await bob.rooms.create("Den")
            await bob.rooms.add_members(room.id, ["alice"])
            await bob.rooms.remove_members(room.id, ["alice"])
            self.assertEqual((await bob.rooms.fetch(room.id)).name, "Den")
            self.assertEqual([found.id for found in await alice.rooms.joined()], ["demo-room"])
            await bob.rooms.find({})
            await bob.rooms.delete(room.id)

            # operations that the package does not need, because others do the same
            record = {"text": "hi", "receiver": {"type": 0, "userId": "bob"}}
            await alice._call("sendMessage", {"message": record})
            await alice._call("sendSystemMessage", {"message": record})
            made = await alice._call("VXIMGroup.createWithOwner", {"owner": "alice", "name": "Go"})
            await alice.groups.delete(made["groupId"])
            await alice.send_system("to all", group="demo-group")
            await alice.send_system("to all", room="demo-room")

            visitor = await alice.passengers.save({"name": "Visitor"})
            await alice.passengers.update(visitor.id, {"name": "Guest"})
            self.assertEqual((await alice.passengers.fetch(visitor.id)).record["name"], "Guest")
            self.assertEqual(await alice.passengers.history(visitor.id, "bob"), [])

            heard = bob.messages(system=True)
            await alice.send_system("to everyone", everyone=True)
            message = await first(heard, lambda message: message.text == "to everyone")
            self.assertTrue(message.is_system)
            self.assertFalse(alice.was_offline or alice.is_logging_out)
            self.assertEqual(alice.configuration["appId"], "demo-app")
            self.assertNotIn("demo-key", str(alice.configuration))
            await alice.reset_flags()
            await alice.remove_installation()
            for credentials in LOGINS_OF_BOB:
                await alice.login(**credentials)
            await alice.login(user_id="alice")
            alice.diagnose()
            alice.close()
            presence = bob.presence()
            await first(presence, lambda change: change.online)
            await first(presence, lambda change: not change.online)

    async def test_files_arrive_as_they_were_and_a_failed_upload_raises(self):
        contents = bytes(range(256)) * 4000
        with tempfile.TemporaryDirectory() as folder:
            async with self.client() as alice, self.client() as bob, asyncio.timeout(LONG):
                await asyncio.gather(alice.login(user_id="alice"), bob.login(user_id="bob"))
                percents = []
                sent = await alice.send(audio=contents, name="noise.wav", friend="bob",
                                        progress=percents.append)
                audio = vexim.Media.AUDIO
                self.assertEqual((sent.media, sent.friend, percents[-1]), (audio, "bob", 100))
                message = await first(bob.messages(), lambda each: each.media == audio)
                self.assertEqual(await bob.read(message), contents)
                copy = await bob.download(message, pathlib.Path(folder, "copy"))
                self.assertEqual(copy.read_bytes(), contents)
                missing = pathlib.Path(folder, "missing")
                await self.raises(ValueError, alice.send(image=missing, friend="bob"))
                fault = {"method": "POST", "path": "/attachment", "status": 500, "times": 9}
                await self.control("faults", fault)
                await self.raises(vexim.Error, alice.send(image=b"x", friend="bob"))
                await self.control("reset", {})

    async def test_a_cancelled_download_leaves_no_file(self):
        with tempfile.TemporaryDirectory() as folder:
            async with self.client() as client, asyncio.timeout(LONG):
                await client.login(user_id="alice")
                sent = await client.send(image=bytes(100_000), friend="bob")
                fault = {"method": "GET", "path": "/files", "delayMs": 100_000}
                await self.control("faults", fault)
                copy = client.download(sent, pathlib.Path(folder, "copy"))
                download = asyncio.ensure_future(copy)
                await asyncio.sleep(0.05)
                download.cancel()
                await self.raises(asyncio.CancelledError, download)
                await self.until(lambda: os.listdir(folder) == [])
                await client.friends.all()

    def test_the_form_without_asyncio(self):
        def client():
            return vexim.sync.Client("demo-app", "demo-key", url=self.service.url, timeout=LONG)

        with client() as alice, client() as bob:
            alice.login(user_id="alice")
            bob.login(user_id="bob")
            stream = bob.messages()
            alice.send("hello", friend="bob")
            self.assertEqual(stream.get(timeout=LONG).text, "hello")
            self.assertEqual(alice.friends.get("bob").id, "bob")
            with self.assertRaises(vexim.ServiceError):
                alice.groups.fetch("no-such-group")
            with self.assertRaises(ValueError):
                alice.groups.fetch("no id of any group")
            alice.logout()


if __name__ == "__main__":
    unittest.main()
