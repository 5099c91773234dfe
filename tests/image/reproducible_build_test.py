"""The unsigned image and its debug information depend on the sources and tools alone."""
import os
import shutil
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from image_difference import difference
from support import BuildTest, configure_image, root, run, variable

# Whatever of its surroundings a tool might write into what it makes.
surroundings = [
    {"TZ": "Asia/Kathmandu", "LC_ALL": "C", "SOURCE_DATE_EPOCH": "1", "USER": "one", "LOGNAME": "one",
     "HOSTNAME": "first.example", "HOME": "/nonexistent/one"},
    {"TZ": "America/Anchorage", "LC_ALL": "tr_TR.UTF-8", "SOURCE_DATE_EPOCH": "2000000000", "USER": "another",
     "LOGNAME": "another", "HOSTNAME": "second.example", "HOME": "/nonexistent/another"},
]


class ReproducibleBuild(BuildTest):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.image = variable("DRIVER_IMAGE")

    def build(self, name, surrounding):
        """The image built from a copy of the sources in a folder of its own."""
        source, environment = self.folder / name, dict(os.environ, **surrounding)
        for part in "src", "include", "platform", "cmake":
            shutil.copytree(root / part, source / part)
        shutil.copy(root / "CMakeLists.txt", source)
        self.require(configure_image(source, source / "out", env=environment))
        self.require(run("cmake", "--build", source / "out", "--target", "driver_image", "--parallel", "1",
                         env=environment))
        return source / "out/image" / self.image.name

    def assert_same(self, first, second):
        told = [difference(first.with_suffix(suffix), second.with_suffix(suffix)) for suffix in (".sys", ".pdb")]
        self.assertEqual(told, [None, None])

    def test_gives_the_same_bytes_in_any_folder_and_surroundings(self):
        with ThreadPoolExecutor() as pool:
            first, second = pool.map(self.build, ["a", "a folder/of another/and a much longer name"], surroundings)
        self.assert_same(first, second)
        self.assert_same(first, self.image)

    def test_a_difference_is_told_by_section_and_offset(self):
        changed = self.folder / self.image.name
        image = bytearray(self.image.read_bytes())
        text = image.index(b".text\0\0\0")
        begin = int.from_bytes(image[text + 20:text + 24], "little")
        image[begin + 0x123] ^= 1
        changed.write_bytes(image)
        self.assertRegex(difference(self.image, changed), "differ in 1 bytes: section .text from offset 0x123$")
        changed.write_bytes(self.image.read_bytes() + b"\0")
        self.assertRegex(difference(self.image, changed), "differ in 0 bytes: length alone$")
        pdb = bytearray(self.image.with_suffix(".pdb").read_bytes())
        pdb[0x40] ^= 1
        changed.with_suffix(".pdb").write_bytes(pdb)
        told = difference(self.image.with_suffix(".pdb"), changed.with_suffix(".pdb"))
        self.assertRegex(told, "differ in 1 bytes: file from offset 0x40$")


if __name__ == "__main__":
    unittest.main()
