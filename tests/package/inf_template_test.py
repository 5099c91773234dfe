"""Date and version as they are filled into the INF."""

import unittest

import inf


class Version(unittest.TestCase):
    def test_versions_gain_zeros_up_to_four_numbers(self):
        self.assertEqual([inf.four_numbers(version) for version in ("1", "1.2", "1.2.3", "1.2.3.4")],
                         ["1.0.0.0", "1.2.0.0", "1.2.3.0", "1.2.3.4"])

    def test_what_windows_would_not_take_is_refused(self):
        for version in ("", "1.2.3.4.5", "1.x", "1.65535", "v1"):
            with self.subTest(version=version), self.assertRaises(ValueError):
                inf.four_numbers(version)


class Filling(unittest.TestCase):
    def test_date_is_that_of_the_day_in_universal_time(self):
        self.assertEqual(inf.fill("@DATE@,@VERSION@\n", 0, "1.2.3"), "01/01/1970,1.2.3.0\r\n")
        self.assertEqual(inf.fill("@DATE@", 1709251199, "1"), "02/29/2024")

    def test_line_ends_are_those_of_windows_whatever_the_template_has(self):
        self.assertEqual(inf.fill("a\nb\r\nc\n", 0, "1"), "a\r\nb\r\nc\r\n")
