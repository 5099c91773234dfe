"""What the tests of builds share."""
import os
import subprocess
import unittest
from pathlib import Path

root = Path(__file__).resolve().parent.parent.parent


def run(*command, **options):
    return subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)


def configure_image(source, build, *options, **how):
    return run("cmake", "-G", "Ninja", "-S", source, "-B", build, "-DCMAKE_CXX_COMPILER=clang++-19",
               "-DMYRTELHAVEN_IMAGE_ONLY=ON", *options, **how)


def variable(name):
    """A path that the build hands to its tests."""
    return Path(os.environ[name])


class BuildTest(unittest.TestCase):
    def require(self, result):
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout
