#!/usr/bin/python3
"""Plays every scenario with the native driver and with the ARM64 image, and compares what came of it: what the command
reports of each device and step, the bytes of all files that the driver left, and the whole registry at the end.

Addresses in log lines differ from run to run and are left out. Where a scenario lets log workers run freely, the order
of lines is theirs, and how many of them come too late when the driver is unloaded: its lines are not compared.

usage: tools/compare_image.py NATIVE_BUILD_FOLDER
"""

import json
import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ADDRESS = re.compile(r"0x[0-9a-f]{9,16}\b")


def play(command, folder):
    """The results of all scenarios by file, and whether all expectations held."""
    run = subprocess.run([*command, "play", "--json", "--keep-files", folder, "scenarios"],
                         cwd=ROOT, stdout=subprocess.PIPE, check=False)
    results = json.loads(run.stdout) if run.returncode in (0, 1) else []
    return {result["file"]: result for result in results}, run.returncode == 0


def without_logs(value):
    if isinstance(value, dict):
        return {key: without_logs(each) for key, each in value.items() if key != "log"}
    if isinstance(value, list):
        return [without_logs(each) for each in value]
    return value


def lines_of(result, is_free):
    """A readable form of a result, line by line."""
    if is_free:
        result = without_logs(result)
    return ADDRESS.sub("ADDRESS", json.dumps(result, indent=1, ensure_ascii=False)).split("\n")


def files_below(folder, is_free):
    """The lines of each file; of a log that is free nothing but its name."""
    found = {}
    for place, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(place, name)
            with open(path, "rb") as file:
                text = ADDRESS.sub("ADDRESS", file.read().decode("latin-1"))
            found[os.path.relpath(path, folder)] = [] if is_free and name.endswith(".log") else text.split("\n")
    return found


def first_difference(native, image):
    for number, (one, other) in enumerate(zip(native, image), 1):
        if one != other:
            return f"line {number}: '{one.strip()}' natively, '{other.strip()}' with the image"
    return f"{len(native)} lines natively, {len(image)} with the image"


def compare(file, native, image, folders):
    """What differs for one scenario."""
    with open(os.path.join(ROOT, file), encoding="utf-8") as text:
        is_free = "log-workers: free" in text.read()
    if lines_of(native, is_free) != lines_of(image, is_free):
        yield f"{file}: results, {first_difference(lines_of(native, is_free), lines_of(image, is_free))}"
    kept = [files_below(os.path.join(folder, os.path.splitext(file)[0]), is_free) for folder in folders]
    for name in sorted(kept[0].keys() | kept[1].keys()):
        if name not in kept[0] or name not in kept[1]:
            yield f"{file}: {name} exists only {'natively' if name in kept[0] else 'with the image'}"
        elif kept[0][name] != kept[1][name]:
            yield f"{file}: {name}, {first_difference(kept[0][name], kept[1][name])}"


def main():
    native_command = os.path.join(sys.argv[1], "bin", "myrtelhaven") if len(sys.argv) == 2 else ""
    if not os.access(native_command, os.X_OK):
        print("usage: tools/compare_image.py NATIVE_BUILD_FOLDER   (the folder must hold bin/myrtelhaven)",
              file=sys.stderr)
        return 2
    with tempfile.TemporaryDirectory() as work:
        folders = [os.path.join(work, "native"), os.path.join(work, "image")]
        native, native_held = play([os.path.abspath(native_command)], folders[0])
        image, image_held = play([os.path.join(ROOT, "tools", "run_arm64.sh"), "myrtelhaven"], folders[1])
        problems = [f"{file}: played only {'natively' if file in native else 'with the image'}"
                    for file in sorted(native.keys() ^ image.keys())]
        for file in sorted(native.keys() & image.keys()):
            problems += compare(file, native[file], image[file], folders)
        kept = sum(len(files) for _, _, files in os.walk(folders[1]))
    for problem in problems[:50]:
        print(problem, file=sys.stderr)
    if problems or not native or not native_held or not image_held:
        print(f"Image: {len(problems)} differences, {'all' if image_held else 'not all'} scenarios held",
              file=sys.stderr)
        return 1
    print(f"Image: {len(image)} scenarios held, with the native driver's decisions, {kept} files and registries")
    return 0


sys.exit(main())
