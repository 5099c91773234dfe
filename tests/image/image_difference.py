"""Says where two files that should have the same bytes differ: in which section of an image, at which offset."""
import struct


def sections(image):
    """Name, offset in the file and bytes of each section of an image."""
    header = struct.unpack_from("<I", image, 0x3C)[0]
    count, optional = struct.unpack_from("<H", image, header + 6)[0], struct.unpack_from("<H", image, header + 20)[0]
    for number in range(count):
        entry = header + 24 + optional + 40 * number
        name = image[entry:entry + 8].rstrip(b"\0").decode()
        size, offset = struct.unpack_from("<II", image, entry + 16)
        yield name, offset, size


def place(image, offset):
    """The part of a file that an offset is in, and where that part begins."""
    if image[:2] != b"MZ":
        return "file", 0
    for name, begin, size in sections(image):
        if begin <= offset < begin + size:
            return f"section {name}", begin
    return "headers", 0


def difference(first, second):
    """None when both files have the same bytes, else a sentence: in which parts, and where in each the first byte is."""
    one, other = first.read_bytes(), second.read_bytes()
    if one == other:
        return None
    differing = [offset for offset, (a, b) in enumerate(zip(one, other)) if a != b]
    parts = {}
    for offset in differing:
        name, begin = place(one, offset)
        parts.setdefault(name, f"{name} from offset {offset - begin:#x}")
    where = ", ".join(parts.values()) or "length alone"
    return f"{first} ({len(one)} bytes) and {second} ({len(other)} bytes) differ in {len(differing)} bytes: {where}"
