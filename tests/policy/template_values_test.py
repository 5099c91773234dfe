"""What the template writes is what the driver reads: the same key, names and types, taken from the driver's sources."""

import re
import unittest

import admx
import project

# Files that read or write the registry, each for what it is looked at below or not meant for policies.
REGISTRY_USERS = {"policy/parameters.cpp", "policy/registry_rules.cpp", "policy/registry_rules.h",
                  "policy/rule_loader.cpp", "install/registry_updater.cpp", "install/registry_updater.h"}


class TemplateValues(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.values = project.values()
        cls.elements = [element for policy in admx.policies(admx.read(admx.TEMPLATE)) for element in policy.elements]

    def test_the_driver_reads_no_value_in_a_way_that_these_tests_do_not_know(self):
        routines = re.compile(r"WdfRegistry(Query|Assign|Open|Create)|OpenParametersRegistryKey|RtlQueryRegistryValues")
        users = {path for path, text in project.sources().items() if routines.search(text)}
        self.assertLessEqual(users, REGISTRY_USERS)
        calls = sum(text.count("queryDwordValue(parametersKeyPath") for text in project.sources().values())
        everywhere = sum(len(re.findall(r"\bqueryDwordValue\(", text)) for text in project.sources().values())
        self.assertEqual(everywhere, calls + 2)  # its declaration and its definition
        lists = project.source("policy/rule_loader.cpp")
        named = len(re.findall(r'readRules\(literal\(L"', lists))
        self.assertEqual(len(re.findall(r"\breadRules\(", lists)), named + 1)  # its definition

    def test_the_template_writes_every_value_and_no_other(self):
        self.assertEqual({element.value for element in self.elements}, set(self.values))

    def test_every_value_has_a_type_that_the_driver_reads(self):
        for element in self.elements:
            self.assertIn(element.type, self.values[element.value], element.value)

    def test_kinds_of_devices_are_one_text_since_rules_of_a_list_match_no_kind(self):
        types = {element.type for element in self.elements if element.value == "BlockedCompatibleIds"}
        self.assertEqual(types, {"REG_SZ"})

    def test_lists_of_devices_can_be_written_as_lists_and_as_one_text(self):
        for value in ("AllowedHardwareIds", "ReadOnlyHardwareIds"):
            types = {element.type for element in self.elements if element.value == value}
            self.assertEqual(types, {"REG_SZ", "REG_MULTI_SZ"}, value)

    def test_every_value_lies_below_the_key_that_the_driver_reads(self):
        for element in self.elements:
            self.assertEqual(element.key.lower(), project.parameters_key().lower(), element.value)

    def test_long_lists_fit_as_far_as_a_policy_file_carries_them(self):
        most = 65535 // 2 - 1  # a value of a policy file has 65,535 bytes at most; the last character is its NUL
        for element in self.elements:
            if element.type == "REG_SZ":
                self.assertEqual(int(element.node.get("maxLength")), most, element.value)
            if element.type == "REG_MULTI_SZ":
                self.assertEqual(int(element.node.get("maxLength")), most - 1, element.value)
                self.assertEqual(element.node.get("maxStrings"), "0", element.value)

    def test_the_proposed_kinds_are_the_built_in_list_of_the_driver(self):
        control = admx.presentations(admx.read(admx.TEXTS))["BlockedCompatibleIds"]
        self.assertEqual(control.find(f".//{admx.name('default')}").text, project.built_in_list())
