"""The sample policies are files that Registry Editor imports, and each is played by a scenario of its name."""

import unittest

import machine
import project
import reg_file

SERVICE_VALUES = {"CallbackMode", "CallbackFallbackAction", "CallbackTimeout"}


def expected(kind, data):
    """A value as a scenario expects it."""
    if data is None:
        return None
    if kind == "REG_SZ" and data == "":
        return {"type": kind, "bytes": ""}
    return {"type": kind, {"REG_DWORD": "number", "REG_SZ": "text", "REG_MULTI_SZ": "strings"}[kind]: data}


class Samples(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.files = sorted(project.samples.glob("*.reg"))
        cls.texts = {file.stem: file.read_bytes().decode("utf-16-le") for file in cls.files}
        cls.policies = {name: reg_file.read(text) for name, text in cls.texts.items()}

    def test_there_are_samples_and_nothing_else(self):
        self.assertGreaterEqual(len(self.files), 8)
        self.assertEqual(self.files, sorted(project.samples.iterdir()))

    def test_files_are_written_as_registry_editor_writes_them(self):
        for name, text in self.texts.items():
            self.assertTrue(text.startswith(f"\ufeff{reg_file.HEADER}\r\n\r\n"), name)
            self.assertTrue(text.endswith("\r\n\r\n"), name)
            self.assertEqual(text.count("\n"), text.count("\r\n"), name)
            self.assertTrue(text[1:].isascii(), name)

    def test_each_file_says_on_top_what_it_does(self):
        for name, text in self.texts.items():
            self.assertRegex(text, r"^\ufeff.*\r\n\r\n; [A-Z][^[]+\.\r\n", name)

    def test_comments_fit_on_a_screen_and_long_data_is_broken(self):
        for name, text in self.texts.items():
            for line in text.split("\r\n"):
                if line.startswith((";", " ")) or "hex(7)" in line:
                    self.assertLessEqual(len(line), 80, name)

    def test_each_file_has_the_drivers_key_and_only_values_that_it_reads_in_their_types(self):
        for name, policy in self.policies.items():
            self.assertEqual([key.lower() for key in policy],
                             [f"hkey_local_machine\\{project.parameters_key().lower()}"], name)
            for value, (kind, _) in policy[list(policy)[0]].items():
                self.assertIn(value, project.values(), name)
                if kind is not None:
                    self.assertIn(kind, project.values()[value], f"{name}: {value}")

    def test_kinds_of_devices_are_texts(self):
        for name, policy in self.policies.items():
            kind = policy[list(policy)[0]].get("BlockedCompatibleIds", (None, None))[0]
            self.assertIn(kind, (None, "REG_SZ"), name)

    def test_a_policy_replaces_all_rules_and_service_settings_and_a_log_level_nothing_else(self):
        for name, policy in self.policies.items():
            values = set(policy[list(policy)[0]])
            self.assertIn(values, ({"LogLevel"}, set(project.values()) - {"LogLevel"}), name)
            self.assertEqual(values == {"LogLevel"}, name.startswith("log-"), name)

    def test_lists_are_repeated_in_readable_form_above_their_data(self):
        for name, policy in self.policies.items():
            for value, (kind, data) in policy[list(policy)[0]].items():
                if kind == "REG_MULTI_SZ" and data:
                    lines = "".join(f"; {rule}\r\n" for rule in data)
                    self.assertIn(f"; {value}, one rule in a line:\r\n{lines}\"{value}\"=hex(7):", self.texts[name])

    def test_each_file_has_a_scenario_of_its_name_that_imports_it(self):
        folder = project.root / "scenarios/samples"
        self.assertEqual({file.stem for file in folder.glob("*.yaml")}, set(self.texts))
        for name in self.texts:
            self.assertIn(f"../../packaging/samples/{name}.reg", (folder / f"{name}.yaml").read_text())

    def test_importing_over_another_policy_leaves_nothing_of_it(self):
        before = {value: 77 if kinds == {"REG_DWORD"} else ["another"] for value, kinds in project.values().items()}
        cases = []
        for name, policy in self.policies.items():
            values = policy[list(policy)[0]]
            after = {value: expected(*values[value]) if value in values else before[value] for value in before}
            step = {"reg-file": str(project.samples / f"{name}.reg"), "expect": {"registry": {"parameters": after}}}
            cases.append(({"name": name, "policy": before, "steps": [step]}, None))
        for result in machine.play_all(cases):
            self.assertTrue(result["held"], f"{result['name']}: {result['steps'][0]['failures']}")
