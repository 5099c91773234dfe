#!/usr/bin/env python3
"""A table of what the driver's operations cost: time (median of five; what takes many seconds is done
once) and instructions, where one thread does it.

usage: tools/benchmark_table.py BUILD_FOLDER
"""
import json
import os
import subprocess
import sys

TOOLS = os.path.dirname(os.path.abspath(__file__))


def times(program):
    """Nanoseconds of one run of each operation."""
    result = subprocess.run([program, "--benchmark_format=json", "--benchmark_repetitions=5",
                             "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.2"],
                            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    # Behind the two parts of its name stands how it was timed. What is done once has no median.
    return {"/".join(entry["run_name"].split("/")[:2]): entry["real_time"]
            for entry in json.loads(result.stdout)["benchmarks"]
            if entry["run_type"] == "iteration" or entry["aggregate_name"] == "median"}


def readable(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.2f} {unit}"
    return f"{nanoseconds:.2f} ns"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    program = os.path.join(sys.argv[1], "bin", "myrtelhaven_bench")
    listed = [line.split() for line in
              subprocess.run([program, "--list"], check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()]
    units = {name: int(count) for name, _, count, _ in listed}
    counted = subprocess.run([sys.executable, os.path.join(TOOLS, "count_instructions.py"), sys.argv[1]],
                             check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
    instructions = dict(line.split() for line in counted)
    print(f"{'operation':<20}{'time':>12}{'instructions':>16}")
    for name, nanoseconds in times(program).items():
        counted = f"{int(instructions[name]):,}" if name in instructions else "-"
        print(f"{name:<20}{readable(nanoseconds / units[name]):>12}{counted:>16}")
    return 0


sys.exit(main())
