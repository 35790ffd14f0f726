#!/usr/bin/env python3
# [bot]
import asyncio
import sys
import vexim

async def main(url: str) -> None:
    async with vexim.Client("demo-app", "demo-key", url=url, installation_id="echo-bot") as client:
        async with asyncio.timeout(30):
            await client.login(username="bob", password="bob-secret")
        async for message in client.messages():
            await client.reply(message, message.text or "what is this?")
            if message.text == "bye":
                break

asyncio.run(main(sys.argv[1]))
# [/bot]
