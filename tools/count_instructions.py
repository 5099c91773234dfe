#!/usr/bin/env python3
"""Instructions that each operation of myrtelhaven_bench costs, counted by callgrind.

usage: tools/count_instructions.py BUILD_FOLDER [--check]

Prints "NAME INSTRUCTIONS" per operation that one thread does. --check: only the operations that show how the work
grows; fails when one grows faster than is told below.
"""
import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile

# From which operation to which, and how many times the instructions of the first the second may cost.
MOST_GROWTH = [
    ("reload/1000", "reload/10000", 16),
    ("match/1000", "match/10000", 16),
    ("decision/1000", "decision/10000", 16),
    ("pairing/1", "pairing/10000", 1.2),  # flat
    ("listing/100", "listing/1000", 11),  # linear
    ("rescan/10x10", "rescan/100x10", 11),
]


def operations(program):
    lines = subprocess.run([program, "--list"], check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
    return [line.split() for line in lines]


def count(program, name, repeats, units, function):
    """Instructions of one unit of the operation, without what was needed to set it up."""
    where = "bench::runOperation*" if function == "-" else function
    with tempfile.TemporaryDirectory() as folder:
        result = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={os.path.join(folder, 'out')}",
             "--instr-atstart=no", f"--toggle-collect={where}", program, "--count", name],
            stderr=subprocess.PIPE, text=True)
    found = re.search(r"Collected : (\d+)", result.stderr)
    if result.returncode != 0 or not found or int(found.group(1)) == 0:
        sys.exit(f"{name} was not counted:\n{result.stderr}")
    return int(found.group(1)) // (int(repeats) * int(units))


def main():
    arguments = sys.argv[1:]
    check = "--check" in arguments
    folders = [argument for argument in arguments if argument != "--check"]
    if len(folders) != 1:
        sys.exit(__doc__.strip())
    program = os.path.join(folders[0], "bin", "myrtelhaven_bench")
    if not os.path.exists(program):
        sys.exit(f"{program} is not built (bench/run builds it)")
    compared = {name for smaller, larger, _ in MOST_GROWTH for name in (smaller, larger)}
    listed = [entry for entry in operations(program) if entry[1] != "0" and (not check or entry[0] in compared)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        # The longest, which are listed last, begin first: the others fill the time beside them.
        counts = dict(pool.map(lambda entry: (entry[0], count(program, *entry)), reversed(listed)))
    for name, *_ in listed:
        print(f"{name} {counts[name]}")
    if not check:
        return 0
    status = 0
    for smaller, larger, most in MOST_GROWTH:
        growth = counts[larger] / counts[smaller]
        held = growth <= most
        print(f"from {smaller} to {larger} the instructions grow {growth:.2f}-fold, at most {most} allowed: "
              f"{'held' if held else 'NOT HELD'}")
        status = status if held else 1
    return status


sys.exit(main())
