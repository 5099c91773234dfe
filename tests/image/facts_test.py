"""Facts about headers: proved of our own for each target, and compared with a kit's as far as the kit declares them."""
import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

import fake_kit
from support import BuildTest, root, run

tool = root / "tools/check_headers.py"
# How the framework's loader is called: no kit declares it.
binding_facts = 11


def rows(text):
    """Facts, held, differing and skipped ones by the name of the headers."""
    return {name: tuple(map(int, numbers.split()))
            for name, numbers in re.findall(r"^(\S.*?)((?: +\d+){4})$", text, re.MULTILINE)}


class Facts(BuildTest):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def kit(self, *changes):
        """A kit with some of its text replaced."""
        fake_kit.make_headers(self.folder)
        for name, before, after in changes:
            file = next(path for path in self.folder.rglob(name) if before in path.read_text(encoding="utf-8"))
            file.write_text(file.read_text(encoding="utf-8").replace(before, after), encoding="utf-8")
        return run(sys.executable, tool, "--list-skipped", "--official-kit", self.folder)

    def test_hold_of_our_own_headers_for_every_target(self):
        targets = rows(self.require(run(sys.executable, tool)))
        print(*(f"{name}: {facts} facts" for name, (facts, *_) in targets.items()), sep="\n")
        self.assertEqual(list(targets), ["Windows ARM64", "Windows x64", "Linux x64"])
        files = (root / "platform/asserts").glob("*.cpp")
        written = sum(file.read_text(encoding="utf-8").count("\nCHECK") for file in files)
        self.assertEqual(targets["Windows ARM64"], (written, written, 0, 0))
        for facts, held, differing, skipped in targets.values():
            self.assertGreater(facts, 1000)
            self.assertEqual((held, differing, skipped), (facts, 0, 0))

    def test_of_a_kit_that_differ_are_named_and_those_without_a_name_there_are_counted(self):
        said = self.kit(("irp.h", "SL_INVOKE_ON_ERROR 0x80", "SL_INVOKE_ON_ERROR 0x81"),  # a value
                        ("queue.h", "BOOLEAN DefaultQueue;", "ULONG DefaultQueue;"),  # a width
                        ("usbspec.h", "iManufacturer", "iMaker"),  # a member's name
                        # what a helper stores
                        ("object.h", "= WdfExecutionLevelInheritFromParent;", "= WdfExecutionLevelPassive;"),
                        ("ntstatus.h", "#define STATUS_DELETE_PENDING ", "#define ANOTHER_STATUS "))
        self.assertEqual(said.returncode, 1, said.stdout)
        for fact in ("CHECK_VALUE(SL_INVOKE_ON_ERROR, 0x80)", "CHECK_FIELD(WDF_IO_QUEUE_CONFIG, 0xD, 1, DefaultQueue)",
                     "iManufacturer", "CHECK_STORED(WDF_OBJECT_ATTRIBUTES"):
            self.assertIn(fact, said.stdout)
        self.assertIn("CHECK_VALUE(STATUS_DELETE_PENDING, 0xC0000056);: use of undeclared identifier", said.stdout)
        facts, held, differing, skipped = rows(said.stdout)["Windows ARM64, kit"]
        self.assertEqual(skipped, 1 + binding_facts)
        self.assertEqual(held, facts - differing - skipped)

    def test_of_the_sdk_are_left_out_with_a_message_where_nothing_fetches_it(self):
        (self.folder / "clang++-19").symlink_to(shutil.which("clang++-19"))
        said = run(sys.executable, tool, "--official-sdk", env={"PATH": str(self.folder)})
        self.assertEqual(said.returncode, 0, said.stdout)
        self.assertIn("skipped: no `dotnet` on this machine", said.stdout)

    def test_of_a_kit_that_is_not_there_are_an_error(self):
        said = run(sys.executable, tool, "--official-kit", self.folder)
        self.assertEqual(said.returncode, 2)
        self.assertIn(f"no ntifs.h below {self.folder}", said.stdout)
        said = run(sys.executable, tool, "--official-kit", self.folder / "none")
        self.assertIn("is not a folder", said.stdout)
        self.assertEqual(said.returncode, 2)

    def test_of_a_kit_that_does_not_compile_are_an_error(self):
        said = self.kit(("irp.h", "#pragma once", "#pragma once\nthese are no declarations"))
        self.assertEqual(said.returncode, 2, said.stdout)
        self.assertIn("irp.h", said.stdout)


if __name__ == "__main__":
    unittest.main()
