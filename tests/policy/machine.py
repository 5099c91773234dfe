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


def play(scenario, values=None):
    """Plays one scenario; `values` are imported first, as a Registry Editor export of the driver's key."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "devices").symlink_to(project.root / "scenarios/devices")
        if values is not None:
            reg_file.write(folder / "policy.reg", project.parameters_key(), values)
            scenario = {"reg-files": ["policy.reg"], **scenario}
        (folder / "scenario.yaml").write_text(json.dumps(scenario))  # JSON is YAML
        return play_files(folder / "scenario.yaml")[0]


def decisions(devices, values=None):
    """What was decided for each device and its children, by name: the newest record of each."""
    result = play({"devices": devices}, values)
    return {device["device"]: device for device in result["devices"] if device["ofScenario"]}


def log_levels(result):
    return {line["level"] for step in result["steps"] for line in step["log"]}
