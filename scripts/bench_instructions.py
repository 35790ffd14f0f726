#!/usr/bin/env python3
"""For scripts/bench --instructions: prints how many instructions an operation takes, in all threads
of the process. valgrind's callgrind counts them in a long run and in a short one; the difference is
divided by the additional operations. Unlike times, it hardly depends on the machine and its load.
Fails if a figure is above its limit.

    scripts/bench_instructions.py NAME...     programs of the release build
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Of the ratio, and of our instructions. Where the kernel does much of the work, scripts/bench
# limits the time instead.
LIMITS = {
    "live: a message received": (1.0, 14_000),
    "C interface: a message received, against C++": (1.6, None),
    "JSON in, one message": (1.0, None),
    "JSON out, one message": (0.9, None),
    "JSON in, history of 1000": (1.0, None),
    "JSON out, history of 1000": (0.8, None),
    "dynamic property, get": (3.5, None),
    "dynamic property, set": (4.0, None),
    "dynamic property, get by key path": (10.0, None),
    "dynamic property, set by key path": (20.0, None),
    "scale: a heartbeat, among 10 000 against among 100": (1.15, None),
    "REST over HTTPS, 1 in flight": (1.5, None),
    "REST over HTTPS, 32 in flight": (1.15, None),
}
ENOUGH = 20_000_000  # instructions between two runs, so that chance differences do not matter


def ask(program, text, *prefix):
    done = subprocess.run([*prefix, str(program)], env=os.environ | {"VEXIM_BENCH": text},
                          capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"bench: {program.name} failed at {text}:\n{done.stdout}{done.stderr}")
    return done.stdout


def instructions(program, side, rounds, row):
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder) / "log"
        ask(program, f"{side} {rounds} {row}", "valgrind", "--tool=callgrind",
            "--callgrind-out-file=/dev/null", f"--log-file={log}.%p")
        # A server in another process is killed, so callgrind reports nothing for it.
        counts = [found for each in pathlib.Path(folder).iterdir()
                  if (found := re.search(r"Collected : (\d+)", each.read_text()))]
        return sum(int(count[1]) for count in counts)


def slope(program, side, row, operations):
    few, many = 1, 2 if operations > 1 else 11
    least = instructions(program, side, few, row)
    while True:
        between = instructions(program, side, many, row) - least
        if operations > 1 or between >= ENOUGH:
            return between / (many - few) / operations
        many = few + (many - few) * min(1000, max(2, 1 + round(1.2 * ENOUGH / max(between, 1))))


def verdict(row, ours, peer):
    if row not in LIMITS:
        return "for information"
    ratio, most = LIMITS[row]
    limit = f"limit {ratio:.2f}" + (f" and {most}" if most else "")
    return f"{limit}   {'ok' if ours <= ratio * peer and ours <= (most or ours) else 'MISSED'}"


def main():
    missed = False
    for name in sys.argv[1:]:
        built = (ROOT / "build/release/benchmarks").rglob(f"{name}_benchmark")
        program = next(path for path in built if path.is_file())
        for line in ask(program, "list").splitlines():
            row, operations = line.split("\t")
            ours, peer = (slope(program, side, row, int(operations)) for side in ("ours", "peer"))
            said = verdict(row, ours, peer)
            missed = missed or said.endswith("MISSED")
            print(f"{row:60} {ours:12.0f} {peer:15.0f}     ratio {ours / peer:5.2f}   {said}",
                  flush=True)
    sys.exit(missed)


main()
