#!/usr/bin/env python3
"""What the guide's page on Python shows, in one program."""

from __future__ import annotations

import asyncio
import pathlib
import sys
import tempfile

import vexim


async def errors(client: vexim.Client) -> None:
    # [errors]
    try:
        await client.login(username="bob", password="not-his-password")
    except vexim.LoginError as error:
        print(error.code, error.description)  # the service's own
    except vexim.NetworkError as error:
        print("try again later" if error.temporary else error)
    # [/errors]


async def deadlines(client: vexim.Client) -> None:
    # [deadline]
    async with asyncio.timeout(10):  # raises TimeoutError
        await client.login(username="bob", password="bob-secret")
    # [/deadline]


async def resources(client: vexim.Client) -> None:
    # [resources]
    for friend in await client.friends.all():
        print(friend.id, "is there" if friend.online else "is away")
    group = await client.groups.create("Reading circle", owner="bob", members=["bob", "alice"])
    await client.groups.rename(group.id, "Book club")
    await client.groups.update_attributes(group.id, {"book": "Middlemarch"})
    in_oslo = await client.users.find({"city": "Oslo"}, order=["-age"])
    history = await client.friends.history("alice", limit=50)  # the newest first
    # [/resources]
    assert [user.id for user in in_oslo] == ["bob"]
    assert all(message.friend == "alice" for message in history)
    assert (await client.groups.fetch(group.id)).name == "Book club"
    await client.groups.delete(group.id)


async def files(alice: vexim.Client, bob: vexim.Client, picture: pathlib.Path,
                copy: pathlib.Path) -> None:
    messages = bob.messages()
    # [send]
    await alice.send(image=picture, friend="bob", progress=lambda percent: print(percent, "%"))
    # [/send]
    # [download]
    async for message in messages:
        if message.attachment_url:
            await bob.download(message, copy)
            break
    # [/download]
    assert copy.read_bytes() == picture.read_bytes()


async def watch(client: vexim.Client) -> None:
    # [events]
    async for event in client.events():
        match event:
            case vexim.MessageReceived(message):
                print(message.sender, message.text)
            case vexim.PresenceChanged(friend, online):
                print(friend, "came" if online else "went")
            case vexim.Disconnected() | vexim.ConnectionTrouble():
                print(client.diagnose())
    # [/events]


async def events(alice: vexim.Client, bob: vexim.Client) -> None:
    watching = asyncio.create_task(watch(alice))
    presence = alice.presence()
    await bob.pause()
    await bob.resume()
    assert not (await anext(presence)).online and (await anext(presence)).online
    watching.cancel()


async def main(url: str) -> None:
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "photo.png")
        picture.write_bytes(b"\x89PNG\r\n\x1a\n" + bytes(5000))
        async with (
            vexim.Client("demo-app", "demo-key", url=url) as alice,
            vexim.Client("demo-app", "demo-key", url=url) as bob,
        ):
            await errors(bob)
            await deadlines(bob)
            await alice.login(user_id="alice")
            await resources(bob)
            await files(alice, bob, picture, picture.with_name("copy.png"))
            await events(alice, bob)


if __name__ == "__main__":
    asyncio.run(main(sys.argv[1]))
