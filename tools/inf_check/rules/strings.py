"""String tokens."""


def defined(package, report, path):
    for line, token in package.document.undefined:
        report(line, 1235, f"string token %{token}% is not defined in [Strings]; a literal percent sign is written %%")


def once(package, report, path):
    for section in package.document.strings_sections():
        seen = {}
        for entry in section.entries:
            if entry.name in seen:
                report(entry.line, 1294, f"string '{entry.key}' is defined in line {seen[entry.name]} already")
            seen.setdefault(entry.name, entry.line)


def same_in_all_languages(package, report, path):
    sections = package.document.strings_sections()
    for section in sections[1:]:
        if {entry.name for entry in section.entries} != {entry.name for entry in sections[0].entries}:
            report(section.line, 1295, f"[{section.name}] has other strings than [{sections[0].name}]")


def not_empty(package, report, path):
    """A name that Windows shows, or by which it tells who made the package."""
    section = package.document.section("Strings")
    for entry in section.entries if section else ():
        text = entry.value().strip()
        if not text:
            report(entry.line, 1006, f"string '{entry.key}' has no value")
        elif any(word in text.lower() for word in ("todo", "manufacturer name", "<your ")):
            report(entry.line, 9001, f"string '{entry.key}' is a placeholder: '{text}'")


RULES = (defined, once, same_in_all_languages, not_empty)
