#!/usr/bin/env python3
"""Makes a wheel of the package and a built C library. It needs no network, and the same input gives
the same bytes.

    make_wheel.py FOLDER LIBRARY...     writes the wheel to FOLDER

LIBRARY is libvexim-c.so.1, libvexim-c-store.so.1 or both. Add libVexIMLib.so.1 and
libVexIMLibStore.so.1 if these are separate libraries. Name installed libraries: those in a build
folder look for each other there.

The wheel gets the libraries without symbols. Other libraries that they need, such as libcurl and
SQLite, come from the system. If SQLite is missing, the package uses the library without the store.
"""

import base64
import hashlib
import pathlib
import re
import subprocess
import sys
import sysconfig
import tempfile
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
VERSION = re.search(r'__version__ = "(.*)"', (HERE / "vexim/__init__.py").read_text())[1]

TAG = "py3-none-" + re.sub(r"[-.]", "_", sysconfig.get_platform())


def stripped(path):
    with tempfile.TemporaryDirectory() as folder:
        target = pathlib.Path(folder, "library")
        subprocess.run(["strip", "-o", target, path], check=True)
        return target.read_bytes()


def soname(path):
    table = subprocess.check_output(["readelf", "-d", path], text=True)
    return re.search(r"\(SONAME\).*\[(.*)\]", table)[1]


def contents(libraries):
    for path in sorted([*(HERE / "vexim").glob("*.py"), HERE / "vexim/py.typed"]):
        yield f"vexim/{path.name}", path.read_bytes()
    for path in libraries:
        yield f"vexim/_lib/{soname(path)}", stripped(path)
    information = f"vexim-{VERSION}.dist-info"
    yield f"{information}/METADATA", (HERE / "METADATA.in").read_text().replace(
        "@PROJECT_VERSION@", VERSION).encode()
    yield f"{information}/LICENSE", (HERE.parents[1] / "LICENSE").read_bytes()
    yield f"{information}/WHEEL", (
        f"Wheel-Version: 1.0\nGenerator: make_wheel\nRoot-Is-Purelib: false\nTag: {TAG}\n").encode()


def make(folder, libraries):
    target = pathlib.Path(folder, f"vexim-{VERSION}-{TAG}.whl")
    record = ""
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as wheel:
        def add(name, data):
            entry = zipfile.ZipInfo(name)  # of 1980-01-01
            entry.external_attr = 0o100644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            wheel.writestr(entry, data)

        for name, data in contents(libraries):
            add(name, data)
            digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
            record += f"{name},sha256={digest},{len(data)}\n"
        name = f"vexim-{VERSION}.dist-info/RECORD"
        add(name, f"{record}{name},,\n".encode())
    return target


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    print(make(sys.argv[1], sys.argv[2:]))
