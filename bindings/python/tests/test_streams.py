"""What a client hears, as streams: in order, within bounds, and fair to other tasks."""

import asyncio
import unittest

import vexim
from tests.fakes import ClientCase, FakeLibrary, message_event, turns


class StreamsTest(ClientCase):
    async def test_messages_wait_for_their_reader_and_say_where_to_answer(self):
        library = FakeLibrary()
        async with self.client(library) as client:
            await client.login(user_id="alice")
            group = {"type": 1, "groupId": "g1"}
            carol = {**group, "userId": "carol"}
            system = {"isSystemMessage": True, "sender": {"type": -2}, "receiver": {"type": -1}}
            library.client.say(
                message_event("from bob"),
                message_event("my own echo", sender="alice"),
                message_event("from the group", sender=carol, receiver=group),
                {**message_event("notice", **system),
                 "name": "clientDidReceiveSystemMessage", "from": None},
            )
            await turns()
            stream, events = client.messages(), client.events()
            both = [await anext(stream), await anext(stream)]
            self.assertEqual([(each.text, each.sender, each.friend, each.group) for each in both],
                             [("from bob", "bob", "bob", None),
                              ("from the group", "carol", None, "g1")])
            await client.reply(both[1], "yes")
            last = library.client.last
            self.assertEqual((last["@op"], last["groupId"]), ("sendMessageToGroup", "g1"))
            client.close()
            self.assertEqual([message.text async for message in stream], [])
            everything = [event async for event in events]
            self.assertEqual([event.message.text for event in everything],
                             ["from bob", "my own echo", "from the group", "notice"])

    async def test_a_slow_reader_loses_the_oldest_and_is_told_how_many(self):
        library = FakeLibrary()
        async with self.client(library, queue_size=5) as client:
            stream = client.messages()
            library.client.say(*[message_event(str(number)) for number in range(12)])
            await turns()
            self.assertEqual(stream.dropped, 7)
            texts = [(await anext(stream)).text for _ in range(5)]
            self.assertEqual(texts, ["7", "8", "9", "10", "11"])

    async def test_a_reader_that_keeps_at_it_loses_nothing(self):
        count = 5000
        library = FakeLibrary()
        async with self.client(library, queue_size=150) as client:
            client.presence()
            stream = client.messages()
            library.client.say(*[message_event(str(number)) for number in range(count)])
            for number in range(count):
                self.assertEqual((await anext(stream)).text, str(number))
                if number % 10 == 0:
                    await asyncio.sleep(0)
            self.assertEqual(stream.dropped, 0)

    async def test_a_reader_that_waits_for_an_answer_behind_a_flood_gets_it(self):
        def respond(client, request):
            client.say(*[message_event(str(number)) for number in range(2000)])
            client.answer(request, "fine")

        async with self.client(FakeLibrary(respond), queue_size=150) as client:
            stream = client.messages()
            self.assertEqual(await client.users.attribute("u", "mood"), "fine")
            self.assertEqual(stream.dropped, 1850)

    async def test_what_a_stream_left_unread_waits_for_the_next(self):
        library = FakeLibrary()
        async with self.client(library) as client:
            library.client.say(*[message_event(str(number)) for number in range(4)])
            async for message in client.messages():
                break
            library.client.say(message_event("4"))
            await turns()
            stream = client.messages()
            self.assertEqual([(await anext(stream)).text for _ in range(4)], ["1", "2", "3", "4"])

    async def test_a_flood_leaves_other_tasks_their_turns(self):
        library = FakeLibrary()
        async with self.client(library) as client:
            count = 2000
            library.client.say(*[message_event(str(number)) for number in range(count)])
            seen, turns_of_another = 0, 0
            stream = client.messages()
            await turns(200)  # it all waits in the stream

            async def another():
                nonlocal turns_of_another
                while seen < count:
                    turns_of_another += 1
                    await asyncio.sleep(0)

            task = asyncio.ensure_future(another())
            async for message in stream:
                seen += 1
                if seen == count:
                    break
            await task
            self.assertGreaterEqual(turns_of_another, count // 200)

    async def test_two_readers_of_one_stream_are_a_mistake(self):
        async with self.client(FakeLibrary()) as client:
            stream = client.messages()
            first = asyncio.ensure_future(anext(stream))
            await turns()
            await self.raises(RuntimeError, anext(stream))
            first.cancel()

    async def test_each_kind_of_event_has_its_class(self):
        library = FakeLibrary()
        async with self.client(library) as client:
            bob, seven = {"info": {"uid": "bob"}}, {"info": {"uid": 7}}
            trouble = {"data": ["late", 3]}
            cases = [
                ("clientDidLogin", {}, vexim.LoggedIn()),
                ("clientDidLogout", {}, vexim.LoggedOut()),
                ("clientAttemptReconnect", {}, vexim.Reconnecting()),
                ("clientDidDisconnect", {}, vexim.Disconnected()),
                ("clientFriendDidOnline", bob, vexim.PresenceChanged("bob", True)),
                ("clientFriendDidOffline", seven, vexim.PresenceChanged("7", False)),
                ("socket.io.error", trouble, vexim.ConnectionTrouble("late", [3])),
                ("overflow", {"events": 3}, vexim.EventsDropped(3)),
                ("tomorrow", {"what": 1}, vexim.OtherEvent("tomorrow", {"what": 1})),
            ]
            stream = client.events()
            for name, entries, event in cases:
                library.client.tell(name, **entries)
                self.assertEqual(await anext(stream), event)
            info = {"errorCode": 211}
            error = {"domain": "VXIMErrorDomain", "code": 211, "userInfo": info}
            library.client.tell("clientDidFailToLoginAgain", error=error)
            refusal = (await anext(stream)).error
            self.assertIsInstance(refusal, vexim.LoginError)
            self.assertEqual((refusal.code, refusal.user_info), (211, info))
            presence = client.presence()
            self.assertEqual([(await anext(presence)).friend for _ in range(2)], ["bob", "7"])


if __name__ == "__main__":
    unittest.main()
