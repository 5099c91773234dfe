"""Security descriptors, which Windows ignores in silence when it can't read them."""

import re

SID = r"[A-Z]{2}|S-1(-\d+)+"
ACE = re.compile(rf"\((A|D|OA|OD|AU|AL);[A-Z]*;([A-Z]*|0x[0-9A-F]+);[^;()]*;[^;()]*;({SID})\)", re.I)
LIST = r"(P|AR|AI)*(\([^()]*\))*"
DESCRIPTOR = re.compile(rf"(O:({SID}))?(G:({SID}))?(?P<dacl>D:{LIST})?(S:{LIST})?", re.I)


def problem(descriptor):
    """What is wrong with a descriptor in text form, '' when nothing is."""
    match = DESCRIPTOR.fullmatch(descriptor)
    if not match or not descriptor:
        return "is no security descriptor"
    if not match["dacl"]:
        return "has no access list: everybody would be let in"
    for entry in re.findall(r"\([^()]*\)", descriptor):
        if not ACE.fullmatch(entry):
            return f"has an entry that can't be read: {entry}"
    return ""


def descriptors(package, report, path):
    candidates = []
    for section in package.of_kind("registry", "hardware registry"):
        candidates += [(entry.line, entry.value(4)) for entry in section.entries
                       if not entry.value(1) and entry.value(2).lower() == "security"]
    for section in package.of_kind("service"):
        candidates += [(entry.line, entry.value()) for entry in section.named("Security")]
    for line, descriptor in candidates:
        wrong = problem(descriptor)
        if wrong:
            report(line, 9005, f"'{descriptor}' {wrong}")


RULES = (descriptors,)
