"""Services of the driver, and the framework that it binds to."""

import re

from ..document import Section
from ..package import number
from .files import copied

ASSOCIATED = 0x2
KERNEL_DRIVER, AUTO_START, DISABLED = 1, 2, 4
REQUIRED = {"ServiceType": (0x1, 0x2, 0x8, 0x10, 0x20, 0x110, 0x120), "StartType": range(5), "ErrorControl": range(4)}
SYSTEM_BINARIES = {("12", "wudfrd.sys")}  # the host of user-mode drivers
NONE = Section("", 0)
BINARY = re.compile(r"%(-?\d+)%\\(.+)")


def add_service_entries(package):
    for section in package.of_kind("services"):
        for entry in section.named("AddService"):
            yield section, entry


def associated(package, report, path):
    """Each device has exactly one function driver, or says that it has none, or takes it from an included file.

    Files of class Extension only add to what another file installs.
    """
    setup_class = (package.document.section("Version") or NONE).first("Class")
    for section, parts, model in package.installs.values():
        services = parts.get("services")
        entries = services.named("AddService") if services else []
        main = [entry for entry in entries if (number(entry.value(1) or "0") or 0) & ASSOCIATED]
        for entry in main[1:]:
            report(entry.line, 1211,
                   f"[{services.name}] has two function drivers, '{main[0].value()}' and '{entry.value()}'")
        extends = setup_class and setup_class.value().lower() == "extension"
        if not main and not extends and not (services and services.first("Needs")):
            for hardware_id in model.ids[:1]:
                report((services or section).line, 1296, f"device '{hardware_id}' gets no function driver: "
                       f"no AddService with flag 2 in [{section.name}.Services]")


def add_service(package, report, path):
    for section, entry in add_service_entries(package):
        name, flags, install = entry.value(0), entry.value(1), entry.value(2)
        if flags and number(flags) is None:
            report(entry.line, 1081, f"AddService has invalid flags '{flags}'")
        elif not name and install:
            report(entry.line, 1272, f"service section [{install}] is ignored: the service has no name")
        elif not name and not (number(flags or "0") & ASSOCIATED):
            report(entry.line, 1253, "AddService names no service")
        elif name and not install:
            report(entry.line, 1005, f"AddService names no section that describes '{name}'")


def service_sections(package, report, path):
    for section in package.of_kind("service"):
        for key, allowed in REQUIRED.items():
            entry = section.first(key)
            if not entry:
                report(section.line, 1013, f"{key} is missing in [{section.name}]")
            elif entry.value() and number(entry.value()) not in allowed:
                report(entry.line, 1014, f"{key} '{entry.value()}' is not valid")
        if not section.first("ServiceBinary"):
            report(section.line, 1013, f"ServiceBinary is missing in [{section.name}]")
        start, kind = (number(entry.value()) if entry else None
                       for entry in (section.first("StartType"), section.first("ServiceType")))
        if start == AUTO_START and kind == KERNEL_DRIVER:
            report(section.first("StartType").line, 1252, "a kernel driver can't be started by the service manager")


def disabled(package, report, path):
    for _, entry in add_service_entries(package):
        section = package.document.section(entry.value(2)) if entry.value(2) else None
        start = section and section.first("StartType")
        if start and number(start.value()) == DISABLED and (number(entry.value(1) or "0") or 0) & ASSOCIATED:
            report(start.line, 1251, f"function driver '{entry.value()}' is disabled")


def binaries(package, report, path):
    destinations = {(file.dirid, file.destination.lower()) for file in copied(package)}
    for section in package.of_kind("service"):
        entry = section.first("ServiceBinary")
        if not entry or not entry.value():
            continue
        match = BINARY.fullmatch(entry.value())
        if not match:
            report(entry.line, 2085, f"ServiceBinary '{entry.value()}' is no path below a folder such as %13%")
        elif (match[1], match[2].lower()) not in destinations | SYSTEM_BINARIES:
            report(entry.line, 2084, f"ServiceBinary '{entry.value()}' is no file that CopyFiles puts there")


def framework(package, report, path):
    """learn.microsoft.com: "Specifying WDF directives in INF files"."""
    services = {entry.value().lower() for _, entry in add_service_entries(package)}
    for wdf in package.of_kind("wdf"):
        for entry in wdf.named("KmdfService"):
            name, section = entry.value(0), entry.value(1)
            if not section:
                report(entry.line, 1005, f"KmdfService names no section for '{name}'")
            elif not package.document.section(section):
                report(entry.line, 1203, f"section [{section}] of KmdfService is not there")
            if name.lower() not in services:
                report(entry.line, 2006, f"service '{name}' of KmdfService is not added by this file")
    for section in package.of_kind("kmdf"):
        version = section.first("KmdfLibraryVersion")
        if not version:
            report(section.line, 1084, f"KmdfLibraryVersion is missing in [{section.name}]")
        elif version.value() and not re.fullmatch(r"\d+\.\d+", version.value()):
            report(version.line, 1081, f"KmdfLibraryVersion '{version.value()}' is not of the form 1.15")


RULES = (associated, add_service, service_sections, disabled, binaries, framework)
