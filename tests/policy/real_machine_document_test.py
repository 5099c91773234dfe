"""What docs/on-a-real-machine.md tells people to look at exists under that name."""

import re
import unittest

import admx
import project


class RealMachineDocument(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = (project.root / "docs/on-a-real-machine.md").read_text()
        entry = project.root / "platform/entry"
        cls.code = "\n".join([*project.sources().values(), *(file.read_text() for file in entry.iterdir())])

    def test_pool_tags_are_those_of_the_driver(self):
        numbers = re.findall(r"PoolTag = '(.{4})'", project.source("support/pool_memory.h"))
        tags = {number[::-1] for number in numbers}
        named = set(re.findall(r"!poolused \d (.{4})`", self.text))
        self.assertEqual(named, tags)
        self.assertEqual(set(re.search(r'/faults \d+ "([^"]+)"', self.text).group(1).split()), tags)

    def test_the_cookie_that_must_not_be_seen_is_the_one_of_the_image(self):
        self.assertIn(re.search(r"defaultCookie = (0x\w+)", self.code).group(1), self.text)

    def test_symbols_are_functions_and_variables_of_the_image(self):
        symbols = set(re.findall(rf"{project.service_name()}!(\w+)", self.text))
        self.assertGreaterEqual(len(symbols), 5)
        for symbol in symbols:
            self.assertRegex(self.code, rf"\b{symbol}\b")

    def test_quoted_log_lines_are_written_by_the_driver(self):
        for line in ("Incorrect device type, must be removable", "Failed to read sd card rule",
                     "onDevicePowerStateChangeNotification", "Disk information busType = "):
            self.assertIn(line, self.text)
            self.assertIn(line, self.code)

    def test_verifier_is_told_the_drivers_file_in_every_command(self):
        commands = re.findall(r"`(verifier [^`]+ /driver [^`]+)`", self.text)
        self.assertGreaterEqual(len(commands), 6)
        for command in commands:
            self.assertIn(f" /driver {project.service_name()}.sys", command)

    def test_the_frameworks_values_lie_below_the_drivers_key(self):
        self.assertIn(f"HKLM\\{project.parameters_key()}\\Wdf".lower(), self.text.lower())

    def test_the_control_device_and_the_drivers_of_a_rescan_have_these_names(self):
        header = "\n".join(file.read_text() for file in (project.root / "include").rglob("*.h"))
        link = re.search(r'MYRTELHAVEN_SYMBOLIC_LINK L"\\\\DosDevices\\\\([^"]*)"', header).group(1)
        self.assertIn(f"'\\\\.\\{link}'", self.text)
        for name in re.findall(r'L"\\\\Driver\\\\(USBHUB\w*)"', self.code):
            self.assertIn(f"\\Driver\\{name}`", self.text)

    def test_the_settings_of_the_template_are_counted_right(self):
        template = admx.read(admx.TEMPLATE)
        numbers = "no one two three four five six seven eight nine ten eleven twelve".split()
        settings = numbers[len(admx.policies(template))]
        folders = numbers[len(list(template.iter(admx.name("category"))))]
        self.assertIn(f"{settings} settings in {folders} folders", self.text)

    def test_links_lead_somewhere(self):
        for file in re.findall(r"\]\(([^)#]+)", self.text):
            self.assertTrue((project.root / "docs" / file).exists(), file)
