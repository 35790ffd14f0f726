#!/usr/bin/env python3
"""For scripts/bench --instructions: prints how many instructions an operation takes, all threads of the process together. That is
what valgrind's callgrind counts in a long run, less what it counts in a short one, over the operations between. Unlike times, it
hardly changes with the machine and its load.

    scripts/bench_instructions.py NAME...     programs of the release build
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
ENOUGH = 20_000_000  # instructions between two runs, so that what differs from run to run does not matter


def ask(program, text, *prefix):
    done = subprocess.run([*prefix, str(program)], env=os.environ | {"VEXIM_BENCH": text}, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"bench: {program.name} failed at {text}:\n{done.stdout}{done.stderr}")
    return done.stdout


def instructions(program, side, rounds, row):
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder) / "log"
        ask(program, f"{side} {rounds} {row}", "valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"--log-file={log}.%p")
        # A server in a process of its own is killed, and so counts nothing.
        counts = [found for each in pathlib.Path(folder).iterdir() if (found := re.search(r"Collected : (\d+)", each.read_text()))]
        return sum(int(count[1]) for count in counts)


def slope(program, side, row, operations):
    few, many = 1, 2 if operations > 1 else 11
    least = instructions(program, side, few, row)
    while True:
        between = instructions(program, side, many, row) - least
        if operations > 1 or between >= ENOUGH:
            return between / (many - few) / operations
        many = few + (many - few) * min(1000, max(2, 1 + round(1.2 * ENOUGH / max(between, 1))))


def main():
    for name in sys.argv[1:]:
        program = next(path for path in (ROOT / "build/release/benchmarks").rglob(f"{name}_benchmark") if path.is_file())
        for line in ask(program, "list").splitlines():
            row, operations = line.split("\t")
            ours, peer = (slope(program, side, row, int(operations)) for side in ("ours", "peer"))
            print(f"{row:60} {ours:12.0f} {peer:15.0f}     ratio {ours / peer:5.2f}", flush=True)


main()
