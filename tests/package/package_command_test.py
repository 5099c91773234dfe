"""./package as a user calls it: again and again, with wrong options, over folders that are none of its business."""

import subprocess
import unittest

from examples import PROJECT
from made import NAME, Folder, files_of, package, run


class Again(Folder, unittest.TestCase):
    def test_same_sources_and_date_give_the_same_bytes(self):
        first, second = self.folder / "first", self.folder / "second"
        for dist in (first, second):
            self.assertEqual(package("--unsigned", output=dist).returncode, 0)
        self.assertEqual(files_of(first), files_of(second))

    def test_new_package_takes_the_place_of_the_old_one_whole(self):
        dist = self.folder / "dist"
        self.assertEqual(package("--unsigned", output=dist).returncode, 0)
        before = files_of(dist)
        (dist / "left over").write_text("of an older version")
        self.assertEqual(package("--unsigned", output=dist).returncode, 0)
        self.assertEqual(files_of(dist), before)

    def test_without_a_given_date_the_last_commit_gives_it(self):
        dist = self.folder / "dated"
        self.assertEqual(package("--unsigned", output=dist, date="").returncode, 0)
        committed = run("git", "-C", PROJECT, "log", "-1", "--format=%cd", "--date=format-local:%m/%d/%Y",
                        env={"TZ": "UTC", "PATH": "/usr/bin:/bin"})
        if committed.returncode != 0:
            self.skipTest("the project lies in no repository")
        self.assertIn(f"= {committed.stdout.strip()},", (dist / f"{NAME}.inf").read_text())


class WrongUse(Folder, unittest.TestCase):
    def refused(self, *options, date=0, output=None):
        ran = package(*options, date=date, output=output)
        self.assertEqual(ran.returncode, 2, ran.stderr)
        self.assertEqual(ran.stdout, "")
        self.assertEqual(ran.stderr.count("\n"), 1, "one message and nothing else")
        return ran.stderr

    def test_wrong_options_are_refused_with_a_reason(self):
        file = self.folder / "file"
        file.write_text("text")
        for options, reason in (
                (("--signed",), "'--signed' is no option"),
                (("dist",), "'dist' is no option"),
                (("--key",), "--key needs a value"),
                (("--key", ""), "--key needs a value"),
                (("--certificate", "nowhere"), "--certificate: there is no file 'nowhere'"),
                (("--certificate", file), "--certificate needs --key"),
                (("--key", file), "--key needs --certificate"),
                (("--pkcs12", file, "--certificate", file, "--key", file), "two ways to sign"),
                (("--password-file", file), "--password-file needs"),
                (("--unsigned", "--pkcs12", file), "--unsigned leaves nothing to sign"),
                (("--build", self.folder), "is no configured build folder of this project")):
            with self.subTest(options=options):
                self.assertIn(reason, self.refused(*options))

    def test_a_date_that_is_none_is_refused(self):
        self.assertIn("SOURCE_DATE_EPOCH is 'yesterday'", self.refused("--unsigned", date="yesterday",
                                                                       output=self.folder / "none"))
        self.assertFalse((self.folder / "none").exists())

    def test_folders_and_files_of_others_are_not_replaced(self):
        folder, file = self.folder / "mine", self.folder / "letter"
        folder.mkdir()
        (folder / "diary").write_text("dear")
        file.write_text("dear")
        for output in (folder, file):
            with self.subTest(output=output):
                self.assertIn("exists and holds no package", self.refused("--unsigned", output=output))
        self.assertEqual(files_of(folder), {"diary": b"dear"})
        self.assertEqual(file.read_text(), "dear")

    def test_help_names_every_option(self):
        ran = subprocess.run([PROJECT / "package", "--help"], capture_output=True, text=True)
        self.assertEqual((ran.returncode, ran.stderr), (0, ""))
        for option in ("--certificate", "--key", "--pkcs12", "--password-file", "--timestamp", "--unsigned", "--output",
                       "--build"):
            self.assertIn(f"  {option} " if option != "--key" else " --key FILE", ran.stdout)
