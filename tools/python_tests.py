#!/usr/bin/env python3
"""Runs unittest modules and prints what failed. For tools/run_tests.sh, writes results in GoogleTest's form when
GTEST_OUTPUT is xml:FOLDER/.

usage: tools/python_tests.py MODULE.py…
"""

import importlib.util
import os
import pathlib
import sys
import unittest
import xml.etree.ElementTree as xml

sys.dont_write_bytecode = True


class Results(unittest.TextTestResult):
    """Remembers each test that was run, and whether it failed."""

    def startTest(self, test):
        super().startTest(test)
        self.outcomes = getattr(self, "outcomes", {})
        self.outcomes[test.id()] = True

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self.outcomes[test.id()] = False

    def addError(self, test, err):
        super().addError(test, err)
        self.outcomes = getattr(self, "outcomes", {})
        self.outcomes[test.id()] = False  # also of a class whose set-up failed

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        del self.outcomes[test.id()]

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self.outcomes[test.id()] = False


def load(path):
    """The tests of a module, which may import its neighbours."""
    sys.path.insert(0, str(path.parent))
    spec = importlib.util.spec_from_file_location(path.stem, path)
    module = importlib.util.module_from_spec(spec)
    sys.modules[path.stem] = module
    spec.loader.exec_module(module)
    return unittest.defaultTestLoader.loadTestsFromModule(module)


def write_report(outcomes, name):
    target = os.environ.get("GTEST_OUTPUT", "")
    if not target.startswith("xml:"):
        return
    suite = xml.Element("testsuite", name=name)
    for test, passed in outcomes.items():
        case = xml.SubElement(suite, "testcase", name=test, status="run")
        if not passed:
            xml.SubElement(case, "failure")
    xml.ElementTree(suite).write(pathlib.Path(target[4:]) / f"{name}.xml", encoding="utf-8")


paths = [pathlib.Path(argument).resolve() for argument in sys.argv[1:]]
if not paths:
    sys.exit(__doc__)
result = unittest.TextTestRunner(resultclass=Results).run(unittest.TestSuite(map(load, paths)))
write_report(getattr(result, "outcomes", {}), f"{paths[0].parent.name}-{paths[0].stem}")
sys.exit(0 if result.wasSuccessful() and result.testsRun else 1)
