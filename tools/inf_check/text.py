"""A file's bytes as text."""


class Unreadable(Exception):
    """A file that can't be read as an INF: `line` says where (0: as a whole), `number` which rule it breaks."""

    def __init__(self, line, number, text):
        super().__init__(text)
        self.line, self.number, self.text = line, number, text


def decode(data):
    """The text, and what is wrong with its encoding: None, or the rule's number and a sentence.

    Windows reads UTF-16 LE with a byte-order mark, and anything else in the code page of the machine.
    """
    if data.startswith(b"\xff\xfe"):
        try:
            text, problem = data[2:].decode("utf-16-le"), None
        except UnicodeDecodeError as error:
            raise Unreadable(0, 1003, f"the file is no valid UTF-16: {error.reason}") from None
    elif data.startswith(b"\xfe\xff"):
        raise Unreadable(0, 1003, "the file is UTF-16 with the bytes of each character swapped (big endian)")
    elif data.startswith(b"\xef\xbb\xbf"):
        text, problem = data[3:].decode("utf-8", "replace"), (1003, "the file begins with a UTF-8 byte-order mark")
    else:
        text, problem = data.decode("cp1252", "replace"), None
        if not data.isascii():
            problem = 9006, "characters beyond ASCII mean something else on machines with another code page"
    control = next((c for c in text if c < " " and c not in "\t\r\n\x1a"), None)
    if control is not None:
        line = text.count("\n", 0, text.index(control)) + 1
        raise Unreadable(line, 1003, f"the file is no text: it holds the character 0x{ord(control):02x}")
    return text.replace("\r\n", "\n").replace("\r", "\n").rstrip("\x1a"), problem
