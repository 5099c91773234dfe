"""What an installation would use of an INF: models, install sections, and the sections that their directives name."""

import re
from dataclasses import dataclass, field

# Directives that name sections: in sections of which kind, which values, and of which kind the named sections are.
ALL = slice(None)
REFERENCES = {
    "install": {"copyfiles": (ALL, "files"), "addreg": (ALL, "registry"), "delreg": (ALL, "other"),
                "delfiles": (ALL, "other"), "renfiles": (ALL, "other"), "bitreg": (ALL, "other"),
                "addproperty": (ALL, "other"), "delproperty": (ALL, "other"),
                "logconfig": (ALL, "other"), "profileitems": (ALL, "other"),
                "updateinis": (ALL, "other"), "updateinifields": (ALL, "other"),
                "ini2reg": (ALL, "other"), "registerdlls": (ALL, "other"),
                "unregisterdlls": (ALL, "other")},
    "hw": {"addreg": (ALL, "hardware registry"), "delreg": (ALL, "other"), "bitreg": (ALL, "other")},
    "services": {"addservice": (slice(2, 3), "service"), "addservice events": (slice(3, 4), "other")},
    "service": {"addreg": (ALL, "service registry"), "delreg": (ALL, "other"),
                "addtrigger": (ALL, "other"), "failureactions": (ALL, "other")},
    "wdf": {"kmdfservice": (slice(1, 2), "kmdf"), "umdfservice": (slice(1, 2), "umdf")},
    "filters": {"addfilter": (slice(2, 3), "filter")},
    "coinstallers": {"addreg": (ALL, "registry"), "copyfiles": (ALL, "files")},
}
SUFFIXES = ("hw", "services", "wdf", "filters", "coinstallers", "factdef", "logconfigoverride", "interfaces",
            "components", "software", "com", "events", "wmi")
NEWEST = (10, 0, 99999)  # of sections that name no system: nothing is too new for them
# Parts whose directives are not told apart here: what they name counts as used.
LOOSE = ("interfaces", "components", "software", "com", "events", "wmi", "factdef", "logconfigoverride", "other")
FIXED = re.compile(r"(version|manufacturer|destinationdirs|controlflags|signatureattributes(\..*)?"
                   r"|strings(\.[0-9a-f]{4})?|sourcedisks(names|files)(\.\w+)?|default(un)?install(\..*)?"
                   r"|classinstall32(\..*)?|deviceinstall32(\..*)?)")
DECORATION = re.compile(r"NT(?P<arch>x86|ia64|amd64|arm64|arm)?(\.(?P<major>\d+)(\.(?P<minor>\d*)(\.(?P<product>\w*)"
                        r"(\.(?P<suite>\w*)(\.(?P<build>\d+))?)?)?)?)?", re.I)


def number(text):
    """The number that `text` states in decimal or hexadecimal form, or None."""
    return int(text, 0) if re.fullmatch(r"0[xX][0-9a-fA-F]+|[1-9][0-9]*|0", text.strip()) else None


@dataclass
class Model:
    line: int
    arch: str
    version: tuple  # lowest system: major, minor, build
    install: str
    ids: list


@dataclass
class Visited:
    """A section in the part that it plays for an install section."""
    kind: str
    section: object
    model: Model


@dataclass
class Reference:
    line: int
    directive: str
    name: str
    section: object
    needed: bool = False
    includes: bool = False  # the naming section includes files of the system


@dataclass
class Package:
    document: object
    models: list = field(default_factory=list)
    models_sections: list = field(default_factory=list)  # (line, name, DECORATION's match or None)
    installs: dict = field(default_factory=dict)         # install section: its parts by suffix, "" being itself
    visited: list = field(default_factory=list)
    references: list = field(default_factory=list)

    def of_kind(self, *kinds):
        """Sections of these kinds, each once."""
        seen = {}
        for visit in self.visited:
            if visit.kind in kinds:
                seen.setdefault(id(visit.section), visit.section)
        return list(seen.values())

    def used(self):
        return {id(visit.section) for visit in self.visited}


def understand(document):
    package = Package(document)
    manufacturers = document.section("Manufacturer")
    for entry in manufacturers.entries if manufacturers else ():
        name = entry.value() if entry.key is not None else entry.value().strip()
        for decoration in (entry.values[1:] if entry.key is not None else []) or [""]:
            section_name = f"{name}.{decoration}" if decoration else name
            match = DECORATION.fullmatch(decoration) if decoration else None
            package.models_sections.append((entry.line, section_name, decoration, match))
            section = document.section(section_name)
            if section:
                package.visited.append(Visited("models", section, None))
                read_models(package, section, match)
    visit_defaults(package)
    return package


def visit_defaults(package):
    """Sections that install on the whole system instead of a device, or that belong to a class."""
    for name, section in list(package.document.sections.items()):
        match = re.fullmatch(r"defaultinstall(\.nt(?P<arch>[a-z]+\d*)?(\.[\d.]+)?)?", name)
        if match:
            visit_install(package, section, Model(section.line, match["arch"] or "", NEWEST, section.name, []))
        elif re.fullmatch(r"(defaultuninstall|classinstall32)(\..*)?", name):
            visit(package, "other", section, None)


def read_models(package, section, match):
    arch = (match["arch"] or "" if match else "").lower()
    version = tuple(int(match[part] or 0) for part in ("major", "minor", "build")) if match else (0, 0, 0)
    for entry in section.entries:
        model = Model(entry.line, arch, version, entry.value(), [value for value in entry.values[1:] if value])
        package.models.append(model)
        section = install_section(package.document, model)
        if section and model.install:
            visit_install(package, section, model)


def install_section(document, model):
    """The most special section for the model's processor, or None."""
    names = (f"{model.install}.nt{model.arch}", f"{model.install}.nt", model.install)
    return next(filter(None, map(document.section, names)), None)


def visit_install(package, section, model):
    parts = {"": section}
    for suffix in SUFFIXES:
        part = package.document.section(f"{section.name}.{suffix}")
        if part:
            parts[suffix] = part
    package.installs[section.name.lower()] = (section, parts, model)
    for suffix, part in parts.items():
        visit(package, suffix or "install", part, model)


def visit(package, kind, section, model):
    if any(v.kind == kind and v.section is section and v.model is model for v in package.visited):
        return
    package.visited.append(Visited(kind, section, model))
    security = package.document.section(f"{section.name}.security")
    if security and kind in ("files", "registry", "hardware registry", "service registry"):
        package.visited.append(Visited(f"{kind} security", security, model))
    for entry in section.entries:
        if entry.name == "needs" and kind in ("install", *SUFFIXES):
            for name in filter(None, entry.values):
                refer(package, section, entry, name, kind, model, needed=True)
        elif kind in LOOSE:
            for name in filter(package.document.section, entry.values):
                refer(package, section, entry, name, "other", model)
        else:
            for directive in (entry.name, f"{entry.name} events"):
                values, target = REFERENCES.get(kind, {}).get(directive, (slice(0), ""))
                for name in entry.values[values]:
                    if name and not name.startswith("@"):
                        refer(package, section, entry, name, target, model)


def refer(package, origin, entry, name, kind, model, needed=False):
    """Notes that an entry of section `origin` names a section, and visits that one."""
    section = package.document.section(name)
    reference = Reference(entry.line, entry.key, name, section, needed, origin.first("Include") is not None)
    if reference not in package.references:
        package.references.append(reference)
    if section:
        visit(package, kind, section, model)
