"""Text as logical lines: section headers and entries.

A comment begins at a semicolon, and a backslash at a line's end continues the line. Within quotation marks none of this
holds; there "" stands for one quotation mark.
"""

from dataclasses import dataclass, field

from .text import Unreadable

MOST_CONTINUED = 1000


@dataclass
class Line:
    """`number` is the line that it begins in. A header has a `section`, an entry a `key` (or None) and `values`."""
    number: int
    section: str = None
    key: str = None
    values: list = field(default_factory=list)


class Reader:
    """Reads entries character by character."""

    def __init__(self, text):
        self.physical = text.removesuffix("\n").split("\n")
        self.next = 0

    def lines(self):
        while self.next < len(self.physical):
            number, first = self.next + 1, self.physical[self.next].strip()
            if first.startswith("["):
                self.next += 1
                yield self.header(number, first)
            else:
                line = self.entry(number)
                if line is not None:
                    yield line

    @staticmethod
    def header(number, text):
        end = text.find("]")
        if end < 0:
            raise Unreadable(number, 1002, "the section's name has no closing bracket")
        behind = text[end + 1:].strip()
        if behind and not behind.startswith(";"):
            raise Unreadable(number, 1002, f"'{behind}' stands behind the section's name")
        if not text[1:end].strip():
            raise Unreadable(number, 1002, "the section has no name")
        return Line(number, section=text[1:end])

    def entry(self, number):
        """The entry that begins at the next physical line, or None for a line without anything."""
        parts, key, any_ = [""], None, False
        while True:
            if self.next >= len(self.physical):
                raise Unreadable(self.next, 1002, "the file ends within a line that is continued")
            if self.next + 1 - number > MOST_CONTINUED:
                raise Unreadable(number, 1002, f"the line is continued for more than {MOST_CONTINUED} lines")
            text = self.physical[self.next]
            self.next += 1
            if self.next > number and text.lstrip().startswith("["):
                raise Unreadable(self.next, 1002, "a section's name stands within a line that is continued")
            for kind, piece in pieces(text, self.next):
                if kind == "end":
                    if any_ or key is not None or len(parts) > 1:
                        return Line(number, key=key, values=[unpadded(part) for part in parts])
                    return None
                if kind == "continued":
                    any_ = True
                    break
                if kind == "=" and key is None and len(parts) == 1:
                    key, parts, any_ = unpadded(parts[0]), [""], True
                elif kind == ",":
                    parts.append("")
                else:
                    parts[-1] += piece
                    any_ = any_ or bool(piece.strip())


QUOTED_BLANK = "\ue000"  # keeps blanks within quotation marks from being trimmed


def unpadded(part):
    return part.strip().replace(QUOTED_BLANK, " ")


def pieces(text, number):
    """The parts of one physical line: ("text" | "=" | ",", characters)…, at last "continued" or "end"."""
    at, length = 0, len(text)
    while at < length:
        c = text[at]
        if c == '"':
            quoted, at = quotation(text, at, number)
            yield "text", quoted.replace(" ", QUOTED_BLANK)
        elif c == "%":
            end = text.find("%", at + 1)
            end = at if end < 0 else end
            yield "text", text[at:end + 1]
            at = end + 1
        elif c == ";":
            break
        elif c == "\\" and is_rest_empty(text, at + 1):
            yield "continued", ""
            return
        else:
            yield c if c in "=," else "text", c
            at += 1
    yield "end", ""


def is_rest_empty(text, at):
    rest = text[at:].strip()
    return rest in ("", "\\") or rest.startswith(";")


def quotation(text, at, number):
    """The text within the quotation marks that open at `at`, and where the line goes on."""
    begin, found = at, ""
    at += 1
    while True:
        end = text.find('"', at)
        if end < 0:
            raise Unreadable(number, 1002, f"the quotation mark at column {begin + 1} is never closed")
        found += text[at:end]
        if text[end:end + 2] != '""':
            return found, end + 1
        found, at = found + '"', end + 2
