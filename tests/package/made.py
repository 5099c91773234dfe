"""Packages made by ./package in a folder of their own."""

import os
import pathlib
import shutil
import subprocess
import tempfile

from examples import PROJECT

BUILD = pathlib.Path(os.environ["BUILD_FOLDER"])
NAME = "TarvenholtMyrtelhavenDriver"
BUILT_IMAGE = BUILD / f"image/{NAME}.sys"
DATE = 1706659200  # 31 January 2024


def package(*options, output, date=DATE):
    """Runs ./package; output of the tools that it uses goes to its standard error."""
    environment = {**os.environ, "SOURCE_DATE_EPOCH": str(date)} if date is not None else dict(os.environ)
    command = [str(PROJECT / "package"), "--build", str(BUILD), *map(str, options)]
    command += ["--output", str(output)] if output else []
    return run(*command, env=environment, cwd=tempfile.gettempdir())


def run(*command, **more):
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=300, **more)


def files_of(folder):
    """The bytes of all files by their names within a folder."""
    return {path.relative_to(folder).as_posix(): path.read_bytes()
            for path in sorted(folder.rglob("*")) if path.is_file()}


class Folder:
    """A folder that goes with the test class that uses it; its name holds a blank, as those of people do."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="a package "))
        cls.addClassCleanup(shutil.rmtree, cls.folder)


class Made(Folder):
    """One package, made with the given options before the tests of the class."""
    options = ()

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.dist = cls.folder / "dist"
        cls.ran = package(*cls.options, output=cls.dist)
        if cls.ran.returncode != 0:
            raise AssertionError(f"./package ended with {cls.ran.returncode}: {cls.ran.stderr}")
