#!/usr/bin/env python3
"""Checks that the benchmarks compile, in about a minute of one core, because the tests do not build
them.

    scripts/check_benchmarks.py
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def mistakes(entry):
    words = shlex.split(entry["command"])
    at = words.index("-o")
    command = words[:at] + words[at + 2 :] + ["-fsyntax-only"]
    done = subprocess.run(command, cwd=entry["directory"], capture_output=True, text=True)
    return done.stderr if done.returncode else ""


def main():
    subprocess.run(["cmake", "--preset", "release", "--log-level=NOTICE"], cwd=ROOT,
                   stdout=subprocess.DEVNULL, check=True)
    commands = json.loads((ROOT / "build/release/compile_commands.json").read_text())
    folder = ROOT / "benchmarks"
    mine = [each for each in commands if pathlib.Path(each["file"]).is_relative_to(folder)]
    if not mine:
        sys.exit("check_benchmarks: the release build has no benchmarks")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = [text for text in pool.map(mistakes, mine) if text]
    sys.exit("\n".join(found) or None)


main()
