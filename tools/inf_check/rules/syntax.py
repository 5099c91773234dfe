"""Directives that a section may hold, and how often."""

from ..classes import GUID_OF
from ..package import REFERENCES

INSTALL = """copyfiles copyinf addreg addproperty include needs featurescore driverver excludeid reboot addpowersetting
    delfiles renfiles delreg delproperty bitreg logconfig profileitems updateinis updateinifields ini2reg registerdlls
    unregisterdlls""".split()
ALLOWED = {
    "version": """signature class classguid provider catalogfile driverver pnplockdown extensionid layoutfile
        driverpackagedisplayname driverpackagetype""".split(),
    "install": INSTALL,
    "hw": ["include", "needs", "addreg", "delreg", "bitreg", "addproperty"],
    "services": ["include", "needs", "addservice", "delservice"],
    "service": """displayname description servicetype starttype errorcontrol servicebinary startname addreg delreg
        bitreg loadordergroup dependencies security requiredprivileges servicesidtype delayedautostart addtrigger
        failureactions bootflags""".split(),
    "wdf": ["include", "needs", "kmdfservice"],  # and all that begins with umdf
    "kmdf": ["kmdflibraryversion"],
    "filters": ["include", "needs", "addfilter"],
    "filter": ["filterlevel", "filterposition"],
}
REPEATED = """copyfiles copyinf addreg addproperty include needs delfiles renfiles delreg delproperty bitreg addservice
    delservice kmdfservice umdfservice addfilter excludeid logconfig profileitems registerdlls unregisterdlls updateinis
    updateinifields ini2reg addtrigger addpowersetting""".split()
VALUELESS = ("reboot",)
MOST_VALUES = {"signature": 1, "class": 1, "classguid": 1, "provider": 1, "driverver": 2, "pnplockdown": 1}
OWN_DIRECTIVES = "display image media modem monitor net netclient netservice nettrans printer".split()
LONGEST_FIELD, LONGEST_SECTION = 4095, 255


def held_sections(package):
    version = package.document.section("Version")
    if version:
        yield "version", version
    for visit in package.visited:
        if visit.kind in ALLOWED:
            yield visit.kind, visit.section


def directives(package, report, path):
    for kind, section in held_sections(package):
        for entry in section.entries:
            name = entry.name.split(".")[0] if kind == "version" else entry.name
            if kind == "version" and name == "dontreflectoffline":
                report(entry.line, 1208, f"{entry.key} is for Microsoft's own files only")
            elif name not in ALLOWED[kind] and not may_be_the_classes_own(package, kind, name):
                shown = entry.key if entry.key is not None else ",".join(entry.values)
                report(entry.line, 1290, f"'{shown}' is no directive of [{section.name}]")


def may_be_the_classes_own(package, kind, name):
    """Some classes have directives of their own in install sections, and so may those that Windows does not know."""
    if kind == "wdf":
        return name.startswith("umdf")
    version = package.document.section("Version")
    entry = version and version.first("Class")
    setup_class = entry.value().lower() if entry else ""
    return kind == "install" and (setup_class in OWN_DIRECTIVES or setup_class not in GUID_OF)


def once(package, report, path):
    for kind, section in held_sections(package):
        seen = set()
        for entry in section.entries:
            if entry.name in seen and entry.name not in REPEATED:
                report(entry.line, 1088, f"{entry.key} stands in [{section.name}] twice")
            seen.add(entry.name)


def values(package, report, path):
    for kind, section in held_sections(package):
        for entry in section.entries:
            if any(entry.values) or entry.name not in ALLOWED[kind] or entry.name in VALUELESS:
                continue
            if kind in REFERENCES and entry.name in ("copyfiles", "addreg"):
                report(entry.line, 1005, f"{entry.key} names no section")
            elif kind != "version":  # whose rules tell what is missing there
                report(entry.line, 1006, f"{entry.key} has no value")


def extra_values(package, report, path):
    section = package.document.section("Version")
    for entry in section.entries if section else ():
        for extra in entry.values[MOST_VALUES.get(entry.name, len(entry.values)):]:
            report(entry.line, 1201, f"{entry.key} has an extra value '{extra}', which is ignored")


def sizes(package, report, path):
    """learn.microsoft.com: "General syntax rules for INF files"."""
    for section in package.document.sections.values():
        if len(section.name) > LONGEST_SECTION:
            report(section.line, 9002, f"the section's name is longer than {LONGEST_SECTION} characters")
        for entry in section.entries:
            if any(len(text) > LONGEST_FIELD for text in [*entry.raw, *entry.values]):
                report(entry.line, 9003, f"a value is longer than {LONGEST_FIELD} characters")


RULES = (directives, once, values, extra_values, sizes)
