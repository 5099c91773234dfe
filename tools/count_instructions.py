#!/usr/bin/env python3
"""Instructions that each operation of myrtelhaven_bench costs, counted by callgrind.

usage: tools/count_instructions.py BUILD_FOLDER [--check]

Prints "NAME INSTRUCTIONS" per operation. --check: only the decisions by 1,000 and 10,000 rules; fails when ten times as
many rules cost more than sixteen times the instructions.
"""
import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile

MOST_GROWTH = 16


def operations(program):
    lines = subprocess.run([program, "--list"], check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
    return [line.split() for line in lines]


def count(program, name, repeats, units, function):
    """Instructions of one unit of the operation, without what was needed to set it up."""
    where = "bench::runOperation*" if function == "-" else function
    with tempfile.TemporaryDirectory() as folder:
        result = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={os.path.join(folder, 'out')}",
             f"--toggle-collect={where}", program, "--count", name], stderr=subprocess.PIPE, text=True)
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
    listed = [entry for entry in operations(program) if not check or entry[0].endswith(("/1000", "/10000"))]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        # The longest, which are listed last, begin first: the others fill the time beside them.
        counts = dict(pool.map(lambda entry: (entry[0], count(program, *entry)), reversed(listed)))
    for name, *_ in listed:
        print(f"{name} {counts[name]}")
    if not check:
        return 0
    status = 0
    for kind in ("reload", "match", "decision"):
        growth = counts[f"{kind}/10000"] / counts[f"{kind}/1000"]
        held = growth <= MOST_GROWTH
        print(f"{kind}: from 1,000 to 10,000 rules the instructions grow {growth:.1f}-fold, at most {MOST_GROWTH} "
              f"allowed: {'held' if held else 'NOT HELD'}")
        status = status if held else 1
    return status


sys.exit(main())
