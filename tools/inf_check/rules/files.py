"""Files: on which disk they lie, and where they are copied to."""

import ntpath
import re
from dataclasses import dataclass

from ..package import number

DRIVER_STORE = "13"
SYSTEM = {"11", "12", "13"}  # below the system's folder, with 10 and a sub-folder


@dataclass
class Copied:
    line: int
    section: object  # None for CopyFiles=@file
    name: str        # where it is copied to, in the folder
    source: str
    dirid: str
    folder: str

    @property
    def destination(self):
        return ntpath.join(self.folder, self.name) if self.folder else self.name


def destination_of(package, section):
    """The entry of [DestinationDirs] for a section of files (None: single files)."""
    dirs = package.document.section("DestinationDirs")
    own = dirs.first(section.name) if dirs and section else None
    return own or (dirs.first("DefaultDestDir") if dirs else None)


def folder_of(destination):
    return (destination.value(), destination.value(1)) if destination else ("", "")


def copied(package):
    """All files that CopyFiles copies."""
    for section in package.of_kind("files"):
        where = destination_of(package, section)
        for entry in section.entries:
            values = entry.values
            name, source = values[0], values[1] if len(values) > 1 and values[1] else values[0]
            yield Copied(entry.line, section, name, source, *folder_of(where))
    for install in package.of_kind("install"):
        for entry in install.named("CopyFiles"):
            for value in entry.values:
                if value.startswith("@"):
                    where = destination_of(package, None)
                    yield Copied(entry.line, None, value[1:], value[1:], *folder_of(where))


def listed_sections(package, name):
    """[SourceDisksFiles] or [SourceDisksNames], plain and for single processors."""
    return [section for key, section in package.document.sections.items() if re.fullmatch(rf"{name}(\.\w+)?", key)]


def source_of(package, file):
    """The entry of [SourceDisksFiles] for a file; the section of the processor comes first."""
    archs = sorted({model.arch for model in package.models if model.arch})
    for name in [f"SourceDisksFiles.{arch}" for arch in archs] + ["SourceDisksFiles"]:
        section = package.document.section(name)
        entry = section and section.first(file)
        if entry:
            return entry
    return None


def disks(package, report, path):
    names = set()
    for section in listed_sections(package, "sourcedisksnames"):
        for entry in section.entries:
            names.add(entry.name)
            if number(entry.name) is None:
                report(entry.line, 1008, f"disk id '{entry.key}' in [{section.name}] is no number")
    for section in listed_sections(package, "sourcedisksfiles"):
        for entry in section.entries:
            if entry.name.endswith(".cat"):
                report(entry.line, 1213, f"catalog '{entry.key}' can't be listed in [{section.name}]")
            elif re.fullmatch(r".*\.\w\w_", entry.name):
                report(entry.line, 1231, f"'{entry.key}' is a compressed name; list the file's own name")
            if number(entry.value()) is None:
                report(entry.line, 1008, f"disk id '{entry.value()}' of '{entry.key}' is no number")
            elif entry.value() not in names:
                report(entry.line, 1273, f"disk {entry.value()} of '{entry.key}' is not in [SourceDisksNames]")


def sources(package, report, path):
    for file in copied(package):
        if not file.name:
            report(file.line, 1229, "the entry names no file")
        elif not source_of(package, file.source):
            report(file.line, 1230, f"file '{file.source}' is not in [SourceDisksFiles]")


def destinations(package, report, path):
    dirs = package.document.section("DestinationDirs")
    for entry in dirs.entries if dirs else ():
        if not re.fullmatch(r"-?\d+", entry.value()):
            report(entry.line, 1243, f"destination '{entry.value()}' is no number of a folder")
    unlisted = set()
    for file in copied(package):
        if not destination_of(package, file.section):
            name, line = (file.section.name, file.section.line) if file.section else (file.name, file.line)
            if name not in unlisted:
                report(line, 1275, f"'{name}' has no place in [DestinationDirs]")
            unlisted.add(name)
        elif re.fullmatch(r"-?\d+", file.dirid):
            if file.dirid != DRIVER_STORE:
                report(file.line, 1322, f"file '{file.name}' goes to folder {file.dirid}, not to the driver store (13)")
            if file.dirid not in SYSTEM and not (file.dirid == "10" and file.folder):
                report(file.line, 1306, f"file '{file.name}' goes to folder {file.dirid}, not below the system's")


def driver_store(package, report, path):
    """Nothing moves within the driver store, and its security is the system's affair."""
    for file in copied(package):
        if file.dirid != DRIVER_STORE or not file.name:
            continue
        listed = source_of(package, file.source)
        if file.name.lower() != file.source.lower():
            report(file.line, 1100, f"'{file.source}' can't be renamed to '{file.name}' in the driver store")
        elif listed and listed.value(1).strip("\\").lower() != file.folder.strip("\\").lower():
            report(file.line, 1100, f"'{file.name}' lies in folder '{listed.value(1)}' and goes to '{file.folder}'")
    for section in package.of_kind("files security"):
        report(section.line, 1101, f"[{section.name}] gives files of the driver store a security descriptor")


def one_source(package, report, path):
    seen = {}
    for file in copied(package):
        source = seen.setdefault((file.dirid, file.destination.lower()), file.source)
        if source.lower() != file.source.lower():
            report(file.line, 1330, f"'{file.source}' and '{source}' are both copied to '{file.destination}'")


RULES = (disks, sources, destinations, driver_store, one_source)
