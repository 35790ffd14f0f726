#!/usr/bin/env python3
"""The steps of `vexim demo` in Python: two users of the local service.

    demo.py URL
"""

import asyncio
import pathlib
import struct
import sys
import tempfile
import zlib

import vexim


class Stage:
    """Checks each step and prints it."""

    def __init__(self, alice, bob):
        self.alice, self.bob = alice, bob
        self.steps = self.failures = 0
        self.changed = asyncio.Event()
        self.alice_hears, self.bob_hears = [], []
        self.pictures = []  # messages with a file that bob received
        self.listeners = [asyncio.ensure_future(self.listen(alice, self.alice_hears)),
                          asyncio.ensure_future(self.listen(bob, self.bob_hears))]

    async def listen(self, client, lines):
        async for event in client.events():
            match event:
                case vexim.MessageReceived(message):
                    if message.is_system:
                        lines.append(f"system: {message.text}")
                    else:
                        where = f"friend {message.friend}" if message.friend else \
                            f"group {message.group}" if message.group else f"room {message.room}"
                        lines.append(f"{where}, {message.sender}: {message.text}")
                    if message.attachment_url and client is self.bob:
                        self.pictures.append(message)
                case vexim.PresenceChanged(friend, online):
                    lines.append(f"{'online' if online else 'offline'} {friend}")
            self.changed.set()

    def say(self, title):
        print(title, flush=True)

    def step(self, name, held, seen=""):
        self.steps += 1
        self.failures += not held
        print(f"  ok    {name}" if held else f"  FAIL  {name}: saw {seen}", flush=True)
        return held

    async def succeeds(self, name, operation):
        """The operation's result, or None."""
        try:
            result = await operation
            self.step(name, True)
            return result
        except vexim.Error as error:
            self.step(name, False, repr(error))
            return None

    async def refuses(self, name, operation, kind, words=""):
        try:
            await operation
            self.step(name, False, "success")
        except vexim.Error as error:
            self.step(name, isinstance(error, kind) and words in str(error), repr(error))

    async def eventually(self, name, condition, seen):
        try:
            async with asyncio.timeout(10):
                while not condition():
                    self.changed.clear()
                    try:
                        async with asyncio.timeout(0.05):  # a status changes without an event
                            await self.changed.wait()
                    except TimeoutError:
                        if asyncio.current_task().cancelling():
                            raise
        except TimeoutError:
            pass
        return self.step(name, condition(), seen())

    async def hears(self, name, lines, line, times=1):
        return await self.eventually(name, lambda: lines.count(line) >= times, lambda: lines)

    async def reaches(self, name, client, status):
        return await self.eventually(name, lambda: client.status == status, lambda: client.status)


async def tell_login(stage):
    stage.say("Logging in")
    await stage.succeeds("alice logs in with her user id", stage.alice.login(user_id="alice"))
    await stage.reaches("her session is open", stage.alice, vexim.Status.OPENED)
    await stage.refuses("bob is refused with a wrong password",
                        stage.bob.login(username="bob", password="wrong"), vexim.LoginError)
    await stage.succeeds("bob logs in with user name and password",
                         stage.bob.login(username="bob", password="bob-secret"))
    await stage.hears("alice sees bob come online", stage.alice_hears, "online bob")


async def tell_chat(stage):
    stage.say("Chatting")
    alice, bob, succeeds, hears = stage.alice, stage.bob, stage.succeeds, stage.hears
    to_alice, to_bob = stage.alice_hears, stage.bob_hears
    await succeeds("alice sends a text to her friend bob", alice.send("hello, bob", friend="bob"))
    await hears("bob receives it from his friend alice", to_bob, "friend alice, alice: hello, bob")
    await hears("alice gets the echo of her message", to_alice, "friend bob, alice: hello, bob")
    await succeeds("bob sends a text to the group", bob.send("hello, group", group="demo-group"))
    await hears("alice receives it there", to_alice, "group demo-group, bob: hello, group")
    await succeeds("alice sends a text to the room", alice.send("hello, room", room="demo-room"))
    await hears("bob receives it from the room", to_bob, "room demo-room, alice: hello, room")
    await succeeds("bob is sent a system message", alice.send_system("maintenance", user="bob"))
    await hears("bob receives the system message", to_bob, "system: maintenance")


def picture():
    """A small gradient, as PNG."""
    side = 64
    row = lambda y: b"\0" + b"".join(bytes([4 * x, 4 * y, 128]) for x in range(side))
    rows = b"".join(map(row, range(side)))

    def chunk(name, data):
        crc = zlib.crc32(name + data)
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", crc)

    header = struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows))
            + chunk(b"IEND", b""))


async def pass_on(stage, what, original, copy, **file):
    percents, before = [], len(stage.pictures)
    send = stage.alice.send(friend="bob", progress=percents.append, **file)
    await stage.succeeds(f"alice sends {what}", send)
    stage.step("its upload was followed to the end", percents[-1:] == [100], percents)
    has_come = lambda: len(stage.pictures) > before
    if await stage.eventually("bob receives it", has_come, lambda: stage.bob_hears):
        await stage.succeeds("bob downloads it", stage.bob.download(stage.pictures[-1], copy))
        stage.step("byte for byte the same", copy.exists() and copy.read_bytes() == original, copy)


async def tell_attachments(stage):
    stage.say("Sending pictures and sound")
    with tempfile.TemporaryDirectory(prefix="vexim-demo-") as name:
        folder = pathlib.Path(name)
        image = picture()
        stage.step("a picture becomes a message", image.startswith(b"\x89PNG"), "none")
        await pass_on(stage, "the picture", image, folder / "picture.png", image=image)
        sound = folder / "sound.wav"
        sound.write_bytes(b"RIFF" + b"\x55" * 100_000)
        stage.step("a sound becomes a message", sound.exists(), "none")
        await pass_on(stage, "the sound", sound.read_bytes(), folder / "copy.wav", audio=sound)


async def tell_resources(stage):
    stage.say("Friends, groups, rooms, attributes, history, searches")
    alice, bob = stage.alice, stage.bob
    friends = await stage.succeeds("alice fetches her friends", alice.friends.all()) or []
    online = [friend.id for friend in friends if friend.online]
    stage.step("bob is among them, online", "bob" in online, friends)
    update = alice.users.update_attributes("alice", {"mood": "fine"})
    await stage.succeeds("alice sets an attribute of hers", update)
    mood = await stage.succeeds("and reads it back", alice.users.attribute("alice", "mood"))
    stage.step("it is the same", mood == "fine", mood)

    read = bob.friends.history("alice")
    history = await stage.succeeds("bob reads his history with alice", read) or []
    texts = [message.text for message in history]
    stage.step("her first text is in it", "hello, bob" in texts, history)

    create = alice.groups.create("Reading circle", owner="alice", members=["alice"])
    group = await stage.succeeds("alice creates a group", create)
    if group is not None:
        await stage.succeeds("she adds bob", alice.groups.add_members(group.id, ["bob"]))
        await stage.succeeds("she renames it", alice.groups.rename(group.id, "Book club"))
        copy = await stage.succeeds("bob fetches it", bob.groups.fetch(group.id))
        is_right = copy and (copy.name, copy.members) == ("Book club", ("alice", "bob"))
        stage.step("with its new name and both members", is_right, copy)
        await stage.succeeds("alice deletes it", alice.groups.delete(group.id))

    room = await stage.succeeds("bob creates a room", bob.rooms.create("Lounge", members=["bob"]))
    if room is not None:
        await stage.succeeds("he renames it", bob.rooms.rename(room.id, "Lobby"))
        await stage.succeeds("he deletes it", bob.rooms.delete(room.id))
    await stage.succeeds("a passenger comes aboard", bob.passengers.save({"name": "Visitor"}))
    find = alice.users.find({"city": "Oslo"})
    found = await stage.succeeds("a search for users in Oslo", find) or []
    stage.step("finds bob", "bob" in [user.id for user in found], found)


async def tell_pause_and_resume(stage):
    stage.say("Pausing and resuming")
    bob = stage.bob
    await bob.pause()
    await stage.reaches("bob pauses", bob, vexim.Status.PAUSED)
    await stage.hears("alice sees bob go offline", stage.alice_hears, "offline bob")
    await stage.refuses("a send while paused fails", bob.send("can you hear me?", friend="alice"),
                        vexim.NotConnectedError, "Message cannot send when connection disconnected")
    await bob.resume()
    await stage.reaches("bob resumes", bob, vexim.Status.OPENED)
    await stage.hears("alice sees bob come back", stage.alice_hears, "online bob", 2)
    await stage.succeeds("bob sends a text to alice", bob.send("back again", friend="alice"))
    await stage.hears("alice receives it", stage.alice_hears, "friend bob, bob: back again")


async def tell_logout(stage):
    stage.say("Logging out")
    await stage.succeeds("alice logs out", stage.alice.logout())
    await stage.reaches("her session is closed", stage.alice, vexim.Status.CLOSED)
    await stage.hears("bob sees alice go offline", stage.bob_hears, "offline alice")
    await stage.succeeds("bob logs out", stage.bob.logout())


async def main(url, **arguments):
    def client():
        return vexim.Client("demo-app", "demo-key", url=url, **arguments)

    async with client() as alice, client() as bob:
        stage = Stage(alice, bob)
        async with asyncio.timeout(100):
            for tell in (tell_login, tell_chat, tell_attachments, tell_resources,
                         tell_pause_and_resume, tell_logout):
                await tell(stage)
    await asyncio.gather(*stage.listeners)
    print(f"{stage.steps - stage.failures} of {stage.steps} steps held")
    return 0 if stage.failures == 0 and stage.steps == 56 else 1


if __name__ == "__main__":
    sys.exit(asyncio.run(main(sys.argv[1])))
