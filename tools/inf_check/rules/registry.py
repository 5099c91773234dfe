"""Values that AddReg sections write: reg-root, subkey, name, flags, value."""

import re

from ..package import number

ROOTS = ("hkr", "hklm", "hkcu", "hkcr", "hku")
BINARY, APPEND, KEY_ONLY = 0x1, 0x8, 0x10
TYPES = {0x00000: "REG_SZ", 0x10000: "REG_MULTI_SZ", 0x20000: "REG_EXPAND_SZ", 0x00001: "REG_BINARY",
         0x10001: "REG_DWORD", 0x20001: "REG_NONE", 0xB0001: "REG_QWORD"}
TYPE_MASK = 0xFFFF0001
KINDS = ("registry", "hardware registry", "service registry")
# Values of a device that the system itself reads.
WELL_KNOWN = {"security": 0x00000, "devicecharacteristics": 0x10001, "devicetype": 0x10001, "exclusive": 0x10001,
              "upperfilters": 0x10000, "lowerfilters": 0x10000}


def entries(package, *kinds):
    for section in package.of_kind(*(kinds or KINDS)):
        for entry in section.entries:
            yield section, entry


def flags_of(entry):
    return number(entry.value(3)) if entry.value(3) else 0


def roots(package, report, path):
    for section, entry in entries(package):
        root, key, name = (entry.value(index) for index in range(3))
        if root.lower() not in ROOTS:
            report(entry.line, 1224, f"'{root}' is no registry root")
        elif root.lower() != "hkr":
            report(entry.line, 1304, f"key {root}\\{key} does not lie below HKR")
            report(entry.line, 1321, f"value '{name}' of {root}\\{key} is not kept to HKR")


def service_keys(package, report, path):
    """What a file writes for a service belongs below its key Parameters."""
    for section, entry in entries(package, "service registry"):
        if entry.value().lower() == "hkr" and not re.match(r"parameters(\\|$)", entry.value(1), re.I):
            report(entry.line, 1323, f"key '{entry.value(1)}' of the service does not lie below Parameters")


def flags(package, report, path):
    for section, entry in entries(package):
        if entry.value(3) and number(entry.value(3)) is None:
            report(entry.line, 1268, f"flags '{entry.value(3)}' are no number")


def values(package, report, path):
    for section, entry in entries(package):
        flags = flags_of(entry)
        if flags is None or flags & KEY_ONLY or len(entry.values) < 4:
            continue
        kind, data = flags & TYPE_MASK, entry.values[4:]
        if flags & APPEND and kind != 0x10000:
            report(entry.line, 1265, f"a {TYPES.get(kind, 'value')} can't be appended to")
        elif flags & APPEND:
            report(entry.line, 1305, f"'{entry.value(2)}' is appended to what others wrote")
        bits = {0x10001: 32, 0xB0001: 64}.get(kind)
        if bits and len(data) == 1 and (number(data[0]) is None or number(data[0]) >> bits):
            report(entry.line, 1268, f"'{data[0]}' is no number of {bits} bits")
        elif kind == BINARY and any(not re.fullmatch(r"(0x)?[0-9a-f]{1,2}", byte.strip(), re.I) for byte in data):
            report(entry.line, 1267, "binary data must be bytes from 00 to FF")


def well_known(package, report, path):
    for section, entry in entries(package, "hardware registry"):
        flags = flags_of(entry)
        name = entry.value(2).lower()
        if flags is not None and not entry.value(1) and name in WELL_KNOWN and flags & TYPE_MASK != WELL_KNOWN[name]:
            report(entry.line, 1431, f"'{entry.value(2)}' must be of type {TYPES[WELL_KNOWN[name]]}")


def installers(package, report, path):
    """Programs that would run while the device is installed."""
    for section, entry in entries(package):
        if entry.value(2).lower() in ("coinstallers32", "installer32"):
            report(entry.line, 1303, f"'{entry.value(2)}' defines a program that takes part in installing")


def filters(package, report, path):
    for section, entry in entries(package, "hardware registry"):
        if not entry.value(1) and entry.value(2).lower() in ("upperfilters", "lowerfilters"):
            report(entry.line, 1329, f"'{entry.value(2)}' can't be written; filters belong into a section .Filters")


RULES = (roots, service_keys, flags, values, well_known, installers, filters)
