"""What packages of today must not do (learn.microsoft.com: "Using a universal INF file").

Which of the numbers 1300 to 1309 Windows' checker gives to a directive is not published; here 1300 is what no system
takes any more, 1307 what only desktop systems know, and 1309 what takes away instead of adding.
"""

from ..classes import NAME_OF

SECTIONS = ("coinstallers", "factdef", "logconfigoverride")
GONE = ("logconfig",)
DESKTOP_ONLY = ("bitreg", "ini2reg", "profileitems", "registerdlls", "unregisterdlls", "updateinis", "updateinifields")
TAKING_AWAY = ("delfiles", "delproperty", "delreg", "delservice", "renfiles")


def sections(package, report, path):
    for section in package.of_kind(*SECTIONS):
        report(section.line, 1300, f"section [{section.name}] is of a kind that is no longer supported")
    version = package.document.section("Version")
    guid = version.first("ClassGuid") if version else None
    for name, section in package.document.sections.items():
        if name.split(".")[0] == "classinstall32" and guid and guid.value().strip("{}").lower() in NAME_OF:
            report(section.line, 1285, f"[{section.name}] can't change a class that Windows defines")


def directives(package, report, path):
    for section in package.of_kind("install", "hw", "services", "service"):
        for entry in section.entries:
            if entry.name in GONE:
                report(entry.line, 1300, f"{entry.key} is no longer supported")
            elif entry.name in DESKTOP_ONLY:
                report(entry.line, 1307, f"{entry.key} is not for packages of today")
            elif entry.name in TAKING_AWAY:
                report(entry.line, 1309, f"{entry.key} takes away '{', '.join(entry.values)}'; files may only add")


RULES = (sections, directives)
