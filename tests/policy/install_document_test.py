"""What docs/install.md names is what the driver uses, and what it tells people to do helps on the simulated machine."""

import re
import unittest

import machine
import project

CLASSES = r"HKLM\SYSTEM\CurrentControlSet\Control\Class"
NAME = project.service_name()
BOOT_DISK = "boot/controller/disk"
# A device of each class but the portable devices', of which a phone is one.
DESK = {"keyboard": {"use": "keyboard"}, "mouse": {"use": "mouse"}, "stick": {"use": "flash-drive"},
        "phone": {"use": "mtp-phone"}, "camera": {"use": "ptp-camera"}, "reader": {"use": "smart-card-reader"},
        "network": {"use": "rndis-adapter"}, "board": {"use": "fx2-board"},
        "boot": {"use": "internal-nvme", "parent": "root"}}


def section(text, title):
    """A part of the document, up to the next title of its depth."""
    depth = len(re.search(rf"^(#+) {title}$", text, re.MULTILINE).group(1))
    return re.search(rf"^#+ {title}\n(.*?)(?=^#{{1,{depth}}} |\Z)", text, re.MULTILINE | re.DOTALL).group(1)


def lists_holding(*names):
    """The nine lists with these names, as a scenario writes and expects them."""
    return {f"{CLASSES}\\{guid}": {value: list(names)} for guid, value in project.class_filters()}


class InstallDocument(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = (project.root / "docs/install.md").read_text()
        cls.recovery = section(cls.text, "From the recovery environment")

    def played(self, scenario, values=None):
        result = machine.play(scenario, values)
        failures = [failure for step in result["steps"] for failure in step["failures"]]
        self.assertTrue(result["held"], failures)
        return result


class Names(InstallDocument):
    def test_the_table_of_lists_is_the_one_of_the_driver(self):
        rows = re.findall(r"^\|[^|]+\| `(\{[^`]+\})` \| `(\w+)` \|$", section(self.text, "The lists"), re.MULTILINE)
        self.assertEqual(rows, project.class_filters())

    def test_the_removing_script_goes_through_all_lists(self):
        lists = re.findall(r"^ +'(\{[^']+\})' = '(\w+)'$", self.text, re.MULTILINE)
        self.assertEqual(sorted(lists), sorted(project.class_filters()))
        self.assertIn(f"$name = '{NAME}'", self.text)

    def test_recovery_looks_at_all_lists_and_changes_all_lists(self):
        for command in ("query", "(?:add|delete)"):
            found = re.findall(rf"^ +reg {command} %K%\\(\S+) /v (\w+)", self.recovery, re.MULTILINE)
            self.assertEqual(sorted(found), sorted(project.class_filters()), command)

    def test_the_node_has_the_hardware_id_that_the_driver_looks_for(self):
        compared = r'equalCaseSensitive\(hardwareIds, literal\(L"([^"]*)"\)'
        wanted = re.search(compared, project.source("driver/device_add.cpp")).group(1).replace("\\\\", "\\")
        named = set(re.findall(r"Tarvenholt\\[\w\\]+", self.text))
        self.assertEqual(named, {wanted})
        self.assertIn(f"$hardwareId = '{wanted}'", self.text)
        self.assertIn(f'devgen /add /bus ROOT /hardwareid "{wanted}"', self.text)

    def test_services_and_files_have_the_name_of_the_driver(self):
        named = set(re.findall(r"\bTarvenholtMyrtelhaven\w*", self.text.replace("TarvenholtMyrtelhavenTest.cer", "")))
        self.assertEqual(named, {NAME, "TarvenholtMyrtelhaven"})
        self.assertEqual(set(re.findall(r"TarvenholtMyrtelhaven\.(\w+)", self.text)), {"admx", "adml"})
        build = (project.root / "CMakeLists.txt").read_text()
        image = re.search(r"add_driver_image\(driver_image NAME (\w+)", build).group(1)
        self.assertEqual(set(re.findall(r"(\w+)\.(?:sys|pdb|inf|cat)\b", self.text)), {image, "oemN"})
        services = re.findall(r"(?:sc\.exe (?:query|config|delete)|Services\\)\s*(\w+)", self.text)
        self.assertEqual(set(services), {NAME})

    def test_the_log_has_the_name_that_the_driver_gives_it(self):
        logger = project.source("log/logger.cpp")
        prefix, name = (re.search(rf'instance\.{part} = literal\(L"([^"]*)"\)', logger).group(1)
                        for part in ("prefix", "name"))
        logs = re.findall(r"%SystemRoot%\\Temp\\(\S+?)[`\s]", self.text)
        self.assertEqual(set(logs), {f"{prefix}{name}-*.log"})

    def test_the_samples_and_the_template_are_there(self):
        named = set(re.findall(r"([\w-]+\.reg)\b", section(self.text, "Policies")))
        self.assertEqual(named, {file.name for file in project.samples.glob("*.reg")})
        for path in re.findall(r"`policy\\([^`]+)`", self.text):
            self.assertTrue((project.root / "packaging/policy" / path.replace("\\", "/")).exists(), path)

    def test_values_that_are_named_are_read_by_the_driver(self):
        named = re.findall(r"`((?:Callback|SdCard|LogLevel|BlockedC|AllowedH|ReadOnlyH)\w*)`", self.text)
        self.assertGreaterEqual(len(set(named)), 6)
        self.assertLessEqual(set(named), set(project.values()))

    def test_links_lead_somewhere(self):
        titles = {re.sub(r"[^\w -]", "", title).lower().replace(" ", "-")
                  for title in re.findall(r"^#+ (.*)$", self.text, re.MULTILINE)}
        for file, anchor in re.findall(r"\]\(([^)#]*)#?([^)]*)\)", self.text):
            if file:
                self.assertTrue((project.root / "docs" / file).resolve().exists(), file)
            else:
                self.assertIn(anchor, titles)


class Installing(InstallDocument):
    def test_the_start_of_the_node_fills_the_lists_and_sets_boot_start(self):
        self.assertIn("sets its `Start` to 0 (boot)", self.text)
        self.played({"steps": ["load", {"start-control-node": None,
                                        "expect": {"registry": {**lists_holding(NAME), "service": {"Start": 0}}}}]})

    def test_the_log_tells_what_the_document_quotes(self):
        row = next(line for line in self.text.splitlines() if line.startswith("| the log, "))
        quoted = re.findall(r"`([A-Z][^`]+|onDriver[^`]+)`", row.split("at log level 4")[1])
        self.assertEqual(len(quoted), 4)
        result = self.played({"devices": {"mouse": DESK["mouse"]}}, {"LogLevel": ("REG_DWORD", 4)})
        lines = iter(line["text"] for step in result["steps"] for line in step["log"])
        first, control, registered, added = (text.removesuffix(" …") for text in quoted)
        for wanted in (first, control, *[registered] * len(project.class_filters()), added):
            self.assertTrue(any(line.startswith(wanted) for line in lines), wanted)

    def test_lines_to_search_the_log_for_are_written(self):
        devices = {"boot": DESK["boot"], "slot": {"use": "sd-card", "parent": "root"}}
        result = self.played({"devices": devices}, {"LogLevel": ("REG_DWORD", 4)})
        lines = [line["text"] for step in result["steps"] for line in step["log"]]
        for wanted in ("isRemovable = 1", "Incorrect device type, must be removable"):
            self.assertIn(f"`{wanted}`", self.text)
            self.assertTrue(any(wanted in line for line in lines), wanted)

    def test_running_devices_meet_the_driver_after_a_restart_only(self):
        blocked = {"BlockedCompatibleIds": ("REG_SZ", "Class_08")}
        steps = [{"plug": "stick"}, "load", "start-control-node",
                 {"expect": {"devices": {"stick": {"attached": "not-asked", "state": "started"}}}},
                 {"replug": "stick", "expect": {"devices": {"stick": {"state": "disabled"}}}}]
        self.played({"devices": {"stick": {"use": "sandisk-ultra"}}, "steps": steps}, blocked)

    def test_allowed_devices_that_are_there_at_the_start_are_blocked(self):
        policy = {"BlockedCompatibleIds": ("REG_SZ", "Class_08"), "AllowedHardwareIds": ("REG_SZ", "*")}
        early = {"stick": {"state": "disabled"}, "mouse": {"state": "started"}}
        steps = ["load", {"plug": "all", "expect": {"devices": early}},
                 "start-control-node", {"replug": "stick", "expect": {"devices": {"stick": {"state": "started"}}}}]
        self.played({"installed": True, "devices": {"stick": {"use": "sandisk-ultra"}, "mouse": {"use": "mouse"}},
                     "steps": steps}, policy)


class Removing(InstallDocument):
    def test_without_the_node_devices_are_blocked_unless_everything_is_allowed_before(self):
        steps = ["load", "start-control-node", {"unplug": "control-node"},
                 {"plug": "stick", "expect": {"devices": {"stick": {"state": "disabled"}}}}, {"unplug": "stick"},
                 {"reg-file": str(project.samples / "everything-allowed.reg")},
                 {"plug": "stick", "expect": {"devices": {"stick": {"state": "started"}}}}]
        self.played({"devices": {"stick": {"use": "sandisk-ultra"}}, "steps": steps},
                    {"BlockedCompatibleIds": ("REG_SZ", "Class_08"), "AllowedHardwareIds": ("REG_SZ", "*")})

    def test_a_node_that_starts_again_undoes_the_second_and_the_fourth_step(self):
        undone = {key: {value: None for value in values} for key, values in lists_holding().items()}
        steps = ["load", "start-control-node", {"registry": {**undone, "service": {"Start": 3}}},
                 {"unplug": "control-node"},
                 {"start-control-node": None, "expect": {"registry": {**lists_holding(NAME), "service": {"Start": 0}}}}]
        self.played({"steps": steps})

    def test_the_driver_does_the_second_and_the_fourth_step_when_it_is_unloaded(self):
        others = lists_holding("other")
        steps = ["load", "start-control-node",
                 {"unload": None, "expect": {"registry": {**others, "service": {"Start": 3}}}}]
        self.played({"registry": others, "steps": steps})


class Repairing(InstallDocument):
    """The machine whose lists name the driver, without its service; then with the commands of the document applied."""

    LISTS = {**lists_holding(NAME), f"{CLASSES}\\{project.class_filters()[-1][0]}": {"UpperFilters": ["PartMgr", NAME]}}

    def machine(self, **more):
        return {"registry": {**self.LISTS, "service": None}, "services": ["PartMgr"], "devices": DESK, **more}

    def repair(self):
        """The registry changes of the document's commands, on the control set that the machine uses."""
        changes = {}
        command = r"^ +reg (add|delete) %K%\\(\S+) /v (\w+)(.*)$"
        for verb, key, value, rest in re.findall(command, self.recovery, re.MULTILINE):
            names = re.search(r"/t REG_MULTI_SZ /d (\S+)", rest)
            changes[f"{CLASSES}\\{key}"] = {value: names.group(1).split("\\0") if verb == "add" else None}
        return changes

    def test_the_document_works_on_the_control_set_that_windows_uses(self):
        prefix = re.search(r"set K=HKLM\\OFF\\(\w+)\\Control\\Class", self.recovery).group(1)
        self.assertEqual(prefix, "ControlSet001")
        self.assertIn("reg load HKLM\\OFF ", self.recovery)
        self.assertLess(self.recovery.index("reg load"), self.recovery.index("reg delete"))
        self.assertLess(self.recovery.index("reg delete"), self.recovery.index("reg unload"))
        self.assertLess(self.recovery.index("reg delete"), self.recovery.index("/v Start"))

    def test_a_service_that_is_gone_stops_every_device_of_the_classes(self):
        result = self.played(self.machine(steps=[{"plug": "all"}]))
        stopped = {device["device"] for device in result["devices"] if device["problem"] == 19}
        self.assertLessEqual({"keyboard", "mouse", "stick", "phone", "camera", "reader", "network", "board",
                              "boot/controller"}, stopped)
        self.assertIn("problem code 19 (the service is gone)", self.text)

    def test_a_disabled_service_stops_them_too(self):
        disabled = {**self.LISTS, "service": {"Start": 4}}
        result = self.played({**self.machine(steps=[{"plug": "all"}]), "registry": disabled})
        self.assertEqual(next(device["problem"] for device in result["devices"] if device["device"] == "mouse"), 32)
        self.assertIn("32 (it is disabled, `Start` = 4)", self.text)

    def test_the_boot_disk_alone_is_stopped_by_its_own_list(self):
        disks = f"{CLASSES}\\{project.class_filters()[-1][0]}"
        result = self.played({"registry": {disks: {"UpperFilters": ["PartMgr", NAME]}, "service": None},
                              "services": ["PartMgr"], "devices": DESK, "steps": [{"plug": "boot"}]})
        self.assertEqual(next(device["problem"] for device in result["devices"] if device["device"] == BOOT_DISK), 19)

    def test_after_the_commands_of_the_document_every_device_starts_and_other_filters_stay(self):
        changes = self.repair()
        self.assertEqual(len(changes), len(project.class_filters()))
        result = self.played(self.machine(steps=[{"registry": changes}, {"plug": "all"}]))
        states = {device["device"]: device["state"] for device in result["devices"]}
        self.assertIn(BOOT_DISK, states)
        self.assertEqual(set(states.values()), {"started"}, states)
        disk = next(device for device in result["devices"] if device["device"] == BOOT_DISK)
        self.assertIn("\\Driver\\PartMgr", disk["stack"])


del InstallDocument  # it has no tests of its own
