"""The local development service, in a process of its own."""

import json
import os
import pathlib
import subprocess
import urllib.request

PACKAGE = pathlib.Path(__file__).resolve().parents[1]
FOLDER = PACKAGE.parents[1] / "service"
os.environ["PYTHONPATH"] = str(PACKAGE)  # for the programs that tests start


def clean_environment():
    """Without what is loaded into this process for a sanitizer."""
    return {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}


class Service:
    def __init__(self, *flags):
        command = ["node", str(FOLDER / "server.js"), *flags, "--exit-with-parent"]
        self._process = subprocess.Popen(command, env=clean_environment(), stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, text=True)
        for line in self._process.stdout:
            if "listening on " in line:
                self.url = line.split("listening on ")[1].strip()
                break
        else:
            raise RuntimeError("the service did not start")

    def control(self, path, body=None):
        """Asks the service's control endpoint. It blocks, so call it with asyncio.to_thread."""
        data = None if body is None else json.dumps(body).encode()
        headers = {"Content-Type": "application/json"}
        request = urllib.request.Request(f"{self.url}/_control/{path}", data, headers)
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)

    def kill(self):
        self._process.kill()
        self._process.communicate()
