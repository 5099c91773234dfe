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


CODES = ["wait notification", "wait question", "list", "text", "ping", "reply", "rescan", "reload"]
DRIVE, MOUSE, PHONE, KEYBOARD, REMOTE, ADAPTER = range(6)
RULES, SERVICE, SERVICE_ELSE_READ_ONLY = 0, 1, 6  # the first byte; with LOG added the driver logs
LOG = 8


def control_device():
    def who(process=0, handle=0, thread=0):
        return process | handle << 2 | thread << 5

    def opened(process=0, rights=0):  # 0 both, 1 read, 2 write, 3 none
        return bytes([0, process | rights << 1])

    def closed(**sender):
        return bytes([2, who(**sender)])

    def sent(code, lengths=0, content=b"", **sender):  # a code's name, or any byte; lengths: see README.md
        code = CODES.index(code) if isinstance(code, str) else code
        return bytes([3, who(**sender), code, lengths]) + content

    def numbered(code, lengths=0, content=b"", **sender):
        return bytes([3, who(**sender), 0xFF]) + struct.pack("<IB", code, lengths) + content

    def replied(answer, question=0, **sender):
        return bytes([6, who(**sender), question, answer])

    def taken_back(what=0, **sender):  # 0 all of a handle, 1 all of a thread, 2 one
        return bytes([7, who(**sender), what])

    def plugged(slot, kind):
        return bytes([9, slot, kind])

    def policy(allow=0, read_only=0):
        return bytes([14, allow | read_only << 1])

    def log_level(level):
        return bytes([15, level])

    died = bytes([8, 0])
    time_passes = bytes([11])
    power_off, power_on = bytes([12, 0]), bytes([12, 1])
    slept = bytes([13])
    unplugged = lambda slot: bytes([10, slot])
    any_length = lambda size: struct.pack("<H", size)

    told = sent("wait notification")
    asked = sent("wait question")
    service = bytes([SERVICE | LOG]) + opened()
    quiet = bytes([SERVICE]) + opened()
    rules = bytes([RULES]) + opened()
    seeds = {
        # one for each control code, doing what it is for
        "wait-notification": rules + told + plugged(0, MOUSE),
        "wait-question": service + asked + plugged(0, DRIVE) + told + replied(2),
        "list": rules + plugged(0, DRIVE) + time_passes + sent("list", 2),
        "text": rules + plugged(0, REMOTE) + time_passes + sent("text", 2),
        "ping": quiet + sent("ping", 2),
        "reply": quiet + asked + plugged(0, DRIVE) + told + replied(1),
        "rescan": rules + plugged(0, DRIVE) + plugged(1, ADAPTER) + time_passes + policy(allow=1) + sent("rescan")
                  + told + unplugged(1) + time_passes,
        "reload": quiet + log_level(4) + sent("reload") + log_level(0xFF) + sent("reload"),
        # lengths and contents
        "short": quiet + b"".join(sent(code, 5) for code in CODES),
        "long": quiet + b"".join(sent(code, 10) for code in CODES),
        "any-length": quiet + sent("list", 3, any_length(2000)) + sent("text", 3, any_length(40000))
                      + sent("reply", 12, any_length(17) + b"r" * 17),
        "neighbours": quiet + b"".join(sent(code | bit << 3) for code in range(8) for bit in (1, 2, 14)),
        "far": quiet + numbered(0x80000000) + numbered(0x22A008, 3, any_length(2000)) + numbered(0x224005, 15,
               any_length(30) + any_length(7)) + numbered(0x224006, 3, any_length(100)),
        "rights": bytes([SERVICE]) + opened(rights=1) + opened(rights=2) + opened(rights=3)
                  + b"".join(sent(code, handle=handle) for code in CODES for handle in range(3)),
        # registration
        "two-processes": quiet + opened(1) + opened() + died + opened(1) + sent("ping", process=1) + opened(),
        "closed": quiet + opened() + told + asked + closed() + sent("ping") + closed() + sent("ping"),
        # replies
        "stale": quiet + asked + plugged(0, DRIVE) + told + replied(2) + replied(1) + replied(1, 0xFF),
        "late": quiet + asked + plugged(0, DRIVE) + time_passes + replied(2),
        "of-another": quiet + asked + plugged(0, DRIVE) + died + opened(1) + replied(2, process=1),
        "out-of-order": quiet + asked + asked + asked + plugged(0, DRIVE) + plugged(1, DRIVE) + plugged(2, PHONE)
                        + told * 3 + replied(2, 1) + replied(3, 0) + replied(1, 2),
        "undecided": quiet + asked + plugged(0, DRIVE) + replied(0) + told + told,
        "lost": quiet + told + plugged(0, DRIVE),
        "too-small": quiet + sent("wait question", 1) + plugged(0, DRIVE) + asked + told + replied(2),
        # going away
        "taken-back": quiet + told + asked + told + taken_back() + asked + taken_back(1) + told + taken_back(2),
        "threads": quiet + sent("wait question", thread=1) + sent("wait question", thread=2)
                   + taken_back(1, thread=1) + plugged(0, DRIVE) + taken_back(1, thread=2) + replied(2, thread=3),
        "dies-asked": quiet + asked + asked + plugged(0, DRIVE) + died,
        "rescan-asks": quiet + asked + plugged(0, DRIVE) + told + replied(1) + sent("rescan") + asked + replied(2)
                       + sent("rescan") + died,
        # power
        "sleep": quiet + told + asked + slept + plugged(0, KEYBOARD) + slept,
        "paused": quiet + power_off + plugged(0, DRIVE) + asked + told + plugged(1, MOUSE) + power_on,
        "paused-question": quiet + asked + plugged(0, DRIVE) + power_off + replied(2) + power_on + told + replied(2),
        # the driver forgets a request for notifications
        "forgotten": quiet + asked + plugged(0, DRIVE) + replied(0) + power_off + plugged(1, MOUSE) + told + told
                     + power_on + slept,
        # policies
        "fallback": bytes([SERVICE_ELSE_READ_ONLY]) + plugged(0, DRIVE) + plugged(1, PHONE),
        "rules": bytes([RULES | LOG]) + policy(allow=1) + plugged(0, DRIVE) + policy(read_only=1) + opened()
                 + sent("rescan") + told * 3,
    }
    return seeds


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for target in (registry_values, device_identity, hub_answers, control_device):
        folder = os.path.join(sys.argv[1], target.__name__)
        os.makedirs(folder, exist_ok=True)
        for name, seed in target().items():
            with open(os.path.join(folder, name), "wb") as file:
                file.write(seed)


main()
