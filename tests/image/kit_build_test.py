"""The image built with the official kit's arrangement of files, and what is said when pieces of the kit are missing."""
import re
import shutil
import tempfile
import unittest
from pathlib import Path

import fake_kit
from support import BuildTest, configure_image, root, run, variable


def summary(image):
    """Imports, entry and load configuration of an image, as llvm's tool prints them."""
    text = run("llvm-readobj-19", "--coff-imports", "--coff-load-config", "--file-headers", image).stdout
    return {"imports": sorted(re.findall(r"Symbol: (\w+)", text)), "modules": sorted(re.findall(r"Name: (.*)", text)),
            "entry": "AddressOfEntryPoint: 0x0" not in text, "subsystem": re.search(r"Subsystem: (\w+)", text)[1],
            "guarded": re.search(r"GuardCFFunctionCount: (\d+)", text)[1] != "0",
            "cookie": re.search(r"SecurityCookie: 0x(\w+)", text)[1] != "0"}


class KitBuild(BuildTest):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.image = variable("DRIVER_IMAGE")
        cls.kit = cls.folder / "Windows Kits"
        fake_kit.make_headers(cls.kit)
        fake_kit.make_libraries(cls.kit, cls.image.parent / "objects")

    def configure(self, kit, *options):
        return configure_image(root, self.folder / "build", "-DMYRTELHAVEN_KIT=ON", f"-DWDK_ROOT={kit}",
                               "-DWDK_VERSION=", "-DMYRTELHAVEN_KIT_COMPILE_ONLY=OFF", *options)

    def refused(self, kit, *options):
        result = self.configure(kit, *options)
        self.assertNotEqual(result.returncode, 0)
        return " ".join(result.stdout.split())

    def changed_kit(self):
        """A copy of the kit for a test to take pieces from."""
        copy = Path(tempfile.mkdtemp(dir=self.folder)) / "kit"
        shutil.copytree(self.kit, copy)
        return copy

    def test_gives_the_image_that_the_systems_own_platform_gives(self):
        self.require(self.configure(self.kit))
        self.require(run("cmake", "--build", self.folder / "build", "--target", "driver_image", "--parallel", "2"))
        built = self.folder / "build/image" / self.image.name
        self.assertEqual(summary(built), summary(self.image))
        self.assertIn("WdfVersionBind", summary(built)["imports"])
        self.assertTrue(summary(built)["entry"] and summary(built)["guarded"] and summary(built)["cookie"])
        # No folder of the kit in the image or its debug information.
        for file in built, built.with_suffix(".pdb"):
            self.assertNotIn(str(self.folder).encode(), file.read_bytes())

    def test_asks_for_the_folder(self):
        self.assertIn("Set WDK_ROOT", self.refused(""))

    def test_says_that_the_folder_is_none(self):
        self.assertIn("which is not a folder", self.refused(self.folder / "nowhere"))

    def test_says_that_the_folder_holds_no_kernel_headers(self):
        self.assertIn("holds no kernel headers", self.refused(self.kit / "Lib"))

    def test_names_every_missing_piece(self):
        kit = self.changed_kit()
        (kit / "Include" / fake_kit.version / "km/NtIfs.h").unlink()
        (kit / "Lib/wdf/kmdf/arm64/1.15/WdfDriverEntry.lib").unlink()
        said = self.refused(kit)
        self.assertIn("lacks", said)
        self.assertIn(f"Include/{fake_kit.version}/km/ntifs.h", said)
        self.assertIn("Lib/wdf/kmdf/arm64/1.15/WdfDriverEntry.lib", said)
        self.assertNotIn("ntoskrnl.lib", said)

    def test_names_what_a_version_that_is_not_installed_lacks(self):
        self.assertIn("Include/10.0.1.0/km", self.refused(self.kit, "-DWDK_VERSION=10.0.1.0"))

    def test_takes_the_newest_version(self):
        kit = self.changed_kit()
        fake_kit.make_headers(kit, "10.0.9.0")
        self.assertIn(f"version {fake_kit.version}", self.require(self.configure(kit)))

    def test_compiles_without_libraries_when_nothing_is_to_be_linked(self):
        kit = self.changed_kit()
        shutil.rmtree(kit / "Lib")
        self.assertIn("ntoskrnl.lib", self.refused(kit))
        self.require(self.configure(kit, "-DMYRTELHAVEN_KIT_COMPILE_ONLY=ON"))


if __name__ == "__main__":
    unittest.main()
