"""Files of examples. A comment "; expects error 1234" marks the line that a rule is to report, "; mode: k" the mode."""

import os
import pathlib
import re

PROJECT = pathlib.Path(os.environ["PROJECT_FOLDER"])
EXAMPLES = PROJECT / "tests/package/inf"
VALID = EXAMPLES / "valid/driver-store.inf"


def examples(folder):
    return sorted((EXAMPLES / folder).glob("*.inf"))


def text_of(path):
    return path.read_bytes().decode("cp1252")


def mode_of(text):
    stated = re.search(r"^; mode: (\w)$", text, re.M)
    return stated[1] if stated else "w"


def expected(text):
    """(line, level, number) of all marks."""
    return {(number, level, int(rule)) for number, line in enumerate(text.split("\n"), 1)
            for level, rule in re.findall(r"; expects (error|warning) (\d{4})", line)}
