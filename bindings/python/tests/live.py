"""What the tests with a service share: the real C library, the service, and clients that check all
that passes against the schema."""

import asyncio

import vexim
from tests.checked import CheckedLibrary
from tests.fakes import AsyncCase
from tests.service import Service

LONG = 60  # seconds; nothing should take as long


class LiveCase(AsyncCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service()
        cls.addClassCleanup(cls.service.kill)

    def client(self, url=None, **arguments):
        arguments = {"url": url or self.service.url, "library": CheckedLibrary(), **arguments}
        return vexim.Client("demo-app", "demo-key", **arguments)

    def tearDown(self):
        wrong, CheckedLibrary.wrong[:] = CheckedLibrary.wrong[:], []
        self.assertEqual(wrong, [])

    async def control(self, path, body):
        return await asyncio.to_thread(self.service.control, path, body)

    async def until(self, condition):
        async with asyncio.timeout(LONG):
            while not condition():
                await asyncio.sleep(0.01)
