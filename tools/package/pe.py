"""What a package needs to know of a PE image: its versions, its checksum and the digest that a signature covers."""

import hashlib
import struct

SECURITY_DIRECTORY = 4
RESOURCE_SIGNATURE = struct.pack("<I", 0xFEEF04BD)


class Image:
    def __init__(self, data):
        self.data = data
        if data[:2] != b"MZ":
            raise ValueError("is no PE image")
        header, = struct.unpack_from("<I", data, 0x3C)
        if data[header:header + 4] != b"PE\0\0":
            raise ValueError("is no PE image")
        self.machine, = struct.unpack_from("<H", data, header + 4)
        optional = header + 24
        if struct.unpack_from("<H", data, optional)[0] != 0x20B:
            raise ValueError("is no 64-bit PE image")
        self.checksum_at = optional + 64
        self.security_at = optional + 112 + 8 * SECURITY_DIRECTORY

    @property
    def checksum(self):
        """The checksum that the header states."""
        return struct.unpack_from("<I", self.data, self.checksum_at)[0]

    def computed_checksum(self):
        """The checksum that the header should state: the sum of all 16-bit words with carry, plus the length."""
        data = self.data + b"\0" * (len(self.data) % 2)
        total = sum(struct.unpack(f"<{len(data) // 2}H", data)) - (self.checksum & 0xFFFF) - (self.checksum >> 16)
        while total >> 16:
            total = (total & 0xFFFF) + (total >> 16)
        return total + len(self.data)

    @property
    def signature(self):
        """Where the signature lies: offset and length, (0, 0) in an unsigned image."""
        return struct.unpack_from("<II", self.data, self.security_at)

    def authenticode_digest(self):
        """SHA-256 over everything but the checksum, the place of the signature and the signature itself."""
        offset, length = self.signature
        end = offset if length else len(self.data)
        digest = hashlib.sha256(self.data[:self.checksum_at])
        digest.update(self.data[self.checksum_at + 4:self.security_at])
        digest.update(self.data[self.security_at + 8:end])
        digest.update(b"\0" * (-end % 8))  # a signature begins at a multiple of eight
        return digest.hexdigest()

    def file_version(self):
        """The four numbers of the version resource, as text."""
        at = self.data.find(RESOURCE_SIGNATURE)
        if at < 0:
            raise ValueError("has no version resource")
        high, low = struct.unpack_from("<II", self.data, at + 8)
        return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}"
