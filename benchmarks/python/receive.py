"""Receives floods of messages and prints the CPU time of one, in microseconds: the least of several
rounds, of all threads.

    receive.py PORT MESSAGES
"""

import asyncio
import sys
import time

import vexim


async def main(port: str, count: int) -> float:
    best = float("inf")
    async with vexim.Client("app", "key", url=f"http://127.0.0.1:{port}",
                            options={"queueBytes": 1 << 30}) as client:
        await client.login(user_id="5f2b7c9e8a1d4e00deadbeef")
        messages = client.messages()
        for _ in range(4):
            began = time.process_time()
            await client.send("flood", friend="5f2b7c9e8a1d4e0012345678")
            left = count
            async for message in messages:
                if message.text is None or message.friend is None:
                    raise ValueError(message)
                left -= 1
                if left == 0:
                    break
            best = min(best, time.process_time() - began)
        if messages.dropped:
            raise ValueError(f"{messages.dropped} messages were dropped")
    return best / count * 1e6


print(asyncio.run(main(sys.argv[1], int(sys.argv[2]))))
