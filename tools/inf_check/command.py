"""The command check_inf.py."""

import argparse
import sys

from .check import check_file
from .levels import MODES
from .text import Unreadable

DESCRIPTION = """Checks INF files of driver packages against the rules that are published for Windows' own checker.
Prints FILE:LINE: error NNNN: TEXT, or warning instead of error. Exit status 0: nothing found that counts; 1: errors;
2: a file can't be read as an INF."""


def place(path, line):
    return f"{path}:{line}" if line else str(path)


def main(arguments):
    parser = argparse.ArgumentParser(prog="check_inf.py", description=DESCRIPTION)
    parser.add_argument("files", metavar="FILE.inf", nargs="+")
    parser.add_argument("--mode", choices=MODES, default="w",
                        help="w: packages that keep to the driver store and their own keys (default); "
                             "k: declarative ones")
    parser.add_argument("--strict", action="store_true", help="warnings count as errors do")
    options = parser.parse_args(arguments)
    status = 0
    for path in options.files:
        try:
            findings = check_file(path, options.mode)
        except Unreadable as error:
            print(f"{place(path, error.line)}: error {error.number}: {error.text}", file=sys.stderr)
            status = 2
            continue
        for finding in findings:
            print(f"{place(path, finding.line)}: {finding.level} {finding.number}: {finding.text}")
            if options.strict or finding.level == "error":
                status = max(status, 1)
    return status
