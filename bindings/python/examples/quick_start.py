#!/usr/bin/env python3
# Says hello to bob, and shows what comes.
# [program]
import asyncio
import sys

import vexim


async def main(url: str) -> None:
    async with vexim.Client("demo-app", "demo-key", url=url) as client:
        await client.login(user_id="alice")
        await client.send("hello", friend="bob")
        async for message in client.messages():
            print(message.sender, message.text)


asyncio.run(main(sys.argv[1]))
# [/program]
