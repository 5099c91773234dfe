"""Sections, entries and string tokens of an INF file. Names are compared without regard to case."""

import re
from dataclasses import dataclass, field

from .lines import Reader

TOKEN = re.compile(r"%([^%]*)%")


@dataclass
class Entry:
    """One line of a section; `raw` are the key and the values before string tokens are replaced."""
    line: int
    key: str
    values: list
    raw: list

    def value(self, index=0):
        return self.values[index] if index < len(self.values) else ""

    @property
    def name(self):
        return (self.key or "").lower()


@dataclass
class Section:
    name: str
    line: int
    entries: list = field(default_factory=list)
    headers: list = field(default_factory=list)  # lines of all headers with this name

    def named(self, key):
        """All entries of a key."""
        return [entry for entry in self.entries if entry.name == key.lower()]

    def first(self, key):
        return next(iter(self.named(key)), None)


class Document:
    """`undefined` holds (line, token) for each token without a definition, `stray` the lines before the first section,
    `problem` the number of the rule and what is wrong with the encoding."""

    def __init__(self, text, problem=None):
        self.problem = problem
        self.stray = []
        self.sections = {}
        self.undefined = []
        current = None
        for line in Reader(text).lines():
            if line.section is not None:
                current = self.sections.setdefault(line.section.lower(), Section(line.section, line.number))
                current.headers.append(line.number)
            elif current is None:
                self.stray.append(line.number)
            else:
                current.entries.append(Entry(line.number, line.key, line.values, [line.key or "", *line.values]))
        self.strings = {}
        for section in self.strings_sections():
            for entry in section.entries:
                self.strings.setdefault(entry.name, ",".join(entry.values))
        self._replace_tokens()

    def section(self, name):
        return self.sections.get(name.lower())

    def strings_sections(self):
        """[Strings], then those of single languages."""
        return [section for name, section in sorted(self.sections.items())
                if re.fullmatch(r"strings(\.[0-9a-f]{4})?", name)]

    def _replace_tokens(self):
        strings = self.strings_sections()
        for section in self.sections.values():
            if section not in strings:
                for entry in section.entries:
                    entry.key = entry.key if entry.key is None else self._replaced(entry.key, entry.line)
                    entry.values = [self._replaced(value, entry.line) for value in entry.values]

    def _replaced(self, value, line):
        def replacement(match):
            token = match[1]
            if token == "":
                return "%"
            if token.lower() in self.strings:
                return self.strings[token.lower()]
            if not re.fullmatch(r"-?\d+", token):  # a number stands for a folder
                self.undefined.append((line, token))
            return match[0]
        return TOKEN.sub(replacement, value)
