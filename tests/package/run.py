"""Runs the tests of this folder. Writes, as GoogleTest does, one result per test where GTEST_OUTPUT=xml:FOLDER/ says.

usage: run.py PROJECT_FOLDER BUILD_FOLDER
"""

import os
import pathlib
import sys
import time
import unittest
import xml.etree.ElementTree as xml

HERE = pathlib.Path(__file__).resolve().parent


class Result(unittest.TextTestResult):
    """Counts each test, and each sub-test that fails, with its time."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.suite = xml.Element("testsuite", name="package")
        self.case = None

    def startTest(self, test):
        super().startTest(test)
        self.began = time.monotonic()
        self.case = xml.SubElement(self.suite, "testcase", name=test._testMethodName, status="run",
                                   classname=type(test).__name__)

    def stopTest(self, test):
        self.case.set("time", f"{time.monotonic() - self.began:.3f}")
        super().stopTest(test)

    def fail(self, test, error):
        if self.case is None:  # what prepares the tests of a class failed
            self.case = xml.SubElement(self.suite, "testcase", name=str(test), status="run", classname="set-up")
        if self.case.find("failure") is None:
            xml.SubElement(self.case, "failure", message=self._exc_info_to_string(error, test))

    def addError(self, test, error):
        super().addError(test, error)
        self.fail(test, error)

    def addFailure(self, test, error):
        super().addFailure(test, error)
        self.fail(test, error)

    def addSubTest(self, test, subtest, error):
        super().addSubTest(test, subtest, error)
        if error:
            self.fail(test, error)

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self.case.set("status", "notrun")


def main(project, build):
    os.environ.update(PROJECT_FOLDER=project, BUILD_FOLDER=build)
    sys.dont_write_bytecode = True
    sys.path[:0] = [str(HERE), str(pathlib.Path(project) / "tools"), str(pathlib.Path(project) / "tools/package")]
    tests = unittest.defaultTestLoader.discover(str(HERE), pattern="*_test.py")
    result = unittest.TextTestRunner(resultclass=Result, verbosity=1).run(tests)
    where = os.environ.get("GTEST_OUTPUT", "")
    if where.startswith("xml:"):
        result.suite.set("tests", str(result.testsRun))
        xml.ElementTree(result.suite).write(pathlib.Path(where[4:]) / "package_tests.xml", encoding="utf-8")
    return 0 if result.wasSuccessful() and result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
