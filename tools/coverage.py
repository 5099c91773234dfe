#!/usr/bin/env python3
"""Says how much of src/ the tests of a build folder reached, by line and by branch.

usage: tools/coverage.py BUILD_FOLDER

Lines that no test reached are listed with the reason that tests/coverage/unreached.toml gives. A line without a reason,
or a reason for a line that is not there any more, makes the report fail.
"""
import collections
import glob
import os
import subprocess
import sys
import tomllib

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
REASONS = os.path.join(ROOT, "tests", "coverage", "unreached.toml")


def lcov_records(build):
    """The merged counts of all programs, in lcov's text form."""
    profiles = glob.glob(os.path.join(build, "profiles", "*.profraw"))
    if not profiles:
        sys.exit(f"{build}: no test has written a profile; run the tests first")
    merged = os.path.join(build, "profiles", "merged.profdata")
    subprocess.run(["llvm-profdata-19", "merge", "-o", merged, *profiles], check=True)
    programs = [os.path.join(build, "bin", name) for name in ("TarvenholtMyrtelhavenDriver.so", "unit_tests")]
    export = ["llvm-cov-19", "export", "-format=lcov", "-instr-profile", merged, programs[0], "-object", programs[1],
              os.path.join(ROOT, "src")]
    return subprocess.run(export, check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()


def read_counts(records):
    """{file: {line: count}} and {file: {branch: taken}}."""
    lines = collections.defaultdict(lambda: collections.defaultdict(int))
    branches = collections.defaultdict(lambda: collections.defaultdict(int))
    file = None
    for record in records:
        kind, _, value = record.partition(":")
        if kind == "SF":
            file = os.path.relpath(value, ROOT)
        elif kind == "DA":
            line, count = value.split(",")[:2]
            lines[file][int(line)] += int(count)
        elif kind == "BRDA":
            line, block, branch, taken = value.split(",")
            branches[file][(line, block, branch)] += 0 if taken == "-" else int(taken)
    return lines, branches


def share(reached, whole):
    return f"{100 * reached / whole:.1f} % ({reached} of {whole})" if whole else "none"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    lines, branches = read_counts(lcov_records(sys.argv[1]))
    with open(REASONS, "rb") as file:
        reasons = {(entry["file"], entry["code"].strip()): entry["why"] for entry in tomllib.load(file).get("line", [])}

    explained, unexplained, known = [], [], set()
    for file in sorted(lines):
        with open(os.path.join(ROOT, file), encoding="utf-8") as source:
            text = [line.strip() for line in source]
        known.update((file, line) for line in text)
        for number, count in sorted(lines[file].items()):
            if count == 0 and text[number - 1] not in ("}", "};", "{"):
                key = (file, text[number - 1])
                (explained if key in reasons else unexplained).append((file, number, *key[1:], reasons.get(key)))

    counts = [count for file in lines.values() for count in file.values()]
    taken = [count for file in branches.values() for count in file.values()]
    print("Coverage of src/: lines " + share(sum(map(bool, counts)), len(counts)) +
          ", branches " + share(sum(map(bool, taken)), len(taken)))
    for file, number, code, why in explained:
        print(f"  {file}:{number}: not reached: {code}\n      {why}")
    for file, number, code, _ in unexplained:
        print(f"  {file}:{number}: NOT REACHED AND NOT EXPLAINED: {code}")
    gone = [key for key in reasons if key not in known]
    for file, code in gone:
        print(f"  {REASONS}: explains a line that {file} does not have: {code}")
    return 1 if unexplained or gone else 0


sys.exit(main())
