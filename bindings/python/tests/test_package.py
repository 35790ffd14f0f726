"""The whole package: its operations, types, documentation, import time and longer examples."""

import asyncio
import inspect
import os
import pathlib
import re
import subprocess
import sys
import unittest

import vexim
import vexim.sync
from tests.service import Service, clean_environment

HERE = pathlib.Path(__file__).resolve().parents[1]
SOURCES = HERE.parents[1] / "VexIMLib/C/internal"
TABLES = [pathlib.Path(os.environ.get("VEXIM_API_SOURCE", SOURCES), name)
          for name in ("Operations.cpp", "Store/StoreOperations.cpp")]


class PackageTest(unittest.TestCase):
    def test_every_operation_of_the_library_is_used(self):
        text = "".join(path.read_text() for path in TABLES)
        table = re.findall(r'^ +\{"([\w.]+)", "', text, re.M)
        self.assertGreater(len(table), 90)
        sources = "".join(path.read_text() for path in (HERE / "vexim").glob("*.py"))
        classes = [*re.findall(r'_class = "(\w+)"', sources), "VXIMQuery", "VXIMMessageStore"]
        elsewhere = {
            "sendMessage": "the others name the receiver",
            "sendSystemMessage": "likewise",
            "VXIMGroup.createWithOwner": "createWithBlock takes the same, and less",
            "VXIMConversations.sendText": "send does it, too",
            "VXIMConversations.store": "Store knows it",
        }
        for operation in table:
            owner, _, name = operation.rpartition(".")
            if operation not in elsewhere:
                is_of_class = owner in classes and f'"{name}"' in sources
                self.assertTrue(f'"{operation}"' in sources or is_of_class, operation)

    def test_the_form_without_asyncio_is_what_is_written_from_the_other(self):
        command = [sys.executable, HERE / "make_sync.py", "--check"]
        subprocess.run(command, check=True, env=clean_environment())

    def test_types(self):
        if not pathlib.Path("/usr/bin/mypy").exists():
            self.skipTest("mypy is not installed")
        command = ["/usr/bin/mypy", "--strict", "--cache-dir", os.devnull, "vexim"]
        run = subprocess.run([*command, *(HERE / "examples").glob("*.py")], cwd=HERE,
                             capture_output=True, text=True, env=clean_environment())
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def test_every_public_name_says_what_it_is(self):
        for name in vexim.__all__:
            value = getattr(vexim, name)
            self.assertTrue(inspect.getdoc(value), name)
        for kind in [vexim.Client, vexim.sync.Client, vexim.Stream, vexim.sync.SyncStream,
                     vexim.Store, vexim.sync.Store, vexim.Observation,
                     type(vexim.Client("a", "k").groups)]:
            for name, value in inspect.getmembers(kind):
                if not name.startswith("_"):
                    self.assertTrue(inspect.getdoc(value), f"{kind.__name__}.{name}")
        with self.assertRaises(AttributeError):
            vexim.nothing
        self.assertIn("Client", dir(vexim))

    def test_importing_is_quick(self):
        program = "from time import *; a = process_time(); import vexim; print(process_time() - a)"
        command = [sys.executable, "-c", program]
        times = [subprocess.check_output(command, env=clean_environment()) for _ in range(5)]
        self.assertLess(min(map(float, times)), 0.060)

    def test_a_missing_library_is_said(self):
        environment = {**clean_environment(), "VEXIM_C_LIBRARY": "/nowhere/libvexim-c.so"}
        program = "import vexim\ntry: vexim.library_version()\nexcept ImportError as e: print(e)"
        said = subprocess.check_output([sys.executable, "-c", program], env=environment, text=True)
        self.assertIn("/nowhere/libvexim-c.so", said)


class ExamplesTest(unittest.TestCase):
    def test_the_bot_echoes_until_it_is_told_to_leave(self):
        service = Service()
        self.addCleanup(service.kill)
        bot = subprocess.Popen([sys.executable, HERE / "examples/echo_bot.py", service.url])
        self.addCleanup(bot.wait)
        self.addCleanup(bot.kill)

        async def talk():
            client = vexim.Client("demo-app", "demo-key", url=service.url)
            async with client as alice, asyncio.timeout(60):
                await alice.login(user_id="alice")
                messages = alice.messages()
                for friend in await alice.friends.all():
                    if friend.id == "bob" and not friend.online:
                        await anext(alice.presence())
                for text in ("hello", "bye"):
                    await alice.send(text, friend="bob")
                    self.assertEqual((await anext(messages)).text, text)

        asyncio.run(talk())
        self.assertEqual(bot.wait(60), 0)

    def test_the_quick_start_shows_an_answer(self):
        service = Service()
        self.addCleanup(service.kill)

        async def answer():
            client = vexim.Client("demo-app", "demo-key", url=service.url)
            async with client as bob, asyncio.timeout(60):
                await bob.login(user_id="bob")
                program = await asyncio.create_subprocess_exec(
                    sys.executable, "-u", HERE / "examples/quick_start.py", service.url,
                    stdout=subprocess.PIPE)
                async for message in bob.messages():
                    await bob.reply(message, f"{message.text} yourself")
                    break
                line = await program.stdout.readline()
                program.kill()
                await program.communicate()
                return line.decode()

        self.assertEqual(asyncio.run(answer()), "bob hello yourself\n")


if __name__ == "__main__":
    unittest.main()
