"""The [Version] section."""

import re
import time

from ..classes import GUID_OF, NAME_OF

GUID = re.compile(r"\{[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\}", re.I)
LONGEST_CLASS = 31


def encoding(package, report, path):
    if package.document.problem:
        number, text = package.document.problem
        report(1, number, f"{text}; write the file as ASCII or UTF-16 LE")


def signature(package, report, path):
    section = package.document.section("Version")
    entry = section and section.first("Signature")
    if not section:
        report(1, 1001, 'the file has no [Version] section with the signature "$Windows NT$"')
    elif not entry or entry.value().lower() != "$windows nt$":
        report((entry or section).line, 1001, 'the signature in [Version] must be "$Windows NT$"')


def required(package, report, path):
    section = package.document.section("Version")
    if not section:
        return
    for key in ("Class", "ClassGuid", "Provider", "DriverVer"):
        entry = section.first(key)
        if not entry or not entry.value().strip():
            report((entry or section).line, 1234, f"[Version] must state {key}")
    if not any(entry.name.split(".")[0] == "catalogfile" and entry.value() for entry in section.entries):
        report(section.line, 1233, "CatalogFile is missing in [Version]; without a catalog the package can't be signed")
    lockdown = section.first("PnpLockdown")
    if not lockdown or lockdown.value() != "1":
        report((lockdown or section).line, 1324, "[Version] should state PnpLockdown=1: nobody may change the files")


def setup_class(package, report, path):
    section = package.document.section("Version")
    guid, name = (section.first(key) for key in ("ClassGuid", "Class")) if section else (None, None)
    if guid and guid.value() and not GUID.fullmatch(guid.value()):
        report(guid.line, 1010, f"ClassGuid '{guid.value()}' has not the form {{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}}")
        return
    if not name or not guid or not name.value() or not guid.value():
        return
    plain = guid.value().strip("{}").lower()
    if len(name.value()) > LONGEST_CLASS:
        report(name.line, 1286, f"class name '{name.value()}' is longer than {LONGEST_CLASS} characters")
    if name.value().lower() == "sample":
        report(name.line, 1284, "class Sample is reserved for samples")
    elif plain in NAME_OF and NAME_OF[plain].lower() != name.value().lower():
        report(name.line, 1280, f"class {guid.value()} is named {NAME_OF[plain]}, not {name.value()}")
    elif GUID_OF.get(name.value().lower(), plain) != plain:
        report(guid.line, 1281, f"class {name.value()} is {{{GUID_OF[name.value().lower()]}}}, not {guid.value()}")


def provider(package, report, path):
    section = package.document.section("Version")
    entry = section and section.first("Provider")
    if entry and entry.value().lower().startswith("microsoft"):
        report(entry.line, 1204, "the provider can't be Microsoft; it is who wrote the file")


def catalog(package, report, path):
    section = package.document.section("Version")
    for entry in section.entries if section else ():
        if entry.name.split(".")[0] == "catalogfile" and entry.value():
            if not re.fullmatch(r"[^\\/:*?\"<>|]+\.cat", entry.value(), re.I):
                report(entry.line, 1214, f"catalog '{entry.value()}' is no file name that ends in .cat")


def driver_version(package, report, path):
    """DriverVer of [Version] and of install sections: MM/DD/YYYY,w.x.y.z."""
    section = package.document.section("Version")
    entries = section.named("DriverVer") if section else []
    for install in package.of_kind("install"):
        entries += install.named("DriverVer")
    for entry in entries:
        date, version = entry.value(0), entry.value(1)
        if date and not is_date(date):
            report(entry.line, 1218, f"driver date '{date}' is no date of the form MM/DD/YYYY")
        numbers = version.split(".")
        if not re.fullmatch(r"\d{1,5}(\.\d{1,5}){3}", version) or any(int(n) > 65534 for n in numbers):
            report(entry.line, 1217, f"driver version '{version}' must be four numbers below 65535")
        elif not any(map(int, numbers)):
            report(entry.line, 1217, "driver version 0.0.0.0 is not valid")


def is_date(text):
    if not re.fullmatch(r"\d\d([/-])\d\d\1\d{4}", text):
        return False
    try:
        time.strptime(text.replace("-", "/"), "%m/%d/%Y")
    except ValueError:
        return False
    return True


RULES = (encoding, signature, required, setup_class, provider, catalog, driver_version)
