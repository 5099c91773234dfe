"""The rules. Each is a function of the package, of report(line, number, text), and of the file's path."""

from . import files, include, legacy, models, registry, sections, security, services, strings, syntax, target, version

RULES = [rule for subject in (version, strings, sections, syntax, models, services, files, registry, security, include,
                              legacy, target) for rule in subject.RULES]
