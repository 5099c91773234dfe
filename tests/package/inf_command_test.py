"""The command check_inf.py, as a user calls it."""

import subprocess
import unittest

from examples import EXAMPLES, PROJECT, VALID


def run(*arguments):
    return subprocess.run(["/usr/bin/python3", str(PROJECT / "tools/check_inf.py"), *map(str, arguments)],
                          capture_output=True, text=True, timeout=60)


class Command(unittest.TestCase):
    def test_valid_file_gives_no_output(self):
        ran = run(VALID)
        self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (0, "", ""))

    def test_error_is_told_with_file_line_and_number(self):
        path = EXAMPLES / "wrong/1014-error-control.inf"
        ran = run(path)
        self.assertEqual(ran.returncode, 1)
        self.assertEqual(ran.stdout, f"{path}:45: error 1014: ErrorControl '9' is not valid\n")

    def test_warnings_fail_only_when_asked_to(self):
        path = EXAMPLES / "wrong/2083-unused-section.inf"
        lenient, strict = run(path), run("--strict", path)
        self.assertEqual((lenient.returncode, strict.returncode), (0, 1))
        self.assertIn(": warning 2083: section [OldSettings] is not used\n", lenient.stdout)
        self.assertEqual(lenient.stdout, strict.stdout)

    def test_mode_decides_what_counts(self):
        path = EXAMPLES / "wrong/1321-key-of-the-machine.inf"
        self.assertIn("error 1321", run(path).stdout)
        declarative = run("--mode", "k", path)
        self.assertEqual(declarative.returncode, 0)
        self.assertIn("warning 1304", declarative.stdout)

    def test_missing_file_is_told(self):
        ran = run("nowhere.inf")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertEqual(ran.stderr, "nowhere.inf: error 1000: there is no such file\n")

    def test_folder_and_binary_are_refused_without_a_trace_of_python(self):
        for path in (EXAMPLES, "/bin/true"):
            with self.subTest(path=path):
                ran = run(path)
                self.assertEqual(ran.returncode, 2)
                self.assertRegex(ran.stderr, rf"^{path}[:\d]*: error 100[03]: .+\n$")

    def test_unreadable_file_does_not_hide_the_findings_of_others(self):
        ran = run("nowhere.inf", EXAMPLES / "wrong/1014-error-control.inf")
        self.assertEqual(ran.returncode, 2)
        self.assertIn("error 1014", ran.stdout)

    def test_options_that_do_not_exist_are_refused(self):
        for arguments in ((), ("--mode", "x", VALID), ("--what", VALID)):
            with self.subTest(arguments=arguments):
                ran = run(*arguments)
                self.assertEqual(ran.returncode, 2)
                self.assertIn("usage: check_inf.py", ran.stderr)
