"""The Group Policy template is one that the policy editor can load: every reference resolves, in both directions."""

import collections
import unittest

import admx

ORDER = ["policyNamespaces", "resources", "supportedOn", "categories", "policies"]


class Template(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.template, cls.texts = admx.read(admx.TEMPLATE), admx.read(admx.TEXTS)
        cls.policies = admx.policies(cls.template)

    def references(self, table, *attributes):
        """The ids in all attributes of these names."""
        return [admx.referenced(node.get(attribute), table) for node in self.template.iter() for attribute in attributes
                if node.get(attribute) is not None]

    def test_both_files_are_of_the_policy_namespace(self):
        self.assertEqual(self.template.tag, admx.name("policyDefinitions"))
        self.assertEqual(self.texts.tag, admx.name("policyDefinitionResources"))
        for node in [*self.template.iter(), *self.texts.iter()]:
            self.assertTrue(node.tag.startswith("{%s}" % admx.NAMESPACE), node.tag)

    def test_sections_come_in_the_order_of_the_schema(self):
        self.assertEqual([admx.kind(node) for node in self.template], ORDER)
        self.assertEqual([admx.kind(node) for node in self.texts], ["displayName", "description", "resources"])
        self.assertEqual([admx.kind(node) for node in self.texts.find(admx.name("resources"))],
                         ["stringTable", "presentationTable"])

    def test_texts_are_of_the_revision_that_the_template_wants(self):
        wanted = self.template.find(admx.name("resources")).get("minRequiredRevision")
        self.assertEqual(self.template.get("revision"), wanted)
        self.assertEqual(self.texts.get("revision"), wanted)
        self.assertEqual(self.template.get("schemaVersion"), self.texts.get("schemaVersion"))

    def test_the_fallback_language_is_the_folder_of_the_texts(self):
        self.assertEqual(self.template.find(admx.name("resources")).get("fallbackCulture"), admx.TEXTS.parent.name)
        self.assertEqual(admx.TEMPLATE.stem, admx.TEXTS.stem)

    def test_every_text_that_is_used_exists_and_every_text_is_used(self):
        used = self.references("string", "displayName", "explainText")
        self.assertEqual(set(used), set(admx.strings(self.texts)))

    def test_every_presentation_that_is_used_exists_and_every_presentation_is_used_once(self):
        used = self.references("presentation", "presentation")
        self.assertEqual(sorted(used), sorted(admx.presentations(self.texts)))

    def test_ids_are_unique(self):
        for table in ("string", "presentation"):
            ids = [node.get("id") for node in self.texts.iter(admx.name(table))]
            self.assertEqual(len(ids), len(set(ids)), table)
        for tag in ("policy", "category", "definition"):
            names = [node.get("name") for node in self.template.iter(admx.name(tag))]
            self.assertEqual(len(names), len(set(names)), tag)
        for policy in self.policies:
            ids = [element.id for element in policy.elements]
            self.assertEqual(len(ids), len(set(ids)), policy.name)

    def test_every_element_has_one_control_of_its_kind(self):
        tables = admx.presentations(self.texts)
        for policy in self.policies:
            controls = collections.defaultdict(list)
            for control in tables[admx.referenced(policy.node.get("presentation"), "presentation")]:
                if control.get("refId") is not None:
                    controls[control.get("refId")].append(admx.kind(control))
            self.assertEqual(set(controls), {element.id for element in policy.elements}, policy.name)
            for element in policy.elements:
                self.assertEqual(len(controls[element.id]), 1, element.id)
                self.assertIn(controls[element.id][0], admx.CONTROLS[element.kind], element.id)

    def test_controls_have_their_texts_where_the_schema_wants_them(self):
        for presentation in admx.presentations(self.texts).values():
            for control in presentation:
                kind, text = admx.kind(control), (control.text or "").strip()
                if kind in ("textBox", "comboBox"):
                    self.assertEqual(admx.kind(control[0]), "label")
                elif kind == "multiTextBox":
                    self.assertEqual((text, len(control)), ("", 0))  # a text of its own stands before it
                else:
                    self.assertNotEqual(text, "", kind)

    def test_what_is_proposed_may_be_entered(self):
        for policy in self.policies:
            for control in admx.presentations(self.texts)[policy.name]:
                element = next((element for element in policy.elements if element.id == control.get("refId")), None)
                if control.get("defaultItem") is not None:
                    self.assertIn(int(control.get("defaultItem")), range(len(admx.choices(element))))
                if control.get("defaultValue") is not None:
                    admx.written(element, int(control.get("defaultValue")))
                for proposal in [*control.iter(admx.name("default")), *control.iter(admx.name("suggestion"))]:
                    admx.written(element, proposal.text)

    def test_categories_and_supported_systems_exist_and_are_used(self):
        categories = {node.get("name") for node in self.template.iter(admx.name("category"))}
        parents = {node.get("ref") for node in self.template.iter(admx.name("parentCategory"))}
        self.assertEqual(parents, categories)
        systems = {node.get("name") for node in self.template.iter(admx.name("definition"))}
        for policy in self.policies:
            self.assertIsNotNone(policy.node.find(admx.name("parentCategory")), policy.name)
            self.assertIn(policy.node.find(admx.name("supportedOn")).get("ref"), systems, policy.name)

    def test_the_numbers_of_a_choice_differ(self):
        for policy in self.policies:
            for element in policy.elements:
                if element.kind == "enum":
                    numbers = list(admx.choices(element).values())
                    self.assertEqual(len(numbers), len(set(numbers)), element.id)

    def test_each_explanation_says_what_every_state_means_and_when_a_change_counts(self):
        strings = admx.strings(self.texts)
        for policy in self.policies:
            text = strings[admx.referenced(policy.node.get("explainText"), "string")]
            for wanted in ("\nEnabled: ", "\nDisabled: the value is taken away", "\nNot Configured: the value stays",
                           "\nA change ", "This is no managed policy"):
                self.assertIn(wanted, text, policy.name)

    def test_each_explanation_of_a_choice_names_the_choices(self):
        strings = admx.strings(self.texts)
        for policy in self.policies:
            for element in policy.elements:
                if element.kind == "enum" and element.id != "LogLevel":
                    for choice in admx.choices(element):
                        self.assertIn(f"\n{strings[choice]}: ", strings[f"{policy.name}_Help"], policy.name)
