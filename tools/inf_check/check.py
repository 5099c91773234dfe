"""Runs all rules over one file."""

import pathlib
from dataclasses import dataclass

from .document import Document
from .levels import level
from .package import understand
from .rules import RULES
from .text import Unreadable, decode


@dataclass(frozen=True, order=True)
class Finding:
    line: int
    number: int
    level: str
    text: str


def check_file(path, mode):
    """All findings of a file in the order of its lines. Raises Unreadable when it can't be read as an INF."""
    path = pathlib.Path(path)
    try:
        data = path.read_bytes()
    except FileNotFoundError:
        raise Unreadable(0, 1000, "there is no such file") from None
    except OSError as error:
        raise Unreadable(0, 1000, f"the file can't be read: {error.strerror}") from None
    package = understand(Document(*decode(data)))
    findings = set()

    def report(line, number, text):
        said = level(number, mode)
        if said:
            findings.add(Finding(line, number, said, text))

    for rule in RULES:
        rule(package, report, path)
    return sorted(findings)
