"""Holds a package's image and INF against each other and against the image as it was built.

usage: check.py FOLDER BUILT_IMAGE
"""

import pathlib
import re
import sys

import pe

NAME = "TarvenholtMyrtelhavenDriver"
ARM64 = 0xAA64


def problems(folder, built):
    """What is wrong, as sentences; nothing when all is well."""
    image, unsigned = pe.Image((folder / f"{NAME}.sys").read_bytes()), pe.Image(built.read_bytes())
    if image.machine != ARM64:
        yield "The image is not for ARM64."
    if image.checksum != image.computed_checksum():
        yield "The image's header states a wrong checksum."
    if image.authenticode_digest() != unsigned.authenticode_digest():
        yield "Signing changed more than the signature."
    stated = re.search(r"^DriverVer\s*=\s*[\d/]+,([\d.]+)", (folder / f"{NAME}.inf").read_text(encoding="ascii"), re.M)
    if not stated or stated[1] != image.file_version():
        yield f"The INF's version is {stated and stated[1]}, the image's {image.file_version()}."


if __name__ == "__main__":
    found = list(problems(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])))
    for problem in found:
        print(problem, file=sys.stderr)
    sys.exit(1 if found else 0)
