"""Plays scenarios on the simulated machine, with the driver under test and the devices of the library."""

import json
import pathlib
import subprocess
import tempfile

import project
import reg_file


def play_files(*files):
    ran = subprocess.run([project.command, "play", "--json", *map(str, files)], capture_output=True, text=True,
                         timeout=300)
    if ran.returncode == 2:
        raise AssertionError(ran.stderr)
    return json.loads(ran.stdout)


def play_all(cases):
    """Plays scenarios in one run. Each case is a scenario and values that are imported first, as a Registry Editor
    export of the driver's key (None: nothing is)."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "devices").symlink_to(project.root / "scenarios/devices")
        files = [folder / f"{number:03}.yaml" for number in range(len(cases))]
        for file, (scenario, values) in zip(files, cases):
            if values is not None:
                reg_file.write(file.with_suffix(".reg"), project.parameters_key(), values)
                scenario = {"reg-files": [file.with_suffix(".reg").name], **scenario}
            file.write_text(json.dumps(scenario))  # JSON is YAML
        return play_files(*files)


def play(scenario, values=None):
    return play_all([(scenario, values)])[0]


def decisions_of(result):
    """What was decided for each device of a scenario and its children, by name: the newest record of each."""
    return {device["device"]: device for device in result["devices"] if device["ofScenario"]}


def decisions(devices, values=None):
    return decisions_of(play({"devices": devices}, values))


def log_levels(result):
    return {line["level"] for step in result["steps"] for line in step["log"]}
