#!/usr/bin/env python3
"""Writes seeds for the fuzz targets whose inputs are binary; README.md tells the layouts.
usage: fuzz/make_seeds.py FOLDER     (writes FOLDER/TARGET/NAME; merge them into the corpus as README.md tells)
"""
import os
import struct
import sys


def data(content):
    return struct.pack("<H", len(content)) + content


def stretched(size, pattern):
    return struct.pack("<HIB", 0x8000, size, len(pattern)) + pattern


def utf16(text):
    return text.encode("utf-16-le", "surrogatepass")


def value(name, kind, content):
    return bytes([name, kind]) + content


def registry_values():
    blocked, allowed, read_only, mode, timeout, fallback, log_level = range(7)
    text, strings, number = 1, 7, 4
    absent = 0xFE
    dword = lambda n: data(struct.pack("<I", n))
    seeds = {}
    for device in range(8):
        flags = device << 1
        ids = data(utf16("VID_0781&PID_5581\0VID_18D1*\0*\0\0"))
        seeds[f"allowed-{device}"] = bytes([flags]) + value(allowed, strings, ids)
        seeds[f"read-only-{device}"] = bytes([flags | 1]) + value(read_only, text, data(utf16("*")))
    seeds["defaults"] = bytes([0]) + value(blocked, text, data(b""))
    seeds["one-byte"] = bytes([0]) + value(blocked, text, data(b"x"))
    seeds["odd"] = (bytes([2]) + value(blocked, text, data(utf16("Class_08 MS_COMP_MTP") + b"x"))
                    + value(allowed, strings, data(utf16("VID_18D1*\0\0") + b"y")))
    seeds["absent"] = bytes([0, blocked, absent]) + value(allowed, strings, data(utf16("*\0\0")))
    seeds["types"] = bytes([1]) + b"".join(
        value(name, kind, data(utf16("Class_08\0\0"))) for name, kind in zip(range(7), [2, 3, 0, 11, 4, 5, 1]))
    seeds["callback"] = bytes([1]) + value(mode, number, dword(2)) + value(fallback, number, dword(1))
    seeds["callback1"] = (bytes([1]) + value(mode, number, dword(1)) + value(timeout, number, dword(0))
                          + value(log_level, number, dword(4)))
    for size in (0xFFFC, 0xFFFE, 0xFFFF, 0x10000, 0x10002, 0x1FFFE):
        seeds[f"long-{size:x}"] = bytes([0]) + value(allowed, text, stretched(size, utf16("VID_0781&PID_5581 ")))
        seeds[f"long-one-{size:x}"] = bytes([0]) + value(allowed, text, stretched(size, utf16("x")))
        seeds[f"long-blocked-{size:x}"] = bytes([0]) + value(blocked, text, stretched(size, utf16("*")))
        seeds[f"list-{size:x}"] = bytes([0]) + value(allowed, strings, stretched(size, utf16("VID_0781*\0")))
    seeds["list-long-string"] = bytes([0]) + value(allowed, strings, stretched(0x1FFFE, utf16("x\\" * 20 + "\0\0")))
    seeds["filters"] = (bytes([1]) + value(7, strings, data(utf16("other\0\0"))) + value(8, text, data(utf16("x")))
                        + value(9, strings, data(b""))
                        + value(15, strings, data(utf16("TARVENHOLTmyrtelhavendriver\0upper\0\0"))))
    seeds["wild"] = (bytes([0]) + value(blocked, text, data(utf16('CLASS_?? <.> USB"')))
                     + value(read_only, strings, data(utf16('<\0>\0"\0VID_*&PID_????\\*23\0\0'))))
    odd = data(utf16("\ud800VID\udc00\0\u00df\0\u0131*\0\0"))
    seeds["surrogates"] = bytes([0]) + value(allowed, strings, odd)
    return seeds


PROPERTIES = ["HardwareId", "CompatibleIds", "ClassGuid", "EnumeratorName", "Service", "BusReportedDeviceDesc",
              "DeviceDesc", "InstanceId", "MatchingDeviceId", "FriendlyName", "Manufacturer",
              "LocationInformation", "Address", "Driver"]


def device_identity():
    def given(name, content):
        return bytes([PROPERTIES.index(name)]) + (content if isinstance(content, bytes) else data(utf16(content)))

    def failing(name, status=0):
        return bytes([0x80 | status << 4 | PROPERTIES.index(name)])

    seeds = {}
    for place in range(4):
        for policy in (0, 1, 0x15, 0x2A, 0x3F):
            seeds[f"plain-{place}-{policy:x}"] = bytes([place | 0x10 | (0x0C if policy == 0 else 0), policy])
        for name in PROPERTIES[:6]:
            for status in range(4):
                seeds[f"fail-{name}-{place}-{status}"] = bytes([place, 1]) + failing(name, status)
            seeds[f"empty-{name}-{place}"] = bytes([place, 1]) + given(name, "")
            seeds[f"odd-{name}-{place}"] = bytes([place, 5]) + given(name, data(utf16("USB\\VID_0781") + b"x"))
            for size in (0xFFFD, 0xFFFE, 0xFFFF, 0x10000, 0x10001, 0x1FFFF):
                seeds[f"long-{name}-{place}-{size:x}"] = (
                    bytes([place | 0x10, 1]) + given(name, stretched(size, utf16("USB\\VID_0781\0"))))
    seeds["mi"] = bytes([0, 0]) + given("HardwareId", "USB\\VID_1&PID_2&MI_0A\0USB\\VID_1\0\0")
    seeds["roothub"] = bytes([0, 0]) + given("HardwareId", "USB\\ROOT_HUB30\0")
    seeds["reset"] = bytes([0, 0]) + given("HardwareId", "USB\\RESET_FAILURE\0")
    seeds["control"] = bytes([0, 0]) + given("HardwareId", "Tarvenholt\\Myrtelhaven\0\0")
    seeds["composite"] = bytes([1, 0x15]) + given("CompatibleIds", "USB\\COMPOSITE\0\0")
    seeds["service"] = bytes([1, 0x15]) + given("Service", "USBCCGP\0")
    seeds["rescan"] = bytes([0x50, 1]) + given("HardwareId", "USB\\VID_0781&PID_5581\0\0")
    seeds["rescan2"] = bytes([0x70, 1]) + failing("HardwareId")
    seeds["instance"] = bytes([0x10, 0]) + given("InstanceId", "USB\\VID_&PID_\\")
    seeds["instance2"] = bytes([0x10, 0]) + given("InstanceId", "_&_\\")
    still_image = "USB\\Class_06&SubClass_01&Prot_01\0USB\\Class_06\0\0"
    seeds["ptp"] = bytes([0, 0x35]) + given("CompatibleIds", still_image)
    return seeds


def hub_answers():
    def device(flags=0x10, ids=(0x781, 0x5581, 0x100), indexes=(1, 2, 3), configurations=1, interfaces=1,
               languages=(0x409,), strings=None, later=0, answers=b"\0"):
        strings = {1: "SanDisk", 2: "Ultra", 3: "A2005 "} if strings is None else strings
        seed = bytes([flags]) + struct.pack("<HHH", *ids) + bytes(indexes)
        seed += bytes([configurations, interfaces, len(languages)])
        seed += b"".join(struct.pack("<H", one) for one in languages)
        seed += bytes([later | sum(1 << index for index in strings)])
        for index in sorted(strings):
            seed += bytes([len(utf16(strings[index]))]) + utf16(strings[index])
        return seed + answers

    def failing(status=0):
        return bytes([1 | status << 4])

    def cut(length):
        return bytes([2, length])

    def replaced(content):
        return bytes([4]) + data(content)

    serial = b"\x08\x02"  # the answer for string 3
    seeds = {
        "plain": device(), "log": device(flags=0x17), "later": device(later=1), "no-languages": device(languages=()),
        "no-strings": device(indexes=(0, 0, 0), strings={}), "blank": device(strings={3: "    "}),
        "long": device(strings={3: "A" * 126, 2: "x" * 126}), "no-configuration": device(configurations=0),
        "many-interfaces": device(interfaces=255), "nul": device(strings={3: "A\0B"}),
        "surrogate": device(strings={3: "\ud800"}),
        "lying-connection": device(answers=b"\1" + replaced(b"\xff" * 40)),
        "lying-configuration": device(answers=b"\2" + replaced(b"\xff" * 300)),
        "lying-languages": device(answers=b"\4" + replaced(b"\x04\x03\x09\x04")),
        "endless-languages": device(answers=b"\4" + replaced(b"A" * 300)),
        "endless-string": device(answers=serial + replaced(b"AB" * 300)),
        "odd-string": device(answers=serial + replaced(b"\xff\x03A\0B\0C")),
    }
    requests = {"connection": b"\1", "configuration": b"\2", "languages": b"\4", "string": serial}
    for name, request in requests.items():
        for length in (0, 1, 2, 3, 8, 9, 14, 17, 18, 30, 31, 255):
            seeds[f"{name}-cut-{length}"] = device(answers=request + cut(length))
        for status in range(4):
            seeds[f"{name}-fails-{status}"] = device(answers=request + failing(status))
    return seeds


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for target in (registry_values, device_identity, hub_answers):
        folder = os.path.join(sys.argv[1], target.__name__)
        os.makedirs(folder, exist_ok=True)
        for name, seed in target().items():
            with open(os.path.join(folder, name), "wb") as file:
                file.write(seed)


main()
