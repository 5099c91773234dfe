"""Each rule reports its example, on the line that is wrong, and nothing else."""

import difflib
import re
import unittest

from examples import EXAMPLES, PROJECT, VALID, examples, expected, mode_of, text_of
from inf_check.check import check_file
from inf_check.levels import MODES


def found(path, mode):
    return {(finding.line, finding.level, finding.number) for finding in check_file(path, mode)}


def one_test(path):
    def test(self):
        text = text_of(path)
        self.assertEqual(found(path, mode_of(text)), expected(text))
        numbers = {number for _, _, number in expected(text)}
        self.assertIn(int(path.name[:4]), numbers, "the name says which rule it breaks")
    return test


class WrongExample(unittest.TestCase):
    """A test for each file of inf/wrong."""


for path in examples("wrong"):
    setattr(WrongExample, "test_" + path.stem.replace("-", "_"), one_test(path))


class Examples(unittest.TestCase):
    def test_valid_examples_have_no_findings_in_any_mode(self):
        for path in examples("valid"):
            for mode in MODES:
                with self.subTest(path=path.name, mode=mode):
                    self.assertEqual(check_file(path, mode), [])

    def test_each_rule_has_a_wrong_example(self):
        numbers = {int(number) for path in (PROJECT / "tools/inf_check/rules").glob("*.py")
                   for number in re.findall(r"(?<![\w.])(1[0-4]\d\d|20\d\d|900\d)(?!\w)", path.read_text())}
        shown = {number for path in examples("wrong") for _, _, number in expected(text_of(path))}
        self.assertGreater(len(numbers), 60)
        self.assertEqual(numbers - shown, set())

    def test_wrong_examples_are_the_valid_one_with_a_small_change(self):
        valid = text_of(VALID).splitlines()
        for path in examples("wrong"):
            with self.subTest(path=path.name):
                same = difflib.SequenceMatcher(None, valid, text_of(path).splitlines(), autojunk=False).ratio()
                self.assertGreater(same, 0.8)

    def test_the_template_of_the_driver_is_checked_as_it_stands_but_for_its_date(self):
        template = PROJECT / "packaging/TarvenholtMyrtelhavenDriver.inf.in"
        self.assertEqual({number for _, _, number in found(template, "w")}, {1217, 1218})

    def test_all_examples_are_used(self):
        self.assertEqual({path.parent.name for path in EXAMPLES.rglob("*.inf")}, {"valid", "wrong", "unreadable"})
