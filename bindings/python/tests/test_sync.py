"""The form without asyncio, from several threads."""

import signal
import subprocess
import sys
import threading
import time
import unittest

import vexim
import vexim.sync
from tests.fakes import FakeLibrary, message_event, reports_progress, silent


class SyncTest(unittest.TestCase):
    def client(self, library, **arguments):
        return vexim.sync.Client("app", "key", library=library, **arguments)

    def in_thread(self, function):
        """Runs it in a thread; the result is a function that waits and gives what it raised."""
        raised = []

        def run():
            try:
                function()
                raised.append(None)
            except BaseException as error:
                raised.append(error)

        thread = threading.Thread(target=run)
        thread.start()

        def wait():
            thread.join(60)
            return raised[0]

        return wait

    def until(self, condition):
        deadline = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            threading.Event().wait(0.001)

    def test_calls_of_many_threads_get_their_own_answers(self):
        library = FakeLibrary(lambda client, request: client.answer(request, request["key"]))
        with self.client(library) as client:
            wrong = []

            def ask(name):
                for number in range(50):
                    key = f"{name} {number}"
                    if client.users.attribute("u", key) != key:
                        wrong.append(key)

            waits = [self.in_thread(lambda name=name: ask(name)) for name in range(4)]
            self.assertEqual([wait() for wait in waits], [None] * 4)
            self.assertEqual(wrong, [])

    def test_closing_in_one_thread_ends_what_others_wait_for(self):
        library = FakeLibrary(silent)
        client = self.client(library)
        call = self.in_thread(lambda: client.groups.delete("g1"))
        messages = []
        reader = self.in_thread(lambda: messages.extend(client.messages()))
        self.until(lambda: library.client.requests)
        client.close()
        self.assertIsInstance(call(), vexim.ClosedError)
        self.assertIsNone(reader())
        client.close()
        with self.assertRaises(vexim.ClosedError):
            client.groups.delete("g1")

    def test_closing_at_random_moments_leaves_nobody_waiting(self):
        for delay in range(20):
            library = FakeLibrary()
            client = self.client(library)

            def call():
                while True:
                    client.groups.delete("g1")

            waits = [self.in_thread(call) for _ in range(2)]
            self.until(lambda: len(library.client.requests) > delay)
            client.close()
            self.assertEqual([type(wait()) for wait in waits], [vexim.ClosedError] * 2)

    def test_a_call_has_a_deadline_and_cancels_its_request(self):
        library = FakeLibrary(silent)
        with self.client(library, timeout=0.01) as client:
            with self.assertRaises(TimeoutError):
                client.groups.delete("g1")
            both = ["VXIMGroup.deleteWithBlock", "cancel"]
            self.until(lambda: library.client.operations() == both)
            with self.assertRaises(TimeoutError):
                client.messages().get(timeout=0.01)

    def test_an_interrupt_ends_the_wait(self):
        library = FakeLibrary(silent)
        with self.client(library) as client:
            def press():
                self.until(lambda: library.client.requests)
                signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

            interrupt = self.in_thread(press)
            with self.assertRaises(KeyboardInterrupt):
                client.groups.delete("g1")
            interrupt()
            self.until(lambda: library.client.operations()[-1] == "cancel")

    def test_messages_come_in_order(self):
        library = FakeLibrary()
        with self.client(library) as client:
            stream = client.messages()
            texts = [str(number) for number in range(100)]
            library.client.say(*map(message_event, texts))
            self.assertEqual([stream.get(timeout=60).text for _ in texts], texts)

    def test_a_progress_callback_that_waits_for_the_client_is_refused(self):
        refusals = []

        def progress(percent):
            try:
                client.groups.delete("g1")
            except vexim.UsageError as error:
                refusals.append(error)

        with self.client(FakeLibrary(reports_progress)) as client:
            client.send(image=b"x", friend="bob", progress=progress)
        self.assertEqual(len(refusals), 1)

    def test_a_program_that_forgets_to_close_can_end(self):
        program = ("import vexim.sync; from tests.fakes import *\n"
                   "vexim.sync.Client('a', 'k', library=FakeLibrary()).login(user_id='a')")
        self.assertEqual(subprocess.run([sys.executable, "-c", program], timeout=60).returncode, 0)


if __name__ == "__main__":
    unittest.main()
