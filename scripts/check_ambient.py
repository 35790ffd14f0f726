#!/usr/bin/env python3
"""Checks who uses shared instances. A class gets what it needs through its constructor, except what
docs/design.md calls ambient.

Each row names the folders and files of VexIMLib that may use an instance. An unused row is an
error, too.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent / "VexIMLib"
CALL = re.compile(r"\b([A-Z]\w*)::(shared|system|defaultCenter|defaultManager|ofRequests)\(\)")

# The threads of the process, and the ways to reach them.
THREADS = {
    "MainQueue::shared": ["Async", "Loops", "C", "Store", "Testing", "internal/Foundation",
                          "internal/Platform", "internal/Networking",
                          "internal/Resources", "internal/Client"],
    "NetworkThread::shared": ["internal/Platform/Threads", "internal/Platform/Loading",
                              "internal/SocketIO/Transports",
                              "internal/SocketIO/Client/LinkKeeper.cpp"],
    "LoadRunner::shared": ["internal/Platform/Loading"],
    "ReaderPool::shared": ["internal/Platform/Threads", "internal/Platform/Loading"],
    "TurnListeners::shared": ["internal/Foundation/Threads"],
    "MainQueueThread::shared": ["C"],
}
# There is one of each in a process, because applications see one of each.
REGISTERS = {
    "NotificationCenter::defaultCenter": ["C", "Store", "internal/Foundation", "internal/Client"],
    "VXIMURLSessionManager::defaultManager": ["internal/Networking"],
    "EventRecord::ofRequests": ["internal/Platform", "internal/Networking", "internal/Client"],
    "Handles::shared": ["C/internal"],
    "Senders::shared": ["C/internal"],
}
CLOCK = {
    "Clock::system": ["internal/Foundation/Threads"],
    "Clock::shared": [
        # timers, which use the clock that is set, and code that compares times with theirs
        "internal/Foundation/Threads", "internal/Platform/Threads/ClockTimer.h",
        "internal/Platform/Loading/URLLoad.cpp",
        "internal/Platform/Loading/LoadRunner.cpp",
        "Loops/Asio.h", "C/internal/Session.cpp", "Store/internal/OutboxSending.cpp",
        # times and durations that are recorded
        "internal/Foundation/Values/Date.cpp", "internal/Platform/Facts/EventRecord.cpp",
        "internal/Networking/VXIMUtils.cpp",
        "internal/Networking/VXIMURLSessionDataDelegate.cpp",
        "internal/Resources/VXIMMessage.cpp", "internal/Client/VXIMClientMessages.cpp",
        "Store/internal", "Testing/internal",
        # passed down from here
        "internal/SocketIO/Client/SocketIOClient.cpp",
    ],
    "Random::system": ["internal/Foundation/Threads"],
    "Random::shared": [
        "internal/Foundation/Threads", "internal/Networking/VXIMRequestRetries.cpp",
        # unique names
        "internal/Networking/DownloadFile.cpp",
        "internal/Networking/VXIMAFStreamingMultipartFormData.cpp", "Store/internal/Outbox.cpp",
        "internal/SocketIO/Client/SocketIOClient.cpp",
    ],
    "HostResolver::system": ["internal/Platform/Threads",
                             "internal/SocketIO/Client/SocketIOClient.cpp"],
}
ALLOWED = THREADS | REGISTERS | CLOCK


def calls():
    for path in sorted([*ROOT.rglob("*.h"), *ROOT.rglob("*.cpp")]):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            for kind, name in CALL.findall(line.split("//")[0]):
                yield path.relative_to(ROOT).as_posix(), number, f"{kind}::{name}"


def findings():
    unused = {(name, place) for name, places in ALLOWED.items() for place in places}
    for path, number, name in calls():
        places = [place for place in ALLOWED.get(name, ()) if f"{path}/".startswith(f"{place}/")]
        if not places:
            yield f"VexIMLib/{path}:{number}: {name}() is not ambient here; hand it down"
        unused -= {(name, place) for place in places}
    for name, place in sorted(unused):
        yield f"scripts/check_ambient.py: nothing in {place} calls {name}()"


if __name__ == "__main__":
    found = list(findings())
    print("\n".join(found))
    sys.exit(1 if found else 0)
