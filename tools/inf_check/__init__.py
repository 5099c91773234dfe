"""Checks a driver's INF file against the rules that are published for driver packages of Windows.

learn.microsoft.com: "INF validation errors and warnings" numbers most of them; numbers from 9000 are our own, for rules
that stand in other published pages only.

    text      a file's bytes as text
    lines     text as logical lines: comments, quotation marks, continued lines
    document  sections, entries and string tokens
    package   what an installation would use of them: models, install sections, references
    rules/    the rules, by subject
    levels    which finding is an error in which mode
"""
