"""The asynchronous client over a C library that misbehaves on demand."""

import asyncio
import gc
import json
import pickle
import unittest
import warnings

import vexim
from tests.fakes import (ClientCase, FakeClient, FakeLibrary, message_event, reports_progress,
                         silent, turns)


class CallsTest(ClientCase):
    async def test_answers_find_their_calls_in_any_order(self):
        library = FakeLibrary(silent)
        async with self.client(library) as client:
            calls = [asyncio.ensure_future(client.users.attribute("u1", key)) for key in "abc"]
            await turns()
            for request in reversed(library.client.requests):
                library.client.answer(request, request["key"])
            self.assertEqual(await asyncio.gather(*calls), ["a", "b", "c"])

    async def test_texts_that_nobody_expects_change_nothing(self):
        of_friend = {"@type": "event", "name": "clientDidReceiveMessageFromFriend"}
        wrong = {"sendTimestamp": "soon", "mediaType": "film", "sender": 5, "receiver": []}
        progress = {"@type": "event", "name": "progress", "@extra": None}
        garbage = {
            "not JSON": b"{",
            "not UTF-8": b'"\xff"',
            "nothing": b"",
            "not an object": [1, 2],
            "no type": {},
            "a type nobody knows": {"@type": "question"},
            "an event without a name": {"@type": "event"},
            "a name that is not a string": {"@type": "event", "name": [1]},
            "a message that is not an object": {**of_friend, "message": 7, "from": 8},
            "fields of other types": message_event(["x"], payload=1, **wrong),
            "presence of nobody": {"@type": "event", "name": "clientFriendDidOnline", "info": None},
            "trouble without words": {"@type": "event", "name": "socket.io.error"},
            "an answer to nobody": {"@type": "answer", "@extra": 99, "result": 1},
            "an extra of another kind": {"@type": "answer", "@extra": {"a": 1}, "result": 1},
            "an error that says nothing": {"@type": "error", "@extra": 99},
            "progress of nobody": {**progress, "percent": 5},
            "overflow without numbers": {"@type": "event", "name": "overflow"},
        }
        library = FakeLibrary(silent)
        async with self.client(library) as client:
            for why, text in garbage.items():
                with self.subTest(why):
                    call = asyncio.ensure_future(client.users.attribute("u1", "mood"))
                    await turns()
                    library.client.say(text)
                    library.client.answer(library.client.last, why)
                    self.assertEqual(await call, why)
            kinds = {ValueError, UnicodeDecodeError, json.JSONDecodeError}
            self.assertTrue({type(report) for report in self.reports} <= kinds)
            self.reports.clear()
            stream = client.messages()
            client.close()
            messages = [message async for message in stream]
            self.assertEqual(len(messages), 2)
            for each in messages:
                fields = (each.timestamp, each.media, each.text, each.payload)
                self.assertEqual(fields, (0.0, 0, None, {}))

    async def test_what_cannot_be_sent_is_the_callers_mistake(self):
        deep = []
        for _ in range(600):
            deep = [deep]
        cases = {"not a number": float("nan"), "bytes": b"x", "half a surrogate pair": "\ud800",
                 "too deep": deep, "a set": {1}}
        library = FakeLibrary()
        async with self.client(library) as client:
            for why, value in cases.items():
                with self.subTest(why), self.assertRaises(vexim.UsageError):
                    await client.users.update_attributes("u1", {"a": value})
            self.assertEqual(library.client.requests, [])
            await client.users.update_attributes("u1", {"a": "\0 \u2028 ☃", "many": [[1]] * 600})
            self.assertEqual(library.client.last["attributes"]["a"], "\0 \u2028 ☃")

    async def test_mistakes_raise_before_anything_is_sent(self):
        library = FakeLibrary()
        async with self.client(library) as client:
            cases = {
                "no credentials": lambda: client.login(),
                "a name without its password": lambda: client.login(username="bob"),
                "two kinds of login": lambda: client.login(user_id="a", oauth={}),
                "no receiver": lambda: client.send("hi"),
                "two receivers": lambda: client.send("hi", friend="bob", room="r"),
                "no contents": lambda: client.send(friend="bob"),
                "two contents": lambda: client.send("hi", image=b"x", friend="bob"),
                "a text as a list of members": lambda: client.groups.create("Go", members="bob"),
                "a search for a number": lambda: client.users.find({"age": 5}),
                "a system message to nobody": lambda: client.send_system("hi"),
                "a file of a text": lambda: client.download(vexim.Message("hi", "bob"), "/nowhere"),
            }
            for why, call in cases.items():
                with self.subTest(why), self.assertRaises(ValueError):
                    await call()
        self.assertEqual(library.client.requests, [])

    async def test_errors_become_exceptions_of_their_kind(self):
        url = {"domain": "NSURLErrorDomain", "code": -1001, "description": "slow"}
        busy, slow = {"temporary": True}, {"NSUnderlyingError": url}
        cases = [  # why, class, whether it is temporary, domain, code, userInfo
            ("a refused request", vexim.ServiceError, False, "VXErrorDomain", 1404),
            ("a busy service", vexim.ServiceError, True, "VXErrorDomain", 1, busy),
            ("no answer in time", vexim.NetworkError, True, "VXErrorDomain", 100, slow),
            ("a useless answer", vexim.ResponseError, False, "VXErrorDomain", 100),
            ("no connection", vexim.NotConnectedError, True, "VXIMErrorDomain", 1),
            ("no id", vexim.UsageError, False, "VXIMErrorDomain", 5004),
            ("a certificate", vexim.NetworkError, False, "NSURLErrorDomain", -1202),
            ("nobody listens", vexim.NetworkError, True, "VXIMConnectionErrorDomain", 3),
            ("an insecure connection", vexim.NetworkError, False, "VXIMConnectionErrorDomain", 5),
            ("a wrong argument", vexim.UsageError, False, "VXIMInterfaceErrorDomain", 4),
            ("too much at once", vexim.BusyError, True, "VXIMInterfaceErrorDomain", 7),
            ("another login", vexim.AbandonedError, False, "VXIMInterfaceErrorDomain", 10),
            ("an unknown domain", vexim.Error, False, "NewDomain", 3, [1]),
            ("nothing at all", vexim.Error, False),
        ]
        library = FakeLibrary()

        def respond(client, request):
            client.refuse(request, description="why", **error)

        library.respond = respond
        async with self.client(library) as client:
            for why, kind, temporary, *given in cases:
                error = dict(zip(("domain", "code", "userInfo"), given))
                with self.subTest(why):
                    raised = await self.raises(vexim.Error, client.groups.delete("g1"))
                    self.assertIs(type(raised), kind)
                    self.assertEqual(raised.temporary, temporary)
                    again = pickle.loads(pickle.dumps(raised))
                    self.assertEqual((type(again), str(again)), (kind, str(raised)))
                    self.assertEqual(again.code, error.get("code", 0))
            error = {"domain": "VXIMErrorDomain", "code": 1}
            await self.raises(vexim.LoginError, client.login(user_id="alice"))

    async def test_trouble_of_the_connection_leaves_a_login_to_the_library(self):
        trouble = {"@type": "event", "name": "socket.io.error", "data": ["Could not connect."]}
        library = FakeLibrary(lambda client, request: (client.say(trouble), client.answer(request)))
        async with self.client(library) as client:
            await client.login(user_id="alice")  # it may still be tried again

    async def test_a_configuration_that_cannot_be_used_raises_and_leaves_nothing(self):
        library = FakeLibrary()
        error = {"domain": "VXIMInterfaceErrorDomain", "code": 4, "description": "no such option"}
        library.first_text = {"@type": "error", "@extra": None, "error": error}
        with self.assertRaisesRegex(vexim.UsageError, "no such option"):
            async with self.client(library, options={"forcePollin": True}):
                self.fail("it opened")
        self.assertTrue(library.client.freed)


class EndsTest(ClientCase):
    async def test_a_cancelled_call_cancels_its_request_and_ignores_the_late_answer(self):
        library = FakeLibrary(silent)
        message = vexim.Message(None, "bob", attachment_url="http://x/y")
        async with self.client(library) as client:
            with self.assertRaises(TimeoutError):
                async with asyncio.timeout(0.01):
                    await client.download(message, "/nowhere")
            download, cancel = library.client.requests
            self.assertEqual((cancel["@op"], cancel["extra"]), ("cancel", download["@extra"]))
            library.client.refuse(download, domain="NSURLErrorDomain", code=-999)
            library.respond = FakeClient.answer
            await client.groups.delete("g1")

    async def test_cancelling_at_any_moment_ends_the_task_and_leaves_no_call_behind(self):
        async def story(client):
            await client.login(username="bob", password="secret")
            await client.send(image=b"x" * 10, friend="bob")
            async for _ in client.messages():
                pass

        def respond(client, request):
            client.answer(request)
            if request["@op"] == "sendMessageToFriend":
                client.say(message_event("hi"))

        for steps in range(40):
            library = FakeLibrary(respond)
            async with self.client(library) as client:
                task = asyncio.ensure_future(story(client))
                await turns(steps)
                task.cancel()
                await self.raises(asyncio.CancelledError, task)
                self.assertEqual(client._link._calls, {}, steps)
                await client.groups.delete("g1")
            self.assertTrue(library.client.freed)

    async def test_closing_ends_calls_and_streams(self):
        library = FakeLibrary(silent)
        async with self.client(library) as client:
            call = asyncio.ensure_future(client.groups.delete("g1"))
            stream = client.messages()
            reader = asyncio.ensure_future(anext(stream, None))
            await turns()
            client.close()
            client.close()
            await self.raises(vexim.ClosedError, call)
            self.assertIsNone(await reader)
            self.assertFalse(library.client.queue)
        await self.raises(vexim.ClosedError, client.groups.delete("g1"))
        await self.raises(vexim.ClosedError, client.send("hi", friend="bob"))
        with self.assertRaises(vexim.ClosedError):
            client.status
        with self.assertRaises(ValueError):
            client.open()

    async def test_a_callback_may_close_the_client(self):
        async with self.client(FakeLibrary(reports_progress)) as client:
            send = client.send(image=b"x", friend="bob", progress=lambda percent: client.close())
            await self.raises(vexim.ClosedError, send)

    async def test_a_callback_that_raises_is_reported_and_stops_nothing(self):
        async with self.client(FakeLibrary(reports_progress)) as client:
            await client.send(image=b"x", friend="bob", progress=lambda percent: 1 / 0)
        self.assertEqual([type(report) for report in self.reports], [ZeroDivisionError])
        self.reports.clear()

    def test_a_client_that_outlives_its_loop_is_freed_with_a_warning(self):
        library = FakeLibrary(silent)

        async def leave_open():
            client = vexim.Client("app", "key", library=library)
            client.open()
            call = asyncio.ensure_future(client.groups.delete("g1"))
            await turns()
            return client, call

        loop = asyncio.new_event_loop()
        client, call = loop.run_until_complete(leave_open())
        call.cancel()
        loop.run_until_complete(asyncio.gather(call, return_exceptions=True))
        loop.close()
        with warnings.catch_warnings(record=True) as seen:
            warnings.simplefilter("always")
            del client, call
            gc.collect()
        self.assertTrue(library.client.freed)
        self.assertIn(ResourceWarning, [warning.category for warning in seen])

    async def test_two_clients_in_one_loop_hear_their_own(self):
        library = FakeLibrary(silent)
        async with self.client(library) as one, self.client(library) as other:
            calls = [asyncio.ensure_future(each.users.attribute("u", "k")) for each in (one, other)]
            streams = [client.messages() for client in (one, other)]
            await turns()
            for number, client in library.clients.items():
                client.answer(client.last, number)
                client.say(message_event(f"for {number}"))
            self.assertEqual(await asyncio.gather(*calls), [1, 2])
            one.close()
            self.assertEqual([message.text async for message in streams[0]], ["for 1"])
            self.assertEqual((await anext(streams[1])).text, "for 2")


if __name__ == "__main__":
    unittest.main()
