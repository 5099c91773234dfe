"""Fills the date and the version into the package's INF.

usage: inf.py TEMPLATE OUTPUT SECONDS VERSION
SECONDS since 1970 give the date; VERSION has one to four numbers, missing ones are 0.
"""

import pathlib
import re
import sys
import time


def four_numbers(version):
    """`version` with four numbers, as the image's version resource has them."""
    if not re.fullmatch(r"\d+(\.\d+){0,3}", version):
        raise ValueError(f"'{version}' is no version of one to four numbers")
    numbers = [int(number) for number in version.split(".")]
    if max(numbers) > 65534:
        raise ValueError(f"'{version}' has a number above 65534")
    return ".".join(map(str, numbers + [0] * (4 - len(numbers))))


def fill(template, seconds, version):
    """The INF's text, with the line ends that Windows' editors expect."""
    date = time.strftime("%m/%d/%Y", time.gmtime(seconds))
    text = template.replace("@DATE@", date).replace("@VERSION@", four_numbers(version))
    return text.replace("\r\n", "\n").replace("\n", "\r\n")


if __name__ == "__main__":
    template, output, seconds, version = sys.argv[1:]
    filled = fill(pathlib.Path(template).read_text(encoding="ascii"), int(seconds), version)
    pathlib.Path(output).write_bytes(filled.encode("ascii"))
