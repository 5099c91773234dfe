"""Include and Needs: what is taken over from the system's own files."""

import re

from ..package import SUFFIXES


def included(package, report, path):
    """Only the system's own files may be included; a file beside this one is none of them."""
    for section in package.of_kind("install", *SUFFIXES):
        for entry in section.named("Include"):
            for name in filter(None, entry.values):
                if not re.fullmatch(r"[\w.-]+\.inf", name, re.I) or (path.parent / name).exists():
                    report(entry.line, 1202, f"'{name}' is no file of the system")


def needed(package, report, path):
    for kind in ("install", *SUFFIXES):
        for section in package.of_kind(kind):
            has_include = section.first("Include") is not None
            for entry in section.named("Needs"):
                for name in filter(None, entry.values):
                    suffix = name.lower().rsplit(".", 1)[-1]
                    suffix = suffix if "." in name and suffix in SUFFIXES else "install"
                    if suffix != kind:
                        report(entry.line, *mismatch(name, kind, section))
                    elif not package.document.section(name) and not has_include:
                        report(entry.line, 1315, f"needed section [{name}] is not there, and no file is included")


def mismatch(name, kind, section):
    if kind == "install":
        return 1312, f"[{name}] is no install section, as [{section.name}] is"
    return 1313, f"needed section [{name}] must end in .{kind}, as [{section.name}] does"


RULES = (included, needed)
