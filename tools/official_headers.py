"""Official headers: where they are, and what the compiler needs to read them."""
import os
import shutil
import subprocess
from pathlib import Path

from header_overlay import write_overlay

root = Path(__file__).resolve().parent.parent
# Name, clang's architecture, the kit's macro.
processors = [("Windows ARM64", "aarch64", "_ARM64_"), ("Windows x64", "x86_64", "_AMD64_")]


class Missing(Exception):
    pass


class Folders:
    """Include folders in the order of their search, and headers that stand in for those that they lack."""

    def __init__(self, folders, stand_ins, options):
        self.folders = folders
        self.stand_ins = stand_ins
        self.given = options

    def options(self, scratch, processor):
        made = scratch / f"stand-ins-{abs(hash(tuple(self.folders)))}"
        for name, text in self.stand_ins.items():
            file = made / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text, encoding="utf-8")
        overlay = made / "overlay.yaml"
        write_overlay(overlay, self.folders)
        searched = [option for folder in [made, *self.folders] for option in ("-isystem", str(folder))]
        return [*self.given, f"-D{processor}", "-ivfsoverlay", str(overlay), *searched]


def find(folders, name, within=""):
    """The folder that holds a header, below the given ones; `within` ends the folder's path."""
    for folder in folders:
        if not folder.is_dir():
            raise Missing(f"{folder} is not a folder")
        for path, _, files in os.walk(folder.resolve()):
            if path.replace(os.sep, "/").endswith(within) and name in map(str.lower, files):
                return Path(path)
    raise Missing(f"no {within + '/' if within else ''}{name} below {' '.join(map(str, folders))}")


def kit(folders):
    """The driver kit's headers. How the framework's loader is called stands in none of them."""
    kernel = find(folders, "ntifs.h")
    found = [kernel / "crt", kernel, find(folders, "ntdef.h", "/shared"), find(folders, "wdf.h", "/kmdf/1.15")]
    return Folders(found, {"wdf/bind.h": ""}, ["--config", str(root / "cmake/kit-definitions.cfg")])


# The SDK serves programs, not drivers: what it declares is gathered under the names that the facts include.
sdk_kernel = """#pragma once
#define WIN32_NO_STATUS
#include <windef.h>
#undef WIN32_NO_STATUS
#include <ntstatus.h>
#include <winternl.h>
#include <devioctl.h>
#include <devpropdef.h>
#include <ntddstor.h>
"""
# The C library's headers belong to a compiler and come with no package: the few words of theirs that the SDK uses.
c_string = """#pragma once
#include <stddef.h>
extern "C" {
int memcmp(const void *, const void *, size_t);
void *memcpy(void *, const void *, size_t);
void *memmove(void *, const void *, size_t);
void *memset(void *, int, size_t);
int _wcsicmp(const wchar_t *, const wchar_t *);
}
"""
c_excpt = "#pragma once\ntypedef int EXCEPTION_DISPOSITION;\n"
c_setjmp = "#pragma once\ntypedef int jmp_buf[1];\n"
package = "Microsoft.Windows.SDK.CPP"
package_version = "10.0.26100.9457"
project = f"""<Project Sdk="Microsoft.NET.Sdk">
  <PropertyGroup><TargetFramework>net8.0</TargetFramework></PropertyGroup>
  <ItemGroup><PackageDownload Include="{package}" Version="[{package_version}]" /></ItemGroup>
</Project>
"""


def sdk(scratch):
    """The SDK's headers, fetched once into the build folder; None without `dotnet`."""
    if shutil.which("dotnet") is None:
        return None
    packages = root / "build/official"
    headers = packages / package.lower() / package_version / "c/Include"
    if not headers.is_dir():
        file = scratch / "headers.csproj"
        file.write_text(project, encoding="utf-8")
        fetched = subprocess.run(["dotnet", "restore", str(file), "--packages", str(packages)],
                                 capture_output=True, text=True)
        if fetched.returncode:
            raise Missing(f"dotnet could not fetch {package}:\n{fetched.stdout}{fetched.stderr}")
    version = next(headers.iterdir())
    empty = dict.fromkeys(["wdf.h", "wdf/bind.h", "ntimage.h", "ctype.h"], "")
    stand_ins = {**empty, "string.h": c_string, "excpt.h": c_excpt, "setjmp.h": c_setjmp, "ntifs.h": sdk_kernel}
    return Folders([version / "um", version / "shared"], stand_ins,
                   ["-D_WIN64", "-D_WIN32_WINNT=0x0A00", "-DNTDDI_VERSION=0x0A000008"])
