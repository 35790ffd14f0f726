"""The C library's five functions in Python, which say what a test wants, and what tests share."""

import asyncio
import collections
import json
import os
import unittest

import vexim


class FakeClient:
    def __init__(self, configuration):
        self.configuration = configuration
        self.requests = []
        self.readable, self.writable = os.pipe()
        self.queue = collections.deque()
        self.freed = False

    def say(self, *texts):
        """Lets the client receive these: objects, or bytes as they are."""
        for text in texts:
            self.queue.append(text if isinstance(text, bytes) else json.dumps(text).encode())
        if self.queue and not self.freed:
            os.write(self.writable, b"!")

    def tell(self, name, **entries):
        self.say({"@type": "event", "name": name, **entries})

    def answer(self, request, result=True):
        self.say({"@type": "answer", "@extra": request.get("@extra"), "result": result})

    def refuse(self, request, **error):
        self.say({"@type": "error", "@extra": request.get("@extra"), "error": error})

    @property
    def last(self):
        return self.requests[-1]

    def operations(self):
        return [request["@op"] for request in self.requests]


class FakeLibrary:
    """`respond(client, request)` is called for each request; by default the answer is true."""

    def __init__(self, respond=FakeClient.answer):
        self.clients = {}
        self.respond = respond
        self.first_text = None

    @property
    def client(self):
        return self.clients[max(self.clients)]

    def create(self, configuration):
        number = len(self.clients) + 1
        self.clients[number] = client = FakeClient(json.loads(configuration))
        if self.first_text is not None:
            client.say(self.first_text)
        return number

    def send(self, number, request):
        client = self.clients[number]
        assert not client.freed
        client.requests.append(json.loads(request.decode("utf-8")))
        self.respond(client, client.last)

    def receive(self, number):
        client = self.clients[number]
        if client.queue:
            return client.queue.popleft()
        if not client.freed:
            os.set_blocking(client.readable, False)
            try:
                os.read(client.readable, 65536)
            except BlockingIOError:
                pass
        return None

    def execute(self, number, request):
        descriptor = {"descriptor": self.clients[number].readable}
        results = {"descriptor": descriptor, "status": 2, "diagnose": []}
        result = results[json.loads(request)["@op"]]
        return json.dumps({"@type": "answer", "result": result}).encode()

    def free(self, number):
        client = self.clients[number]
        assert not client.freed
        client.queue.clear()
        for request in client.requests:
            client.refuse(request)
        client.freed = True
        os.close(client.readable)
        os.close(client.writable)


def silent(client, request):
    """Answers nothing."""


def reports_progress(client, request):
    client.tell("progress", **{"@extra": request["@extra"], "percent": 5})
    client.answer(request)


def message_event(text, sender="bob", friend="bob", **entries):
    author = {"type": 0, "userId": sender} if isinstance(sender, str) else sender
    alice = {"type": 0, "userId": "alice"}
    message = {"text": text, "mediaType": 0, "sendTimestamp": 1.5, "isSystemMessage": False,
               "payload": {}, "sender": author, "receiver": alice, **entries}
    return {"@type": "event", "name": "clientDidReceiveMessageFromFriend", "message": message,
            "from": {"uid": friend, "online": False}}


async def turns(count=5):
    for _ in range(count):
        await asyncio.sleep(0)


async def first(stream, kind):
    """The first event of a class, or the first item for which a function is true."""
    async for item in stream:
        if isinstance(item, kind) if isinstance(kind, type) else kind(item):
            return item


class AsyncCase(unittest.IsolatedAsyncioTestCase):
    async def raises(self, kind, operation):
        with self.assertRaises(kind) as raised:
            await operation
        return raised.exception


class ClientCase(AsyncCase):
    """What the loop reports fails a test. One that expects reports checks and clears them."""

    async def asyncSetUp(self):
        self.reports = []
        loop = asyncio.get_running_loop()
        loop.set_exception_handler(lambda _, context: self.reports.append(context.get("exception")))

    async def asyncTearDown(self):
        self.assertEqual(self.reports, [])

    def client(self, library, **arguments):
        return vexim.Client("app", "key", library=library, **arguments)
