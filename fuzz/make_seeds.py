#!/usr/bin/env python3
"""Writes the seeds of the fuzz targets that read binary input, from values a person can read.

usage: fuzz/make_seeds.py      (writes below fuzz/corpus)

An input is read by libFuzzer's FuzzedDataProvider: numbers from its end backwards, bytes from its beginning.
"""
import os
import struct

CORPUS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
REG_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, ABSENT = 1, 3, 4, 7, 0xFF


class Input:
    """Collects what the target will consume, in the order in which it does."""

    def __init__(self):
        self.front = b""
        self.back = []

    def number(self, value, size=1):
        self.back += value.to_bytes(size, "big")  # the first byte taken is the most significant
        return self

    def data(self, content, most):
        self.number(len(content), 2 if most > 0xFF else 1)
        self.front += content
        return self

    def bytes(self):
        return self.front + bytes(reversed(self.back))


def text(*strings, end="\0"):
    return ("\0".join(strings) + end).encode("utf-16-le", "surrogatepass")


def save(target, name, made):
    os.makedirs(os.path.join(CORPUS, target), exist_ok=True)
    with open(os.path.join(CORPUS, target, name), "wb") as file:
        file.write(made.bytes())


def registry_values():
    usual = (REG_SZ, text("Class_08 Class_ff"))
    none = (ABSENT, b"")
    policies = {
        "allowed": [usual, (REG_MULTI_SZ, text("VID_0781&PID_5581\\*", "VID_1234", end="\0\0")), none],
        "read-only": [usual, (REG_MULTI_SZ, text("", end="\0")), (REG_SZ, text("*"))],
        "both-lists": [usual, (REG_SZ, text("VID_0781*")), (REG_SZ, text("VID_0781*"))],
        "wrong-types": [(REG_BINARY, text("Class_08")), (REG_DWORD, struct.pack("<I", 1)), (0, b"")],
        "no-data": [(REG_SZ, b""), (REG_MULTI_SZ, b""), (REG_MULTI_SZ, b"\0\0")],
        "odd-lengths": [(REG_SZ, text("Class_08", end="")[:-1]), (REG_MULTI_SZ, text("a", "b", end="")[:-1]), none],
        "lone-surrogates": [(REG_SZ, text("\ud800 Class_08 \udc00")), (REG_MULTI_SZ, text("\udfff*", end="\0\0")), none],
        "no-list": [none, usual, usual],
    }
    for name, values in policies.items():
        made = Input().number(1)
        for kind, content in values:
            made.number(kind).data(content, 600)
        save("registry_values", name, made)


def device_identity():
    answers = {
        "no-hardware-ids": (0b1, [("fails", 0)]),
        "odd-hardware-ids": (0b1, [("bytes", text("USB\\VID_0781&PID_5581", end="")[:-1])]),
        "empty-lists": (0b11, [("bytes", b""), ("bytes", b"\0\0")]),
        "composite": (0b10, [("bytes", text("USB\\COMPOSITE", end="\0\0"))]),
        "phone": (0b110, [("bytes", text("USB\\MS_COMP_MTP", end="\0\0")),
                          ("bytes", text("{eec5ad98-8080-425f-922a-dabf3de3f69a}"))]),
        "root-hub": (0b1, [("bytes", text("USB\\ROOT_HUB30", end="\0\0"))]),
        "one-function": (0b1, [("bytes", text("USB\\VID_0781&PID_5581&MI_0A", end="\0\0"))]),
        "longest": (0b11, [("long", text("USB\\A")), ("long", text("USB\\Class_08"))]),
        "other-bus": (0b10000000, [("bytes", text("PCI"))]),
    }
    for name, (replaced, properties) in answers.items():
        made = Input().number(0).number(replaced)
        for kind, content in properties:
            if kind == "fails":
                made.number(content)
            else:
                made.number(8 if kind == "long" else 16).data(content, 300)
        save("device_identity", name, made)


def hub_answers():
    device = struct.pack("<BBHBBBBHHHBBBB", 18, 1, 0x200, 0, 0, 0, 64, 0x781, 0x5581, 0x100, 1, 2, 3, 1)
    answers = {
        "silent": [(1, b"")] * 6,
        "short": [(2, 3)] * 6,
        "as-they-are": [(0, b"")] * 6,
        "no-device": [(3, b"\0" * 31)] + [(0, b"")] * 5,
        "other-device": [(3, device), (3, bytes([9, 2, 32, 0, 1, 1, 0, 0x80, 50])), (3, bytes([4, 3, 9, 4])),
                         (3, b"\x0a\x03" + text("Make", end="")), (3, b"\xff\x03" + text("x" * 120, end="")),
                         (3, b"\x02\x03")],
        "no-terminator": [(0, b"")] * 3 + [(3, b"\x03" * 300)] * 3,
    }
    for name, parts in answers.items():
        made = Input().number(1).number(0)
        for kind, content in parts:
            made.number(kind)
            if kind == 2:
                made.number(content, 2)
            elif kind == 3:
                made.data(content, 300)
        save("hub_answers", name, made)


registry_values()
device_identity()
hub_answers()
