#!/usr/bin/env python3
"""Without asyncio: a script that writes to bob and reads what was said before."""

import sys

import vexim.sync


def main(url: str) -> None:
    # [script]
    with vexim.sync.Client("demo-app", "demo-key", url=url) as client:
        client.login(user_id="alice")
        client.send("the backup is done", friend="bob")
        for message in client.friends.history("bob"):
            print(message.sent_at, message.sender, message.text)
    # [/script]


if __name__ == "__main__":
    main(sys.argv[1])
