"""[Manufacturer] and the sections of models: for which systems, which devices, installed by which section."""

from ..package import install_section

FIRST_BUILD = (10, 0, 14310)  # the first system that knows build numbers in decorations


def manufacturers(package, report, path):
    section = package.document.section("Manufacturer")
    for entry in section.entries if section else ():
        if not entry.value():
            report(entry.line, 1011, f"manufacturer '{entry.key}' names no section of models")


def models_sections(package, report, path):
    for line, name, decoration, match in package.models_sections:
        if not name:
            continue
        if decoration and not match:
            report(line, 1287, f"'{decoration}' is no target system of the form NTarm64.10.0...19041")
            continue
        if match and match["build"]:
            version = tuple(int(match[part] or 0) for part in ("major", "minor", "build"))
            if version < FIRST_BUILD:
                report(line, 1288, f"build {match['build']} is older than 14310, the first that can be told apart")
        if match and (match["product"] or match["suite"]):
            report(line, 9004, f"'{decoration}' names a product type or suite, which a universal INF must not")
        if not package.document.section(name):
            report(line, 1203, f"section [{name}] of the manufacturer is not there")
        if not match or not match["arch"]:
            report(line, 2010, f"[{name}] names no processor, which means x86")


def devices(package, report, path):
    seen = set()
    for model in package.models:
        if not model.install:
            report(model.line, 1271, "the device names no install section")
        elif not install_section(package.document, model):
            report(model.line, 1261, f"install section [{model.install}] of the device is not there")
        for hardware_id in model.ids[:1]:  # further ones are compatible ids, which devices share
            key = (hardware_id.lower(), model.arch, model.version)
            if key in seen:
                report(model.line, 1294, f"hardware id '{hardware_id}' is listed twice")
            seen.add(key)


def any_device(package, report, path):
    version = package.document.section("Version")
    has_default = any(name.split(".")[0] == "defaultinstall" for name in package.document.sections)
    if version and not has_default and not any(model.ids for model in package.models):
        section = package.document.section("Manufacturer") or version
        report(section.line, 1297, "the file installs no device: no model has a hardware id")


RULES = (manufacturers, models_sections, devices, any_device)
