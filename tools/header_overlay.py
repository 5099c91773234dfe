#!/usr/bin/env python3
"""Makes a file-system overlay for clang in which the names below some folders are found whatever their letter case, as
on Windows: the official headers include one another in any case.
usage: tools/header_overlay.py OUTPUT FOLDER…
"""
import json
import os
import sys


def entry(folder):
    contents = []
    for name in sorted(os.listdir(folder)):
        path = os.path.join(folder, name)
        if os.path.isdir(path):
            contents.append(entry(path))
        else:
            contents.append({"type": "file", "name": name, "external-contents": path})
    return {"type": "directory", "name": os.path.basename(folder), "contents": contents}


def write_overlay(output, folders):
    roots = [dict(entry(folder), name=folder) for folder in map(os.path.abspath, folders)]
    with open(output, "w", encoding="utf-8") as file:
        json.dump({"version": 0, "case-sensitive": False, "roots": roots}, file)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    write_overlay(sys.argv[1], sys.argv[2:])
