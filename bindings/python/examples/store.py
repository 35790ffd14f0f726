"""What is sent is not lost: it waits in a file until there is a connection, and the conversation is
in it.

    store.py URL
"""

# [store]
import asyncio
import sys
import tempfile
import vexim
from vexim import Peer, State

async def main(url: str, folder: str) -> None:
    async with vexim.Client("demo-app", "demo-key", url=url) as client:
        async with client.open_store(folder, user_id="alice") as store:
            await store.send(Peer.friend("bob"), "hello")  # written, and not lost any more
            await client.login(user_id="alice")  # now it goes out
            async for change in store.observe(Peer.friend("bob"), limit=20):
                for position in [*change.inserted, *change.changed]:
                    message = change.items[position]
                    print(message.sender, message.text, message.state.value)
                if all(message.state is State.CONFIRMED for message in change.items):
                    break
            for conversation in await store.conversations():
                print(conversation.peer.id, "unread:", conversation.unread)

with tempfile.TemporaryDirectory() as folder:  # an application has one that stays
    asyncio.run(main(sys.argv[1], folder))
# [/store]
