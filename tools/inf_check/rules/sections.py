"""Sections as a whole: defined once, found, used."""

from ..package import FIXED


def before_the_first(package, report, path):
    for line in package.document.stray:
        report(line, 9007, "the line stands before the first section, and is ignored")


def once(package, report, path):
    for section in package.document.sections.values():
        for line in section.headers[1:]:
            report(line, 1209, f"section [{section.name}] begins in line {section.headers[0]} already")


def found(package, report, path):
    for reference in package.references:
        if reference.section is None and not reference.needed and reference.directive.lower() != "kmdfservice":
            missing = f"section [{reference.name}] of {reference.directive} is not there"
            if reference.includes:
                report(reference.line, 1220, f"{missing}; those of included files are reached with Needs only")
            else:
                report(reference.line, 1203, missing)


def used(package, report, path):
    used_ones = package.used()
    for name, section in package.document.sections.items():
        if not FIXED.fullmatch(name) and id(section) not in used_ones:
            report(section.line, 2083, f"section [{section.name}] is not used")


def one_directive(package, report, path):
    first = {}
    for reference in package.references:
        if reference.section is not None and not reference.needed:
            directive = first.setdefault(id(reference.section), reference.directive)
            if directive.lower() != reference.directive.lower():
                report(reference.line, 1205, f"[{reference.name}] belongs to {directive} and {reference.directive}")


def device_or_default(package, report, path):
    for name, section in package.document.sections.items():
        if name.split(".")[0] == "defaultinstall" and package.document.section("Manufacturer"):
            report(section.line, 1212, f"[{section.name}] can't be in one file with [Manufacturer]")


RULES = (before_the_first, once, found, used, one_directive, device_or_default)
